#pragma once
// Replays one proof mechanism over the .pos file of one component: selects the proof
// obligations each driver has to work on, runs writer, prover and reader as child
// processes (in worker threads when concurrency > 1), turns verdicts into statuses in
// the document and keeps the file in step with it.
//
// Threading model. The main thread loads the file, builds each driver's jobs and joins
// its workers before the next driver; workers run jobs only; stop() runs on the signal
// watcher's thread beside them. The locks, each a leaf unless an order is given, and
// always taken in this order where two are held:
//   outputMutex -> saver's writeMutex -> statusMutex -> saver's wakeMutex
//   - jobMutex: nextJob only; held to take an index (and to keep a worker's trace line
//     whole), never during a job.
//   - outputMutex: standard output's job marks; held to write the recorded marks. Never
//     needed by stop(), so a write that blocks cannot keep a stop from ending.
//   - statusMutex: dom, poTable, unprovedCount, operationCount, the recorded marks not yet
//     written, the saver's kept texts, and writerJobs (swapped under it, because stop()
//     reads it); a prover job holds it while it records its answers and their marks.
//   - tools (process::Registry): the tools' pids and the stop flag; see Process.h.
//   - errorMutex: errors and workerFailure; held only to append or read.
//   - the tool errors' lock (Stages.cpp): keeps one job's block whole on standard error.
//   - the saver's writeMutex and wakeMutex (see StatusSaver.h): one write at a time, and
//     the background saver's orders.
//   - the jobserver's mutex (see Jobserver.h): a leaf, held to read or write one token.
//   - povrun's directorMutex (outside the director): held by the signal watcher from
//     stop() to the end of the process, so a director is never destroyed under a stop.
// stop() takes the tools' lock, then the save locks for good: it must not save a
// document a worker is half-way through changing.
// driver, proverJobs and the settings need no lock: the main thread writes them only
// while no worker runs, and workers only read them.

#include "director/JobObserver.h"
#include "director/Jobserver.h"
#include "director/Process.h"
#include "director/ResultCache.h"
#include "director/StatusSaver.h"
#include "mechanism/Mechanism.h"
#include "pos/pos.h"

#include <QDomDocument>
#include <QDomElement>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

class ProofDirector : public QObject {
    Q_OBJECT

public:
    // (group index in the PO table, PO index inside the group), both 0-based.
    using po_address_t = std::pair<unsigned long long, unsigned long long>;
    // One inner vector per group of the PO table (normal mode).
    using selection_t = std::vector<std::vector<po_address_t>>;

    struct po_data_t {
        pos::status_t status = pos::UNPROVED;
        QStringList drivers; // drivers still to play on this PO
        QDomElement element; // this mechanism's "Mechanism" element of the goal
    };

    struct writer_data_t {
        std::filesystem::path cmd;
        QStringList args;
        QString po2filename; // secondary PO file the writer must create
        std::vector<po_address_t> positions;
    };

    struct prover_data_t {
        std::filesystem::path cmdp;
        QStringList argsp;
        std::filesystem::path cmdr;
        QStringList argsr;
        QString inpath;
        std::vector<po_address_t> addresses; // answer i of the reader is for address i
    };

    using po_table_t = std::vector<std::pair<std::string, std::vector<po_data_t>>>;

    // Reads the mechanism file (see isLoaded()); never throws for an unreadable one,
    // but lets the mechanism reader's "map::at" and filesystem errors escape.
    ProofDirector(const std::string& component, const std::string& mechanismFile,
                  const std::string& posPath, const std::string& pogPath,
                  const std::string& tempDir, const std::vector<std::string>& installDirs, bool xml,
                  unsigned concurrency, int trace, const std::string& driverFilter,
                  const std::string& poSelector, bool fastOnly);
    ~ProofDirector() override;

    bool isLoaded() const;
    bool hasErrors() const;
    std::string getMechanismName() const;

    // First play: loads the .pos file and registers the mechanism (with every driver
    // "Unproved") on goals that lack it. True when something was registered.
    bool loadPosFile();
    // Replay: loads the .pos file; a goal gets the drivers that had proved or disproved
    // it before, when it and its mechanism element are "Unproved" again. False when the
    // file is missing, unreadable or malformed, or a goal lacks this mechanism.
    bool reloadPosFile();
    // Writes the document to the existing .pos file now, atomically and synced, with
    // author="proof_director". False, with nothing written, when the file does not exist,
    // the document is empty or the write failed (said once on standard error).
    bool savePosFile();
    // True when the newest state could not be written to the file (a full disk, a file
    // made read-only): the run must not end as a success.
    bool hasUnsavedState() const;
    // Safe from another thread while workers run: ends every running tool and what it
    // started (SIGTERM, then SIGKILL after a short grace), refuses new ones, removes the
    // secondary files and saves the document when the file does not hold it already.
    // Never writes to standard output. Keeps the status lock: the caller exits afterwards.
    void stop();

