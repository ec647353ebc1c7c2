// The example's cluster mechanisms replayed by the built povrun on a batch cluster, the one
// that scripts/cluster starts and that SLURM_CONF names. Without a cluster that runs a job,
// every test is skipped with the reason.

#include "common/testutil.h"
#include "pos/pos.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QThread>
#include <csignal>
#include <gtest/gtest.h>

namespace {

// Ids of the jobs whose names start with "sleepy_" that squeue lists (the running ones only,
// or all), once there are `count` of them or `ms` milliseconds have passed.
QStringList sleepyJobs(bool runningOnly, int count = -1, int ms = 0) {
    for (int waited = 0;; waited += 100, QThread::msleep(100)) {
        QStringList args = {"--noheader", "--format=%i %j"};
        const auto r = testutil::run("squeue", runningOnly ? args << "--states=RUNNING" : args);
        QStringList ids;
        for (const QString& line : QString::fromStdString(r.out).split('\n', Qt::SkipEmptyParts))
            if (line.section(' ', 1).startsWith("sleepy_"))
                ids << line.section(' ', 0, 0);
        if (count < 0 || ids.size() == count || waited >= ms)
            return ids;
    }
}

// One replay's files: the example's status and obligation files copied under the name of
// `component` (which names the secondary files and so the jobs), and a temporary folder.
class ClusterRun : public testing::Test {
protected:
    // Skips unless the controller that SLURM_CONF names answers.
    void SetUp() override {
        const QString conf = qEnvironmentVariable("SLURM_CONF");
        if (!QFile::exists(conf) || QStandardPaths::findExecutable("srun").isEmpty())
            GTEST_SKIP() << "no cluster: no srun, or SLURM_CONF names no file (scripts/cluster)";
        const auto r = testutil::run("scontrol", {"ping"}, {}, {}, 20000);
        if (r.timedOut || r.exitCode != 0)
            GTEST_SKIP() << "the cluster does not answer: " << r.out << r.err;
    }
    // Jobs a failed test leaves sleeping would hold the node's CPUs for the tests after it.
    void TearDown() override {
        const QStringList left = IsSkipped() ? QStringList() : sleepyJobs(false);
        if (!left.isEmpty())
            testutil::run("scancel", left);
    }

    QStringList replayArgs(const QString& component, const QString& mechanism) {
        const QString pos = work.filePath(component + ".pos");
        const QString pog = work.filePath(component + ".pog");
        if (QFile::copy(EXAMPLE_DIR "/tank.pos", pos)) {
            QFile::copy(EXAMPLE_DIR "/tank.pog", pog);
            QFile::setPermissions(pos, QFile::permissions(pos) | QFileDevice::WriteOwner);
            QDir(work.path()).mkpath(component + "-tmp");
        }
        return {"-i", EXAMPLE_TOOLS_DIR,
                "-i", CLUSTER_EXAMPLE_DIR,
                "-m", mechanism,
                "-s", pos,
                "-p", pog,
                "-d", work.filePath(component + "-tmp"),
                "-c", "2"};
    }

    QTemporaryDir work;
};

TEST_F(ClusterRun, ExampleEndsWithTheSameStatusesAsTheLocalRun) {
    const QString z3 = QStandardPaths::findExecutable("z3");
    const QString cvc5 = QStandardPaths::findExecutable("cvc5");
    if (z3.isEmpty() || cvc5.isEmpty())
        GTEST_SKIP() << "z3 and cvc5 are needed for this test (scripts/demo installs them)";
    const QString res = work.filePath("solvers.res");
    testutil::writeFile(res, ("ZDR*Proof*z3: " + z3 + "\nZDR*Proof*cvc5: " + cvc5 + "\n").toUtf8());
    for (const QString mechanism : {"z3.xml", "portfolio.xml"}) {
        const auto local = testutil::runPovrun(
            QStringList{"-r", res} + replayArgs("local", EXAMPLE_DIR "/" + mechanism), {}, 180000);
        const auto cluster = testutil::runPovrun(
            replayArgs("cluster", CLUSTER_EXAMPLE_DIR "/" + mechanism), {}, 180000);
        ASSERT_TRUE(local.exitCode == 0 && cluster.exitCode == 0) << local.err << cluster.err;
        EXPECT_EQ(cluster.err, "") << mechanism.toStdString();
    }
    const QByteArray cluster = testutil::readFile(work.filePath("cluster.pos"));
    EXPECT_NE(cluster, testutil::readFile(EXAMPLE_DIR "/tank.pos")) << "nothing was proved";
    EXPECT_EQ(cluster, testutil::readFile(work.filePath("local.pos")));
}

TEST_F(ClusterRun, StopCancelsTheJobsRemovesTheFilesAndSavesAWholeStatusFile) {
    // The jobs sleep on the cluster until they are cancelled; the reader then finds no answer.
    testutil::writeFile(work.filePath("z3.xml"), R"(<mechanism trust="always">
        <driver name="z3" group="none" ext="smt2"><writer name="smtwriter" path="smtwriter"/>
            <prover name="sleep" path="srunprover"><param value="${file}"/>
                <param value="sleep"/><param value="120"/></prover>
            <reader name="smtreader" path="smtreader"><param value="${file}"/></reader>
        </driver></mechanism>)");
    QProcess povrun;
    povrun.start(POVRUN_BIN, replayArgs("sleepy", work.filePath("z3.xml")));
    // At -c 2, two single-CPU jobs sleep side by side on the two-CPU node.
    ASSERT_EQ(sleepyJobs(true, 2, 60000).size(), 2);
    ::kill(static_cast<pid_t>(povrun.processId()), SIGTERM);
    ASSERT_TRUE(povrun.waitForFinished(15000) && povrun.exitCode() == 1) << povrun.exitCode();
    EXPECT_EQ(sleepyJobs(false, 0, 5000).join(' ').toStdString(), "") << "jobs left in squeue";
    EXPECT_TRUE(QDir(work.filePath("sleepy-tmp")).isEmpty());
    const QDomDocument saved = pos::documentOfFile(work.filePath("sleepy.pos"));
    EXPECT_EQ(saved.elementsByTagName("Simple_Goal").size(), 40) << "a whole status file";
}

TEST_F(ClusterRun, JobTheClusterRefusesIsReportedAsACrashedProver) {
    // A hundred terabytes of memory: no node has it, so srun gives up at once.
    qputenv("PROVER_SRUN_OPTIONS", "--mem=100000000");
    const auto r = testutil::runPovrun(replayArgs("refused", CLUSTER_EXAMPLE_DIR "/z3.xml"));
    qunsetenv("PROVER_SRUN_OPTIONS");
    ASSERT_TRUE(!r.timedOut && r.exitCode == 0) << r.err;
    // One crash for each of the z3 driver's 16 one-goal jobs, and the goals kept as they were.
    const QString err = QString::fromStdString(r.err);
    EXPECT_TRUE(err.count("Driver prover crashed.") == 16 &&
                err.count("srun: error: Unable to allocate resources") == 16)
        << r.err;
    EXPECT_EQ(testutil::readFile(work.filePath("refused.pos")),
              testutil::readFile(EXAMPLE_DIR "/tank.pos"));
}

} // namespace
