#pragma once
// The director's child processes. Tools are started with posix_spawn, so starting one
// never copies povrun's memory (which holds the whole status document); their
// descriptors are wired with file actions, and every descriptor made here is
// close-on-exec, so that a tool started by one worker never inherits another worker's
// pipe (an inherited write end would keep that worker's reader from ever seeing
// end-of-file).

#include <QByteArray>
#include <QStringList>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <functional>
#include <mutex>
#include <sys/types.h>
#include <vector>

namespace process {

// A program and its arguments (without the program itself).
struct command_t {
    std::filesystem::path program;
    QStringList args;
};

// How much of a tool's standard error is kept; a tool that writes more is still read to
// its end, so it never blocks.
constexpr qint64 ERRORS_KEPT = 65536;

// How one tool ended.
struct exit_t {
    bool started = false;     // false: the program could not be executed, nothing ran
    bool crashed = false;     // ended by a signal
    int code = 0;             // exit code of a normal end
    int signal = 0;           // the signal that ended it, when crashed
    QByteArray errors;        // what it wrote on its standard error, at most ERRORS_KEPT bytes
    qint64 errorsDropped = 0; // how many more it wrote
};

// The tools that are running, so that another thread can stop them. Once beginStop() has
// been called no tool starts, and one whose start was under way is killed as soon as it
// is registered.
class Registry {
public:
    // Runs `spawn` and records the pid it returns (when positive). Returns false, without
    // calling it, once beginStop() has been called.
    bool start(const std::function<pid_t()>& spawn);
    // Forgets a pid; called before the child is reaped, so its pid cannot be reused by
    // an unrelated process while it is still listed.
    void forget(pid_t pid);
    // Refuses every later start and returns the pids running now.
    std::vector<pid_t> beginStop();
    bool stopping() const;
    // Waits until no registered tool is left, at most `limit`.
    void waitUntilEmpty(std::chrono::milliseconds limit);

private:
    // Guards pids, starting and stopped; held only to add, remove or copy pids.
    mutable std::mutex mutex;
    std::condition_variable emptied;
    std::vector<pid_t> pids;
    int starting = 0; // spawns under way
    bool stopped = false;
};

// Runs a tool alone: standard input and output on /dev/null, standard error captured.
// False when `registry` is stopping (nothing was started).
bool runAlone(const command_t& tool, Registry& registry, exit_t& result);

// The outcome of a prover piped into a reader.
struct pipeline_t {
    exit_t prover;
    exit_t reader;
    QByteArray output; // the reader's standard output
};

// Runs `prover` with standard input from `inputFile` (/dev/null when empty), its
// standard output piped straight into `reader`, whose standard output is read here
// while both run. A prover that cannot start (or whose input cannot be opened) leaves
// the reader an empty input; a prover ended by a signal gets its reader killed. False
// when `registry` is stopping (nothing was started, or the reader was refused and the
// prover killed).
bool runPipeline(const command_t& prover, const QString& inputFile, const command_t& reader,
                 Registry& registry, pipeline_t& result);

// Sends `signal` to `pid`; a pid that is gone is ignored.
void kill(pid_t pid, int signal);

} // namespace process
