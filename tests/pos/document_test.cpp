// Status file document operations: the combined status of a goal, reset, removal of a
// mechanism, the consistency check and the listing of mechanisms.

#include "common/testutil.h"
#include "pos/pos.h"
#include "pos/pos_p.h"
#include "pos/posxml.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <stdexcept>
#include <vector>

using namespace pos;

namespace {

// A goal with an optional proof state, an optional assistant verdict and one
// "Mechanism" per status given.
QString goalXml(const char* state, const char* iapa, const std::vector<const char*>& mechanisms) {
    QString xml = QStringLiteral("<Simple_Goal>");
    if (state)
        xml += QStringLiteral("<Proof_State proofState=\"%1\"/>").arg(state);
    if (iapa)
        xml += QStringLiteral("<iapa><status value=\"%1\"/></iapa>").arg(iapa);
    for (const char* status : mechanisms)
        xml += QStringLiteral("<Mechanism name=\"m\" status=\"%1\"/>").arg(status);
    return xml + QStringLiteral("</Simple_Goal>");
}

status_t expectedOf(const QString& goal) {
    const QDomDocument doc = posxml::document({goal});
    return expectedStatus(posxml::firstGoal(doc));
}

std::string attributeOf(const QDomElement& element, const QString& name) {
    return element.attribute(name, QStringLiteral("<none>")).toStdString();
}

std::vector<QDomElement> goalsOf(const QDomDocument& doc) {
    std::vector<QDomElement> goals;
    for (QDomElement group = doc.documentElement().firstChildElement(TAG_PROOF_OBLIGATION);
         !group.isNull(); group = group.nextSiblingElement(TAG_PROOF_OBLIGATION))
        for (QDomElement goal = group.firstChildElement(TAG_SIMPLE_GOAL); !goal.isNull();
             goal = goal.nextSiblingElement(TAG_SIMPLE_GOAL))
            goals.push_back(goal);
    return goals;
}

// "status|name:status name:status " of each goal, in document order.
std::string summaryOf(const QDomDocument& doc) {
    std::string summary;
    for (const QDomElement& goal : goalsOf(doc)) {
        summary += attributeOf(goal, ATTR_STATUS) + "|";
        for (QDomElement m = goal.firstChildElement(TAG_MECHANISM); !m.isNull();
             m = m.nextSiblingElement(TAG_MECHANISM))
            summary += attributeOf(m, ATTR_NAME) + ":" + attributeOf(m, ATTR_STATUS) + " ";
        summary += "\n";
    }
    return summary;
}

} // namespace

TEST(ExpectedStatus, CombinesProofStateAssistantAndMechanisms) {
    const struct {
        const char* name;
        const char* state;
        const char* iapa;
        std::vector<const char*> mechanisms;
        status_t expected;
    } rows[] = {
        {"nothing at all", nullptr, nullptr, {}, UNPROVED},
        {"plain Proved is no environment proof", "Proved", nullptr, {}, UNPROVED},
        {"Proved(0)", "Proved(0)", nullptr, {}, PROVED},
        {"Proved(Rapide)", "Proved(Rapide)", nullptr, {}, PROVED},
        {"state is case-sensitive", "proved(0)", nullptr, {}, UNPROVED},
        {"assistant Unknown", "Unproved", "Unknown", {}, UNPROVED},
        {"assistant Valid is unreliable", "Unproved", "Valid", {}, UNRELIABLY_PROVED},
        {"assistant Invalid beats the environment", "Proved(2)", "Invalid", {}, DISPROVED},
        {"mechanism Unknown counts as unproved", "Unproved", nullptr, {"Unknown"}, UNPROVED},
        {"mechanism unreliable", "Unproved", nullptr, {"UnreliablyProved"}, UNRELIABLY_PROVED},
        {"mechanism Disproved beats Proved(Util)",
         "Proved(Util)",
         nullptr,
         {"Disproved"},
         DISPROVED},
        {"proof beats unreliable", "Unproved", "Valid", {"Unknown", "Proved"}, PROVED},
        {"one disproof beats every proof",
         "Proved(0)",
         "Valid",
         {"Proved", "Disproved", "Proved"},
         DISPROVED},
    };
    for (const auto& row : rows)
        EXPECT_EQ(expectedOf(goalXml(row.state, row.iapa, row.mechanisms)), row.expected)
            << row.name;
}

