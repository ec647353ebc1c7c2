#pragma once
// The tree of processes below povrun, read from /proc: the tools and whatever they start
// in turn (a wrapper script's solver, a cluster submission), for a stop to find what left
// its tool's process group.

#include <sys/types.h>
#include <vector>

namespace processtree {

struct process_t {
    pid_t pid = 0;
    pid_t group = 0; // its process group
};

// Live (not zombie) processes whose chain of parents leads to `root`.
std::vector<process_t> liveDescendantsOf(pid_t root);

} // namespace processtree
