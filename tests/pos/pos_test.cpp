// Status spellings, the combined status of a goal, the document operations and the metrics.

#include "common/testutil.h"
#include "pos/pos_p.h"
#include "pos/printmetrics.h"

#include <QBuffer>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <stdexcept>

using namespace pos;

// A .pos document with one "Proof_Obligation" per entry, each entry the XML of its goals.
static QDomDocument document(const QStringList& groups) {
    const QString open = "<Proof_Obligation><Tag>g</Tag>", close = "</Proof_Obligation>";
    QDomDocument doc;
    doc.setContent("<Proof_Obligations>" + open + groups.join(close + open) + close +
                   "</Proof_Obligations>");
    return doc;
}

// A goal with an optional proof state and assistant verdict, and one "Mechanism" per status.
static QString goalXml(const char* state, const char* iapa,
                       const std::vector<const char*>& mechanisms) {
    QString xml = "<Simple_Goal>";
    if (state)
        xml += QString("<Proof_State proofState='%1'/>").arg(state);
    if (iapa)
        xml += QString("<iapa><status value='%1'/></iapa>").arg(iapa);
    for (const char* status : mechanisms)
        xml += QString("<Mechanism name='m' status='%1'/>").arg(status);
    return xml + "</Simple_Goal>";
}

// A goal status the environment wrote reads as proved; an assistant's verdict is no status.
TEST(Status, TheEnvironmentsSpellingsReadAsProved) {
    for (const char* env :
         {"Proved(0)", "Proved(1)", "Proved(2)", "Proved(3)", "Proved(Util)", "Proved(Rapide)"})
        EXPECT_EQ(proofStatusOfAttrValue(env), PROVED) << env;
    EXPECT_THROW(proofStatusOfAttrValue("Valid"), std::out_of_range);
}

TEST(ExpectedStatus, AnyDisproofWinsThenAnyProofThenAnUnreliableOne) {
    // name, proof state, assistant's verdict, mechanism statuses, expected status
    using mechanisms_t = std::vector<const char*>;
    const std::tuple<const char*, const char*, const char*, mechanisms_t, status_t> rows[] = {
        {"plain Proved is no environment proof", "Proved", nullptr, {}, UNPROVED},
        {"environment proof", "Proved(Rapide)", nullptr, {}, PROVED},
        {"Unknown counts as unproved", "Unproved", "Unknown", {"Unknown"}, UNPROVED},
        {"assistant Valid is unreliable", "Unproved", "Valid", {}, UNRELIABLY_PROVED},
        {"assistant Invalid beats the environment", "Proved(2)", "Invalid", {}, DISPROVED},
        {"mechanism unreliable", nullptr, nullptr, {"UnreliablyProved"}, UNRELIABLY_PROVED},
        {"proof beats unreliable", "Unproved", "Valid", {"Unknown", "Proved"}, PROVED},
        {"disproof beats every proof", "Proved(0)", "Valid", {"Proved", "Disproved"}, DISPROVED},
    };
    for (const auto& [name, state, iapa, mechanisms, expected] : rows) {
        const QDomDocument doc = document({goalXml(state, iapa, mechanisms)});
        EXPECT_EQ(expectedStatus(doc.elementsByTagName(TAG_SIMPLE_GOAL).at(0).toElement()),
                  expected)
            << name;
    }
}

// The first mechanism of the name (one non-ASCII character, compared as UTF-8) goes and its
// goal is recomputed; an inconsistent goal stays as it is, and the invariant check reports
// only the first inconsistent goal.
TEST(RemoveMechanism, RemovesTheFirstOfTheNameAndTheInvariantReportsWhatIsInconsistent) {
    const QString good = goalXml(nullptr, "Unknown", {"Unknown"});
    EXPECT_TRUE(checkPosInvariant(document({good, good})));
    const QString kept = "<Mechanism name='\xc3\xa9' status='Proved'/>";
    const QString inconsistent = "<Simple_Goal status='Disproved'><Mechanism name='b' "
                                 "status='Proved'/></Simple_Goal><Simple_Goal status='Unknown'/>";
    QDomDocument doc = document(
        {"<Simple_Goal status='Disproved'><Mechanism name='\xc3\xa9' status='Disproved'/>" + kept +
         "</Simple_Goal>" + inconsistent});
    const QString untouched = doc.toString();
    bool changed = true;
    EXPECT_TRUE(removeMechanism(doc, "b\xc3\xa9", changed) && !changed);
    EXPECT_EQ(doc.toString(), untouched);
    EXPECT_TRUE(removeMechanism(doc, "\xc3\xa9", changed) && changed);
    EXPECT_EQ(doc.toString(),
              document({"<Simple_Goal status='Proved'>" + kept + "</Simple_Goal>" + inconsistent})
                  .toString());
    testing::internal::CaptureStderr();
    EXPECT_FALSE(checkPosInvariant(doc));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "    <Simple_Goal status=\"Disproved\">\n"
              "        <Mechanism name=\"b\" status=\"Proved\"/>\n"
              "    </Simple_Goal>\n");
}

