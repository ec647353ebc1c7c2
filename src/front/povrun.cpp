// povrun: replays external proof mechanisms on the proof obligations of one component.

#include "director/Process.h"
#include "director/Jobserver.h"
#include "director/ProofDirector.h"
#include "front/Options.h"
#include "front/Progress.h"
#include "front/RunReport.h"
#include "front/RunNotes.h"
#include "front/Utils.h"
#include "pos/pos.h"
#include "pos/printmetrics.h"
#include "resource/p_api.h"

#include <QHash>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fcntl.h>
#include <future>
#include <iostream>
#include <list>
#include <malloc.h>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

// The director in use, for the signal path. main clears it under directorMutex before
// destroying a director; the signal watcher holds directorMutex from stop() to the end
// of the process, so a signal never reaches a destroyed director.
std::atomic<ProofDirector*> director{nullptr};
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

// The job slots of the make running povrun. Made first thing in main, before any
// descriptor is opened, and never destroyed: the signal watcher may be handing its
// tokens back while main returns.
director::Jobserver& jobSlots() {
    static director::Jobserver* const server = new director::Jobserver(getenv("MAKEFLAGS"));
    return *server;
}

// Set when a mechanism's final state could not be written: the run still reports, but
// must not end as a success.
bool unsavedState = false;

// Why a run that played nothing did so, said once at its end.
IdleRunNote idleRun;

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

// SIGTERM ends with status 1, as scripts expect; an interrupt, a hang-up or a reader that
// left ends by its own signal, so that the shell sees an interrupted command.
[[noreturn]] void endBySignal(int signal) {
    flushWithinLimit();
    if (signal == SIGTERM)
        _exit(1);
    ::signal(signal, SIG_DFL);
    raise(signal);
    _exit(1);
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
    if (ProofDirector* current = director.load()) {
        current->stop();
        answers += current->getAnswersApplied();
    }
    jobSlots().handBackForExit();
    if (RunReport* report = activeReport.load())
        report->finish();
    std::cerr << "povrun: interrupted by " << director::nameOfSignal(byte).toStdString() << "; "
              << answers << " answers saved" << std::endl;
    endBySignal(static_cast<unsigned char>(byte));
}

