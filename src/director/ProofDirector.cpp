#include "director/ProofDirector.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QSaveFile>
#include <QTextCodec>
#include <QTextStream>
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>
#include <sys/types.h>
#include <thread>
#include <unistd.h>

using mechanism::driver_t;
using pos::status_t;

namespace {

const char TRACE_PREFIX[] = "-- ProofDirector -- ";
// Worker threads spell it with a blank; other programs read both forms.
const char THREAD_TRACE_PREFIX[] = "-- Proof Director -- ";
const QString AUTHOR = QStringLiteral("proof_director");
const QString FILE_PLACEHOLDER = QStringLiteral("${file}");

const std::map<status_t, std::string> stringOfStatus = {
    {pos::UNPROVED, "-"}, {pos::UNKNOWN, "-"},   {pos::UNRELIABLY_PROVED, "*"},
    {pos::PROVED, "+"},   {pos::DISPROVED, "!"},
};
const std::map<status_t, std::string> xmlOfStatus = {
    {pos::UNPROVED, "<m/>"}, {pos::UNKNOWN, "<m/>"},   {pos::UNRELIABLY_PROVED, "<u/>"},
    {pos::PROVED, "<p/>"},   {pos::DISPROVED, "<d/>"},
};

// One line of the log stream, written in one piece when the statement ends, so that the
// lines of concurrent workers never mix.
class LogLine {
public:
    LogLine() = default;
    LogLine(const LogLine&) = delete;
    LogLine& operator=(const LogLine&) = delete;
    ~LogLine() {
        text << '\n';
        std::clog << text.str() << std::flush;
    }
    template <typename T> LogLine& operator<<(const T& value) {
        text << value;
        return *this;
    }

private:
    std::ostringstream text;
};

// How long stop() waits for killed tools to be reaped before it removes their files.
constexpr std::chrono::milliseconds STOP_GRACE{2000};

std::string utf8(const QString& text) {
    return text.toStdString();
}

QString qstringOfPath(const std::filesystem::path& path) {
    return QString::fromStdString(path.string());
}

// Runs `action` when the scope ends, whatever the exit path.
template <typename F> class ScopeExit {
public:
    explicit ScopeExit(F action) : action(std::move(action)) {}
    ~ScopeExit() { action(); }
    ScopeExit(const ScopeExit&) = delete;
    ScopeExit& operator=(const ScopeExit&) = delete;

private:
    F action;
};

bool isAnswer(const QString& line) {
    return line == pos::ATTR_VALUE_PROVED || line == pos::ATTR_VALUE_UNKNOWN ||
           line == pos::ATTR_VALUE_DISPROVED;
}

QDomElement mechanismElementOf(const QDomElement& goal, const QString& name) {
    for (QDomElement element = goal.firstChildElement(pos::TAG_MECHANISM); !element.isNull();
         element = element.nextSiblingElement(pos::TAG_MECHANISM)) {
        if (element.attribute(pos::ATTR_NAME, QString()) == name)
            return element;
    }
    return QDomElement();
}

QString groupNameOf(const QDomElement& group) {
    return group.firstChildElement(pos::TAG_TAG).text();
}

// The file name of the PO file less its extension, used in every secondary file name.
QString baseNameOfPog(const QString& pogFile) {
    const QString native = QDir::toNativeSeparators(pogFile);
    const int separator = native.lastIndexOf(QDir::separator());
    const int dot = native.lastIndexOf(QLatin1Char('.'));
    if (dot <= separator)
        return native.mid(separator + 1);
    return native.mid(separator + 1, dot - separator - 1);
}

// Live (not zombie) processes whose chain of parents leads to `root`, read from /proc.
std::vector<pid_t> liveDescendantsOf(pid_t root) {
    std::multimap<pid_t, std::pair<pid_t, bool>> childrenOf; // parent -> (pid, alive)
    DIR* proc = opendir("/proc");
    if (proc == nullptr)
        return {};
    while (const dirent* entry = readdir(proc)) {
        char* end = nullptr;
        const long pid = strtol(entry->d_name, &end, 10);
        if (pid <= 0 || *end != '\0')
            continue;
        const std::string statPath = std::string("/proc/") + entry->d_name + "/stat";
        FILE* stat = fopen(statPath.c_str(), "r");
        if (stat == nullptr)
            continue;
        char line[1024];
        const bool read = fgets(line, sizeof line, stat) != nullptr;
        fclose(stat);
        // The command name may hold blanks and parentheses: parse after the last ')'.
        const char* afterName = read ? strrchr(line, ')') : nullptr;
        char state = 0;
        long parent = 0;
        if (afterName == nullptr || sscanf(afterName + 1, " %c %ld", &state, &parent) != 2)
            continue;
        childrenOf.emplace(static_cast<pid_t>(parent),
                           std::make_pair(static_cast<pid_t>(pid), state != 'Z'));
    }
    closedir(proc);
    std::vector<pid_t> live;
    std::vector<pid_t> pending = {root};
    while (!pending.empty()) {
        const pid_t parent = pending.back();
        pending.pop_back();
        const auto range = childrenOf.equal_range(parent);
        for (auto it = range.first; it != range.second; ++it) {
            pending.push_back(it->second.first);
            if (it->second.second)
                live.push_back(it->second.first);
        }
    }
    return live;
}

// Kills every live descendant of this process: the tools and whatever they started.
// This process is a child subreaper (see main), so the children of a killed wrapper
// come back to it and the next round finds them.
void killDescendants() {
    for (int round = 0; round < 100; ++round) {
        const std::vector<pid_t> live = liveDescendantsOf(getpid());
        if (live.empty())
            return;
        for (pid_t pid : live)
            ::kill(pid, SIGKILL);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

} // namespace

// ---------------------------------------------------------------------------------------
// Construction, queries, loading and saving

ProofDirector::ProofDirector(const std::string& component, const std::string& mechanismFile,
                             const std::string& posPath, const std::string& pogPath,
                             const std::string& tempDir,
                             const std::vector<std::string>& installDirs, bool xml,
                             unsigned concurrency, int trace, const std::string& driverFilter,
                             const std::string& poSelector, bool fastOnly)
    : QObject(nullptr), driverFilter(QString::fromStdString(driverFilter)),
      poSelector(QString::fromStdString(poSelector)), posPath(QString::fromStdString(posPath)),
      pogPath(QString::fromStdString(pogPath)), tempDir(QString::fromStdString(tempDir)), xml(xml),
      concurrency(concurrency), trace(trace), fastOnly(fastOnly), installDirs(installDirs),
      component(component) {
    loaded = mechanism::ofFile(QString::fromStdString(mechanismFile), mechanism, installDirs);
    if (trace == 1) {
        std::clog << TRACE_PREFIX << "Created a ProofDirector for " << component << " from "
                  << mechanismFile << std::endl;
        std::clog << "xml: " << xml << " "
                  << "concurrency: " << concurrency << " "
                  << "loaded: " << loaded << " "
                  << "trace: " << trace << std::endl;
    }
}

ProofDirector::~ProofDirector() {
    if (trace == 1)
        std::clog << TRACE_PREFIX << "Destroyed ProofDirector for "
                  << "component " << component << std::endl;
}

bool ProofDirector::isLoaded() const {
    return loaded;
}

bool ProofDirector::hasErrors() const {
    std::lock_guard<std::mutex> lock(errorMutex);
    return !errors.isEmpty();
}

QList<QString> ProofDirector::getErrors() const {
    std::lock_guard<std::mutex> lock(errorMutex);
    return errors;
}

std::string ProofDirector::getMechanismName() const {
    return mechanism.name;
}

void ProofDirector::appendError(const QString& message) {
    std::lock_guard<std::mutex> lock(errorMutex);
    errors.append(message);
}

void ProofDirector::traceLine(const char* message) const {
    if (trace == 1)
        std::clog << TRACE_PREFIX << message << std::endl;
}

bool ProofDirector::buildPoTable(const std::function<bool(QDomElement&, po_data_t&)>& recordOf) {
    poTable.clear();
    for (QDomElement group = dom.documentElement().firstChildElement(pos::TAG_PROOF_OBLIGATION);
         !group.isNull(); group = group.nextSiblingElement(pos::TAG_PROOF_OBLIGATION)) {
        std::vector<po_data_t> goals;
        for (QDomElement goal = group.firstChildElement(pos::TAG_SIMPLE_GOAL); !goal.isNull();
             goal = goal.nextSiblingElement(pos::TAG_SIMPLE_GOAL)) {
            po_data_t po;
            if (!recordOf(goal, po))
                return false;
            goals.push_back(po);
        }
        poTable.emplace_back(utf8(groupNameOf(group)), std::move(goals));
    }
    return true;
}

bool ProofDirector::reloadPosFile() {
    std::lock_guard<std::mutex> lock(statusMutex);
    // Whatever fails below leaves nothing that a later save could write back.
    dom = pos::documentOfFile(posPath);
    poTable.clear();
    if (dom.isNull())
        return false;
    unprovedCount = 0;
    const QString mechanismName = QString::fromStdString(mechanism.name);
    const bool complete = buildPoTable([&](QDomElement& goal, po_data_t& po) {
        const bool goalUnproved =
            goal.attribute(pos::ATTR_STATUS, pos::ATTR_VALUE_UNPROVED) == pos::ATTR_VALUE_UNPROVED;
        if (goalUnproved)
            ++unprovedCount;
        po.element = mechanismElementOf(goal, mechanismName);
        if (po.element.isNull())
            return false;
        // A replay plays again exactly the drivers that had settled this goal before.
        if (goalUnproved && po.element.attribute(pos::ATTR_STATUS, pos::ATTR_VALUE_UNPROVED) ==
                                pos::ATTR_VALUE_UNPROVED) {
            for (QDomElement d = po.element.firstChildElement(pos::TAG_DRIVER); !d.isNull();
                 d = d.nextSiblingElement(pos::TAG_DRIVER)) {
                const QString status = d.attribute(pos::ATTR_STATUS, pos::ATTR_VALUE_UNPROVED);
                if (status == pos::ATTR_VALUE_PROVED || status == pos::ATTR_VALUE_DISPROVED)
                    po.drivers.append(d.attribute(pos::ATTR_NAME));
            }
        }
        return true;
    });
    if (!complete) {
        dom = QDomDocument();
        poTable.clear();
    }
    return complete;
}

QDomElement ProofDirector::registerMechanism(QDomElement& goal) {
    QDomElement element = dom.createElement(pos::TAG_MECHANISM);
    element.setAttribute(pos::ATTR_NAME, QString::fromStdString(mechanism.name));
    element.setAttribute(pos::ATTR_STATUS, pos::ATTR_VALUE_UNPROVED);
    for (const QString& driverName : mechanism.driverNames) {
        QDomElement d = dom.createElement(pos::TAG_DRIVER);
        d.setAttribute(pos::ATTR_NAME, driverName);
        d.setAttribute(pos::ATTR_STATUS, pos::ATTR_VALUE_UNPROVED);
        element.appendChild(d);
    }
    goal.appendChild(element);
    return element;
}

bool ProofDirector::loadPosFile() {
    std::lock_guard<std::mutex> lock(statusMutex);
    unprovedCount = 0;
    QDomDocument document = pos::documentOfFile(posPath);
    if (document.isNull())
        return false;
    dom = document;
    bool registered = false;
    const QString mechanismName = QString::fromStdString(mechanism.name);
    buildPoTable([&](QDomElement& goal, po_data_t& po) {
        po.status =
            pos::proofStatusOfAttrValue(goal.attribute(pos::ATTR_STATUS, pos::ATTR_VALUE_UNPROVED));
        if (po.status == pos::UNPROVED)
            ++unprovedCount;
        po.element = mechanismElementOf(goal, mechanismName);
        bool unknownReset = false;
        if (po.element.isNull()) {
            po.element = registerMechanism(goal);
            registered = true;
            if (po.status == pos::UNKNOWN) {
                goal.setAttribute(pos::ATTR_STATUS, pos::ATTR_VALUE_UNPROVED);
                unknownReset = true;
            }
        }
        const bool settled =
            po.status == pos::PROVED || po.status == pos::DISPROVED ||
            (po.status == pos::UNRELIABLY_PROVED && mechanism.trust == mechanism::TRUST_NEVER);
        // Read without a default: a mechanism element without status is left alone.
        if ((unknownReset || !settled) &&
            po.element.attribute(pos::ATTR_STATUS) == pos::ATTR_VALUE_UNPROVED) {
            for (QDomElement d = po.element.firstChildElement(pos::TAG_DRIVER); !d.isNull();
                 d = d.nextSiblingElement(pos::TAG_DRIVER))
                po.drivers.append(d.attribute(pos::ATTR_NAME, QString()));
            po.status = pos::UNPROVED;
        }
        return true;
    });
    return registered;
}

// Qt writes the XML declaration back with single quotes around values it keeps as
// read: a value holding a quote, or an encoding no codec knows, would come out as a file
// that does not parse (or cannot be written). Such a declaration gives way to UTF-8.
static void ensureWritableDeclaration(QDomDocument& dom) {
    QDomNode first = dom.firstChild();
    if (!first.isProcessingInstruction() || first.nodeName() != QLatin1String("xml"))
        return;
    static const QRegularExpression wellFormed(QStringLiteral(
        "^version='[^'\"]*'(?: encoding='([^'\"]*)')?(?: standalone='(?:yes|no)')?$"));
    const QRegularExpressionMatch match = wellFormed.match(first.nodeValue());
    if (match.hasMatch() &&
        (match.captured(1).isEmpty() || QTextCodec::codecForName(match.captured(1).toLatin1())))
        return;
    dom.replaceChild(
        dom.createProcessingInstruction(QStringLiteral("xml"),
                                        QStringLiteral("version=\"1.0\" encoding=\"UTF-8\"")),
        first);
}

bool ProofDirector::savePosFile() {
    const QFileInfo info(posPath);
    // Never create a status file, and respect one the user made read-only (even when
    // running as root, who could write it anyway).
    if (!info.exists() || !info.isWritable() || !(info.permissions() & QFileDevice::WriteOwner))
        return false;
    QDomElement root = dom.documentElement();
    if (root.isNull())
        return false;
    root.setAttribute(pos::ATTR_AUTHOR, AUTHOR);
    ensureWritableDeclaration(dom);
    // Written beside the old file and renamed over it, so a kill or a full disk in the
    // middle of a save leaves the previous file whole.
    QSaveFile file(info.isSymLink() ? info.symLinkTarget() : posPath);
    file.setDirectWriteFallback(true);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Text))
        return false;
    QTextStream stream(&file);
    // The XML declaration's encoding wins over this default when the document has one.
    stream.setCodec("UTF-8");
    dom.save(stream, pos::XML_INDENT, QDomNode::EncodingFromDocument);
    stream.flush();
    if (stream.status() != QTextStream::Ok) {
        file.cancelWriting();
        return false;
    }
    return file.commit();
}

