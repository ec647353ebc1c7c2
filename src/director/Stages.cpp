// The job stages: the writer, and the prover piped into the reader, whose answers
// become marks on standard output and statuses in the document.

#include "director/ProofDirector.h"
#include "director/ProofDirector_p.h"

#include <QFile>
#include <cerrno>
#include <chrono>
#include <iostream>
#include <map>
#include <unistd.h>

using director::LogLine;
using director::TRACE_PREFIX;
using director::utf8;
using pos::status_t;

namespace {

const std::map<status_t, std::string> stringOfStatus = {
    {pos::UNPROVED, "-"}, {pos::UNKNOWN, "-"},   {pos::UNRELIABLY_PROVED, "*"},
    {pos::PROVED, "+"},   {pos::DISPROVED, "!"},
};
const std::map<status_t, std::string> xmlOfStatus = {
    {pos::UNPROVED, "<m/>"}, {pos::UNKNOWN, "<m/>"},   {pos::UNRELIABLY_PROVED, "<u/>"},
    {pos::PROVED, "<p/>"},   {pos::DISPROVED, "<d/>"},
};

// The failure lines of the log stream, which a report also keeps.
const char WRITER_ERROR[] = "Writer had an error.";
const char WRITER_CRASHED[] = "Writer crashed.";
const char PROVER_CRASHED[] = "Driver prover crashed.";
const char READER_CRASHED[] = "Driver reader crashed.";

bool isAnswer(const QString& line) {
    return line == pos::ATTR_VALUE_PROVED || line == pos::ATTR_VALUE_UNKNOWN ||
           line == pos::ATTR_VALUE_DISPROVED;
}

} // namespace

void ProofDirector::writeJob() {
    const std::thread::id id = tracedThreadId();
    unsigned long long index;
    while (takeJob(writerJobs.size(), index, [&](unsigned long long i) {
        traceThread(id, "writes entry " + std::to_string(i) + ".");
    }))
        writeEntry(index);
}

void ProofDirector::writeEntry(const unsigned long long& index) {
    const writer_data_t& job = writerJobs.at(index);
    if (trace == 1) {
        LogLine() << TRACE_PREFIX << "Issuing writing command " << job.cmd.string() << " "
                  << utf8(job.args.join(QLatin1Char(' ')));
        LogLine() << TRACE_PREFIX << "to generate " << utf8(job.po2filename);
    }
    if (observer != nullptr)
        observer->jobStarted();
    const auto start = std::chrono::steady_clock::now();
    process::exit_t writer;
    // A tool that the stop ended did not crash: its job is just not done.
    if (!process::runAlone({job.cmd, job.args}, tools, writer) || tools.stopping())
        return;
    if (!writer.started)
        LogLine() << TRACE_PREFIX << WRITER_ERROR;
    // Why it could not start, and what it wrote on standard error.
    showToolErrors("writer", job.cmd, job.positions, writer);
    const QString failure = writerFailure(job, writer);
    if (observer != nullptr)
        noteWriter(index, writer, director::secondsSince(start), failure);
}

// Says what went wrong with a writer job, if anything; returns the log line's text.
QString ProofDirector::writerFailure(const writer_data_t& job, const process::exit_t& writer) {
    if (!writer.started) {
        appendError(tr("Error starting secondary proof obligation generation for driver %1.")
                        .arg(driver.name));
        return QString::fromLatin1(WRITER_ERROR);
    }
    if (writer.crashed) {
        LogLine() << TRACE_PREFIX << WRITER_CRASHED;
        appendError(
            tr("Secondary proof obligation generation for driver %1 crashed.").arg(driver.name));
        sayFailedJob("writer", job.cmd, job.positions, writer);
        return QString::fromLatin1(WRITER_CRASHED);
    }
    // The exit code is not examined: the file is the writer's only answer.
    if (QFile::exists(job.po2filename))
        return QString();
    LogLine() << TRACE_PREFIX << "Secondary po " << utf8(job.po2filename) << " not found.";
    appendError(tr("Secondary proof obligation for driver %1 not found in file %2.")
                    .arg(driver.name, job.po2filename));
    return QStringLiteral("Secondary po %1 not found.").arg(job.po2filename);
}

