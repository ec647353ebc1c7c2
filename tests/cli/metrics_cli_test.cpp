// The end of a run as the built povrun shows it: the mechanisms listed from the .pos file
// in directory mode, and the final report.

#include "common/testutil.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

using testutil::runPovrun;

namespace {

const QByteArray SAMPLE_POS =
    "<?xml version=\"1.0\"?>\n<Proof_Obligations>\n"
    "<Proof_Obligation><Tag>g</Tag>\n"
    "<Simple_Goal status=\"Proved\"><Proof_State proofState=\"Proved(0)\"/></Simple_Goal>\n"
    "<Simple_Goal status=\"Unknown\"/>\n"
    "<Simple_Goal status=\"UnreliablyProved\"><iapa><status value=\"Valid\"/></iapa>"
    "</Simple_Goal>\n"
    "<Simple_Goal/>\n"
    "</Proof_Obligation>\n</Proof_Obligations>\n";

const char SAMPLE_COUNTS[] = "TOTAL for comp\t Proved 1\t Proved externally 0\t Unreliably "
                             "proved 1\t Disproved 0\t Unproved 1";
const char ZERO_COUNTS[] = "TOTAL for comp\t Proved 0\t Proved externally 0\t Unreliably "
                           "proved 0\t Disproved 0\t Unproved 0";

std::string textReport(const std::string& counts) {
    return "End of proof\n\n" + counts + "\n";
}
std::string xmlReport(const std::string& counts) {
    return "\n<proofResult>\n\n<total>" + counts + "</total>\n</proofResult>\n</proof>\n";
}

struct Workspace {
    QTemporaryDir dir;
    QString pos() const { return dir.filePath("comp.pos"); }
    // A directory-mode run on comp.pos, mechanisms looked up in the workspace itself.
    testutil::RunResult run(bool xml) const {
        QStringList args = {"-d", dir.path(), "-s", pos(), "-p", dir.filePath("comp.pog"),
                            "-M", dir.path()};
        if (xml)
            args << "-x";
        return runPovrun(args, dir.path());
    }
};

} // namespace

TEST(MetricsCli, RunWithoutMechanismsEndsWithTheExactReport) {
    Workspace ws;
    const std::string error = "File not readable " + ws.pos().toStdString();
    const struct {
        const char* name;
        QByteArray pos;
        bool xml;
        std::string out;
    } rows[] = {
        {"readable, text", SAMPLE_POS, false, textReport(SAMPLE_COUNTS)},
        {"readable, xml", SAMPLE_POS, true, "<proof>\n" + xmlReport(SAMPLE_COUNTS)},
        // A truncated file is not read as its first half: both the listing and the report
        // find it unreadable.
        {"truncated, text", SAMPLE_POS.left(SAMPLE_POS.indexOf("<Simple_Goal/>")), false,
         "Error" + error + "\nError" + error + "\n" + textReport(ZERO_COUNTS)},
        {"truncated, xml", SAMPLE_POS.left(SAMPLE_POS.indexOf("<Simple_Goal/>")), true,
         "<proof>\n<error>" + error + "</error>\n<error>" + error + "</error>\n" +
             xmlReport(ZERO_COUNTS)},
    };
    for (const auto& row : rows) {
        testutil::writeFile(ws.pos(), row.pos);
        const testutil::RunResult r = ws.run(row.xml);
        EXPECT_EQ(r.exitCode, 0) << row.name;
        EXPECT_EQ(r.out, row.out) << row.name;
        EXPECT_EQ(r.err, "") << row.name;
        EXPECT_EQ(testutil::readFile(ws.pos()), row.pos) << row.name << ": file rewritten";
    }
}

TEST(MetricsCli, RegisteredMechanismThatCannotBeLoadedEndsRunWithoutReport) {
    Workspace ws;
    QByteArray pos = SAMPLE_POS;
    pos.replace("<Simple_Goal/>",
                "<Simple_Goal><Mechanism name=\"absent\" status=\"Unproved\"/></Simple_Goal>");
    testutil::writeFile(ws.pos(), pos);
    const testutil::RunResult text = ws.run(false);
    EXPECT_EQ(text.exitCode, 1);
    EXPECT_EQ(text.out, "");
    EXPECT_EQ(ws.run(true).out, "<proof>\n");
}

TEST(MetricsCli, UnknownStatusTextStopsTheRunWithOneLine) {
    Workspace ws;
    QByteArray pos = SAMPLE_POS;
    pos.replace("status=\"Unknown\"", "status=\"Valid\"");
    testutil::writeFile(ws.pos(), pos);
    const testutil::RunResult r = ws.run(false);
    EXPECT_FALSE(r.crashed);
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "povrun: map::at\n");
}