// ---------------------------------------------------------------------------------------
// Running tools and stopping

qint64 ProofDirector::startTool(QProcess& process, const std::filesystem::path& program,
                                const QStringList& arguments) {
    // Starting and registering under the lock that stop() takes: no tool can appear
    // after stop() has killed the registered ones, and none starts afterwards.
    std::lock_guard<std::mutex> lock(processMutex);
    if (stopping)
        return -1;
    process.start(qstringOfPath(program), arguments, QIODevice::ReadWrite);
    const qint64 pid = process.processId();
    if (pid > 0)
        processes.push_back(pid);
    return pid;
}

void ProofDirector::unregisterProcess(qint64 pid) {
    if (pid <= 0)
        return;
    std::lock_guard<std::mutex> lock(processMutex);
    for (auto it = processes.begin(); it != processes.end(); ++it) {
        if (*it == pid) {
            processes.erase(it);
            break;
        }
    }
    if (processes.empty())
        processesGone.notify_all();
}

void ProofDirector::waitForProcessesGone() {
    std::unique_lock<std::mutex> lock(processMutex);
    processesGone.wait_for(lock, STOP_GRACE, [this] { return processes.empty(); });
}

void ProofDirector::removeSecondaryFiles() {
    for (const writer_data_t& job : writerJobs)
        QFile::remove(job.po2filename);
}

