// The director's state: construction, queries, loading and saving the .pos file, stop.

#include "director/ProofDirector.h"
#include "director/ProofDirector_p.h"

#include <QFile>
#include <iostream>

using director::utf8;

namespace director {
const char TRACE_PREFIX[] = "-- ProofDirector -- ";
const char THREAD_TRACE_PREFIX[] = "-- Proof Director -- ";

QDomElement mechanismElementOf(const QDomElement& goal, const QString& name) {
    for (QDomElement element = goal.firstChildElement(pos::TAG_MECHANISM); !element.isNull();
         element = element.nextSiblingElement(pos::TAG_MECHANISM)) {
        if (element.attribute(pos::ATTR_NAME, QString()) == name)
            return element;
    }
    return QDomElement();
}
} // namespace director

namespace {

// How long stop() lets tools pass a SIGTERM on before it kills what is left, and how long
// it then waits for them to end.
constexpr std::chrono::milliseconds STOP_GRACE{1000};
constexpr std::chrono::milliseconds STOP_REAP{2000};

QString groupNameOf(const QDomElement& group) {
    return group.firstChildElement(pos::TAG_TAG).text();
}

} // namespace

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
        std::clog << director::TRACE_PREFIX << "Created a ProofDirector for " << component
                  << " from " << mechanismFile << std::endl;
        std::clog << "xml: " << xml << " "
                  << "concurrency: " << concurrency << " "
                  << "loaded: " << loaded << " "
                  << "trace: " << trace << std::endl;
    }
}

ProofDirector::~ProofDirector() {
    if (trace == 1)
        std::clog << director::TRACE_PREFIX << "Destroyed ProofDirector for "
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
        std::clog << director::TRACE_PREFIX << message << std::endl;
}

void ProofDirector::forgetDocument() {
    dom = QDomDocument();
    poTable.clear();
    saver.reset();
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
    forgetDocument();
    dom = pos::documentOfFile(posPath, &loadFailure);
    if (dom.isNull())
        return false;
    pos::shareRepeatedTexts(dom);
    unprovedCount = 0;
    const QString mechanismName = QString::fromStdString(mechanism.name);
    std::size_t goalNumber = 0;
    const bool complete = buildPoTable([&](QDomElement& goal, po_data_t& po) {
        ++goalNumber;
        const bool goalUnproved =
            goal.attribute(pos::ATTR_STATUS, pos::ATTR_VALUE_UNPROVED) == pos::ATTR_VALUE_UNPROVED;
        if (goalUnproved)
            ++unprovedCount;
        po.element = director::mechanismElementOf(goal, mechanismName);
        if (po.element.isNull()) {
            loadFailure = QStringLiteral("%1: goal %2 of group %3 has no \"%4\" element named %5")
                              .arg(posPath)
                              .arg(goalNumber)
                              .arg(groupNameOf(goal.parentNode().toElement()), pos::TAG_MECHANISM,
                                   mechanismName);
            return false;
        }
        // A replay plays again exactly the drivers that had settled this goal before.
        if (goalUnproved)
            po.drivers = director::replayDriversOf(po.element, playOptions.retryUnknown);
        return true;
    });
    if (!complete)
        forgetDocument();
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
    forgetDocument();
    unprovedCount = 0;
    dom = pos::documentOfFile(posPath, &loadFailure);
    if (dom.isNull())
        return false;
    pos::shareRepeatedTexts(dom);
    bool registered = false;
    const QString mechanismName = QString::fromStdString(mechanism.name);
    try {
        if (playOptions.reset)
            resetMechanism();
        buildPoTable([&](QDomElement& goal, po_data_t& po) {
            registered |= firstPlayRecord(goal, mechanismName, po);
            return true;
        });
    } catch (...) {
        // An unknown status text ends the run; no half-read table may outlive it.
        forgetDocument();
        throw;
    }
    return registered;
}

bool ProofDirector::firstPlayRecord(QDomElement& goal, const QString& mechanismName,
                                    po_data_t& po) {
    po.status = pos::proofStatusOfAttrValue(
        goal.attribute(pos::ATTR_STATUS, pos::ATTR_VALUE_UNPROVED), pos::ATTR_STATUS, posPath);
    if (po.status == pos::UNPROVED)
        ++unprovedCount;
    po.element = director::mechanismElementOf(goal, mechanismName);
    bool registered = false;
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
    if ((unknownReset || !settled) &&
        director::firstPlayDriversOf(po.element, playOptions.retryUnknown, po.drivers))
        po.status = pos::UNPROVED;
    return registered;
}

bool ProofDirector::savePosFile() {
    return saver.saveNow(true);
}

bool ProofDirector::hasUnsavedState() const {
    return saver.lastWriteFailed();
}

void ProofDirector::stop() {
    // Every tool has ended before the clean-up: a writer still running could otherwise
    // create its file after it.
    tools.stop(STOP_GRACE, STOP_REAP);
    // Keeps the locks on purpose: the caller exits right after, and no worker may change
    // the document or start a save that the exit would cut in half.
    saver.holdForExit();
    removeSecondaryFiles();
    saver.saveHeld();
}

void ProofDirector::removeSecondaryFiles() {
    for (const writer_data_t& job : writerJobs)
        QFile::remove(job.po2filename);
}