    // Answers jobs from `cache` when it holds their answers, and stores there the answers
    // of every job whose tools all ran to their end with one line per goal; null (the
    // default) for no cache. The cache must outlive the play.
    void useCache(director::ResultCache* cache) { resultCache = cache; }
    director::cache_counts_t getCacheCounts() const;
    // Answers recorded in the document so far. Read under statusMutex, or after stop().
    uint64_t getAnswersApplied() const { return answersApplied; }
    // Tells `observer` of every driver played and every job run; null (the default) for
    // none. The observer must outlive the play.
    void observeJobs(director::JobObserver* jobObserver) { observer = jobObserver; }
    // What a run asks beyond the usual selection; see Retry.cpp.
    struct play_options_t {
        bool retryUnknown = false; // also give a goal the drivers recorded "Unknown" on it
        bool reset = false;        // play() first removes this mechanism's records
    };
    void setPlayOptions(const play_options_t& options) { playOptions = options; }
    // Jobs started by the drivers played so far.
    std::size_t getJobsStarted() const { return jobsStarted; }
    // Runs each worker's job only while it holds one of make's job slots from `server`;
    // null (the default) for no limit but the concurrency. Must outlive the play.
    void useJobserver(director::Jobserver* server) { jobserver = server; }

    void play();
    void replay();
    void playDrivers();
    bool hasWork();
    void writeAndProveJob();

    void selectForDriver(selection_t& selection);
    void produceWriterData(const QString& directory, const QString& pogFile,
                           const selection_t& selection);
    void produceProverData();

    void writeJob();
    void writeEntry(const unsigned long long& index);
    void proveJob();
    void proveEntry(const unsigned long long& index);
    // Applies one reader answer ("Proved", "Unknown" or "Disproved") to the PO at
    // `address` under the mechanism's trust rule. Caller holds statusMutex.
    void updateStatus(const po_address_t& address, const QString& answer);

    // Read access for diagnostics and tests.
    const po_table_t& getPoTable() const { return poTable; }
    const std::vector<writer_data_t>& getWriterJobs() const { return writerJobs; }
    const std::vector<prover_data_t>& getProverJobs() const { return proverJobs; }
    const QDomDocument& getDocument() const { return dom; }
    const mechanism::mechanism_t& getMechanism() const { return mechanism; }
    QList<QString> getErrors() const;
    uint32_t getUnprovedCount() const { return unprovedCount; }
    // Makes `d` the driver being played, as the driver loop does.
    void setDriver(const mechanism::driver_t& d) { driver = d; }

    friend std::ostream& operator<<(std::ostream& os, const ProofDirector& director);

private:
    void appendError(const QString& message);
    // Writes what a tool said on standard error, as one block headed by the driver, the
    // tool and the job's POs; blocks of concurrent jobs never mix.
    // A tool that could not start says why in the same block.
    void showToolErrors(const char* role, const std::filesystem::path& tool,
                        const std::vector<po_address_t>& addresses,
                        const process::exit_t& run) const;
    // "povrun: driver D, ROLE TOOL, POs G.N ...", the head of a tool's lines.
    std::string toolHeading(const char* role, const std::filesystem::path& tool,
                            const std::vector<po_address_t>& addresses) const;
    void runJobs();
    void startWorkers(std::vector<std::unique_ptr<std::thread>>& workers, std::size_t wanted);
    void finishDriver();
    std::size_t goalCount() const; // the goals of the driver's jobs
    // Rebuilds poTable from dom, group by group; `recordOf` fills each goal's record and
    // returns false to stop (the table is then incomplete).
    bool buildPoTable(const std::function<bool(QDomElement&, po_data_t&)>& recordOf);
    // Appends this mechanism's element, with every driver "Unproved", to `goal`.
    QDomElement registerMechanism(QDomElement& goal);
    // Fills a first play's record of `goal`, registering the mechanism on it where it is
    // missing; true when it registered it.
    bool firstPlayRecord(QDomElement& goal, const QString& mechanismName, po_data_t& po);
    // Hands out the next of `count` job indices under jobMutex; false when none is left.
    bool takeJob(std::size_t count, unsigned long long& index,
                 const std::function<void(unsigned long long)>& traceTaken);
    // A worker's trace line, "-- Proof Director -- Thread ID WHAT".
    void traceThread(const std::thread::id& id, const std::string& what) const;
    std::thread::id tracedThreadId() const;
    void removeSecondaryFiles();
    void traceLine(const char* message) const;
    // The cache key of a job; empty when there is no cache or the job cannot have one.
    QByteArray cacheKeyOf(const prover_data_t& job) const;
    bool answeredFromCache(const QByteArray& key, QByteArray& output);
    // Runs the job's prover into its reader. False when stopping or a tool crashed (said).
    bool runProverAndReader(const prover_data_t& job, process::pipeline_t& run,
                            director::job_report_t* report);
    // Says what went wrong with a writer job, if anything; returns its log line's text.
    QString writerFailure(const writer_data_t& job, const process::exit_t& writer);
    // "POs G.1 H.3": the goals at `addresses` as a user names them.
    std::string goalsText(const std::vector<po_address_t>& addresses) const;
    // One line on standard error naming the driver, the tool, the job's goals and how the
    // tool ended.
    void sayFailedJob(const char* role, const std::filesystem::path& tool,
                      const std::vector<po_address_t>& addresses, const process::exit_t& end) const;
    void sayMiscount(const std::vector<po_address_t>& addresses, int lines,
                     const process::pipeline_t* run) const;
    // The observer's record of job `index`, made by its first call; reportsMutex guards
    // the map, each record belongs to the one thread running its job.
    director::job_report_t* reportOf(unsigned long long index);
    void noteWriter(unsigned long long index, const process::exit_t& writer, double seconds,
                    const QString& failure);
    void noteProver(director::job_report_t& report, const process::pipeline_t& run) const;
    // A goal that got no answer; the caller holds statusMutex.
    director::goal_result_t unansweredGoal(const po_address_t& address, const QString& line) const;
    void dropReport(director::job_report_t* report);
    // Hands job `index`'s record to the observer, unless the stop ended the job.
    void endReport(unsigned long long index, const prover_data_t& job,
                   std::chrono::steady_clock::time_point start, director::job_report_t* report);
    void printHeadingsUpTo(unsigned long long group, std::string& marks);
    void printMarks(const prover_data_t& job, const QStringList& lines,
                    director::job_report_t* report);
    // Applies a job's answers and records its marks. Caller holds statusMutex.
    void recordAnswers(const prover_data_t& job, const QStringList& lines,
                       director::job_report_t* report);
    // Writes the marks recorded so far to standard output, in order, without statusMutex.
    void writeMarks();
    void printModel(const QStringList& lines, int& line, std::string& marks) const;
    // Forgets the document and the table, so that nothing stale can be saved.
    void forgetDocument();
    // Removes every element of this mechanism from dom and says how many goals had one.
    void resetMechanism();