void ProofDirector::stop() {
    {
        std::lock_guard<std::mutex> lock(processMutex);
        stopping = true;
        for (qint64 pid : processes)
            ::kill(static_cast<pid_t>(pid), SIGKILL);
    }
    killDescendants();
    // A writer still running could otherwise create its file after the clean-up.
    waitForProcessesGone();
    // Kept locked on purpose: the caller exits right after, and no worker may start a
    // save that the exit would cut in half.
    statusMutex.lock();
    removeSecondaryFiles();
    savePosFile();
}

// ---------------------------------------------------------------------------------------
// Driver loop

void ProofDirector::replay() {
    traceLine("Start loading POS file.");
    if (!reloadPosFile()) {
        traceLine("Loading POS file failed.");
        std::cout << (xml ? "<error>" : "") << "Error " << component << " .pos"
                  << (xml ? "</error>" : "") << std::endl;
        return;
    }
    traceLine("Loading POS file completed.");
    playDrivers();
}

void ProofDirector::play() {
    traceLine("Start loading POS file.");
    const bool registered = loadPosFile();
    traceLine("Loading POS file completed.");
    if (registered) {
        traceLine("Registering mechanism in POS file.");
        std::lock_guard<std::mutex> lock(statusMutex);
        savePosFile();
    } else {
        traceLine("Mechanism already registered in POS file.");
    }
    playDrivers();
}

