#include "spawn_job.h"

#include <cerrno>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace spawnjob {

namespace {

// Owns a posix_spawn_file_actions_t for the duration of one spawn.
class FileActions {
public:
    FileActions() { posix_spawn_file_actions_init(&actions); }
    ~FileActions() { posix_spawn_file_actions_destroy(&actions); }
    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;
    posix_spawn_file_actions_t* get() { return &actions; }

private:
    posix_spawn_file_actions_t actions;
};

// -1 when the process could not be started.
pid_t spawn(const std::string& program, const std::vector<std::string>& args,
            posix_spawn_file_actions_t* actions) {
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(program.c_str()));
    for (const std::string& arg : args)
        argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);
    pid_t pid = -1;
    if (posix_spawn(&pid, program.c_str(), actions, nullptr, argv.data(), environ) != 0)
        return -1;
    return pid;
}

bool exitedCleanly(pid_t pid, long* peakKib = nullptr) {
    if (pid < 0)
        return false;
    int status = 0;
    rusage usage{};
    while (wait4(pid, &status, 0, &usage) < 0) {
        if (errno != EINTR)
            return false;
    }
    if (peakKib != nullptr)
        *peakKib = usage.ru_maxrss;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

void readAll(int fd, std::string& output) {
    char buffer[4096];
    for (;;) {
        const ssize_t got = read(fd, buffer, sizeof buffer);
        if (got > 0) {
            output.append(buffer, static_cast<size_t>(got));
            continue;
        }
        if (got < 0 && errno == EINTR)
            continue;
        return;
    }
}

} // namespace

bool run(const std::string& program, const std::vector<std::string>& args,
         const char* standardOutput, long* peakKib) {
    if (standardOutput == nullptr)
        return exitedCleanly(spawn(program, args, nullptr), peakKib);
    FileActions actions;
    posix_spawn_file_actions_addopen(actions.get(), STDOUT_FILENO, standardOutput,
                                     O_WRONLY | O_CREAT | O_TRUNC, 0644);
    return exitedCleanly(spawn(program, args, actions.get()), peakKib);
}

bool runProverReader(const std::string& prover, const std::string& reader,
                     const std::string& inputPath, std::string& output) {
    int between[2];
    int fromReader[2];
    if (pipe2(between, O_CLOEXEC) != 0)
        return false;
    if (pipe2(fromReader, O_CLOEXEC) != 0) {
        close(between[0]);
        close(between[1]);
        return false;
    }
    pid_t proverPid = -1;
    {
        FileActions actions;
        posix_spawn_file_actions_addopen(actions.get(), STDIN_FILENO, inputPath.c_str(), O_RDONLY,
                                         0);
        posix_spawn_file_actions_adddup2(actions.get(), between[1], STDOUT_FILENO);
        proverPid = spawn(prover, {}, actions.get());
    }
    pid_t readerPid = -1;
    {
        FileActions actions;
        posix_spawn_file_actions_adddup2(actions.get(), between[0], STDIN_FILENO);
        posix_spawn_file_actions_adddup2(actions.get(), fromReader[1], STDOUT_FILENO);
        readerPid = spawn(reader, {}, actions.get());
    }
    close(between[0]);
    close(between[1]);
    close(fromReader[1]);
    output.clear();
    if (readerPid >= 0)
        readAll(fromReader[0], output);
    close(fromReader[0]);
    const bool proverDone = exitedCleanly(proverPid);
    const bool readerDone = exitedCleanly(readerPid);
    return proverDone && readerDone;
}

} // namespace spawnjob
