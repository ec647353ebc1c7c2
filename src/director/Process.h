#pragma once
// The director's child processes. Tools are started with posix_spawn, so starting one
// never copies povrun's memory (which holds the whole status document); their
// descriptors are wired with file actions, and every descriptor made here is
// close-on-exec, so that a tool started by one worker never inherits another worker's
// pipe (an inherited write end would keep that worker's reader from ever seeing
// end-of-file).
//
// Who owns a pid. A Registry owns every child it starts, from its spawn to its reaping;
// nothing else waits for, or signals, one of them. It reaps under its lock, and signals
// only under the same lock and only a child it has not reaped yet: a reaped pid may
// already belong to another process. Each tool leads a process group of its own, so a
// signal to that group reaches whatever the tool started, and a terminal's Ctrl-C reaches
// povrun alone, which then stops the tools itself. Where the process adopts orphans, the
// Registry reaps every child that ends, the orphans of tools included, so none of them
// lingers as a zombie.

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <chrono>
#include <cstdint>
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
    QString failure;          // why it did not start: "cannot exec 'PATH': REASON" and the like
    bool crashed = false;     // ended by a signal
    int code = 0;             // exit code of a normal end
    int signal = 0;           // the signal that ended it, when crashed
    QByteArray errors;        // what it wrote on its standard error, at most ERRORS_KEPT bytes
    qint64 errorsDropped = 0; // how many more it wrote
};

// Makes this process reap every child that ends and the parent of its tools' orphans (a
// subreaper), so that a stop still finds those and none stays a zombie. Only for a process
// whose children are all started through Registries, one at a time: another owner of
// children (a QProcess) would find its own reaped.
void adoptOrphans();

// The owner of the tools that run. Once stop() has begun no tool starts, and one whose
// start was under way is killed as soon as it is recorded.
class Registry {
public:
    static constexpr pid_t REFUSED = -2;

    Registry() = default;
    virtual ~Registry() = default;
    Registry(const Registry&) = delete;
    Registry& operator=(const Registry&) = delete;

    // Runs `spawn` outside the lock (so workers start tools side by side) and owns the
    // pid it returns. Returns that pid, -1 when it failed, REFUSED (without calling it)
    // once stop() has begun.
    pid_t start(const std::function<pid_t()>& spawn);
    // Reaps what has ended and keeps the ends of owned children until collected.
    void reap();
    // True, with its end in `result`, once `pid` was reaped; the pid is then forgotten.
    bool collect(pid_t pid, exit_t& result);
    // Sends `signal` to the group of `pid` while `pid` is owned and not reaped.
    void signal(pid_t pid, int signal);
    // Refuses every later start, sends SIGTERM to every tool's group (so a tool can pass
    // the stop on), SIGKILL to what is left after `grace`, and reaps for at most `limit`
    // more. Processes that left their tool's group are found below this one in /proc.
    void stop(std::chrono::milliseconds grace, std::chrono::milliseconds limit);
    bool stopping() const;

protected:
    // Where every signal leaves, with the lock held: `group` leads a process group and is
    // owned and not reaped, or it is a process that escaped its tool's group.
    virtual void deliver(pid_t group, int signal);

private:
    struct child_t {
        pid_t pid = 0;
        bool ended = false;
        int code = 0;   // si_code of the end: CLD_EXITED, CLD_KILLED or CLD_DUMPED
        int status = 0; // exit code or signal
    };
    // A child reaped before its start had recorded it.
    struct stray_t {
        child_t end;
        uint64_t lastStart; // the newest start under way when it was reaped
    };
    void recordLocked(pid_t pid, int code, int status);
    void reapLocked();
    bool anyRunningLocked() const;
    void signalAllLocked(int signal);
    // Signals, once each, processes below this one that left their tool's group; true when
    // any live one was found.
    bool signalEscapeesLocked(int signal, std::vector<pid_t>& signalled);
    void pruneStraysLocked();

    // Guards everything below; held for table work, reaping and signalling, never while a
    // child is spawned or waited for.
    mutable std::mutex mutex;
    std::vector<child_t> children;
    std::vector<uint64_t> startsUnderWay;
    uint64_t lastStart = 0;
    std::vector<stray_t> strays;
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

} // namespace process