bool ProofDirector::hasWork() {
    for (const auto& group : poTable)
        for (const po_data_t& po : group.second)
            if (!po.drivers.isEmpty())
                return true;
    return false;
}

void ProofDirector::playDrivers() {
    for (std::size_t k = 0; k < mechanism.drivers.size(); ++k) {
        driver = mechanism.drivers[k];
        if ((!driverFilter.isEmpty() && driverFilter != driver.name) || (fastOnly && !driver.fast))
            continue;
        const std::string name = utf8(driver.name);
        const auto tracePlaying = [&] {
            if (trace == 1)
                std::clog << TRACE_PREFIX << "Playing " << k << "-th driver "
                          << "(" << name << ")" << std::endl;
        };
        tracePlaying();
        std::cout << (xml ? "<proofPass>" : "") << "\tProof driver " << name << ", still "
                  << unprovedCount << " unproved PO" << (xml ? "</proofPass>" : "") << std::endl;
        tracePlaying();
        if (poSelector.isEmpty() && !hasWork()) {
            traceLine("Driver cannot improve proof status.");
            continue;
        }
        traceLine("Driver has proof obligations to process.");
        selection_t selection;
        selectForDriver(selection);
        traceLine("Driver producing writer data");
        produceWriterData(tempDir, pogPath, selection);
        traceLine("Driver producing prover data");
        produceProverData();
        operationCount = 0;
        runJobs();
        std::cout << std::endl;
        if (operationCount != 0)
            std::cout << (xml ? "</operation>" : "") << std::endl;
        removeSecondaryFiles();
    }
}

