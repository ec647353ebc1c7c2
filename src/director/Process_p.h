#pragma once
// Internals of the process module: descriptors that close themselves, and the watch that
// reads a job's pipes while its tools run.

#include "director/Process.h"

#include <chrono>
#include <fcntl.h>
#include <functional>
#include <poll.h>
#include <unistd.h>
#include <vector>

namespace process {

// A descriptor that closes itself.
class Fd {
public:
    Fd() = default;
    explicit Fd(int fd) : fd(fd) {}
    Fd(Fd&& other) noexcept : fd(other.release()) {}
    Fd& operator=(Fd&& other) noexcept {
        reset(other.release());
        return *this;
    }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    ~Fd() { reset(); }

    int get() const { return fd; }
    bool valid() const { return fd >= 0; }
    int release() {
        const int kept = fd;
        fd = -1;
        return kept;
    }
    void reset(int other = -1) {
        if (fd >= 0)
            ::close(fd);
        fd = other;
    }

private:
    int fd = -1;
};

// Opens a pipe whose ends close on exec; false, with the reason in `failure`, when the
// system has no descriptor left or refuses.
bool makePipe(Fd& readEnd, Fd& writeEnd, QString& failure);

// One child being watched; its end is collected from the registry that reaped it.
struct Child {
    pid_t pid = -1;
    Fd pidfd; // readable once the child has ended; invalid where pidfds are missing
    exit_t* result = nullptr;
    bool running = false;
};

// One pipe whose content is collected, up to `limit` bytes (none when 0); the rest is
// read and counted, so that the writer never blocks on it.
struct Output {
    Fd fd;
    QByteArray* into = nullptr;
    qint64 limit = 0;
    qint64* dropped = nullptr;
};

// Watches children and the pipes that carry their output until every child has ended;
// then reads the pipes for at most DRAIN_LIMIT more, so that a grandchild that keeps one
// open (or writes into it for ever) cannot keep the job alive.
constexpr std::chrono::milliseconds DRAIN_LIMIT{100};

class Watch {
public:
    // `ended` is called for each child as it is reaped.
    Watch(Registry& registry, const std::function<void(const Child&)>& ended)
        : registry(registry), ended(ended) {}

    void addChild(pid_t pid, exit_t& result);
    // A pipe whose whole content goes to `into`.
    void addOutput(Fd fd, QByteArray& into);
    // A tool's standard error, kept up to ERRORS_KEPT bytes and counted beyond.
    void addErrors(Fd fd, exit_t& result);
    // Returns once every child has ended and the pipes are read.
    void run();

private:
    bool anyRunning() const;
    // Poll entries for the pipes still open, in the order of `outputs`.
    std::vector<pollfd> openOutputs() const;
    // Reads a chunk from each pipe that `watched` (from openOutputs()) found ready.
    void readReady(const std::vector<pollfd>& watched);
    void pollOnce();
    // Reaps what has ended, then takes `child`'s end if it is among them.
    void collectIfEnded(Child& child);
    void takeEndIfReaped(Child& child);
    void drainRest();

    Registry& registry;
    std::function<void(const Child&)> ended;
    std::vector<Child> children;
    std::vector<Output> outputs;
};

} // namespace process
