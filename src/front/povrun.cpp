// povrun: replays external proof mechanisms on the proof obligations of one component.

#include "director/Jobserver.h"
#include "director/Process.h"
#include "director/ProofDirector.h"
#include "front/Options.h"
#include "front/Progress.h"
#include "front/RunNotes.h"
#include "front/RunReport.h"
#include "front/StopPath.h"
#include "front/Utils.h"
#include "pos/pos.h"
#include "pos/printmetrics.h"
#include "resource/p_api.h"

#include <QHash>
#include <exception>
#include <iostream>
#include <list>
#include <malloc.h>
#include <memory>
#include <string>
#include <vector>

namespace {

// Set when a mechanism's final state could not be written: the run still reports, but
// must not end as a success.
bool unsavedState = false;

// Why a run that played nothing did so, said once at its end.
IdleRunNote idleRun;

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

void destroyDirector(ProofDirector* current) {
    stoppath::retireDirector(current);
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
    stoppath::setDirector(current);
    if (!current->isLoaded())
        return false;
    std::cout << (settings.xml ? "<proving>" : "") << "Proving " << component
              << " with external mechanism " << current->getMechanismName()
              << (settings.xml ? "</proving>" : "") << std::endl;
    current->setPlayOptions({settings.retryUnknown, settings.reset});
    current->useCache(aids.cache);
    current->useJobserver(&stoppath::jobSlots());
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

int run(const settings_t& settings, const QStringList& command) {
    const std::string component = baseNameOfPath(settings.posPath);
    warnAboutComponentNames(settings);
    if (settings.trace == 1)
        stoppath::jobSlots().trace();
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
        stoppath::setReport(report.get());
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
    stoppath::setReport(nullptr);
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
    stoppath::jobSlots();
    // Qt keeps XML attributes in a hash: without a fixed seed every save would order the
    // .pos attributes differently.
    qSetGlobalQHashSeed(0);
    // One heap for every thread: workers replace the status nodes the main thread
    // allocated, and with a heap per thread each freed node would stay stranded in the
    // main thread's heap while the worker's heap grows by a new one (5 MB over a
    // 20,000-goal replay). Workers allocate little, so they do not contend for it.
    mallopt(M_ARENA_MAX, 1);
    process::adoptOrphans();
    stoppath::install();
    try {
        const int status = runCommandLine(argc, argv);
        std::cout.flush();
        stoppath::waitForAStopUnderWay();
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
