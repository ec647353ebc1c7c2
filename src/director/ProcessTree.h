#pragma once
// The tree of processes below povrun: the tools and whatever they start in turn (a
// wrapper script's solver, a cluster submission). A stop must reach all of them.

#include <chrono>
#include <sys/types.h>
#include <vector>

namespace processtree {

// Makes orphans of the tools (a wrapper's solver, say) children of this process instead
// of init's, so that a stop can still find and end them. Process groups would do it too,
// but would take the tools out of the terminal's group and break Ctrl-C.
void becomeSubreaper();

// Live (not zombie) processes whose chain of parents leads to `root`, read from /proc.
std::vector<pid_t> liveDescendantsOf(pid_t root);

// Ends every live descendant of this process: SIGTERM first, so that a tool can pass the stop on (a
// cluster client cancels its job), then, after at most `grace`, SIGKILL to whatever is left, until
// nothing is.
void endDescendants(std::chrono::milliseconds grace);

} // namespace processtree
