// The example's reader: its command line and how solver output becomes verdicts. Scripts are
// made by the example's writer, so the pair is tested together.

#include "exampletools.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

using exampletools::runReader;

namespace {

const QByteArray THREE_GOALS = R"(<obligations>
  <group name="g">
    <declare>(declare-const x Int)</declare>
    <obligation name="one"><goal>(> x 0)</goal></obligation>
    <obligation name="two"><goal>(> x 1)</goal></obligation>
    <obligation name="three"><goal>(> x 2)</goal></obligation>
  </group>
</obligations>
)";

struct ReaderFixture : ::testing::Test {
    QTemporaryDir dir;
    QString script = dir.filePath("job.smt2");

    // Writes the script for the given writer words (addresses, options).
    void writeScript(const QStringList& words) {
        const QString pog = dir.filePath("g.pog");
        testutil::writeFile(pog, THREE_GOALS);
        const testutil::RunResult r = exampletools::runWriter(
            words + QStringList{"-i", pog, "-o", script});
        ASSERT_EQ(r.exitCode, 0) << r.err;
    }
};

} // namespace

TEST_F(ReaderFixture, RejectsBadArgumentsWithUsage) {
    writeScript({"-a", "0", "0"});
    const struct {
        const char* name;
        QStringList args;
    } rows[] = {
        {"no script", {}},
        {"two scripts", {script, script}},
        {"an option", {"-h"}},
        {"an empty name", {""}},
    };
    for (const auto& row : rows) {
        const testutil::RunResult r = runReader(row.args, "@po 0\nunsat\n");
        EXPECT_EQ(r.exitCode, 2) << row.name;
        EXPECT_EQ(r.out, "") << row.name;
        EXPECT_NE(r.err.find("usage: smtreader"), std::string::npos) << row.name << ": " << r.err;
    }
    const testutil::RunResult missing = runReader({dir.filePath("none.smt2")}, "unsat\n");
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_EQ(missing.out, "") << "no verdict without the script that says how many";
    EXPECT_NE(missing.err.find("cannot read"), std::string::npos) << missing.err;
}

TEST_F(ReaderFixture, PrintsOneVerdictPerObligationWhateverTheSolverSaid) {
    writeScript({"-a", "0", "0", "-a", "0", "1", "-a", "0", "2"});
    const struct {
        const char* name;
        QByteArray output;
        const char* verdicts;
    } rows[] = {
        {"bare marks", "@po 0\nunsat\n@po 1\nsat\n@po 2\nunknown\n",
         "Proved\nDisproved\nUnknown\n"},
        {"quoted marks", "\"@po 0\"\nsat\n\"@po 1\"\nunsat\n\"@po 2\"\nunsat\n",
         "Disproved\nProved\nProved\n"},
        {"time-out word", "@po 0\ntimeout\n@po 1\nunsat\n@po 2\nsat\n",
         "Unknown\nProved\nDisproved\n"},
        {"no output at all", "", "Unknown\nUnknown\nUnknown\n"},
        {"stopped after the first answer", "@po 0\nunsat\n@po 1\n", "Proved\nUnknown\nUnknown\n"},
        {"answer cut short", "@po 0\nunsat\n@po 1\nuns", "Proved\nUnknown\nUnknown\n"},
        {"error before an answer", "@po 0\n(error \"unknown constant y\")\nsat\n@po 1\nunsat\n"
                                   "@po 2\nsat\n",
         "Unknown\nProved\nDisproved\n"},
        {"error after an answer", "@po 0\nunsat\n(error \"model is not available\")\n@po 1\n"
                                  "unsat\n@po 2\nunsat\n",
         "Proved\nProved\nProved\n"},
        {"answers without marks", "unsat\nunsat\nunsat\n", "Unknown\nUnknown\nUnknown\n"},
        {"a block skipped", "@po 0\nunsat\n@po 2\nsat\n", "Proved\nUnknown\nDisproved\n"},
        {"carriage returns and noise", "@po 0\r\nsuccess\r\nunsat\r\n@po 1\r\n  sat  \r\n"
                                       "@po 2\r\nunknown\r\n",
         "Proved\nDisproved\nUnknown\n"},
        {"answer not at line start", "@po 0\n; unsat\nunknown\n@po 1\nunsat\n@po 2\nsat\n",
         "Unknown\nProved\nDisproved\n"},
    };
    for (const auto& row : rows) {
        const testutil::RunResult r = runReader({script}, row.output);
        EXPECT_EQ(r.exitCode, 0) << row.name;
        EXPECT_EQ(r.out, row.verdicts) << row.name;
    }
}

TEST_F(ReaderFixture, FollowsADisproofWithItsModelOnlyWhenModelsWereAsked) {
    const QByteArray satWithModel = "@po 0\nsat\n(\n  (define-fun x () Int\n    0)\n)\n";
    writeScript({"-a", "0", "0", "-m"});
    EXPECT_EQ(runReader({script}, satWithModel).out,
              "Disproved\n(\n  (define-fun x () Int\n    0)\n)\n");
    EXPECT_EQ(runReader({script}, "@po 0\nunsat\n(error \"model is not available\")\n").out,
              "Proved\n");

    writeScript({"-a", "0", "0"});
    EXPECT_EQ(runReader({script}, satWithModel).out, "Disproved\n");
}