// A count per printed figure (1 proved, 2 unreliable, 3 disproved, 4 unproved) and five
// "Unknown" goals that count in none of them but in the total, each proved by two mechanisms.
// No prefix of the file, as a kill or a full disk could leave it, is read: a refused one
// leaves the caller's figures and names as they were.
TEST(Metrics, AreReadFromAWholeFileOnlyAndPrintedByteExactWithZerosForAMissingFile) {
    QTemporaryDir dir;
    const QString path = dir.filePath("comp.pos"), missing = dir.filePath("missing.pos");
    const auto goals = [](const char* status, int n) {
        return QString("<Simple_Goal%1/>").arg(status).repeated(n);
    };
    const QString proved = "<Simple_Goal status='Unknown'><Mechanism name='b' status='Proved'/>"
                           "<Mechanism name='a' status='Proved'/></Simple_Goal>";
    const QByteArray full =
        document({goals(" status='Proved'", 1) + goals(" status='UnreliablyProved'", 2) +
                      goals(" status='Disproved'", 3),
                  goals("", 4) + proved.repeated(5)})
            .toByteArray();
    for (int length = 0; length < full.size() - 1; ++length) { // the last is only a line end
        testutil::writeFile(path, full.left(length));
        metrics_t metrics;
        metrics.total = 7;
        std::list<std::string> names{"kept"};
        EXPECT_FALSE(getMetrics(path.toStdString(), metrics) ||
                     getMechanisms(path.toStdString(), names))
            << length;
        EXPECT_TRUE(metrics.total == 7 && names.front() == "kept") << length;
    }
    testutil::writeFile(path, full);
    std::list<std::string> names = {"kept"};
    EXPECT_TRUE(getMechanisms(path.toStdString(), names));
    EXPECT_EQ(names, (std::list<std::string>{"b", "a"})) << "each name once, in first-seen order";
    metrics_t m;
    ASSERT_TRUE(getMetrics(path.toStdString(), m));
    EXPECT_EQ(m.total, 15u);
    // The plain report of the file, then the XML one of a missing file.
    testing::internal::CaptureStdout();
    print_metrics(path.toStdString(), false, "comp");
    print_metrics(missing.toStdString(), true, "comp");
    const QString counts = "TOTAL for comp\t Proved %1\t Proved externally %2\t Unreliably proved "
                           "%3\t Disproved %4\t Unproved %5";
    EXPECT_EQ(QString::fromStdString(testing::internal::GetCapturedStdout()),
              "End of proof\n\n" + counts.arg("1", "5", "2", "3", "4") +
                  "\n<error>File not readable " + missing + "</error>\n\n<proofResult>\n\n<total>" +
                  counts.arg("0", "0", "0", "0", "0") + "</total>\n</proofResult>\n</proof>\n");
}

// Only elements count: not comments, CDATA, instructions, declarations, empty elements or
// a quoted "/>" or ">". The deepest file allowed still parses.
TEST(Depth, CountsOnlyElementsAndRefusesFilesDeeperThanTheLimit) {
    const std::pair<QByteArray, int> rows[] = {
        {"<?x <a>?><!DOCTYPE a [<!ENTITY e \"<a>\">]><a><!-- <b> --><b/><![CDATA[<c>]]></a>", 1},
        {"<a x='/>' y=\">\"><b><c/></b><b></b></a>", 2},
    };
    for (const auto& row : rows)
        EXPECT_EQ(elementDepth(row.first), row.second) << row.first.constData();
    for (const int depth : {MAX_DEPTH, MAX_DEPTH + 1}) {
        QBuffer xml;
        xml.setData(QByteArray("<a>").repeated(depth) + QByteArray("</a>").repeated(depth));
        xml.open(QIODevice::ReadOnly);
        bool tooDeep = false;
        EXPECT_EQ(documentOfDevice(xml, nullptr, &tooDeep).isNull(), depth > MAX_DEPTH);
        EXPECT_EQ(tooDeep, depth > MAX_DEPTH);
    }
}