TEST(ExpectedStatus, ReadsOnlyFirstStateAndAssistantVerdictAndSkipsOtherElements) {
    EXPECT_EQ(expectedOf("<Simple_Goal><Proof_State/><Proof_State proofState=\"Proved(0)\"/>"
                         "</Simple_Goal>"),
              UNPROVED);
    EXPECT_EQ(expectedOf("<Simple_Goal><iapa><status value=\"Unknown\"/><status value=\"Valid\"/>"
                         "</iapa><iapa><status value=\"Invalid\"/></iapa></Simple_Goal>"),
              UNPROVED);
    EXPECT_EQ(expectedOf("<Simple_Goal><Mechanisms status=\"Disproved\"/><x><Mechanism "
                         "status=\"Disproved\"/></x></Simple_Goal>"),
              UNPROVED);
}

TEST(ExpectedStatus, UnknownVerdictTextsThrow) {
    const QString rows[] = {
        goalXml("Unproved", nullptr, {"Proved(0)"}), // environment spelling, not a verdict
        goalXml("Unproved", nullptr, {"Valid"}),
        goalXml("Unproved", "Proved", {}),
        QStringLiteral("<Simple_Goal><Mechanism name=\"m\"/></Simple_Goal>"),
        QStringLiteral("<Simple_Goal><iapa/></Simple_Goal>"),
    };
    for (const QString& row : rows)
        EXPECT_THROW(expectedOf(row), std::out_of_range) << row.toStdString();
}

TEST(Unprove, ResetsMechanismsAndRecomputesFromProofStateOnly) {
    QDomDocument doc = posxml::document(
        {"<Simple_Goal status=\"Disproved\"><Proof_State proofState=\"Proved(1)\"/>"
         "<Mechanism name=\"a\" status=\"Disproved\"><Driver name=\"d\" status=\"Disproved\"/>"
         "</Mechanism></Simple_Goal>",
         "<Simple_Goal status=\"UnreliablyProved\"><Proof_State proofState=\"Proved\"/>"
         "<iapa><status value=\"Valid\"/></iapa><Mechanism name=\"a\" status=\"Proved\"/>"
         "<Mechanism name=\"b\" status=\"Unknown\"/></Simple_Goal>"});
    unprove(doc);
    EXPECT_EQ(summaryOf(doc), "Proved|a:Unproved \n"
                              "Unproved|a:Unproved b:Unproved \n"); // the assistant is ignored
    const QDomElement driver =
        goalsOf(doc)[0].firstChildElement(TAG_MECHANISM).firstChildElement(TAG_DRIVER);
    EXPECT_EQ(attributeOf(driver, ATTR_STATUS), "Disproved") << "drivers are kept as they are";
}

TEST(RemoveMechanism, RemovesFirstOfNamePerGoalAndFixesStatuses) {
    QDomDocument doc = posxml::document(
        {"<Simple_Goal status=\"Proved\"><Mechanism name=\"a\" status=\"Proved\"/>"
         "<Mechanism name=\"b\" status=\"Unknown\"/></Simple_Goal>"
         "<Simple_Goal status=\"Disproved\"><Mechanism name=\"a\" status=\"Disproved\"/>"
         "<Mechanism name=\"a\" status=\"Proved\"/></Simple_Goal>",
         "<Simple_Goal status=\"Disproved\"><Mechanism name=\"b\" status=\"Proved\"/>"
         "</Simple_Goal>"
         "<Simple_Goal status=\"Proved\"><Proof_State proofState=\"Proved(0)\"/>"
         "<Mechanism name=\"d\xc3\xa9j\xc3\xa0\" status=\"Unproved\"/>"
         "<Mechanism name=\"a\" status=\"Unproved\"/></Simple_Goal>"});
    const QString untouched = doc.toString();

    bool changed = true;
    EXPECT_TRUE(removeMechanism(doc, "zz", changed));
    EXPECT_FALSE(changed);
    EXPECT_EQ(doc.toString(), untouched) << "an inconsistent goal stays as it is";

    EXPECT_TRUE(removeMechanism(doc, "a", changed));
    EXPECT_TRUE(changed);
    EXPECT_EQ(summaryOf(doc), "Unproved|b:Unknown \n"
                              "Proved|a:Proved \n"    // the second "a" stays
                              "Disproved|b:Proved \n" // no "a": left inconsistent
                              "Proved|d\xc3\xa9j\xc3\xa0:Unproved \n");
    EXPECT_TRUE(removeMechanism(doc, "d\xc3\xa9j\xc3\xa0", changed));
    EXPECT_TRUE(changed) << "names compare as UTF-8";

    QDomDocument null;
    EXPECT_FALSE(removeMechanism(null, "a", changed));
    EXPECT_FALSE(changed);
}

