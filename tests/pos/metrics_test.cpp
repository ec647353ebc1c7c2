// Metrics of a status file and the report printed at the end of a run.

#include "common/testutil.h"
#include "pos/pos.h"
#include "pos/posxml.h"
#include "pos/printmetrics.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <stdexcept>

using namespace pos;

namespace {

// Five goals: one of each printed status and one "Unknown"; two proved by mechanisms, one
// of them twice over; one proved by the environment.
const QStringList SAMPLE = {
    "<Simple_Goal status=\"Proved\"><Proof_State proofState=\"Proved(Util)\"/>"
    "<Mechanism name=\"a\" status=\"Proved\"><Driver name=\"d1\" status=\"Proved\"/>"
    "<Driver name=\"d2\" status=\"Unproved\"/></Mechanism>"
    "<Mechanism name=\"b\" status=\"Proved\"><Driver name=\"d1\" status=\"Disproved\"/>"
    "</Mechanism></Simple_Goal>"
    "<Simple_Goal status=\"Unknown\"><Proof_State proofState=\"Proved\"/>"
    "<Mechanism name=\"a\" status=\"Unknown\"><Driver name=\"d1\" status=\"Unknown\"/>"
    "<Driver name=\"d2\" status=\"UnreliablyProved\"/></Mechanism></Simple_Goal>",
    "<Simple_Goal status=\"UnreliablyProved\"><iapa><status value=\"Valid\"/></iapa>"
    "<Mechanism name=\"b\" status=\"UnreliablyProved\"/></Simple_Goal>"
    "<Simple_Goal status=\"Disproved\"><Mechanism name=\"a\" status=\"Disproved\">"
    "<Driver name=\"d1\" status=\"Disproved\"/></Mechanism>"
    "<Mechanism name=\"a\" status=\"Proved\"/></Simple_Goal>"
    "<Simple_Goal><Mechanism name=\"b\" status=\"Unproved\"><Driver name=\"d3\" "
    "status=\"Unproved\"/></Mechanism></Simple_Goal>",
};

// The counters of one mechanism or driver entry, in declaration order, as text.
std::string countsOf(const mechanism_metrics_t& m) {
    return QString("%1 %2 %3 %4 %5")
        .arg(m.unproved)
        .arg(m.unknown)
        .arg(m.proved)
        .arg(m.unreliablyProved)
        .arg(m.disproved)
        .toStdString();
}
std::string countsOf(const driver_metrics_t& d) {
    return QString("%1 %2 %3 %4")
        .arg(d.unproved)
        .arg(d.unknown)
        .arg(d.proved)
        .arg(d.disproved)
        .toStdString();
}

} // namespace

TEST(GetMetrics, CountsGoalsMechanismsAndDrivers) {
    QTemporaryDir dir;
    const QString path = dir.filePath("comp.pos");
    testutil::writeFile(path, posxml::text(SAMPLE));
    metrics_t m;
    m.total = 99;
    m.mechanisms["stale"] = std::make_unique<mechanism_metrics_t>();
    ASSERT_TRUE(getMetrics(path.toStdString(), m));

    EXPECT_EQ(m.total, 5u);
    EXPECT_EQ(m.proved, 1u);
    EXPECT_EQ(m.unproved, 1u) << "a goal without status reads as Unproved";
    EXPECT_EQ(m.unreliablyProved, 1u);
    EXPECT_EQ(m.disproved, 1u);
    EXPECT_EQ(m.provedExternally, 2u) << "once per goal, however many mechanisms proved it";
    EXPECT_EQ(m.provedInternally, 1u) << "the plain \"Proved\" state is not the environment's";

    ASSERT_EQ(m.mechanisms.size(), 2u);
    const mechanism_metrics_t& a = *m.mechanisms.at("a");
    const mechanism_metrics_t& b = *m.mechanisms.at("b");
    EXPECT_EQ(countsOf(a), "0 1 2 0 1");
    EXPECT_EQ(countsOf(b), "1 0 1 1 0");
    ASSERT_EQ(a.drivers.size(), 2u);
    EXPECT_EQ(countsOf(*a.drivers.at("d1")), "0 1 1 1");
    EXPECT_EQ(countsOf(*a.drivers.at("d2")), "1 0 0 0") << "UnreliablyProved counts nowhere";
    ASSERT_EQ(b.drivers.size(), 2u);
    EXPECT_EQ(countsOf(*b.drivers.at("d1")), "0 0 0 1");
    EXPECT_EQ(countsOf(*b.drivers.at("d3")), "1 0 0 0");
}

TEST(GetMetrics, UnreadableFileLeavesMetricsAloneAndBadTextThrows) {
    QTemporaryDir dir;
    metrics_t m;
    m.total = 7;
    EXPECT_FALSE(getMetrics(dir.filePath("missing.pos").toStdString(), m));
    EXPECT_EQ(m.total, 7u);

    const QString path = dir.filePath("bad.pos");
    for (const char* goal :
         {"<Simple_Goal status=\"Invalid\"/>",
          "<Simple_Goal><Mechanism name=\"a\" status=\"proved\"/></Simple_Goal>",
          "<Simple_Goal><Mechanism name=\"a\" status=\"Proved\"><Driver name=\"d\"/>"
          "</Mechanism></Simple_Goal>"}) {
        testutil::writeFile(path, posxml::text({goal}));
        EXPECT_THROW(getMetrics(path.toStdString(), m), std::out_of_range) << goal;
    }
}

TEST(PrintMetrics, ReportIsByteExactInBothForms) {
    QTemporaryDir dir;
    const QString readable = dir.filePath("comp.pos");
    testutil::writeFile(readable, posxml::text(SAMPLE));
    const QString truncated = dir.filePath("cut.pos");
    testutil::writeFile(truncated, posxml::text(SAMPLE).left(400));
    const QString missing = dir.filePath("missing.pos");

    const char* const textCounts =
        "TOTAL for comp\t Proved 1\t Proved externally 2\t Unreliably proved 1\t Disproved 1"
        "\t Unproved 1";
    const char* const zeroCounts =
        "TOTAL for comp\t Proved 0\t Proved externally 0\t Unreliably proved 0\t Disproved 0"
        "\t Unproved 0";
    const QString textReport = QStringLiteral("End of proof\n\n%1\n");
    const QString xmlReport =
        QStringLiteral("\n<proofResult>\n\n<total>%1</total>\n</proofResult>\n</proof>\n");
    const struct {
        const char* name;
        QString path;
        bool xml;
        QString expected;
    } rows[] = {
        {"readable, text", readable, false, textReport.arg(textCounts)},
        {"readable, xml", readable, true, xmlReport.arg(textCounts)},
        {"missing, text", missing, false,
         "ErrorFile not readable " + missing + "\n" + textReport.arg(zeroCounts)},
        {"missing, xml", missing, true,
         "<error>File not readable " + missing + "</error>\n" + xmlReport.arg(zeroCounts)},
        {"truncated, text", truncated, false,
         "ErrorFile not readable " + truncated + "\n" + textReport.arg(zeroCounts)},
        {"truncated, xml", truncated, true,
         "<error>File not readable " + truncated + "</error>\n" + xmlReport.arg(zeroCounts)},
    };
    for (const auto& row : rows) {
        testing::internal::CaptureStdout();
        print_metrics(row.path.toStdString(), row.xml, "comp");
        EXPECT_EQ(testing::internal::GetCapturedStdout(), row.expected.toStdString()) << row.name;
    }
}
