#include "director/ProcessTree.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <map>
#include <set>
#include <string>
#include <sys/prctl.h>
#include <thread>
#include <unistd.h>

namespace processtree {
namespace {

using children_t = std::multimap<pid_t, std::pair<pid_t, bool>>; // parent -> (pid, alive)

// Reads the state and parent of one /proc entry; false when it is gone or unreadable.
bool readStat(const char* pidText, char& state, long& parent) {
    const std::string statPath = std::string("/proc/") + pidText + "/stat";
    FILE* stat = fopen(statPath.c_str(), "re");
    if (stat == nullptr)
        return false;
    char line[1024];
    const bool read = fgets(line, sizeof line, stat) != nullptr;
    fclose(stat);
    // The command name may hold blanks and parentheses: parse after the last ')'.
    const char* afterName = read ? strrchr(line, ')') : nullptr;
    return afterName != nullptr && sscanf(afterName + 1, " %c %ld", &state, &parent) == 2;
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
        if (pid <= 0 || *end != '\0' || !readStat(entry->d_name, state, parent))
            continue;
        childrenOf.emplace(static_cast<pid_t>(parent),
                           std::make_pair(static_cast<pid_t>(pid), state != 'Z'));
    }
    closedir(proc);
    return childrenOf;
}

void signalAll(const std::vector<pid_t>& pids, int signal) {
    for (pid_t pid : pids)
        if (pid > 0)
            ::kill(pid, signal);
}

} // namespace

void becomeSubreaper() {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
}

std::vector<pid_t> liveDescendantsOf(pid_t root) {
    const children_t childrenOf = childrenOfEveryProcess();
    std::vector<pid_t> live;
    std::vector<pid_t> pending = {root};
    while (!pending.empty()) {
        const pid_t parent = pending.back();
        pending.pop_back();
        const auto range = childrenOf.equal_range(parent);
        for (auto it = range.first; it != range.second; ++it) {
            pending.push_back(it->second.first);
            if (it->second.second)
                live.push_back(it->second.first);
        }
    }
    return live;
}

void endDescendants(std::chrono::milliseconds grace) {
    constexpr std::chrono::milliseconds pause{10};
    // A process forked while the first signals went out (a script starting its next
    // command) gets its own SIGTERM when it shows up, instead of the whole grace.
    std::set<pid_t> warned;
    const auto deadline = std::chrono::steady_clock::now() + grace;
    for (std::vector<pid_t> live = liveDescendantsOf(getpid());
         !live.empty() && std::chrono::steady_clock::now() < deadline;
         live = liveDescendantsOf(getpid())) {
        for (pid_t pid : live)
            if (warned.insert(pid).second)
                ::kill(pid, SIGTERM);
        std::this_thread::sleep_for(pause);
    }
    // The children of a killed wrapper come back to this process (it is a subreaper), so
    // the next round finds them.
    for (int round = 0; round < 100; ++round) {
        const std::vector<pid_t> live = liveDescendantsOf(getpid());
        if (live.empty())
            return;
        signalAll(live, SIGKILL);
        std::this_thread::sleep_for(pause);
    }
}

} // namespace processtree
