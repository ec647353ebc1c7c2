#include "director/Process.h"
#include "director/Process_p.h"

#include <QFile>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <string>
#include <unistd.h>

extern char** environ;

namespace process {
namespace {

QString reasonOf(int error) {
    return QString::fromLocal8Bit(strerror(error));
}

Fd openOrSay(const char* path, int flags, QString& failure) {
    Fd fd(::open(path, flags | O_CLOEXEC));
    if (!fd.valid())
        failure =
            QStringLiteral("cannot open '%1': %2").arg(QFile::decodeName(path), reasonOf(errno));
    return fd;
}

// Starts `command` in a process group of its own with its standard streams on `in`,
// `out` and `err`; -1, with the reason in `failure`, when it cannot be executed (glibc's
// posix_spawn reports a failed exec as its result).
pid_t spawn(const command_t& command, int in, int out, int err, QString& failure) {
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
    // own parent chose for SIGPIPE, and povrun's own choice for it.
    sigset_t pipeSignal;
    sigemptyset(&pipeSignal);
    sigaddset(&pipeSignal, SIGPIPE);
    posix_spawnattr_setsigdefault(&attributes, &pipeSignal);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF |
                                              POSIX_SPAWN_SETPGROUP);
    pid_t pid = -1;
    const int error =
        posix_spawn(&pid, words[0].c_str(), &actions, &attributes, argv.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (error == 0)
        return pid;
    failure = QStringLiteral("cannot exec '%1': %2")
                  .arg(QString::fromStdString(words[0]), reasonOf(error));
    return -1;
}

// Starts `command` through the registry; -1 when it could not be executed (the reason is
// in `result`), Registry::REFUSED when the registry is stopping.
pid_t startOwned(Registry& registry, const command_t& command, int in, int out, int err,
                 exit_t& result) {
    return registry.start([&] { return spawn(command, in, out, err, result.failure); });
}

} // namespace

bool makePipe(Fd& readEnd, Fd& writeEnd, QString& failure) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        failure = QStringLiteral("cannot make a pipe: %1").arg(reasonOf(errno));
        return false;
    }
    readEnd.reset(ends[0]);
    writeEnd.reset(ends[1]);
    return true;
}

bool runAlone(const command_t& tool, Registry& registry, exit_t& result) {
    result = exit_t();
    Fd input = openOrSay("/dev/null", O_RDONLY, result.failure);
    Fd output = openOrSay("/dev/null", O_WRONLY, result.failure);
    Fd errRead, errWrite;
    if (!input.valid() || !output.valid() || !makePipe(errRead, errWrite, result.failure))
        return !registry.stopping();
    const pid_t pid = startOwned(registry, tool, input.get(), output.get(), errWrite.get(), result);
    if (pid == Registry::REFUSED)
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

namespace {

// The descriptors of one pipeline: the prover's input, the pipe into the reader, the
// reader's output and both tools' standard error.
struct pipelineEnds_t {
    Fd input, pipeRead, pipeWrite, outRead, outWrite, proverErrRead, proverErrWrite, readerErrRead,
        readerErrWrite;
};

// False, with the reason given to both tools, when a pipe could not be made.
bool openEnds(pipelineEnds_t& ends, const QString& inputFile, pipeline_t& result) {
    QString failure;
    if (!makePipe(ends.pipeRead, ends.pipeWrite, failure) ||
        !makePipe(ends.outRead, ends.outWrite, failure) ||
        !makePipe(ends.proverErrRead, ends.proverErrWrite, failure) ||
        !makePipe(ends.readerErrRead, ends.readerErrWrite, failure)) {
        result.prover.failure = result.reader.failure = failure;
        return false;
    }
    const QByteArray inputPath =
        inputFile.isEmpty() ? QByteArray("/dev/null") : QFile::encodeName(inputFile);
    // A missing input is the writer's failure, already said as such.
    QString missingInput;
    ends.input = openOrSay(inputPath.constData(), O_RDONLY, missingInput);
    return true;
}

} // namespace

bool runPipeline(const command_t& prover, const QString& inputFile, const command_t& reader,
                 Registry& registry, pipeline_t& result) {
    result = pipeline_t();
    pipelineEnds_t ends;
    if (!openEnds(ends, inputFile, result))
        return !registry.stopping();
    pid_t proverPid = -1;
    // A missing input file keeps the prover from starting, as a program that cannot run
    // does; its reader then reads an empty input.
    if (ends.input.valid()) {
        proverPid = startOwned(registry, prover, ends.input.get(), ends.pipeWrite.get(),
                               ends.proverErrWrite.get(), result.prover);
        if (proverPid == Registry::REFUSED)
            return false;
    }
    ends.pipeWrite.reset();
    ends.proverErrWrite.reset();
    const pid_t readerPid = startOwned(registry, reader, ends.pipeRead.get(), ends.outWrite.get(),
                                       ends.readerErrWrite.get(), result.reader);
    ends.pipeRead.reset();
    ends.outWrite.reset();
    ends.readerErrWrite.reset();
    if (readerPid == Registry::REFUSED)
        registry.signal(proverPid, SIGKILL); // a stop began: nobody will read the prover
    Watch watch(registry, [&](const Child& child) {
        if (child.pid == proverPid && child.result->crashed && readerPid > 0)
            registry.signal(readerPid, SIGKILL);
    });
    if (proverPid > 0)
        watch.addChild(proverPid, result.prover);
    if (readerPid > 0)
        watch.addChild(readerPid, result.reader);
    watch.addOutput(std::move(ends.outRead), result.output);
    watch.addErrors(std::move(ends.proverErrRead), result.prover);
    watch.addErrors(std::move(ends.readerErrRead), result.reader);
    watch.run();
    return readerPid != Registry::REFUSED;
}

} // namespace process
