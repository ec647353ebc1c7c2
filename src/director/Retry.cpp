// Which drivers a goal is given beyond a replay's usual ones: retrying the goals a
// mechanism left "Unknown", and resetting a mechanism so that it is played anew.
//
// When a mechanism's last driver answers "Unknown", the goal keeps its "Unproved" status
// while the mechanism's element and the driver's carry "Unknown"; a replay, which takes
// only drivers recorded "Proved" or "Disproved" under an "Unproved" element, never picks
// such a goal again. A retry hands it back to exactly the drivers recorded "Unknown".

#include "director/ProofDirector.h"
#include "director/ProofDirector_p.h"

#include <iostream>

namespace {

// The names of the "Driver" children of `element` whose status (default "Unproved") is
// one of `statuses`, or of all of them when `statuses` is empty, in document order.
QStringList driverNamesOf(const QDomElement& element, const QStringList& statuses) {
    QStringList names;
    for (QDomElement d = element.firstChildElement(pos::TAG_DRIVER); !d.isNull();
         d = d.nextSiblingElement(pos::TAG_DRIVER)) {
        const QString status = d.attribute(pos::ATTR_STATUS, pos::ATTR_VALUE_UNPROVED);
        if (statuses.isEmpty() || statuses.contains(status))
            names.append(d.attribute(pos::ATTR_NAME, QString()));
    }
    return names;
}

} // namespace

namespace director {

QStringList replayDriversOf(const QDomElement& element, bool retryUnknown) {
    const QString status = element.attribute(pos::ATTR_STATUS, pos::ATTR_VALUE_UNPROVED);
    QStringList wanted;
    if (status == pos::ATTR_VALUE_UNPROVED)
        wanted << pos::ATTR_VALUE_PROVED << pos::ATTR_VALUE_DISPROVED;
    if (retryUnknown && (status == pos::ATTR_VALUE_UNPROVED || status == pos::ATTR_VALUE_UNKNOWN))
        wanted << pos::ATTR_VALUE_UNKNOWN;
    return wanted.isEmpty() ? QStringList() : driverNamesOf(element, wanted);
}

bool firstPlayDriversOf(const QDomElement& element, bool retryUnknown, QStringList& drivers) {
    // Read without a default: a mechanism element without status is left alone.
    const QString status = element.attribute(pos::ATTR_STATUS);
    if (status == pos::ATTR_VALUE_UNPROVED) {
        drivers = driverNamesOf(element, {});
        return true;
    }
    if (!retryUnknown || status != pos::ATTR_VALUE_UNKNOWN)
        return false;
    drivers = driverNamesOf(element, {pos::ATTR_VALUE_UNKNOWN});
    return true;
}

} // namespace director

void ProofDirector::resetMechanism() {
    const QString name = QString::fromStdString(mechanism.name);
    std::size_t goals = 0;
    for (QDomElement group = dom.documentElement().firstChildElement(pos::TAG_PROOF_OBLIGATION);
         !group.isNull(); group = group.nextSiblingElement(pos::TAG_PROOF_OBLIGATION))
        for (QDomElement goal = group.firstChildElement(pos::TAG_SIMPLE_GOAL); !goal.isNull();
             goal = goal.nextSiblingElement(pos::TAG_SIMPLE_GOAL))
            goals += director::mechanismElementOf(goal, name).isNull() ? 0 : 1;
    // One call removes one element per goal; a goal may hold the mechanism twice.
    bool changed = true;
    while (changed)
        pos::removeMechanism(dom, mechanism.name, changed);
    std::cerr << "povrun: " << director::utf8(posPath) << ": mechanism " << mechanism.name
              << " reset, its records removed from " << goals << (goals == 1 ? " goal" : " goals")
              << std::endl;
}