TEST(CheckPosInvariant, ReportsOnlyTheFirstInconsistentGoal) {
    const QString good = goalXml("Proved(0)", nullptr, {"Unknown"})
                             .replace("<Simple_Goal>", "<Simple_Goal status=\"Proved\">");
    testing::internal::CaptureStderr();
    EXPECT_TRUE(checkPosInvariant(posxml::document({good, good})));
    EXPECT_TRUE(checkPosInvariant(posxml::document({})));
    EXPECT_TRUE(checkPosInvariant(QDomDocument()));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");

    const QDomDocument bad = posxml::document(
        {good, "<Simple_Goal status=\"Unknown\"><Proof_State proofState=\"Proved\"/>"
               "</Simple_Goal><Simple_Goal status=\"Disproved\"/>"});
    testing::internal::CaptureStderr();
    EXPECT_FALSE(checkPosInvariant(bad));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "    <Simple_Goal status=\"Unknown\">\n"
              "        <Proof_State proofState=\"Proved\"/>\n"
              "    </Simple_Goal>\n");
}

TEST(GetMechanisms, ListsNamesInFirstSeenOrderOnce) {
    QTemporaryDir dir;
    const QString path = dir.filePath("c\xc3\xb6mp.pos");
    const QByteArray content =
        posxml::text({"<Simple_Goal><Mechanism name=\"b\" status=\"Proved\"/>"
                      "<Mechanism name=\"a\" status=\"Unknown\"/></Simple_Goal>",
                      "<Simple_Goal status=\"Proved\"><Mechanism name=\"a\" status=\"Proved\"/>"
                      "<Mechanism status=\"Proved\"/><Mechanism name=\"c\" status=\"Proved\"/>"
                      "</Simple_Goal>"});
    testutil::writeFile(path, content);
    std::list<std::string> names = {"old"};
    EXPECT_TRUE(getMechanisms(path.toStdString(), names));
    EXPECT_EQ(names, (std::list<std::string>{"b", "a", "", "c"}));

    testutil::writeFile(path, posxml::text({}));
    EXPECT_TRUE(getMechanisms(path.toStdString(), names));
    EXPECT_TRUE(names.empty());

    testutil::writeFile(path, posxml::text({"<Simple_Goal status=\"Valid\"/>"}));
    EXPECT_THROW(getMechanisms(path.toStdString(), names), std::out_of_range);
}

TEST(GetMechanisms, MissingEmptyOrTruncatedFileLeavesListAlone) {
    QTemporaryDir dir;
    const QByteArray whole = posxml::text({goalXml("Unproved", nullptr, {"Proved"})});
    const struct {
        const char* name;
        bool exists;
        QByteArray content;
    } rows[] = {
        {"missing", false, {}},
        {"empty", true, {}},
        {"truncated", true, whole.left(whole.indexOf("<Mechanism") + 30)},
        {"not XML", true, "Proof_Obligations\n"},
    };
    for (const auto& row : rows) {
        const QString path = dir.filePath(row.name);
        if (row.exists)
            testutil::writeFile(path, row.content);
        std::list<std::string> names = {"keep"};
        EXPECT_FALSE(getMechanisms(path.toStdString(), names)) << row.name;
        EXPECT_EQ(names, std::list<std::string>{"keep"}) << row.name;
    }
}