void ProofDirector::runJobs() {
    if (concurrency == 1) {
        for (unsigned long long i = 0; i < writerJobs.size(); ++i) {
            writeEntry(i);
            proveEntry(i);
        }
        return;
    }
    nextJob = 0;
    // A worker beyond the number of jobs would only find the counter at its end; with a
    // huge -c, starting them all would cost seconds and gigabytes for nothing.
    const std::size_t wanted = std::min<std::size_t>(concurrency, writerJobs.size());
    std::vector<std::unique_ptr<std::thread>> workers;
    for (std::size_t n = 0; n < wanted; ++n) {
        try {
            workers.push_back(std::make_unique<std::thread>([this] {
                try {
                    writeAndProveJob();
                } catch (...) {
                    std::lock_guard<std::mutex> lock(errorMutex);
                    if (!workerFailure)
                        workerFailure = std::current_exception();
                }
            }));
        } catch (const std::exception&) {
            // Out of threads: the workers already running take every job.
            break;
        }
    }
    if (workers.empty())
        writeAndProveJob();
    for (const auto& worker : workers)
        worker->join();
    std::exception_ptr failure;
    {
        std::lock_guard<std::mutex> lock(errorMutex);
        std::swap(failure, workerFailure);
    }
    if (failure)
        std::rethrow_exception(failure);
}

bool ProofDirector::takeJob(std::size_t count, unsigned long long& index,
                            const std::function<void(unsigned long long)>& traceTaken) {
    std::lock_guard<std::mutex> lock(jobMutex);
    if (nextJob == count)
        return false;
    index = nextJob++;
    // Under the lock, so that the trace lines of the workers come out whole.
    if (trace == 1)
        traceTaken(index);
    return true;
}

void ProofDirector::traceThread(const std::thread::id& id, const std::string& what) const {
    LogLine() << THREAD_TRACE_PREFIX << "Thread " << id << " " << what;
}

std::thread::id ProofDirector::tracedThreadId() const {
    return trace == 1 ? std::this_thread::get_id() : std::thread::id();
}

void ProofDirector::writeAndProveJob() {
    const std::thread::id id = tracedThreadId();
    const auto traceWrites = [&](unsigned long long i) {
        traceThread(id, "writes entry " + std::to_string(i) + ".");
    };
    unsigned long long i;
    while (takeJob(writerJobs.size(), i, traceWrites)) {
        writeEntry(i);
        if (trace == 1) {
            const prover_data_t& job = proverJobs.at(i);
            traceThread(id, "proves entry (" + job.cmdp.string() + ", " + job.cmdr.string() + ").");
        }
        proveEntry(i);
    }
}

// ---------------------------------------------------------------------------------------
// Work selection and job building

void ProofDirector::selectForDriver(selection_t& selection) {
    if (poSelector.isEmpty()) {
        for (unsigned long long g = 0; g < poTable.size(); ++g) {
            std::vector<po_address_t> group;
            const std::vector<po_data_t>& goals = poTable[g].second;
            for (unsigned long long p = 0; p < goals.size(); ++p)
                if (goals[p].drivers.contains(driver.name))
                    group.emplace_back(g, p);
            selection.push_back(std::move(group));
        }
        return;
    }
    for (unsigned long long g = 0; g < poTable.size(); ++g) {
        const QStringList parts = poSelector.split(QLatin1Char('.'));
        if (parts.first() != QString::fromStdString(poTable[g].first))
            continue;
        const unsigned long long number = parts.value(1).toULongLong();
        selection.push_back({po_address_t(g, number - 1)});
        return;
    }
}

