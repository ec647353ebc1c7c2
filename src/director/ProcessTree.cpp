#include "director/ProcessTree.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <map>
#include <string>

namespace processtree {
namespace {

struct entry_t {
    process_t process;
    bool alive = false;
};
using children_t = std::multimap<pid_t, entry_t>; // parent -> child

// Reads the state, parent and group of one /proc entry; false when it is gone or
// unreadable.
bool readStat(const char* pidText, char& state, long& parent, long& group) {
    const std::string statPath = std::string("/proc/") + pidText + "/stat";
    FILE* stat = fopen(statPath.c_str(), "re");
    if (stat == nullptr)
        return false;
    char line[1024];
    const bool read = fgets(line, sizeof line, stat) != nullptr;
    fclose(stat);
    // The command name may hold blanks and parentheses: parse after the last ')'.
    const char* afterName = read ? strrchr(line, ')') : nullptr;
    return afterName != nullptr &&
           sscanf(afterName + 1, " %c %ld %ld", &state, &parent, &group) == 3;
}

children_t childrenOfEveryProcess() {
    children_t childrenOf;
    DIR* proc = opendir("/proc");
    if (proc == nullptr)
        return childrenOf;
    while (const dirent* entry = readdir(proc)) {
        char* end = nullptr;
        const long pid = strtol(entry->d_name, &end, 10);
        char state = 0;
        long parent = 0;
        long group = 0;
        if (pid <= 0 || *end != '\0' || !readStat(entry->d_name, state, parent, group))
            continue;
        const process_t process{static_cast<pid_t>(pid), static_cast<pid_t>(group)};
        childrenOf.emplace(static_cast<pid_t>(parent), entry_t{process, state != 'Z'});
    }
    closedir(proc);
    return childrenOf;
}

} // namespace

std::vector<process_t> liveDescendantsOf(pid_t root) {
    const children_t childrenOf = childrenOfEveryProcess();
    std::vector<process_t> live;
    std::vector<pid_t> pending = {root};
    while (!pending.empty()) {
        const pid_t parent = pending.back();
        pending.pop_back();
        const auto range = childrenOf.equal_range(parent);
        for (auto it = range.first; it != range.second; ++it) {
            pending.push_back(it->second.process.pid);
            if (it->second.alive)
                live.push_back(it->second.process);
        }
    }
    return live;
}

} // namespace processtree
