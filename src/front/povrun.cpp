// povrun: replays external proof mechanisms on the proof obligations of one component.

#include "director/Jobserver.h"
#include "director/ProcessTree.h"
#include "director/ProofDirector.h"
#include "front/Options.h"
#include "front/Utils.h"
#include "pos/pos.h"
#include "pos/printmetrics.h"
#include "resource/p_api.h"

#include <QHash>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fcntl.h>
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

// Each handled signal is turned into one byte, its number, on this pipe; the watcher
// thread does the real work outside the signal handler.
int signalPipe[2] = {-1, -1};
const int HANDLED_SIGNALS[] = {SIGTERM, SIGINT, SIGHUP, SIGPIPE};

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

extern "C" void sighandler(int signal) {
    const int savedErrno = errno;
    const char byte = static_cast<char>(signal);
    ssize_t written = write(signalPipe[1], &byte, 1);
    (void)written;
    errno = savedErrno;
}

// SIGTERM ends with status 1, as scripts expect; an interrupt or a hang-up ends by its
// own signal so that the shell sees an interrupted command.
[[noreturn]] void endBySignal(int signal) {
    std::cout.flush();
    std::clog.flush();
    fflush(nullptr);
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
    if (ProofDirector* current = director.load())
        current->stop();
    jobSlots().handBackForExit();
    endBySignal(static_cast<unsigned char>(byte));
}

// A signal the shell told us to ignore (a background job's SIGINT, nohup's SIGHUP) stays
// ignored.
void installSignalHandlers() {
    if (pipe2(signalPipe, O_CLOEXEC) != 0) {
        perror("povrun: pipe");
        return;
    }
    std::thread(watchSignals).detach();
    for (const int handled : HANDLED_SIGNALS) {
        if (signal(handled, sighandler) == SIG_IGN && handled != SIGTERM)
            signal(handled, SIG_IGN);
    }
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
    delete current;
}

// Creates, announces and plays one mechanism. False when it could not be loaded; the
// director is then kept (the run ends at once).
void sayCacheCounts(const director::ResultCache& cache, const ProofDirector& played) {
    const director::cache_counts_t counts = played.getCacheCounts();
    std::cerr << "povrun: cache " << cache.folder().toStdString() << ", mechanism "
              << played.getMechanismName() << ": " << counts.answered
              << " jobs answered from the cache, " << counts.run << " run, " << counts.stored
              << " stored" << std::endl;
}

bool playMechanism(const settings_t& settings, const std::string& component,
                   const std::string& mechanismFile, director::ResultCache* cache) {
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
    current->useCache(cache);
    current->useJobserver(&jobSlots());
    if (settings.firstPlay)
        current->play();
    else
        current->replay();
    if (cache != nullptr)
        sayCacheCounts(*cache, *current);
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

int run(const settings_t& settings) {
    const std::string component = baseNameOfPath(settings.posPath);
    if (settings.trace == 1)
        jobSlots().trace();
    if (settings.xml)
        std::cout << "<proof>\n";
    std::unique_ptr<director::ResultCache> cache;
    if (!settings.cacheDir.empty())
        cache = std::make_unique<director::ResultCache>(QString::fromStdString(settings.cacheDir));

    if (!settings.mechanismFile.empty()) {
        if (!playMechanism(settings, component, settings.mechanismFile, cache.get()))
            return 1;
    } else {
        for (const std::string& name : registeredMechanisms(settings)) {
            const std::string path = settings.mechanismDirectory + FILE_SEPARATOR + name + ".xml";
            if (!playMechanism(settings, component, path, cache.get()))
                return 1;
        }
    }
    print_metrics(settings.posPath, settings.xml, component);
    return unsavedState ? 1 : 0;
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
    return run(commandLine.settings);
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
    processtree::becomeSubreaper();
    installSignalHandlers();
    try {
        const int status = runCommandLine(argc, argv);
        std::cout.flush();
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