void ProofDirector::produceWriterData(const QString& directory, const QString& pogFile,
                                      const selection_t& selection) {
    const QString base = baseNameOfPog(pogFile);
    const QString mechanismName = QString::fromStdString(mechanism.name);
    const QDir folder(directory);
    std::vector<writer_data_t> jobs;
    const auto finish = [&](writer_data_t& job) {
        job.cmd = driver.writer.path;
        job.args << QStringLiteral("-i") << pogFile << QStringLiteral("-o") << job.po2filename;
        if (!poSelector.isEmpty())
            job.args << QStringLiteral("-m");
        addParametersBits(job.args, driver.writer);
        jobs.push_back(std::move(job));
    };
    const auto addAddress = [](writer_data_t& job, unsigned long long group,
                               const po_address_t& address) {
        job.args << QStringLiteral("-a") << QString::number(group)
                 << QString::number(address.second);
        job.positions.push_back(address);
    };
    switch (driver.group) {
    case mechanism::GROUP_NONE:
        for (const auto& group : selection) {
            for (const po_address_t& address : group) {
                writer_data_t job;
                job.po2filename = folder.filePath(
                    QStringLiteral("%1_%2_%3_%4_%5.%6")
                        .arg(base, mechanismName, driver.name, QString::number(address.first),
                             QString::number(address.second), driver.ext));
                addAddress(job, address.first, address);
                finish(job);
            }
        }
        break;
    case mechanism::GROUP_RELATED: {
        uint32_t k = 0;
        for (const auto& group : selection) {
            if (!group.empty()) {
                writer_data_t job;
                job.po2filename = folder.filePath(
                    QStringLiteral("%1_%2_%3_%4.%5")
                        .arg(base, mechanismName, driver.name, QString::number(k), driver.ext));
                // The position in the selection is written, not the group index.
                for (const po_address_t& address : group)
                    addAddress(job, k, address);
                finish(job);
            }
            ++k;
        }
        break;
    }
    case mechanism::GROUP_FULL: {
        writer_data_t job;
        job.po2filename = folder.filePath(
            QStringLiteral("%1_%2_%3.%4").arg(base, mechanismName, driver.name, driver.ext));
        for (const auto& group : selection)
            for (const po_address_t& address : group)
                addAddress(job, address.first, address);
        finish(job);
        break;
    }
    }
    std::lock_guard<std::mutex> lock(statusMutex);
    writerJobs.swap(jobs);
}

void ProofDirector::produceProverData() {
    proverJobs.clear();
    for (const writer_data_t& writerJob : writerJobs) {
        prover_data_t job;
        for (const mechanism::param_t& param : driver.prover.params)
            append_param(param, job.argsp, writerJob.po2filename);
        for (const mechanism::param_t& param : driver.reader.params)
            append_param(param, job.argsr, writerJob.po2filename);
        job.cmdp = driver.prover.path;
        job.cmdr = driver.reader.path;
        job.inpath = writerJob.po2filename;
        job.addresses = writerJob.positions;
        proverJobs.push_back(std::move(job));
    }
}

void addParametersBits(QStringList& args, mechanism::tool_t tool) {
    for (const mechanism::param_t& param : tool.params) {
        if (param.name.isEmpty())
            args << param.value;
        else if (param.value.isEmpty())
            args << param.name;
        else if (param.separator == QLatin1String(" "))
            args << param.name << param.value;
        else
            args << param.name + param.separator + param.value;
    }
}

void append_param(const mechanism::param_t& param, QStringList& args, const QString& file) {
    QString name = param.name;
    QString value = param.value;
    if (!name.isNull())
        name.replace(FILE_PLACEHOLDER, file);
    if (!value.isNull())
        value.replace(FILE_PLACEHOLDER, file);
    if (!name.isNull() && !value.isNull() && !param.separator.trimmed().isEmpty()) {
        args << name + param.separator + value;
        return;
    }
    if (!name.isNull())
        args << name;
    if (!value.isNull())
        args << value;
}

