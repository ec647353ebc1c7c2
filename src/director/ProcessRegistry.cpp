// The owner of the tools' pids: starting, reaping, signalling and stopping them.

#include "director/Process.h"
#include "director/ProcessTree.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace process {
namespace {

// Set once, before any tool starts, by a process that owns all its children this way.
std::atomic<bool> adopting{false};

} // namespace

void adoptOrphans() {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    adopting = true;
}

pid_t Registry::start(const std::function<pid_t()>& spawn) {
    uint64_t ticket;
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (stopped)
            return REFUSED;
        ticket = ++lastStart;
        startsUnderWay.push_back(ticket);
    }
    const pid_t pid = spawn();
    std::lock_guard<std::mutex> lock(mutex);
    startsUnderWay.erase(std::find(startsUnderWay.begin(), startsUnderWay.end(), ticket));
    if (pid > 0) {
        child_t child;
        child.pid = pid;
        // Another thread may have reaped it already, before it was recorded.
        const auto stray = std::find_if(strays.begin(), strays.end(),
                                        [pid](const stray_t& s) { return s.end.pid == pid; });
        if (stray != strays.end()) {
            child = stray->end;
            strays.erase(stray);
        }
        children.push_back(child);
        // A stop that began meanwhile has signalled the others already.
        if (stopped && !child.ended)
            deliver(-pid, SIGKILL);
    }
    pruneStraysLocked();
    return pid;
}

void Registry::pruneStraysLocked() {
    // A stray can only be the child of a start that was under way when it was reaped;
    // once all of those are over, it was an orphan.
    const uint64_t oldest = startsUnderWay.empty()
                                ? lastStart + 1
                                : *std::min_element(startsUnderWay.begin(), startsUnderWay.end());
    strays.erase(std::remove_if(strays.begin(), strays.end(),
                                [oldest](const stray_t& s) { return s.lastStart < oldest; }),
                 strays.end());
}

void Registry::recordLocked(pid_t pid, int code, int status) {
    for (child_t& child : children) {
        if (child.pid == pid && !child.ended) {
            child.ended = true;
            child.code = code;
            child.status = status;
            return;
        }
    }
    if (!startsUnderWay.empty())
        strays.push_back({{pid, true, code, status}, lastStart});
}

void Registry::reapLocked() {
    siginfo_t info{};
    if (adopting) {
        while (waitid(P_ALL, 0, &info, WEXITED | WNOHANG) == 0 && info.si_pid != 0) {
            recordLocked(info.si_pid, info.si_code, info.si_status);
            info = siginfo_t{};
        }
        return;
    }
    for (child_t& child : children) {
        info = siginfo_t{};
        if (child.ended ||
            waitid(P_PID, static_cast<id_t>(child.pid), &info, WEXITED | WNOHANG) != 0 ||
            info.si_pid != child.pid)
            continue;
        child.ended = true;
        child.code = info.si_code;
        child.status = info.si_status;
    }
}

void Registry::reap() {
    std::lock_guard<std::mutex> lock(mutex);
    reapLocked();
}

bool Registry::collect(pid_t pid, exit_t& result) {
    std::lock_guard<std::mutex> lock(mutex);
    const auto child = std::find_if(children.begin(), children.end(),
                                    [pid](const child_t& c) { return c.pid == pid; });
    if (child == children.end() || !child->ended)
        return false;
    result.crashed = child->code != CLD_EXITED;
    result.signal = result.crashed ? child->status : 0;
    result.code = result.crashed ? 0 : child->status;
    children.erase(child);
    return true;
}

void Registry::signal(pid_t pid, int signal) {
    std::lock_guard<std::mutex> lock(mutex);
    for (const child_t& child : children)
        if (child.pid == pid && !child.ended)
            deliver(-pid, signal);
}

bool Registry::stopping() const {
    std::lock_guard<std::mutex> lock(mutex);
    return stopped;
}

void Registry::deliver(pid_t target, int signal) {
    // A tool that moved itself to another group is still reached by its pid.
    if (::kill(target, signal) != 0 && errno == ESRCH && target < 0)
        ::kill(-target, signal);
}

bool Registry::anyRunningLocked() const {
    return std::any_of(children.begin(), children.end(),
                       [](const child_t& child) { return !child.ended; });
}

void Registry::signalAllLocked(int signal) {
    for (const child_t& child : children)
        if (!child.ended)
            deliver(-child.pid, signal);
}

bool Registry::signalEscapeesLocked(int signal, std::vector<pid_t>& signalled) {
    // Without adoption, orphans go to init and other children may not be ours.
    if (!adopting)
        return false;
    bool found = false;
    for (const processtree::process_t& process : processtree::liveDescendantsOf(getpid())) {
        const bool inOwnedGroup =
            std::any_of(children.begin(), children.end(),
                        [&](const child_t& c) { return !c.ended && c.pid == process.group; });
        if (inOwnedGroup)
            continue;
        found = true;
        if (std::find(signalled.begin(), signalled.end(), process.pid) == signalled.end()) {
            signalled.push_back(process.pid);
            deliver(process.pid, signal);
        }
    }
    return found;
}

void Registry::stop(std::chrono::milliseconds grace, std::chrono::milliseconds limit) {
    using clock = std::chrono::steady_clock;
    const clock::time_point began = clock::now();
    // A process that shows up during the grace (a script starting its next command) gets
    // its SIGTERM at once instead of waiting out the grace.
    std::vector<pid_t> warned;
    bool killing = false;
    {
        std::lock_guard<std::mutex> lock(mutex);
        stopped = true;
        signalAllLocked(SIGTERM);
        signalEscapeesLocked(SIGTERM, warned);
    }
    for (;;) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        std::lock_guard<std::mutex> lock(mutex);
        reapLocked();
        const clock::duration spent = clock::now() - began;
        if (!killing && spent >= grace) {
            killing = true;
            signalAllLocked(SIGKILL);
        }
        std::vector<pid_t> killed;
        const bool escapees =
            signalEscapeesLocked(killing ? SIGKILL : SIGTERM, killing ? killed : warned);
        if ((!anyRunningLocked() && !escapees) || spent >= grace + limit)
            return;
        if (killing)
            signalAllLocked(SIGKILL); // the children of a killed wrapper, in its group
    }
}

} // namespace process