void ProofDirector::proveJob() {
    const std::thread::id id = tracedThreadId();
    unsigned long long index;
    while (takeJob(proverJobs.size(), index, [&](unsigned long long i) {
        traceThread(id, "proves entry (" + proverJobs[i].cmdp.string() + ", " +
                            utf8(proverJobs[i].inpath) + ").");
    }))
        proveEntry(index);
}

void ProofDirector::proveEntry(const unsigned long long& index) {
    const prover_data_t& job = proverJobs.at(index);
    director::job_report_t* report = observer != nullptr ? reportOf(index) : nullptr;
    const auto start = std::chrono::steady_clock::now();
    const QByteArray key = cacheKeyOf(job);
    QByteArray rawOutput;
    process::pipeline_t run;
    const bool fromCache = !key.isEmpty() && answeredFromCache(key, rawOutput);
    if (fromCache && report != nullptr)
        report->fromCache = true;
    if (!fromCache) {
        if (!runProverAndReader(job, run, report)) {
            endReport(index, job, start, report);
            return;
        }
        rawOutput = run.output;
    }
    // A cached answer takes the same path as a live one from here on: the same checks,
    // marks, status updates and saves.
    const QString output = QString::fromUtf8(rawOutput).trimmed();
    const QStringList lines = output.split(QLatin1Char('\n'));
    if (trace == 1)
        LogLine() << TRACE_PREFIX << "processing command output " << utf8(output);
    if (poSelector.isEmpty() && static_cast<std::size_t>(lines.size()) != job.addresses.size()) {
        const QString miscount =
            QStringLiteral("Unexpected number of results. Expected: %1 Found: %2")
                .arg(job.addresses.size())
                .arg(lines.size());
        LogLine() << utf8(miscount);
        appendError(tr("Unexpected number of results from driver %1 reader.").arg(driver.name));
        sayMiscount(job.addresses, lines.size(), fromCache ? nullptr : &run);
        if (report != nullptr)
            report->failures << miscount;
        endReport(index, job, start, report);
        return;
    }
    // Only the answers of tools that both ran to their end are worth keeping.
    const bool complete = !fromCache && run.prover.started && run.reader.started;
    if (complete && !key.isEmpty())
        resultCache->storeBehind(key, rawOutput);
    printMarks(job, lines, report);
    endReport(index, job, start, report);
}

bool ProofDirector::runProverAndReader(const prover_data_t& job, process::pipeline_t& run,
                                       director::job_report_t* report) {
    if (trace == 1) {
        LogLine() << TRACE_PREFIX << "Issuing proving command " << job.cmdp.string() << " "
                  << utf8(job.argsp.join(QLatin1Char(' ')));
        LogLine() << " and reading command " << job.cmdr.string() << " "
                  << utf8(job.argsr.join(QLatin1Char(' ')));
    }
    const bool fromStdin = driver.prover.input == mechanism::INPUT_STDIN;
    // The reader's output is read while the prover runs: a reader that answers as it
    // reads would otherwise fill its pipe, stop reading, and block the prover for ever.
    if (!process::runPipeline({job.cmdp, job.argsp}, fromStdin ? job.inpath : QString(),
                              {job.cmdr, job.argsr}, tools, run) ||
        tools.stopping()) {
        dropReport(report);
        return false;
    }
    ++cacheRun;
    if (report != nullptr)
        noteProver(*report, run);
    showToolErrors("prover", job.cmdp, job.addresses, run.prover);
    showToolErrors("reader", job.cmdr, job.addresses, run.reader);
    if (run.prover.crashed) {
        LogLine() << PROVER_CRASHED;
        appendError(tr("Driver %1 prover crashed.").arg(driver.name));
        sayFailedJob("prover", job.cmdp, job.addresses, run.prover);
        if (report != nullptr)
            report->failures << QString::fromLatin1(PROVER_CRASHED);
        return false;
    }
    if (run.reader.crashed) {
        LogLine() << READER_CRASHED;
        appendError(tr("Driver %1 reader crashed.").arg(driver.name));
        sayFailedJob("reader", job.cmdr, job.addresses, run.reader);
        if (report != nullptr)
            report->failures << QString::fromLatin1(READER_CRASHED);
        return false;
    }
    return true;
}

QByteArray ProofDirector::cacheKeyOf(const prover_data_t& job) const {
    // In single-PO mode the lines after the verdict are a model, echoed, not answers.
    if (resultCache == nullptr || !poSelector.isEmpty())
        return QByteArray();
    return director::ResultCache::jobKey(cacheDriverKey, job.argsp, job.argsr, job.inpath);
}

