// Turning one reader answer into statuses: the trust rule and the document edits.

#include "director/ProofDirector.h"
#include "director/ProofDirector_p.h"

using pos::status_t;

namespace director {

answer_effect_t effectOfAnswer(mechanism::trust_t trust, status_t old, const QString& answer,
                               bool lastDriver) {
    if (answer == pos::ATTR_VALUE_UNKNOWN) {
        // Only the last driver of the mechanism may declare the PO unknown.
        const status_t next = lastDriver ? pos::UNKNOWN : old;
        return {next, lastDriver && old != pos::UNKNOWN, false, next >= pos::UNRELIABLY_PROVED};
    }
    if (answer == pos::ATTR_VALUE_DISPROVED)
        return {pos::DISPROVED, old != pos::DISPROVED, true, true};
    if (trust == mechanism::TRUST_REDUNDANCY) {
        // Two agreeing drivers make a proof; a third "Proved" starts over, by design. A
        // first proof leaves the PO open for the other drivers.
        const bool second = old == pos::UNRELIABLY_PROVED;
        return {second ? pos::PROVED : pos::UNRELIABLY_PROVED, true, second, true};
    }
    const status_t next = trust == mechanism::TRUST_ALWAYS ? pos::PROVED : pos::UNRELIABLY_PROVED;
    return {next, next != old, true, true};
}

} // namespace director

namespace {

// The first "Driver" child named `name`; null when there is none.
QDomElement driverElementOf(const QDomElement& mechanismElement, const QString& name) {
    QDomElement element = mechanismElement.firstChildElement(pos::TAG_DRIVER);
    while (!element.isNull() && element.attribute(pos::ATTR_NAME, QString()) != name)
        element = element.nextSiblingElement(pos::TAG_DRIVER);
    return element;
}

} // namespace

void ProofDirector::updateStatus(const po_address_t& address, const QString& answer) {
    po_data_t& po = poTable.at(address.first).second.at(address.second);
    QDomElement driverElement = driverElementOf(po.element, driver.name);
    const bool last = driverElement.nextSiblingElement(pos::TAG_DRIVER).isNull();
    driverElement.setAttribute(pos::ATTR_STATUS, answer);

    const director::answer_effect_t effect =
        director::effectOfAnswer(mechanism.trust, po.status, answer, last);
    if (effect.clearDrivers)
        po.drivers.clear();
    else
        po.drivers.removeOne(driver.name);
    if (effect.setElement)
        po.element.setAttribute(pos::ATTR_STATUS, pos::strOfProofStatus(effect.next));

    if (effect.mayUpdateGoal) {
        QDomElement goal = po.element.parentNode().toElement();
        const QString goalStatus = goal.attribute(pos::ATTR_STATUS, pos::ATTR_VALUE_UNPROVED);
        // The count drops a second time when a PO goes on from unreliably proved to proved;
        // other programs expect the figure so.
        if (goalStatus == pos::ATTR_VALUE_UNPROVED ||
            (goalStatus == pos::ATTR_VALUE_UNRELIABLY_PROVED &&
             (effect.next == pos::PROVED || effect.next == pos::DISPROVED))) {
            goal.setAttribute(pos::ATTR_STATUS, pos::strOfProofStatus(effect.next));
            if (effect.next != pos::UNPROVED)
                --unprovedCount;
        }
    }
    po.status = effect.next;
    saver.markChanged(address.first);
}