    bool loaded = false;
    mechanism::mechanism_t mechanism;
    QString driverFilter;
    QString poSelector;
    QString posPath;
    QString pogPath;
    QString tempDir;
    bool xml = false;
    uint32_t concurrency = 1;
    int32_t trace = 0;
    bool fastOnly = false;
    std::vector<std::string> installDirs;
    QDomDocument dom;
    QString loadFailure; // why the last load of the .pos file failed, for the user
    play_options_t playOptions;
    std::size_t jobsStarted = 0;
    std::string component;
    // Guarded by errorMutex (appended by workers, read by hasErrors()).
    QList<QString> errors;
    // The running tools, with their own lock.
    process::Registry tools;
    uint64_t nextJob = 0;
    // Guards nextJob only; never held while a job runs.
    std::mutex jobMutex;
    mechanism::driver_t driver;
    uint32_t operationCount = 0;
    uint64_t answersApplied = 0; // guarded by statusMutex
    uint32_t unprovedCount = 0;
    // Guards dom, poTable, the counters, pendingMarks and writerJobs' replacement; a prover
    // job holds it from its first heading to its save request.
    std::mutex statusMutex;
    std::string pendingMarks;
    // Held to write the job marks to standard output; stop() never needs it.
    std::mutex outputMutex;
    po_table_t poTable;
    std::vector<writer_data_t> writerJobs;
    std::vector<prover_data_t> proverJobs;
    // Not owned. The driver's part of the cache keys is set by the main thread while no
    // worker runs; the counts are bumped by workers.
    director::ResultCache* resultCache = nullptr;
    director::JobObserver* observer = nullptr; // not owned
    // The records of the jobs running, for the observer; held only to find or take one.
    std::mutex reportsMutex;
    std::map<unsigned long long, director::job_report_t> reports;
    QByteArray cacheDriverKey;
    std::atomic<uint64_t> cacheAnswered{0};
    std::atomic<uint64_t> cacheRun{0};
    uint64_t cacheStored = 0; // set by the main thread once the play's entries are written
    director::Jobserver* jobserver = nullptr; // not owned; thread-safe itself

    // Guards errors and workerFailure; held only to append or read.
    mutable std::mutex errorMutex;
    std::exception_ptr workerFailure; // first exception that escaped a worker thread
    // Writes dom to posPath behind the workers; declared last, so that it is destroyed
    // (writing what is left) while everything it reads still exists.
    StatusSaver saver{dom, statusMutex, posPath};
};

std::ostream& operator<<(std::ostream& os, const ProofDirector::writer_data_t& job);
std::ostream& operator<<(std::ostream& os, const ProofDirector::prover_data_t& job);
std::ostream& operator<<(std::ostream& os, const ProofDirector::po_data_t& po);
std::ostream& operator<<(std::ostream& os, const ProofDirector::po_table_t& table);

// Appends the writer words of `tool`'s parameters: name and value as two words when the
// separator is exactly " ", joined otherwise; an empty name or value is left out.
void addParametersBits(QStringList& args, mechanism::tool_t tool);
// Appends the words of one prover or reader parameter, "${file}" replaced by `file`:
// one word name+separator+value when both are present (non-null) and the trimmed
// separator is not empty, else the present ones as separate words.
void append_param(const mechanism::param_t& param, QStringList& args, const QString& file);
