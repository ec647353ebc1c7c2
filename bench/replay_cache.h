#pragma once
// The result cache's costs: a replay with an empty cache (cold) and the same replay again
// (warm), against a replay without a cache and against the floor of a warm job, a bare
// posix_spawn runner that starts only the writer per job.

#include "replay_workspace.h"

#include <string>
#include <vector>

namespace replaybench {

// Wall seconds of one povrun run on the workspace at -c `concurrency`, with `extra` words
// after the usual ones, its standard output discarded; negative when it failed.
double povrunSeconds(const workspace_t& workspace, unsigned concurrency,
                     const std::vector<std::string>& extra, long* peakKib = nullptr);

// Prints one line per concurrency (1 and 2) for `goals` goals, every goal replayed, with
// the medians of `rounds` rounds and the cache's disk use per entry, then whether the
// targets are met. False, after a message on stderr, when a run failed or ended wrong.
bool printCacheRuns(const workspace_t& workspace, unsigned goals, int rounds);

// The same for a replay with and without --report and --junit: time and peak memory.
bool printReportRuns(const workspace_t& workspace, unsigned goals, int rounds);

} // namespace replaybench
