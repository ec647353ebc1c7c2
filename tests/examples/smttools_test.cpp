// The example's writer and reader: their command lines, the order of the script's blocks,
// and how solver output becomes one verdict per obligation.

#include "common/testutil.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace {

const QByteArray POG = R"(<obligations><group name="g"><declare>(declare-const x Int)</declare>
  <obligation name="one"><goal>(> x 0)</goal></obligation>
  <obligation name="two"><hypothesis>(> x 5)</hypothesis><goal>(> x 1)</goal></obligation>
  <obligation name="three"><goal>(> x 2)</goal></obligation>
</group></obligations>
)";

struct SmtTools : ::testing::Test {
    QTemporaryDir dir;
    const QString pog = dir.filePath("g.pog"), script = dir.filePath("job.smt2");
    void SetUp() override { testutil::writeFile(pog, POG); }
};

} // namespace

TEST_F(SmtTools, RejectBadArgumentsWithUsageAndAStatusAndWriteNothing) {
    const QString missing = dir.filePath("none");
    const struct {
        const char* name;
        bool isWriter;
        QStringList args;
        int status;
        const char* message;
    } rows[] = {
        {"writer without -o", true, {"-a", "0", "0", "-i", pog}, 2, "usage: smtwriter"},
        {"address with one number", true, {"-i", pog, "-o", script, "-a", "0"}, 2, "usage:"},
        {"unknown option", true, {"-i", pog, "-o", script, "--bogus"}, 2, "usage: smtwriter"},
        {"address out of range", true, {"-a", "1", "0", "-i", pog, "-o", script}, 1, "group 1"},
        {"missing input", true, {"-i", missing, "-o", script}, 1, "smtwriter: "},
        {"reader without script", false, {}, 2, "usage: smtreader"},
        {"reader with two scripts", false, {script, script}, 2, "usage: smtreader"},
        {"reader with a missing script", false, {missing}, 1, "cannot read"},
    };
    for (const auto& row : rows) {
        const testutil::RunResult r =
            testutil::run(row.isWriter ? SMTWRITER_BIN : SMTREADER_BIN, row.args, "", "unsat\n");
        EXPECT_EQ(r.exitCode, row.status) << row.name;
        EXPECT_NE(r.err.find(row.message), std::string::npos) << row.name << ": " << r.err;
        EXPECT_EQ(r.out, "") << row.name;
        EXPECT_FALSE(QFile::exists(script)) << row.name;
    }
}

TEST_F(SmtTools, ReaderGivesOneVerdictPerObligationOfTheWritersScript) {
    const QStringList backwards = {"-a", "0", "2", "-a", "0", "1", "-a", "0", "0", "-i", pog};
    ASSERT_EQ(testutil::run(SMTWRITER_BIN, backwards + QStringList{"-o", script}).exitCode, 0);
    const QString text = QString::fromUtf8(testutil::readFile(script));
    const int two = text.indexOf("(assert (> x 5))\n(assert (not (> x 1)))");
    EXPECT_LT(text.indexOf("(assert (not (> x 2)))"), two) << "blocks in the order given";
    EXPECT_LT(two, text.indexOf("(assert (not (> x 0)))")) << text.toStdString();
    const struct {
        const char* name;
        QByteArray solverOutput;
        const char* verdicts;
    } rows[] = {
        {"unsat, sat, other", "@po 0\nunsat\n@po 1\nsat\n@po 2\nunknown\n",
         "Proved\nDisproved\nUnknown\n"},
        {"time-out word", "@po 0\ntimeout\n@po 1\nunsat\n", "Unknown\nProved\nUnknown\n"},
        {"no output at all", "", "Unknown\nUnknown\nUnknown\n"},
        {"stopped after the first answer", "@po 0\nunsat\n@po 1\n", "Proved\nUnknown\nUnknown\n"},
        {"answer cut short", "@po 0\nsat\n@po 1\nuns", "Disproved\nUnknown\nUnknown\n"},
        {"error before an answer", "@po 0\n(error)\nsat\n@po 1\nsat\n",
         "Unknown\nDisproved\nUnknown\n"},
        {"answers without marks", "unsat\nunsat\nunsat\n", "Unknown\nUnknown\nUnknown\n"},
    };
    for (const auto& row : rows) {
        const testutil::RunResult r = testutil::run(SMTREADER_BIN, {script}, "", row.solverOutput);
        EXPECT_EQ(r.exitCode, 0) << row.name;
        EXPECT_EQ(r.out, row.verdicts) << row.name;
    }
}
