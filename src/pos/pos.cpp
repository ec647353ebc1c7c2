#include "pos/pos.h"
#include "pos/pos_p.h"

#include <QFile>
#include <QIODevice>
#include <QStringList>
#include <QTextStream>
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <set>

namespace pos {

const QString ATTR_VALUE_UNPROVED = QStringLiteral("Unproved");
const QString ATTR_VALUE_PROVED = QStringLiteral("Proved");
const QString ATTR_VALUE_PROVED_ZERO = QStringLiteral("Proved(0)");
const QString ATTR_VALUE_PROVED_ONE = QStringLiteral("Proved(1)");
const QString ATTR_VALUE_PROVED_TWO = QStringLiteral("Proved(2)");
const QString ATTR_VALUE_PROVED_THREE = QStringLiteral("Proved(3)");
const QString ATTR_VALUE_PROVED_UTIL = QStringLiteral("Proved(Util)");
const QString ATTR_VALUE_PROVED_FAST = QStringLiteral("Proved(Rapide)");
const QString ATTR_VALUE_UNRELIABLY_PROVED = QStringLiteral("UnreliablyProved");
const QString ATTR_VALUE_DISPROVED = QStringLiteral("Disproved");
const QString ATTR_VALUE_UNKNOWN = QStringLiteral("Unknown");
const QString ATTR_VALUE_VALID = QStringLiteral("Valid");
const QString ATTR_VALUE_INVALID = QStringLiteral("Invalid");

namespace {
// Proof states given by the environment's own provers. The plain "Proved" is not one of
// them: it is what an external mechanism writes, never a proof state.
const QStringList proofProvedStatuses = {
    ATTR_VALUE_PROVED_ZERO,  ATTR_VALUE_PROVED_ONE,  ATTR_VALUE_PROVED_TWO,
    ATTR_VALUE_PROVED_THREE, ATTR_VALUE_PROVED_UTIL, ATTR_VALUE_PROVED_FAST,
};
} // namespace

const std::map<status_t, char> charOfStatus = {
    {UNPROVED, '-'}, {UNKNOWN, '-'}, {UNRELIABLY_PROVED, '*'}, {PROVED, '+'}, {DISPROVED, '!'},
};

const QString TAG_PROOF_OBLIGATIONS = QStringLiteral("Proof_Obligations");
const QString TAG_PROOF_OBLIGATION = QStringLiteral("Proof_Obligation");
const QString TAG_SIMPLE_GOAL = QStringLiteral("Simple_Goal");
const QString TAG_PROOF_STATE = QStringLiteral("Proof_State");
const QString TAG_TAG = QStringLiteral("Tag");
const QString TAG_MECHANISM = QStringLiteral("Mechanism");
const QString TAG_DRIVER = QStringLiteral("Driver");
const QString TAG_IAPA = QStringLiteral("iapa");
const QString TAG_STATUS = QStringLiteral("status");
const QString ATTR_AUTHOR = QStringLiteral("author");
const QString ATTR_STATUS = QStringLiteral("status");
const QString ATTR_NAME = QStringLiteral("name");
const QString ATTR_PROOF_STATE = QStringLiteral("proofState");
const QString ATTR_VALUE = QStringLiteral("value");

QDomDocument documentOfDevice(QIODevice& device, QString* whyNot, bool* tooDeep) {
    const QByteArray xml = device.readAll();
    const int depth = elementDepth(xml);
    if (tooDeep != nullptr)
        *tooDeep = depth > MAX_DEPTH;
    if (depth > MAX_DEPTH) {
        if (whyNot != nullptr)
            *whyNot = QStringLiteral("elements nested %1 deep, more than the %2 allowed")
                          .arg(depth)
                          .arg(MAX_DEPTH);
        return QDomDocument();
    }
    QDomDocument doc;
    QString message;
    int line = 0;
    int column = 0;
    // Qt keeps the part read before a parse error; treat any error as "no document".
    if (doc.setContent(xml, &message, &line, &column))
        return doc;
    if (whyNot != nullptr)
        *whyNot = QStringLiteral("line %1, column %2: %3").arg(line).arg(column).arg(message);
    return QDomDocument();
}

QDomDocument documentOfFile(const QString& path, QString* whyNot) {
    QFile file(path);
    QString reason;
    QDomDocument doc;
    bool tooDeep = false;
    if (!file.exists())
        reason = QStringLiteral("%1: no such file").arg(path);
    else if (!file.open(QIODevice::ReadOnly))
        reason = QStringLiteral("%1: cannot be read: %2").arg(path, file.errorString());
    else if ((doc = documentOfDevice(file, &reason, &tooDeep)).isNull())
        reason =
            (tooDeep ? QStringLiteral("%1: %2") : QStringLiteral("%1: not well-formed XML at %2"))
                .arg(path, reason);
    if (doc.isNull() && whyNot != nullptr)
        *whyNot = reason;
    return doc;
}

namespace {
QString qstringOfPath(const std::string& path) {
    return QString::fromUtf8(path.data(), static_cast<int>(path.size()));
}
} // namespace

QDomDocument domOfPath(const std::string& path) {
    return documentOfFile(qstringOfPath(path));
}

namespace {

// Calls visit(goal) for every "Simple_Goal" of every "Proof_Obligation" under the root, in
// document order, until visit returns false; returns false when it was stopped that way.
template <typename Visit> bool forEachGoal(const QDomDocument& doc, Visit visit) {
    const QDomElement root = doc.documentElement();
    for (QDomElement group = root.firstChildElement(TAG_PROOF_OBLIGATION); !group.isNull();
         group = group.nextSiblingElement(TAG_PROOF_OBLIGATION)) {
        for (QDomElement goal = group.firstChildElement(TAG_SIMPLE_GOAL); !goal.isNull();
             goal = goal.nextSiblingElement(TAG_SIMPLE_GOAL)) {
            if (!visit(goal))
                return false;
        }
    }
    return true;
}

// Calls visit(child) for every child element of `parent` named `tag`, in document order.
template <typename Visit>
void forEachChild(const QDomElement& parent, const QString& tag, Visit visit) {
    for (QDomElement child = parent.firstChildElement(tag); !child.isNull();
         child = child.nextSiblingElement(tag))
        visit(child);
}

bool provedByEnvironment(const QDomElement& goal) {
    const QString state =
        goal.firstChildElement(TAG_PROOF_STATE).attribute(ATTR_PROOF_STATE, ATTR_VALUE_UNPROVED);
    return proofProvedStatuses.contains(state);
}

status_t recordedStatus(const QDomElement& goal) {
    return proofStatusOfAttrValue(goal.attribute(ATTR_STATUS, ATTR_VALUE_UNPROVED));
}

// The same, naming `file` when the text is unknown.
status_t recordedStatus(const QDomElement& goal, const QString& file) {
    return proofStatusOfAttrValue(goal.attribute(ATTR_STATUS, ATTR_VALUE_UNPROVED), ATTR_STATUS,
                                  file);
}

QDomElement firstMechanismNamed(const QDomElement& goal, const std::string& name) {
    for (QDomElement mechanism = goal.firstChildElement(TAG_MECHANISM); !mechanism.isNull();
         mechanism = mechanism.nextSiblingElement(TAG_MECHANISM)) {
        if (mechanism.attribute(ATTR_NAME).toStdString() == name)
            return mechanism;
    }
    return QDomElement();
}

} // namespace

status_t expectedStatus(const QDomElement& goal) {
    // "Unknown" settles nothing, and the assistant's "Valid" is never trusted as a proof.
    static const std::map<QString, status_t> me_dict = {
        {ATTR_VALUE_UNPROVED, UNPROVED},   {ATTR_VALUE_UNKNOWN, UNPROVED},
        {ATTR_VALUE_PROVED, PROVED},       {ATTR_VALUE_UNRELIABLY_PROVED, UNRELIABLY_PROVED},
        {ATTR_VALUE_DISPROVED, DISPROVED},
    };
    static const std::map<QString, status_t> ia_dict = {
        {ATTR_VALUE_UNPROVED, UNPROVED},
        {ATTR_VALUE_UNKNOWN, UNPROVED},
        {ATTR_VALUE_VALID, UNRELIABLY_PROVED},
        {ATTR_VALUE_INVALID, DISPROVED},
    };
    std::array<unsigned, DISPROVED + 1> votes{};
    ++votes[provedByEnvironment(goal) ? PROVED : UNPROVED];
    const QDomElement iapa = goal.firstChildElement(TAG_IAPA);
    if (!iapa.isNull())
        ++votes[ia_dict.at(iapa.firstChildElement(TAG_STATUS).attribute(ATTR_VALUE))];
    forEachChild(goal, TAG_MECHANISM, [&votes](const QDomElement& mechanism) {
        ++votes[me_dict.at(mechanism.attribute(ATTR_STATUS))];
    });
    // One disproof, from anyone, outweighs every proof.
    for (status_t strongest : {DISPROVED, PROVED, UNRELIABLY_PROVED}) {
        if (votes[strongest] != 0)
            return strongest;
    }
    return UNPROVED;
}

void unprove(QDomDocument& doc) {
    forEachGoal(doc, [](QDomElement& goal) {
        forEachChild(goal, TAG_MECHANISM, [](QDomElement mechanism) {
            mechanism.setAttribute(ATTR_STATUS, ATTR_VALUE_UNPROVED);
        });
        goal.setAttribute(ATTR_STATUS,
                          strOfProofStatus(provedByEnvironment(goal) ? PROVED : UNPROVED));
        return true;
    });
}

bool removeMechanism(QDomDocument& doc, const std::string& name, bool& changed) {
    changed = false;
    if (doc.isNull())
        return false;
    return forEachGoal(doc, [&](QDomElement& goal) {
        // Only the first element of that name goes: a goal that carries the same mechanism
        // twice keeps the second one.
        const QDomElement mechanism = firstMechanismNamed(goal, name);
        if (mechanism.isNull())
            return true;
        if (goal.removeChild(mechanism).isNull())
            return false;
        changed = true;
        const status_t expected = expectedStatus(goal);
        if (expected != recordedStatus(goal))
            goal.setAttribute(ATTR_STATUS, strOfProofStatus(expected));
        return true;
    });
}

bool checkPosInvariant(const QDomDocument& doc) {
    return forEachGoal(doc, [](const QDomElement& goal) {
        if (expectedStatus(goal) == recordedStatus(goal))
            return true;
        QTextStream err(stderr);
        goal.save(err, XML_INDENT, QDomNode::EncodingFromTextStream);
        err.flush();
        return false;
    });
}

bool getMechanisms(const std::string& path, std::list<std::string>& names, QString* whyNot) {
    const QString file = qstringOfPath(path);
    const QDomDocument doc = documentOfFile(file, whyNot);
    if (doc.isNull())
        return false;
    names.clear();
    std::set<std::string> seen;
    forEachGoal(doc, [&](const QDomElement& goal) {
        // The status itself is not needed here, but a file with a bad one is rejected.
        recordedStatus(goal, file);
        forEachChild(goal, TAG_MECHANISM, [&](const QDomElement& mechanism) {
            std::string name = mechanism.attribute(ATTR_NAME).toStdString();
            if (seen.insert(name).second)
                names.push_back(std::move(name));
        });
        return true;
    });
    return true;
}

namespace {

// Counter of each status, indexed by status_t; null where a status is not counted: an
// "Unknown" goal counts in total only, and a driver answers proved or not, never
// unreliably.
constexpr uint32_t metrics_t::*GOAL_COUNTERS[] = {&metrics_t::unproved, nullptr,
                                                  &metrics_t::unreliablyProved, &metrics_t::proved,
                                                  &metrics_t::disproved};
constexpr uint32_t mechanism_metrics_t::*MECHANISM_COUNTERS[] = {
    &mechanism_metrics_t::unproved, &mechanism_metrics_t::unknown,
    &mechanism_metrics_t::unreliablyProved, &mechanism_metrics_t::proved,
    &mechanism_metrics_t::disproved};
constexpr uint32_t driver_metrics_t::*DRIVER_COUNTERS[] = {
    &driver_metrics_t::unproved, &driver_metrics_t::unknown, nullptr, &driver_metrics_t::proved,
    &driver_metrics_t::disproved};

// Statuses come from proofStatusOfAttrValue, so they are always in 0..4.
template <typename Counters, typename Record>
void count(const Counters& counters, status_t status, Record& record) {
    if (const auto counter = counters[status])
        ++(record.*counter);
}

template <typename Entry>
Entry& entryOf(std::map<std::string, std::unique_ptr<Entry>>& entries, std::string name) {
    std::unique_ptr<Entry>& entry = entries[std::move(name)];
    if (!entry)
        entry = std::make_unique<Entry>();
    return *entry;
}

// Counts one "Mechanism" element and its drivers; true when it proved the goal.
bool countMechanism(const QDomElement& element, metrics_t& m, const QString& file) {
    const status_t status =
        proofStatusOfAttrValue(element.attribute(ATTR_STATUS), ATTR_STATUS, file);
    mechanism_metrics_t& mechanism =
        entryOf(m.mechanisms, element.attribute(ATTR_NAME).toStdString());
    count(MECHANISM_COUNTERS, status, mechanism);
    forEachChild(element, TAG_DRIVER, [&](const QDomElement& driver) {
        count(DRIVER_COUNTERS,
              proofStatusOfAttrValue(driver.attribute(ATTR_STATUS), ATTR_STATUS, file),
              entryOf(mechanism.drivers, driver.attribute(ATTR_NAME).toStdString()));
    });
    return status == PROVED;
}

void countGoal(const QDomElement& goal, metrics_t& m, const QString& file) {
    ++m.total;
    count(GOAL_COUNTERS, recordedStatus(goal, file), m);
    if (provedByEnvironment(goal))
        ++m.provedInternally;
    // A goal proved by several mechanisms is still one goal proved externally.
    bool provedExternally = false;
    forEachChild(goal, TAG_MECHANISM, [&](const QDomElement& mechanism) {
        provedExternally = countMechanism(mechanism, m, file) || provedExternally;
    });
    if (provedExternally)
        ++m.provedExternally;
}

} // namespace

bool getMetrics(const std::string& path, metrics_t& m) {
    const QString file = qstringOfPath(path);
    const QDomDocument doc = documentOfFile(file);
    if (doc.isNull())
        return false;
    m = metrics_t();
    forEachGoal(doc, [&](const QDomElement& goal) {
        countGoal(goal, m, file);
        return true;
    });
    return true;
}

} // namespace pos
