// The job stages: the writer, and the prover piped into the reader, whose answers
// become marks on standard output and statuses in the document.

#include "director/ProofDirector.h"
#include "director/ProofDirector_p.h"

#include <QFile>
#include <cerrno>
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

// Keeps the blocks of tool errors of concurrent jobs whole on standard error.
std::mutex toolErrorsMutex;

bool isAnswer(const QString& line) {
    return line == pos::ATTR_VALUE_PROVED || line == pos::ATTR_VALUE_UNKNOWN ||
           line == pos::ATTR_VALUE_DISPROVED;
}

} // namespace

std::string ProofDirector::toolHeading(const char* role, const std::filesystem::path& tool,
                                       const std::vector<po_address_t>& addresses) const {
    // POs are named as a user would select one: group name, ".", number from 1.
    std::string heading = std::string("povrun: driver ") + utf8(driver.name) + ", " + role + " " +
                          tool.string() + ", POs";
    for (const po_address_t& address : addresses) {
        const bool known = address.first < poTable.size();
        heading += " " + (known ? poTable[address.first].first : std::to_string(address.first)) +
                   "." + std::to_string(address.second + 1);
    }
    return heading;
}

void ProofDirector::showToolErrors(const char* role, const std::filesystem::path& tool,
                                   const std::vector<po_address_t>& addresses,
                                   const process::exit_t& run) const {
    std::string block;
    if (!run.started && !run.failure.isEmpty())
        block = toolHeading(role, tool, addresses) + ": " + utf8(run.failure) + "\n";
    if (!run.errors.isEmpty()) {
        block += toolHeading(role, tool, addresses) + ", wrote on standard error:\n" +
                 run.errors.toStdString();
        if (block.back() != '\n')
            block += '\n';
    }
    if (run.errorsDropped > 0)
        block += "[" + std::to_string(run.errorsDropped) + " more bytes]\n";
    if (block.empty())
        return;
    std::lock_guard<std::mutex> lock(toolErrorsMutex);
    std::cerr << block << std::flush;
}

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
    process::exit_t writer;
    if (!process::runAlone({job.cmd, job.args}, tools, writer))
        return; // stopping
    if (!writer.started)
        LogLine() << TRACE_PREFIX << "Writer had an error.";
    showToolErrors("writer", job.cmd, job.positions, writer);
    if (!writer.started) {
        appendError(tr("Error starting secondary proof obligation generation for driver %1.")
                        .arg(driver.name));
        return;
    }
    if (writer.crashed) {
        LogLine() << TRACE_PREFIX << "Writer crashed.";
        appendError(
            tr("Secondary proof obligation generation for driver %1 crashed.").arg(driver.name));
        return;
    }
    // The exit code is not examined: the file is the writer's only answer.
    if (!QFile::exists(job.po2filename)) {
        LogLine() << TRACE_PREFIX << "Secondary po " << utf8(job.po2filename) << " not found.";
        appendError(tr("Secondary proof obligation for driver %1 not found in file %2.")
                        .arg(driver.name, job.po2filename));
    }
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
    if (trace == 1) {
        LogLine() << TRACE_PREFIX << "Issuing proving command " << job.cmdp.string() << " "
                  << utf8(job.argsp.join(QLatin1Char(' ')));
        LogLine() << " and reading command " << job.cmdr.string() << " "
                  << utf8(job.argsr.join(QLatin1Char(' ')));
    }
    const bool fromStdin = driver.prover.input == mechanism::INPUT_STDIN;
    process::pipeline_t run;
    // The reader's output is read while the prover runs: a reader that answers as it
    // reads would otherwise fill its pipe, stop reading, and block the prover for ever.
    if (!process::runPipeline({job.cmdp, job.argsp}, fromStdin ? job.inpath : QString(),
                              {job.cmdr, job.argsr}, tools, run))
        return; // stopping
    showToolErrors("prover", job.cmdp, job.addresses, run.prover);
    showToolErrors("reader", job.cmdr, job.addresses, run.reader);
    if (run.prover.crashed) {
        LogLine() << "Driver prover crashed.";
        appendError(tr("Driver %1 prover crashed.").arg(driver.name));
        return;
    }
    if (run.reader.crashed) {
        LogLine() << "Driver reader crashed.";
        appendError(tr("Driver %1 reader crashed.").arg(driver.name));
        return;
    }
    const QString output = QString::fromUtf8(run.output).trimmed();
    const QStringList lines = output.split(QLatin1Char('\n'));
    if (trace == 1)
        LogLine() << TRACE_PREFIX << "processing command output " << utf8(output);
    if (poSelector.isEmpty() && static_cast<std::size_t>(lines.size()) != job.addresses.size()) {
        LogLine() << "Unexpected number of results. Expected: " << job.addresses.size()
                  << " Found: " << lines.size();
        appendError(tr("Unexpected number of results from driver %1 reader.").arg(driver.name));
        return;
    }
    printMarks(job, lines);
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

void ProofDirector::printMarks(const prover_data_t& job, const QStringList& lines) {
    {
        std::lock_guard<std::mutex> lock(statusMutex);
        recordAnswers(job, lines);
    }
    writeMarks();
}

void ProofDirector::recordAnswers(const prover_data_t& job, const QStringList& lines) {
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
            continue;
        }
        if (trace == 1)
            LogLine() << TRACE_PREFIX << "updating proof status of proof obligation "
                      << address.first << "," << address.second << " to " << utf8(answer)
                      << " for driver " << utf8(driver.name);
        if (poSelector.isEmpty())
            updateStatus(address, answer);
        const status_t status = poTable.at(address.first).second.at(address.second).status;
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
