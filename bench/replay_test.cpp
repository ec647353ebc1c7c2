// The replay benchmark's parts: a file it generates must offer the driver exactly the
// goals it claims, its tools and baseline must do the jobs they stand for, and povrun must
// replay such a file with them end to end.

#include "replay_workspace.h"
#include "spawn_job.h"

#include "common/testutil.h"
#include "director/ProofDirector.h"
#include "pos/pos.h"

#include <QDir>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <limits>

namespace {

using replaybench::workspace_t;

workspace_t workspaceIn(const QTemporaryDir& dir) {
    workspace_t workspace;
    EXPECT_TRUE(
        replaybench::prepare(dir.path(), {REPLAY_WRITER, REPLAY_PROVER, REPLAY_READER}, workspace));
    return workspace;
}

TEST(ReplayBench, ReplayableFileOffersTheDriverExactlyItsFirstGoals) {
    struct row_t {
        const char* name;
        unsigned goals;
        unsigned replayable;
        unsigned expected;
    };
    const row_t rows[] = {
        {"every goal", 60, std::numeric_limits<unsigned>::max(), 60},
        {"first goals across a group boundary", 60, 23, 23},
        {"none", 40, 0, 0},
    };
    for (const row_t& row : rows) {
        SCOPED_TRACE(row.name);
        QTemporaryDir dir;
        const workspace_t workspace = workspaceIn(dir);
        ASSERT_TRUE(replaybench::writePos(workspace, row.goals, row.replayable));
        EXPECT_TRUE(pos::checkPosInvariant(pos::documentOfFile(workspace.posFile)));

        ProofDirector director("comp", workspace.mechanismFile.toStdString(),
                               workspace.posFile.toStdString(), workspace.pogFile.toStdString(),
                               workspace.tempDir.toStdString(), {}, false, 1, 0, "", "", false);
        ASSERT_TRUE(director.isLoaded());
        ASSERT_TRUE(director.reloadPosFile());
        EXPECT_EQ(director.getUnprovedCount(), row.goals);
        unsigned index = 0;
        for (const auto& group : director.getPoTable()) {
            EXPECT_EQ(group.second.size(), replaybench::GOALS_PER_GROUP);
            for (const auto& po : group.second) {
                const QStringList expected =
                    index < row.expected ? QStringList{replaybench::DRIVER_NAME} : QStringList{};
                EXPECT_EQ(po.drivers, expected) << "goal " << index;
                ++index;
            }
        }
        EXPECT_EQ(index, row.goals);
    }
}

TEST(ReplayBench, BaselineRunsEveryJobAndRejectsWrongAnswers) {
    struct row_t {
        const char* name;
        const char* concurrency;
        QString reader;
        int exitCode;
    };
    const row_t rows[] = {
        {"in the calling thread", "1", REPLAY_READER, 0},
        {"on more threads than jobs", "9", REPLAY_READER, 0},
        {"a reader that echoes instead of answering", "2", REPLAY_PROVER, 1},
    };
    for (const row_t& row : rows) {
        SCOPED_TRACE(row.name);
        QTemporaryDir dir;
        const workspace_t workspace = workspaceIn(dir);
        const testutil::RunResult result = testutil::run(
            REPLAY_BASELINE, {row.concurrency, "7", "3", workspace.tempDir, workspace.pogFile,
                              REPLAY_WRITER, REPLAY_PROVER, row.reader});
        EXPECT_FALSE(result.crashed);
        EXPECT_EQ(result.exitCode, row.exitCode) << result.err;
        EXPECT_TRUE(QDir(workspace.tempDir).isEmpty());
    }
}

TEST(ReplayBench, SpawnedJobReportsToolsThatFailOrCannotStart) {
    QTemporaryDir dir;
    const std::string input = (dir.path() + "/input").toStdString();
    testutil::writeFile(QString::fromStdString(input), "0 0\n0 1\n");
    struct row_t {
        const char* name;
        std::string prover;
        std::string reader;
        bool ok;
        std::string output;
    };
    const row_t rows[] = {
        {"prover piped into reader", REPLAY_PROVER, REPLAY_READER, true, "Proved\nProved\n"},
        {"missing prover", "/nonexistent/prover", REPLAY_READER, false, ""},
        {"missing reader", REPLAY_PROVER, "/nonexistent/reader", false, ""},
        // The writer without "-o" exits with status 1 after reading nothing.
        {"reader exiting 1", REPLAY_PROVER, REPLAY_WRITER, false, ""},
    };
    for (const row_t& row : rows) {
        SCOPED_TRACE(row.name);
        std::string output = "stale";
        EXPECT_EQ(spawnjob::runProverReader(row.prover, row.reader, input, output), row.ok);
        EXPECT_EQ(output, row.output);
    }
    EXPECT_FALSE(spawnjob::run(REPLAY_WRITER, {"-a", "0", "0"}));
    EXPECT_TRUE(spawnjob::run(REPLAY_WRITER, {"-a", "0", "0", "-o", input}));
    EXPECT_EQ(testutil::readFile(QString::fromStdString(input)), "0 0\n");
}

TEST(ReplayBench, PovrunReplaysExactlyTheReplayableGoalsWithTheBenchTools) {
    for (const char* concurrency : {"1", "2"}) {
        SCOPED_TRACE(concurrency);
        QTemporaryDir dir;
        const workspace_t workspace = workspaceIn(dir);
        ASSERT_TRUE(replaybench::writePos(workspace, 60, 27));
        const testutil::RunResult result =
            testutil::runPovrun({"-m", workspace.mechanismFile, "-s", workspace.posFile, "-p",
                                 workspace.pogFile, "-d", workspace.tempDir, "-c", concurrency});
        EXPECT_EQ(result.exitCode, 0) << result.err;
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(replaybench::provedGoals(workspace.posFile), 27);
        EXPECT_TRUE(QDir(workspace.tempDir).isEmpty());
    }
}

TEST(ReplayBench, BenchMeasuresASmallComponentToTheEnd) {
    const testutil::RunResult result =
        testutil::run(REPLAY_BENCH, {"--sizes=20", "--rounds=1"}, QString(), QByteArray(), 120000);
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("20 goals, 20 jobs"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("prover+reader"), std::string::npos) << result.out;
}

} // namespace