// ---------------------------------------------------------------------------------------
// Writer stage

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
    QProcess process;
    if (trace == 1) {
        LogLine() << TRACE_PREFIX << "Issuing writing command " << job.cmd.string() << " "
                  << utf8(job.args.join(QLatin1Char(' ')));
        LogLine() << TRACE_PREFIX << "to generate " << utf8(job.po2filename);
    }
    const qint64 pid = startTool(process, job.cmd, job.args);
    if (pid < 0)
        return; // stopping
    const ScopeExit unregister([this, pid] { unregisterProcess(pid); });
    if (!process.waitForStarted(30000)) {
        LogLine() << TRACE_PREFIX << "Writer had an error.";
        appendError(tr("Error starting secondary proof obligation generation for driver %1.")
                        .arg(driver.name));
        return;
    }
    // The writer is fed nothing: end-of-file instead of a wait on a pipe nobody writes.
    process.closeWriteChannel();
    process.waitForFinished(-1);
    if (process.exitStatus() != QProcess::NormalExit) {
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

// ---------------------------------------------------------------------------------------
// Prover and reader stage

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
    QProcess prover;
    QProcess reader;
    const bool fromStdin = driver.prover.input == mechanism::INPUT_STDIN;
    if (fromStdin)
        prover.setStandardInputFile(job.inpath);
    prover.setStandardOutputProcess(&reader);
    if (trace == 1) {
        LogLine() << TRACE_PREFIX << "Issuing proving command " << job.cmdp.string() << " "
                  << utf8(job.argsp.join(QLatin1Char(' ')));
        LogLine() << " and reading command " << job.cmdr.string() << " "
                  << utf8(job.argsr.join(QLatin1Char(' ')));
    }
    const qint64 proverPid = startTool(prover, job.cmdp, job.argsp);
    if (proverPid < 0)
        return; // stopping
    ScopeExit unregisterProver([this, proverPid] { unregisterProcess(proverPid); });
    // A prover that could not even be set up (its input file is missing) never takes the
    // pipe's write end: the reader then reads nothing instead of waiting for ever.
    if (prover.state() == QProcess::NotRunning)
        reader.setStandardInputFile(QProcess::nullDevice());
    const qint64 readerPid = startTool(reader, job.cmdr, job.argsr);
    if (readerPid < 0) { // stopping
        prover.kill();
        prover.waitForFinished(-1);
        return;
    }
    ScopeExit unregisterReader([this, readerPid] { unregisterProcess(readerPid); });
    if (!fromStdin)
        prover.closeWriteChannel();

    // Drain the reader while the prover runs: a reader that answers as it reads would
    // otherwise fill its pipe, stop reading, and block the prover for ever.
    while (!prover.waitForFinished(20) && prover.state() != QProcess::NotRunning)
        reader.waitForReadyRead(0);
    if (prover.exitStatus() != QProcess::NormalExit) {
        LogLine() << "Driver prover crashed.";
        appendError(tr("Driver %1 prover crashed.").arg(driver.name));
        reader.kill();
        reader.waitForFinished(-1);
        return;
    }
    reader.waitForFinished(-1);
    if (reader.exitStatus() != QProcess::NormalExit) {
        LogLine() << "Driver reader crashed.";
        appendError(tr("Driver %1 reader crashed.").arg(driver.name));
        return;
    }
    const QString output = QString::fromUtf8(reader.readAllStandardOutput()).trimmed();
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

void ProofDirector::printHeadingsUpTo(unsigned long long group) {
    while (operationCount <= group) {
        if (operationCount != 0)
            std::cout << (xml ? "</operation>" : "") << std::endl;
        std::cout << "\t\t" << (xml ? "<operation><name>" : "") << poTable.at(operationCount).first
                  << (xml ? "</name>" : "") << std::endl
                  << "\t\t\t";
        ++operationCount;
    }
}

void ProofDirector::printMarks(const prover_data_t& job, const QStringList& lines) {
    std::lock_guard<std::mutex> lock(statusMutex);
    bool changed = false;
    int line = 0;
    for (const po_address_t& address : job.addresses) {
        printHeadingsUpTo(address.first);
        const QString answer = line < lines.size() ? lines[line] : QString();
        ++line;
        if (!isAnswer(answer)) {
            std::cout << (xml ? "<m/>" : "-");
            continue;
        }
        if (trace == 1)
            LogLine() << TRACE_PREFIX << "updating proof status of proof obligation "
                      << address.first << "," << address.second << " to " << utf8(answer)
                      << " for driver " << utf8(driver.name);
        if (poSelector.isEmpty())
            updateStatus(address, answer);
        const status_t status = poTable.at(address.first).second.at(address.second).status;
        std::cout << (xml ? xmlOfStatus.at(status) : stringOfStatus.at(status));
        if (!poSelector.isEmpty()) {
            // Single-PO mode: what follows the verdict is the prover's model, echoed.
            std::cout << (xml ? "<model>\n" : "model:\n");
            for (; line < lines.size(); ++line)
                std::cout << utf8(lines[line]) << '\n';
            std::cout << (xml ? "</model>\n" : "\n");
        }
        changed = true;
    }
    std::cout.flush();
    if (changed) {
        if (trace == 1)
            LogLine() << TRACE_PREFIX << "Saving new DOM in POS file " << utf8(posPath);
        savePosFile();
    }
}

void ProofDirector::updateStatus(const po_address_t& address, const QString& answer) {
    po_data_t& po = poTable.at(address.first).second.at(address.second);
    const status_t old = po.status;
    QStringList drivers = po.drivers;
    QDomElement element = po.element;
    const mechanism::trust_t trust = mechanism.trust;

    QDomElement driverElement = element.firstChildElement(pos::TAG_DRIVER);
    while (!driverElement.isNull() &&
           driverElement.attribute(pos::ATTR_NAME, QString()) != driver.name)
        driverElement = driverElement.nextSiblingElement(pos::TAG_DRIVER);
    const bool last = driverElement.nextSiblingElement(pos::TAG_DRIVER).isNull();
    driverElement.setAttribute(pos::ATTR_STATUS, answer);

    // Under "redundancy" a first proof leaves the PO open for the other drivers.
    if (answer == pos::ATTR_VALUE_DISPROVED ||
        (answer == pos::ATTR_VALUE_PROVED &&
         (trust != mechanism::TRUST_REDUNDANCY || old == pos::UNRELIABLY_PROVED)))
        drivers.clear();
    else
        drivers.removeOne(driver.name);

    status_t next = old;
    bool updateParent = true;
    if (answer == pos::ATTR_VALUE_UNKNOWN) {
        // Only the last driver of the mechanism may declare the PO unknown.
        if (last) {
            next = pos::UNKNOWN;
            if (old != pos::UNKNOWN)
                element.setAttribute(pos::ATTR_STATUS, pos::ATTR_VALUE_UNKNOWN);
        }
        updateParent = next >= pos::UNRELIABLY_PROVED;
    } else if (answer == pos::ATTR_VALUE_DISPROVED) {
        next = pos::DISPROVED;
        if (old != pos::DISPROVED)
            element.setAttribute(pos::ATTR_STATUS, pos::strOfProofStatus(next));
    } else if (trust == mechanism::TRUST_REDUNDANCY) {
        // Two agreeing drivers make a proof; a third "Proved" starts over, by design.
        next = old == pos::UNRELIABLY_PROVED ? pos::PROVED : pos::UNRELIABLY_PROVED;
        element.setAttribute(pos::ATTR_STATUS, pos::strOfProofStatus(next));
    } else {
        next = trust == mechanism::TRUST_ALWAYS ? pos::PROVED : pos::UNRELIABLY_PROVED;
        if (next != old)
            element.setAttribute(pos::ATTR_STATUS, pos::strOfProofStatus(next));
    }

    if (updateParent) {
        QDomElement goal = element.parentNode().toElement();
        const QString goalStatus = goal.attribute(pos::ATTR_STATUS, pos::ATTR_VALUE_UNPROVED);
        if (goalStatus == pos::ATTR_VALUE_UNPROVED ||
            (goalStatus == pos::ATTR_VALUE_UNRELIABLY_PROVED &&
             (next == pos::PROVED || next == pos::DISPROVED))) {
            goal.setAttribute(pos::ATTR_STATUS, pos::strOfProofStatus(next));
            if (next != pos::UNPROVED)
                --unprovedCount;
        }
    }
    po.status = next;
    po.drivers = drivers;
    po.element = element;
}

// ---------------------------------------------------------------------------------------
// Diagnostic dumps

std::ostream& operator<<(std::ostream& os, const ProofDirector& director) {
    os << "pos: " << utf8(director.posPath) << std::endl;
    os << "pog: " << utf8(director.pogPath) << std::endl;
    os << "dir: " << utf8(director.tempDir) << std::endl;
    os << "loaded: " << director.loaded << std::endl;
    os << "mechanism:" << std::endl << director.mechanism;
    os << "concurrency:" << director.concurrency << std::endl;
    return os;
}

std::ostream& operator<<(std::ostream& os, const ProofDirector::writer_data_t& job) {
    os << "cmd: " << job.cmd.string() << std::endl;
    os << "args: " << utf8(job.args.join(QLatin1Char(' '))) << std::endl;
    os << "po2filename: " << utf8(job.po2filename) << std::endl;
    os << "positions: ";
    for (const auto& address : job.positions)
        os << "{" << address.first << ", " << address.second << "}";
    return os << std::endl;
}

std::ostream& operator<<(std::ostream& os, const ProofDirector::prover_data_t& job) {
    os << "cmdp: " << job.cmdp.string() << std::endl;
    os << "argsp: " << utf8(job.argsp.join(QLatin1Char(' '))) << std::endl;
    os << "cmdr:" << job.cmdr.string() << std::endl;
    // The prover's arguments again, not the reader's: other tools read this dump as is.
    os << "argsr:" << utf8(job.argsp.join(QLatin1Char(' '))) << std::endl;
    os << "inpath:" << utf8(job.inpath) << std::endl;
    os << "po addresses:";
    for (const auto& address : job.addresses)
        os << "\t" << address.first << "\t" << address.second;
    return os << std::endl;
}

std::ostream& operator<<(std::ostream& os, const ProofDirector::po_data_t& po) {
    QString elementText;
    QTextStream stream(&elementText);
    po.element.save(stream, 0);
    return os << "{" << utf8(elementText) << ", " << po.status << ", {"
              << utf8(po.drivers.join(QLatin1Char(' '))) << "}}";
}

std::ostream& operator<<(std::ostream& os, const ProofDirector::po_table_t& table) {
    for (const auto& group : table) {
        os << group.first << std::endl;
        for (const ProofDirector::po_data_t& po : group.second)
            os << po << std::endl;
    }
    return os;
}
