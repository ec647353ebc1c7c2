#pragma once
// Where the time of one replay job goes, measured inside this process with povrun's own
// director code: loading the .pos file, saving it, and running one writer and one
// prover/reader pair through the director, set beside the same processes started with
// posix_spawn.

#include "replay_workspace.h"

namespace replaybench {

// Rewrites the workspace's .pos file with `goals` replayable goals, then prints one line
// of medians (wall time): over `rounds` loads and saves, and over the first `jobs` jobs
// for the process costs. False, after a message on stderr, when something failed.
bool printSplit(const workspace_t& workspace, unsigned goals, int rounds, unsigned jobs);

} // namespace replaybench