bool ProofDirector::answeredFromCache(const QByteArray& key, QByteArray& output) {
    if (!resultCache->find(key, output))
        return false;
    // A retry asks again what was left unknown, whatever answer the cache kept for it.
    if (playOptions.retryUnknown && output.split('\n').contains(pos::ATTR_VALUE_UNKNOWN.toUtf8()))
        return false;
    ++cacheAnswered;
    if (trace == 1)
        LogLine() << TRACE_PREFIX
                  << "Answered from the cache: " << utf8(resultCache->entryPath(key));
    return true;
}

director::cache_counts_t ProofDirector::getCacheCounts() const {
    return {cacheAnswered.load(), cacheRun.load(), cacheStored};
}

void ProofDirector::printHeadingsUpTo(unsigned long long group, std::string& marks) {
    while (operationCount <= group) {
        if (operationCount != 0)
            marks += std::string(xml ? "</operation>" : "") + "\n";
        marks += std::string("\t\t") + (xml ? "<operation><name>" : "") +
                 poTable.at(operationCount).first + (xml ? "</name>" : "") + "\n\t\t\t";
        ++operationCount;
    }
}

// Single-PO mode: what follows the verdict is the prover's model, echoed.
void ProofDirector::printModel(const QStringList& lines, int& line, std::string& marks) const {
    marks += xml ? "<model>\n" : "model:\n";
    for (; line < lines.size(); ++line)
        marks += utf8(lines[line]) + '\n';
    marks += xml ? "</model>\n" : "\n";
}

void ProofDirector::printMarks(const prover_data_t& job, const QStringList& lines,
                               director::job_report_t* report) {
    {
        std::lock_guard<std::mutex> lock(statusMutex);
        recordAnswers(job, lines, report);
    }
    writeMarks();
}

void ProofDirector::recordAnswers(const prover_data_t& job, const QStringList& lines,
                                  director::job_report_t* report) {
    // The marks go into one text, written after the lock is released: standard output
    // may block (a pipe nobody reads), and stop() needs this lock to save.
    std::string& marks = pendingMarks;
    bool changed = false;
    int line = 0;
    for (const po_address_t& address : job.addresses) {
        printHeadingsUpTo(address.first, marks);
        const QString answer = line < lines.size() ? lines[line] : QString();
        ++line;
        if (!isAnswer(answer)) {
            marks += xml ? "<m/>" : "-";
            if (report != nullptr)
                report->goals.push_back(unansweredGoal(address, answer));
            continue;
        }
        if (trace == 1)
            LogLine() << TRACE_PREFIX << "updating proof status of proof obligation "
                      << address.first << "," << address.second << " to " << utf8(answer)
                      << " for driver " << utf8(driver.name);
        const status_t before = poTable.at(address.first).second.at(address.second).status;
        if (poSelector.isEmpty()) {
            updateStatus(address, answer);
            ++answersApplied;
        }
        const status_t status = poTable.at(address.first).second.at(address.second).status;
        if (report != nullptr)
            report->goals.push_back(
                {poTable[address.first].first, address.second + 1, answer, before, status, answer});
        marks += xml ? xmlOfStatus.at(status) : stringOfStatus.at(status);
        if (!poSelector.isEmpty())
            printModel(lines, line, marks);
        changed = true;
    }
    if (changed) {
        if (trace == 1)
            LogLine() << TRACE_PREFIX << "Saving new DOM in POS file " << utf8(posPath);
        saver.requestSave();
    }
}

void ProofDirector::writeMarks() {
    // Whoever holds outputMutex writes every text recorded so far, in the order recorded,
    // so the marks of one job stay together and the headings in their place.
    std::lock_guard<std::mutex> writing(outputMutex);
    std::string marks;
    {
        std::lock_guard<std::mutex> lock(statusMutex);
        marks.swap(pendingMarks);
    }
    // Past stdio, so that a write blocked on a full pipe holds no stdio lock: the end of
    // a stopped run flushes the standard streams, and must not wait for this one.
    std::cout.flush();
    for (std::size_t done = 0; done < marks.size();) {
        const ssize_t written = ::write(STDOUT_FILENO, marks.data() + done, marks.size() - done);
        if (written < 0 && errno != EINTR)
            return; // a reader that left: SIGPIPE stops the run
        done += written > 0 ? static_cast<std::size_t>(written) : 0;
    }
}
