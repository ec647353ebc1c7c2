// Watching a job's tools: their ends, and the output they write meanwhile.

#include "director/Process_p.h"

#include <algorithm>
#include <cerrno>
#include <poll.h>
#include <sys/syscall.h>

namespace process {
namespace {

// A descriptor that becomes readable when `pid` ends; -1 where the kernel has none.
int pidfdOf(pid_t pid) {
#ifdef SYS_pidfd_open
    return static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
#else
    (void)pid;
    return -1;
#endif
}

void keep(Output& output, const char* data, qint64 size) {
    qint64 kept = size;
    if (output.limit > 0)
        kept = std::max<qint64>(0, std::min<qint64>(size, output.limit - output.into->size()));
    output.into->append(data, static_cast<int>(kept));
    if (output.dropped != nullptr)
        *output.dropped += size - kept;
}

enum class Read { SOME, NOTHING_YET, ENDED };

// Reads one chunk of what the pipe holds.
Read readSome(Output& output) {
    char buffer[65536];
    for (;;) {
        const ssize_t got = ::read(output.fd.get(), buffer, sizeof buffer);
        if (got > 0) {
            keep(output, buffer, got);
            return Read::SOME;
        }
        if (got < 0 && errno == EINTR)
            continue;
        return got < 0 && errno == EAGAIN ? Read::NOTHING_YET : Read::ENDED;
    }
}

} // namespace

void Watch::addChild(pid_t pid, exit_t& result) {
    Child child;
    child.pid = pid;
    child.pidfd.reset(pidfdOf(pid));
    child.result = &result;
    child.running = true;
    result.started = true;
    children.push_back(std::move(child));
    // Another worker may have reaped it before its pidfd was opened: that pidfd may name
    // another process by now, and the end is already in the registry.
    takeEndIfReaped(children.back());
}

void Watch::addOutput(Fd fd, QByteArray& into) {
    outputs.push_back({std::move(fd), &into, 0, nullptr});
}

void Watch::addErrors(Fd fd, exit_t& result) {
    outputs.push_back({std::move(fd), &result.errors, ERRORS_KEPT, &result.errorsDropped});
}

bool Watch::anyRunning() const {
    for (const Child& child : children)
        if (child.running)
            return true;
    return false;
}

void Watch::run() {
    while (anyRunning())
        pollOnce();
    drainRest();
}

std::vector<pollfd> Watch::openOutputs() const {
    std::vector<pollfd> watched;
    for (const Output& output : outputs)
        if (output.fd.valid())
            watched.push_back({output.fd.get(), POLLIN, 0});
    return watched;
}

void Watch::readReady(const std::vector<pollfd>& watched) {
    std::size_t i = 0;
    for (Output& output : outputs) {
        if (!output.fd.valid())
            continue;
        if (watched[i++].revents != 0 && readSome(output) == Read::ENDED)
            output.fd.reset();
    }
}

void Watch::pollOnce() {
    std::vector<pollfd> watched = openOutputs();
    const std::size_t firstChild = watched.size();
    int timeout = -1;
    for (const Child& child : children) {
        if (child.running && child.pidfd.valid())
            watched.push_back({child.pidfd.get(), POLLIN, 0});
        else if (child.running)
            timeout = 10; // no pidfd: look again soon
    }
    if (::poll(watched.data(), watched.size(), timeout) < 0 && errno != EINTR)
        timeout = 10;
    readReady(watched);
    std::size_t i = firstChild;
    for (Child& child : children) {
        if (child.running && (!child.pidfd.valid() || watched[i++].revents != 0))
            collectIfEnded(child);
    }
}

void Watch::collectIfEnded(Child& child) {
    // Whoever reaps records the end in the registry, which hands it over here.
    registry.reap();
    takeEndIfReaped(child);
}

void Watch::takeEndIfReaped(Child& child) {
    if (!registry.collect(child.pid, *child.result))
        return;
    child.running = false;
    child.pidfd.reset();
    ended(child);
}

void Watch::drainRest() {
    using clock = std::chrono::steady_clock;
    const clock::time_point deadline = clock::now() + DRAIN_LIMIT;
    for (;;) {
        std::vector<pollfd> watched = openOutputs();
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - clock::now());
        if (watched.empty() || left.count() <= 0)
            break;
        if (::poll(watched.data(), watched.size(), static_cast<int>(left.count())) > 0)
            readReady(watched);
    }
    for (Output& output : outputs)
        output.fd.reset();
}

} // namespace process