// A signal the shell told us to ignore (a background job's SIGINT, nohup's SIGHUP) stays
// ignored; SIGTERM and SIGPIPE are always handled.
void installSignalHandlers() {
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

// A run that a signal is stopping is ended by the signal watcher, never by main.
void waitForAStopUnderWay() {
    while (stopping)
        pause();
}

int printUsage() {
    std::cout << USAGE << std::flush;
    return 1;
}

void traceCommandLine(int argc, char** argv) {
    std::clog << "[povrun]" << std::endl;
    std::clog << "command = \"";
    for (int i = 0; i < argc; ++i)
        std::clog << argv[i] << ' ';
    std::clog << '"' << std::endl;
}

void setDirector(ProofDirector* current) {
    std::lock_guard<std::mutex> lock(directorMutex);
    director.store(current);
}

void destroyDirector(ProofDirector* current) {
    setDirector(nullptr);
    answersOfEarlierMechanisms += current->getAnswersApplied();
    delete current;
}

void sayCacheCounts(const director::ResultCache& cache, const ProofDirector& played) {
    const director::cache_counts_t counts = played.getCacheCounts();
    std::cerr << "povrun: cache " << cache.folder().toStdString() << ", mechanism "
              << played.getMechanismName() << ": " << counts.answered
              << " jobs answered from the cache, " << counts.run << " run, " << counts.stored
              << " stored" << std::endl;
}

// What a run lends each of its directors: the result cache and the observer of the jobs,
// each null when not wanted.
struct run_aids_t {
    director::ResultCache* cache = nullptr;
    director::JobObserver* observer = nullptr;
};

// Creates, announces and plays one mechanism. False when it could not be loaded; the
// director is then kept (the run ends at once).
bool playMechanism(const settings_t& settings, const std::string& component,
                   const std::string& mechanismFile, const run_aids_t& aids) {
    auto* current = new ProofDirector(component, mechanismFile, settings.posPath, settings.pogPath,
                                      settings.tempDir, settings.installDirs, settings.xml,
                                      static_cast<unsigned>(settings.concurrency), settings.trace,
                                      std::string(), std::string(), false);
    setDirector(current);
    if (!current->isLoaded())
        return false;
    std::cout << (settings.xml ? "<proving>" : "") << "Proving " << component
              << " with external mechanism " << current->getMechanismName()
              << (settings.xml ? "</proving>" : "") << std::endl;
    current->setPlayOptions({settings.retryUnknown, settings.reset});
    current->useCache(aids.cache);
    current->useJobserver(&jobSlots());
    current->observeJobs(aids.observer);
    if (settings.firstPlay || settings.reset)
        current->play();
    else
        current->replay();
    idleRun.note(*current);
    if (aids.cache != nullptr)
        sayCacheCounts(*aids.cache, *current);
    if (current->hasUnsavedState())
        unsavedState = true;
    destroyDirector(current);
    return true;
}

// The mechanisms registered in the status file; an unreadable file gives none, after
// its error line and the reason on standard error.
std::list<std::string> registeredMechanisms(const settings_t& settings) {
    std::list<std::string> names;
    QString whyNot;
    if (!pos::getMechanisms(settings.posPath, names, &whyNot)) {
        print_file_not_readable(settings.posPath, settings.xml);
        std::cerr << "povrun: " << whyNot.toStdString() << std::endl;
    }
    return names;
}

// Plays the mechanisms of the run; false when one could not be loaded (the run ends).
bool playAll(const settings_t& settings, const std::string& component, const run_aids_t& aids) {
    if (!settings.mechanismFile.empty())
        return playMechanism(settings, component, settings.mechanismFile, aids);
    for (const std::string& name : registeredMechanisms(settings)) {
        const std::string path = settings.mechanismDirectory + FILE_SEPARATOR + name + ".xml";
        if (!playMechanism(settings, component, path, aids))
            return false;
    }
    return true;
}

void setReport(RunReport* report) {
    std::lock_guard<std::mutex> lock(directorMutex);
    activeReport.store(report);
}

int run(const settings_t& settings, const QStringList& command) {
    const std::string component = baseNameOfPath(settings.posPath);
    warnAboutComponentNames(settings);
    if (settings.trace == 1)
        jobSlots().trace();
    if (settings.xml)
        std::cout << "<proof>\n";
    run_aids_t aids;
    std::unique_ptr<director::ResultCache> cache;
    if (!settings.cacheDir.empty())
        cache = std::make_unique<director::ResultCache>(QString::fromStdString(settings.cacheDir));
    aids.cache = cache.get();
    director::JobObservers observers;
    std::unique_ptr<RunReport> report;
    if (!settings.reportFile.empty() || !settings.junitFile.empty() || settings.strict) {
        report = std::make_unique<RunReport>(QString::fromStdString(settings.reportFile),
                                             QString::fromStdString(settings.junitFile), command,
                                             component);
        observers.add(report.get());
        setReport(report.get());
    }
    std::unique_ptr<Progress> progress;
    if (Progress::wanted()) {
        progress = std::make_unique<Progress>();
        observers.add(progress.get());
    }
    aids.observer = observers.empty() ? nullptr : &observers;
    const bool played = playAll(settings, component, aids);
    if (played) {
        print_metrics(settings.posPath, settings.xml, component);
        idleRun.sayIfIdle(settings);
    }
    if (progress)
        progress->finish();
    setReport(nullptr);
    const bool reported = !report || report->finish();
    if (!played || unsavedState || !reported)
        return 1;
    return settings.strict && report->somethingUnproved() ? 2 : 0;
}

int runCommandLine(int argc, char** argv) {
    init_resource_manager();
    const command_line_t commandLine = parseCommandLine(argc, argv);
    if (commandLine.request == request_t::USAGE)
        return printUsage();
    if (commandLine.request == request_t::VERSION) {
        std::cout << versionLine() << std::endl;
        return 0;
    }
    if (commandLine.settings.trace != 0)
        traceCommandLine(argc, argv);
    if (!isRunnable(commandLine.settings))
        return printUsage();
    QStringList command;
    for (int i = 0; i < argc; ++i)
        command << QString::fromLocal8Bit(argv[i]);
    return run(commandLine.settings, command);
}

} // namespace

int main(int argc, char** argv) {
    jobSlots();
    // Qt keeps XML attributes in a hash: without a fixed seed every save would order the
    // .pos attributes differently.
    qSetGlobalQHashSeed(0);
    // One heap for every thread: workers replace the status nodes the main thread
    // allocated, and with a heap per thread each freed node would stay stranded in the
    // main thread's heap while the worker's heap grows by a new one (5 MB over a
    // 20,000-goal replay). Workers allocate little, so they do not contend for it.
    mallopt(M_ARENA_MAX, 1);
    process::adoptOrphans();
    installSignalHandlers();
    try {
        const int status = runCommandLine(argc, argv);
        std::cout.flush();
        waitForAStopUnderWay();
        return status;
    } catch (const std::exception& e) {
        std::cout.flush();
        std::cerr << "povrun: " << e.what() << std::endl;
    } catch (...) {
        std::cout.flush();
        std::cerr << "povrun: unexpected exception" << std::endl;
    }
    return 1;
}
