#include "director/Process.h"

#include <QFile>
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <string>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace process {
namespace {

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

bool makePipe(Fd& readEnd, Fd& writeEnd) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return false;
    readEnd.reset(ends[0]);
    writeEnd.reset(ends[1]);
    return true;
}

Fd openForReading(const char* path) {
    return Fd(::open(path, O_RDONLY | O_CLOEXEC));
}

Fd openNullForWriting() {
    return Fd(::open("/dev/null", O_WRONLY | O_CLOEXEC));
}

// Starts `command` with its standard streams on `in`, `out` and `err`; -1 when it cannot
// be executed. glibc's posix_spawn reports a failed exec as its result.
pid_t spawn(const command_t& command, int in, int out, int err) {
    std::vector<std::string> words;
    words.push_back(command.program.string());
    for (const QString& arg : command.args)
        words.push_back(arg.toStdString());
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err, STDERR_FILENO);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    // A tool writing into a pipe its reader left must end as tools do, whatever povrun's
    // own parent chose for SIGPIPE.
    sigset_t pipeSignal;
    sigemptyset(&pipeSignal);
    sigaddset(&pipeSignal, SIGPIPE);
    posix_spawnattr_setsigdefault(&attributes, &pipeSignal);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    pid_t pid = -1;
    const int failure =
        posix_spawn(&pid, words[0].c_str(), &actions, &attributes, argv.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return failure == 0 ? pid : -1;
}

// A descriptor that becomes readable when `pid` ends; -1 where the kernel has none.
int pidfdOf(pid_t pid) {
#ifdef SYS_pidfd_open
    return static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
#else
    (void)pid;
    return -1;
#endif
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

// Watches children and the pipes that carry their output until every child has ended;
// whatever the pipes hold then is read, but a grandchild that keeps a pipe open is not
// waited for.
class Watch {
public:
    Watch(Registry& registry, const std::function<void(const Child&)>& ended)
        : registry(registry), ended(ended) {}

    void addChild(pid_t pid, exit_t& result) {
        Child child;
        child.pid = pid;
        child.pidfd.reset(pidfdOf(pid));
        child.result = &result;
        child.running = true;
        result.started = true;
        children.push_back(std::move(child));
    }
    void addOutput(Fd fd, QByteArray& into) {
        outputs.push_back({std::move(fd), &into, 0, nullptr});
    }
    void addErrors(Fd fd, exit_t& result) {
        outputs.push_back({std::move(fd), &result.errors, ERRORS_KEPT, &result.errorsDropped});
    }
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

void Watch::pollOnce() {
    std::vector<pollfd> watched;
    int timeout = -1;
    for (const Output& output : outputs)
        if (output.fd.valid())
            watched.push_back({output.fd.get(), POLLIN, 0});
    for (const Child& child : children) {
        if (child.running && child.pidfd.valid())
            watched.push_back({child.pidfd.get(), POLLIN, 0});
        else if (child.running)
            timeout = 10; // no pidfd: look again soon
    }
    if (::poll(watched.data(), watched.size(), timeout) < 0 && errno != EINTR)
        timeout = 10;
    std::size_t i = 0;
    for (Output& output : outputs) {
        if (!output.fd.valid())
            continue;
        if (watched[i++].revents != 0 && readSome(output) == Read::ENDED)
            output.fd.reset();
    }
    for (Child& child : children)
        if (child.running)
            reapIfEnded(child);
}

void Watch::reapIfEnded(Child& child) {
    siginfo_t info{};
    if (waitid(P_PID, static_cast<id_t>(child.pid), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
        info.si_pid != child.pid)
        return;
    registry.forget(child.pid);
    int status = 0;
    while (waitpid(child.pid, &status, 0) < 0 && errno == EINTR) {
    }
    child.running = false;
    child.pidfd.reset();
    child.result->crashed = WIFSIGNALED(status);
    child.result->signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    child.result->code = WIFEXITED(status) ? WEXITSTATUS(status) : 0;
    ended(child);
}

void Watch::drainRest() {
    for (Output& output : outputs) {
        if (!output.fd.valid())
            continue;
        fcntl(output.fd.get(), F_SETFL, fcntl(output.fd.get(), F_GETFL) | O_NONBLOCK);
        while (readSome(output) == Read::SOME) {
        }
        output.fd.reset();
    }
}

// Starts `command` through the registry; -1 when it could not be executed, -2 when the
// registry is stopping.
pid_t startRegistered(Registry& registry, const command_t& command, int in, int out, int err) {
    pid_t pid = -1;
    if (!registry.start([&] { return pid = spawn(command, in, out, err); }))
        return -2;
    return pid;
}

} // namespace

bool Registry::start(const std::function<pid_t()>& spawnOne) {
    std::lock_guard<std::mutex> lock(mutex);
    if (stopped)
        return false;
    const pid_t pid = spawnOne();
    if (pid > 0)
        pids.push_back(pid);
    return true;
}

void Registry::forget(pid_t pid) {
    std::lock_guard<std::mutex> lock(mutex);
    for (auto it = pids.begin(); it != pids.end(); ++it) {
        if (*it == pid) {
            pids.erase(it);
            break;
        }
    }
    if (pids.empty())
        emptied.notify_all();
}

std::vector<pid_t> Registry::beginStop() {
    std::lock_guard<std::mutex> lock(mutex);
    stopped = true;
    return pids;
}

bool Registry::stopping() const {
    std::lock_guard<std::mutex> lock(mutex);
    return stopped;
}

void Registry::waitUntilEmpty(std::chrono::milliseconds limit) {
    std::unique_lock<std::mutex> lock(mutex);
    emptied.wait_for(lock, limit, [this] { return pids.empty(); });
}

void kill(pid_t pid, int signal) {
    if (pid > 0)
        ::kill(pid, signal);
}

bool runAlone(const command_t& tool, Registry& registry, exit_t& result) {
    result = exit_t();
    Fd input = openForReading("/dev/null");
    Fd output = openNullForWriting();
    Fd errRead, errWrite;
    if (!makePipe(errRead, errWrite))
        return !registry.stopping();
    const pid_t pid = startRegistered(registry, tool, input.get(), output.get(), errWrite.get());
    if (pid == -2)
        return false;
    errWrite.reset();
    if (pid < 0)
        return true;
    Watch watch(registry, [](const Child&) {});
    watch.addChild(pid, result);
    watch.addErrors(std::move(errRead), result);
    watch.run();
    return true;
}

bool runPipeline(const command_t& prover, const QString& inputFile, const command_t& reader,
                 Registry& registry, pipeline_t& result) {
    result = pipeline_t();
    const QByteArray inputPath =
        inputFile.isEmpty() ? QByteArray("/dev/null") : QFile::encodeName(inputFile);
    Fd input = openForReading(inputPath.constData());
    Fd pipeRead, pipeWrite, outRead, outWrite, proverErrRead, proverErrWrite, readerErrRead,
        readerErrWrite;
    if (!makePipe(pipeRead, pipeWrite) || !makePipe(outRead, outWrite) ||
        !makePipe(proverErrRead, proverErrWrite) || !makePipe(readerErrRead, readerErrWrite))
        return !registry.stopping();
    pid_t proverPid = -1;
    // A missing input file keeps the prover from starting, as a program that cannot run
    // does; its reader then reads an empty input.
    if (input.valid()) {
        proverPid =
            startRegistered(registry, prover, input.get(), pipeWrite.get(), proverErrWrite.get());
        if (proverPid == -2)
            return false;
    }
    pipeWrite.reset();
    proverErrWrite.reset();
    const pid_t readerPid =
        startRegistered(registry, reader, pipeRead.get(), outWrite.get(), readerErrWrite.get());
    pipeRead.reset();
    outWrite.reset();
    readerErrWrite.reset();
    if (readerPid == -2)
        kill(proverPid, SIGKILL); // a stop began: nobody will read the prover
    Watch watch(registry, [&](const Child& child) {
        if (child.pid == proverPid && child.result->crashed && readerPid > 0)
            kill(readerPid, SIGKILL);
    });
    if (proverPid > 0)
        watch.addChild(proverPid, result.prover);
    if (readerPid > 0)
        watch.addChild(readerPid, result.reader);
    watch.addOutput(std::move(outRead), result.output);
    watch.addErrors(std::move(proverErrRead), result.prover);
    watch.addErrors(std::move(readerErrRead), result.reader);
    watch.run();
    return readerPid != -2;
}

} // namespace process
