#pragma once
// Internals of the process module: descriptors that close themselves, and the watch that
// reads a job's pipes while its tools run.

#include "director/Process.h"

#include <fcntl.h>
#include <functional>
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

inline bool makePipe(Fd& readEnd, Fd& writeEnd) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return false;
    readEnd.reset(ends[0]);
    writeEnd.reset(ends[1]);
    return true;
}

// One child being watched: it is known to have ended before it is reaped.
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
// whatever the pipes hold then is read, but a grandchild that keeps a pipe open is not
// waited for.
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
    void pollOnce();
    void reapIfEnded(Child& child);
    void drainRest();

    Registry& registry;
    std::function<void(const Child&)> ended;
    std::vector<Child> children;
    std::vector<Output> outputs;
};

} // namespace process
