#include "director/Process.h"
#include "director/Process_p.h"

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
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (stopped)
            return false;
        ++starting;
    }
    // Spawned outside the lock, so that workers start their tools side by side.
    const pid_t pid = spawnOne();
    std::lock_guard<std::mutex> lock(mutex);
    --starting;
    if (pid > 0)
        pids.push_back(pid);
    // A stop that began meanwhile may have swept the process tree already.
    if (stopped && pid > 0)
        ::kill(pid, SIGKILL);
    if (pids.empty() && starting == 0)
        emptied.notify_all();
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
    if (pids.empty() && starting == 0)
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
    emptied.wait_for(lock, limit, [this] { return pids.empty() && starting == 0; });
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
