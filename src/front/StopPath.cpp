#include "front/StopPath.h"

#include "director/Jobserver.h"
#include "director/ProofDirector.h"
#include "front/RunReport.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <future>
#include <iostream>
#include <memory>
#include <mutex>
#include <string>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace {

// The director in use, for the signal path. main clears it under directorMutex before
// destroying a director; the signal watcher holds directorMutex from stop() to the end
// of the process, so a signal never reaches a destroyed director.
std::atomic<ProofDirector*> directorInUse{nullptr};
std::mutex directorMutex;
// The run's report, finished with what was done when a signal stops the run; guarded
// like the director.
std::atomic<RunReport*> activeReport{nullptr};
// Answers the mechanisms already played recorded; guarded like the director.
uint64_t answersOfEarlierMechanisms = 0;

// Each handled signal is turned into one byte, its number, on this pipe; the watcher
// thread does the real work outside the signal handler. SIGPIPE is one of them: a reader
// of standard output that leaves (`povrun ... | head`) ends the run through the same
// clean-up, where the default action would end it with tools running and files left.
int signalPipe[2] = {-1, -1};
const int HANDLED_SIGNALS[] = {SIGTERM, SIGINT, SIGHUP, SIGPIPE};
// Set by the handler: the run is being stopped, and main must not end it first.
std::atomic<bool> stopping{false};
static_assert(std::atomic<bool>::is_always_lock_free, "used in a signal handler");

// How long the end of a stopped run may spend writing what standard output still holds:
// a pipe nobody reads must not keep povrun alive.
constexpr std::chrono::milliseconds LAST_FLUSH{500};

extern "C" void sighandler(int signal) {
    const int savedErrno = errno;
    stopping = true;
    const char byte = static_cast<char>(signal);
    ssize_t written = write(signalPipe[1], &byte, 1);
    (void)written;
    errno = savedErrno;
}

// Flushes the standard streams, but waits for that at most LAST_FLUSH.
void flushWithinLimit() {
    auto flushed = std::make_shared<std::promise<void>>();
    std::future<void> done = flushed->get_future();
    std::thread([flushed] {
        std::cout.flush();
        std::clog.flush();
        fflush(nullptr);
        flushed->set_value();
    }).detach();
    done.wait_for(LAST_FLUSH);
}

// Ends the process at once, by the system call itself: a runtime that wraps _exit may
// flush stdio on the way, and standard output's lock may be held for good by a thread
// blocked writing to a pipe nobody reads.
[[noreturn]] void exitNow(int status) {
    syscall(SYS_exit_group, status);
    _exit(status);
}

// SIGTERM ends with status 1, as scripts expect; an interrupt, a hang-up or a reader that
// left ends by its own signal, so that the shell sees an interrupted command.
[[noreturn]] void endBySignal(int signal) {
    flushWithinLimit();
    if (signal == SIGTERM)
        exitNow(1);
    ::signal(signal, SIG_DFL);
    raise(signal);
    exitNow(1);
}

void watchSignals() {
    char byte = 0;
    ssize_t got;
    do {
        got = read(signalPipe[0], &byte, 1);
    } while (got < 0 && errno == EINTR);
    if (got != 1)
        return;
    directorMutex.lock(); // never released: the process ends below
    uint64_t answers = answersOfEarlierMechanisms;
    if (ProofDirector* current = directorInUse.load()) {
        current->stop();
        answers += current->getAnswersApplied();
    }
    stoppath::jobSlots().handBackForExit();
    if (RunReport* report = activeReport.load())
        report->finish();
    director::sayPastStdout("povrun: interrupted by " + director::nameOfSignal(byte).toStdString() +
                            "; " + std::to_string(answers) + " answers saved");
    endBySignal(static_cast<unsigned char>(byte));
}

} // namespace

namespace stoppath {

void install() {
    if (pipe2(signalPipe, O_CLOEXEC) != 0) {
        perror("povrun: pipe");
        return;
    }
    std::thread(watchSignals).detach();
    for (const int handled : HANDLED_SIGNALS) {
        if (signal(handled, sighandler) == SIG_IGN && (handled == SIGINT || handled == SIGHUP))
            signal(handled, SIG_IGN);
    }
}

void waitForAStopUnderWay() {
    while (stopping)
        pause();
}

director::Jobserver& jobSlots() {
    static director::Jobserver* const server = new director::Jobserver(getenv("MAKEFLAGS"));
    return *server;
}

void setDirector(ProofDirector* current) {
    std::lock_guard<std::mutex> lock(directorMutex);
    directorInUse.store(current);
}

void retireDirector(ProofDirector* current) {
    std::lock_guard<std::mutex> lock(directorMutex);
    directorInUse.store(nullptr);
    answersOfEarlierMechanisms += current->getAnswersApplied();
}

void setReport(RunReport* report) {
    std::lock_guard<std::mutex> lock(directorMutex);
    activeReport.store(report);
}

} // namespace stoppath
