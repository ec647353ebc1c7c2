#include "posgen.h"

#include "pos/pos.h"
#include "pos/pos_p.h"

#include <QFile>
#include <QTextStream>
#include <algorithm>
#include <random>

namespace posgen {

namespace {

// Picks one text; `weights` gives the relative frequency of each.
class Picker {
public:
    explicit Picker(uint32_t seed) : engine(seed) {}
    const QString& pick(const QStringList& texts, std::initializer_list<double> weights) {
        std::discrete_distribution<int> choice(weights);
        return texts.at(choice(engine));
    }
    // 1..n, or 0 when n is 0.
    unsigned upTo(int n) {
        return n <= 0
                   ? 0
                   : std::uniform_int_distribution<unsigned>(1, static_cast<unsigned>(n))(engine);
    }
    bool chance(double p) { return std::bernoulli_distribution(p)(engine); }

private:
    std::mt19937 engine;
};

// The vocabulary lives in another translation unit: build the lists on first use, never
// during static initialisation.
struct vocabulary_t {
    QStringList proofStates = {pos::ATTR_VALUE_UNPROVED,     pos::ATTR_VALUE_PROVED_ZERO,
                               pos::ATTR_VALUE_PROVED_ONE,   pos::ATTR_VALUE_PROVED_TWO,
                               pos::ATTR_VALUE_PROVED_THREE, pos::ATTR_VALUE_PROVED_UTIL,
                               pos::ATTR_VALUE_PROVED_FAST};
    QStringList iapaValues = {pos::ATTR_VALUE_UNPROVED, pos::ATTR_VALUE_UNKNOWN,
                              pos::ATTR_VALUE_VALID, pos::ATTR_VALUE_INVALID};
    QStringList mechanismStatuses = {pos::ATTR_VALUE_UNPROVED, pos::ATTR_VALUE_UNKNOWN,
                                     pos::ATTR_VALUE_PROVED, pos::ATTR_VALUE_UNRELIABLY_PROVED,
                                     pos::ATTR_VALUE_DISPROVED};
    QStringList unsettled = {pos::ATTR_VALUE_UNPROVED, pos::ATTR_VALUE_UNKNOWN};
};

const vocabulary_t& vocabulary() {
    static const vocabulary_t words;
    return words;
}

QDomElement child(QDomDocument& doc, QDomElement& parent, const QString& tag) {
    QDomElement element = doc.createElement(tag);
    parent.appendChild(element);
    return element;
}

// A mechanism's drivers ran in order: the last one settled the mechanism's status when it
// is proved or disproved, the earlier ones did not.
void addDrivers(QDomDocument& doc, QDomElement& mechanism, const QString& status,
                const options_t& options, Picker& picker) {
    const unsigned count = picker.upTo(std::min(3, static_cast<int>(options.drivers.size())));
    for (unsigned i = 0; i < count; ++i) {
        QDomElement driver = child(doc, mechanism, pos::TAG_DRIVER);
        driver.setAttribute(pos::ATTR_NAME, options.drivers.at(static_cast<int>(i)));
        const bool settles = i + 1 == count && (status == pos::ATTR_VALUE_PROVED ||
                                                status == pos::ATTR_VALUE_DISPROVED);
        driver.setAttribute(pos::ATTR_STATUS,
                            settles ? status : picker.pick(vocabulary().unsettled, {3, 1}));
    }
}

void addGoal(QDomDocument& doc, QDomElement& group, const options_t& options, Picker& picker) {
    QDomElement goal = child(doc, group, pos::TAG_SIMPLE_GOAL);
    child(doc, goal, pos::TAG_PROOF_STATE)
        .setAttribute(pos::ATTR_PROOF_STATE,
                      picker.pick(vocabulary().proofStates, {8, 2, 2, 1, 1, 1, 1}));
    if (picker.chance(0.25)) {
        QDomElement iapa = child(doc, goal, pos::TAG_IAPA);
        child(doc, iapa, pos::TAG_STATUS)
            .setAttribute(pos::ATTR_VALUE, picker.pick(vocabulary().iapaValues, {4, 2, 3, 1}));
    }
    QStringList names = options.mechanisms;
    const unsigned count = picker.upTo(std::min(2, static_cast<int>(names.size())));
    for (unsigned i = 0; i < count; ++i) {
        const QString name = names.takeAt(static_cast<int>(picker.upTo(names.size()) - 1));
        const QString status = picker.pick(vocabulary().mechanismStatuses, {8, 3, 6, 2, 1});
        QDomElement mechanism = child(doc, goal, pos::TAG_MECHANISM);
        mechanism.setAttribute(pos::ATTR_NAME, name);
        mechanism.setAttribute(pos::ATTR_STATUS, status);
        addDrivers(doc, mechanism, status, options, picker);
    }
    goal.setAttribute(pos::ATTR_STATUS, pos::strOfProofStatus(pos::expectedStatus(goal)));
}

void addReplayableGoal(QDomDocument& doc, QDomElement& group, const replay_options_t& options,
                       bool replayable) {
    QDomElement goal = child(doc, group, pos::TAG_SIMPLE_GOAL);
    goal.setAttribute(pos::ATTR_STATUS, pos::ATTR_VALUE_UNPROVED);
    child(doc, goal, pos::TAG_PROOF_STATE)
        .setAttribute(pos::ATTR_PROOF_STATE, pos::ATTR_VALUE_UNPROVED);
    QDomElement mechanism = child(doc, goal, pos::TAG_MECHANISM);
    mechanism.setAttribute(pos::ATTR_NAME, options.mechanism);
    mechanism.setAttribute(pos::ATTR_STATUS, pos::ATTR_VALUE_UNPROVED);
    QDomElement driver = child(doc, mechanism, pos::TAG_DRIVER);
    driver.setAttribute(pos::ATTR_NAME, options.driver);
    driver.setAttribute(pos::ATTR_STATUS,
                        replayable ? pos::ATTR_VALUE_PROVED : pos::ATTR_VALUE_UNKNOWN);
}

// The declaration and the root, and one group element with its "Tag" g<index>.
QDomElement startDocument(QDomDocument& doc) {
    doc.appendChild(doc.createProcessingInstruction(
        QStringLiteral("xml"), QStringLiteral("version=\"1.0\" encoding=\"UTF-8\"")));
    QDomElement root = doc.createElement(pos::TAG_PROOF_OBLIGATIONS);
    doc.appendChild(root);
    return root;
}

QDomElement addGroup(QDomDocument& doc, QDomElement& root, unsigned index) {
    QDomElement group = child(doc, root, pos::TAG_PROOF_OBLIGATION);
    child(doc, group, pos::TAG_TAG)
        .appendChild(doc.createTextNode(QStringLiteral("g%1").arg(index)));
    return group;
}

bool saveDocument(const QString& path, const QDomDocument& doc) {
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    QTextStream out(&file);
    out.setCodec("UTF-8");
    doc.save(out, pos::XML_INDENT);
    out.flush();
    return out.status() == QTextStream::Ok && file.error() == QFileDevice::NoError;
}

} // namespace

QDomDocument generate(const options_t& options) {
    Picker picker(options.seed);
    QDomDocument doc;
    QDomElement root = startDocument(doc);
    for (unsigned g = 0; g < options.groups; ++g) {
        QDomElement group = addGroup(doc, root, g);
        for (unsigned i = 0; i < options.goalsPerGroup; ++i)
            addGoal(doc, group, options, picker);
    }
    return doc;
}

bool writeFile(const QString& path, const options_t& options) {
    return saveDocument(path, generate(options));
}

QDomDocument generateReplayable(const replay_options_t& options) {
    QDomDocument doc;
    QDomElement root = startDocument(doc);
    unsigned long long goalIndex = 0;
    for (unsigned g = 0; g < options.groups; ++g) {
        QDomElement group = addGroup(doc, root, g);
        for (unsigned i = 0; i < options.goalsPerGroup; ++i, ++goalIndex)
            addReplayableGoal(doc, group, options, goalIndex < options.replayableGoals);
    }
    return doc;
}

bool writeReplayableFile(const QString& path, const replay_options_t& options) {
    return saveDocument(path, generateReplayable(options));
}

} // namespace posgen
