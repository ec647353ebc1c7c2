// The example's cluster mechanisms replayed by the built povrun on a batch cluster, the one
// that scripts/cluster starts and that SLURM_CONF names. Without a cluster that runs a job,
// every test is skipped with the reason.

#include "common/testutil.h"

#include <QDir>
#include <QDomDocument>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QThread>
#include <csignal>
#include <gtest/gtest.h>

namespace {

// Empty when the controller that SLURM_CONF names answers; otherwise the reason.
std::string whyNoCluster() {
    const QString conf = qEnvironmentVariable("SLURM_CONF");
    if (conf.isEmpty() || !QFile::exists(conf))
        return "no cluster: SLURM_CONF names no file (scripts/test sets it after scripts/cluster start)";
    if (QStandardPaths::findExecutable("srun").isEmpty())
        return "srun is not installed";
    const testutil::RunResult r = testutil::run("scontrol", {"ping"}, {}, {}, 20000);
    if (r.timedOut || r.exitCode != 0)
        return "the cluster of " + conf.toStdString() + " does not answer: " + r.out + r.err;
    return {};
}

// Ids of the cluster's jobs whose names start with `prefix`: the running ones, or all that
// squeue lists (pending, running, completing).
QStringList jobsStartingWith(const QString& prefix, bool runningOnly = false) {
    QStringList args = {"--noheader", "--format=%i %j"};
    if (runningOnly)
        args << "--states=RUNNING";
    const testutil::RunResult r = testutil::run("squeue", args);
    QStringList ids;
    for (const QString& line : QString::fromStdString(r.out).split('\n', Qt::SkipEmptyParts))
        if (line.section(' ', 1).startsWith(prefix))
            ids << line.section(' ', 0, 0);
    return ids;
}

// Polls `done` every 100 ms for up to `ms` milliseconds.
template <typename Condition> bool within(int ms, Condition done) {
    for (int waited = 0; !done(); waited += 100) {
        if (waited >= ms)
            return false;
        QThread::msleep(100);
    }
    return true;
}

// One replay's files: the example's status and obligation files copied under the name of
// `component` (which names the secondary files and so the jobs), and a temporary folder.
class ClusterRun : public testing::Test {
protected:
    void SetUp() override {
        const std::string reason = whyNoCluster();
        if (!reason.empty())
            GTEST_SKIP() << reason;
    }

    QStringList replayArgs(const QString& component, const QString& mechanism) {
        const QString pos = work.filePath(component + ".pos");
        if (!QFile::exists(pos)) {
            QFile::copy(EXAMPLE_DIR "/tank.pos", pos);
            QFile::copy(EXAMPLE_DIR "/tank.pog", work.filePath(component + ".pog"));
            QFile::setPermissions(pos, QFile::permissions(pos) | QFileDevice::WriteOwner);
            QDir(work.path()).mkpath(component + "-tmp");
        }
        return {"-i", EXAMPLE_TOOLS_DIR, "-i", CLUSTER_EXAMPLE_DIR, "-m", mechanism,
                "-s", pos, "-p", work.filePath(component + ".pog"),
                "-d", work.filePath(component + "-tmp"), "-c", "2"};
    }

    // Jobs a failed test leaves sleeping would hold the node's CPUs for the tests after it.
    void TearDown() override {
        const QStringList left = IsSkipped() ? QStringList() : jobsStartingWith("sleepy_");
        if (!left.isEmpty())
            testutil::run("scancel", left);
    }

    QTemporaryDir work;
};

TEST_F(ClusterRun, ExampleEndsWithTheSameStatusesAsTheLocalRun) {
    const QString z3 = QStandardPaths::findExecutable("z3"), cvc5 = QStandardPaths::findExecutable("cvc5");
    if (z3.isEmpty() || cvc5.isEmpty())
        GTEST_SKIP() << "z3 and cvc5 are needed for this test (scripts/demo installs them)";
    const QString res = work.filePath("solvers.res");
    testutil::writeFile(res, ("ZDR*Proof*z3: " + z3 + "\nZDR*Proof*cvc5: " + cvc5 + "\n").toUtf8());
    for (const char* mechanism : {"z3", "portfolio"}) {
        const QString file = QString(mechanism) + ".xml";
        const auto local = testutil::runPovrun(
            QStringList{"-r", res} + replayArgs("local", EXAMPLE_DIR "/" + file), {}, 180000);
        ASSERT_EQ(local.exitCode, 0) << local.out << local.err;
        const auto cluster = testutil::runPovrun(
            replayArgs("cluster", CLUSTER_EXAMPLE_DIR "/" + file), {}, 180000);
        ASSERT_EQ(cluster.exitCode, 0) << cluster.out << cluster.err;
        EXPECT_EQ(cluster.err, "") << mechanism;
    }
    const QByteArray cluster = testutil::readFile(work.filePath("cluster.pos"));
    EXPECT_NE(cluster, testutil::readFile(EXAMPLE_DIR "/tank.pos")) << "nothing was proved";
    EXPECT_EQ(cluster, testutil::readFile(work.filePath("local.pos")));
}

TEST_F(ClusterRun, StopCancelsTheJobsRemovesTheFilesAndSavesAWholeStatusFile) {
    // The jobs sleep on the cluster until they are cancelled; the reader then finds no answer.
    const QString mechanism = work.filePath("z3.xml");
    testutil::writeFile(mechanism, R"(<mechanism trust="always">
        <driver name="z3" group="none" ext="smt2">
            <writer name="smtwriter" path="smtwriter"/>
            <prover name="sleep" path="srunprover"><param value="${file}"/>
                <param value="sleep"/><param value="120"/></prover>
            <reader name="smtreader" path="smtreader"><param value="${file}"/></reader>
        </driver></mechanism>)");
    QProcess povrun;
    povrun.start(POVRUN_BIN, replayArgs("sleepy", mechanism));
    ASSERT_TRUE(povrun.waitForStarted());
    // At -c 2, two single-CPU jobs sleep side by side on the two-CPU node.
    ASSERT_TRUE(within(60000, [] { return jobsStartingWith("sleepy_", true).size() == 2; }))
        << "running: " << jobsStartingWith("sleepy_", true).join(' ').toStdString();
    ::kill(static_cast<pid_t>(povrun.processId()), SIGTERM);
    ASSERT_TRUE(povrun.waitForFinished(15000));
    EXPECT_EQ(povrun.exitCode(), 1);
    EXPECT_TRUE(within(5000, [] { return jobsStartingWith("sleepy_").isEmpty(); }))
        << "jobs left in squeue: " << jobsStartingWith("sleepy_").join(' ').toStdString();
    EXPECT_EQ(QDir(work.filePath("sleepy-tmp")).entryList(QDir::NoDotAndDotDot | QDir::AllEntries),
              QStringList());
    QDomDocument pos;
    EXPECT_TRUE(pos.setContent(testutil::readFile(work.filePath("sleepy.pos"))) &&
                pos.elementsByTagName("Simple_Goal").size() == 40);
}

TEST_F(ClusterRun, JobTheClusterRefusesIsReportedAsACrashedProver) {
    // A hundred terabytes of memory: no node has it, so srun gives up at once.
    qputenv("PROVER_SRUN_OPTIONS", "--mem=100000000");
    const auto r = testutil::runPovrun(replayArgs("refused", CLUSTER_EXAMPLE_DIR "/z3.xml"));
    qunsetenv("PROVER_SRUN_OPTIONS");
    ASSERT_FALSE(r.timedOut);
    EXPECT_EQ(r.exitCode, 0) << r.err;
    // One crash for each of the z3 driver's 16 one-goal jobs, and the goals kept as they were.
    const QString err = QString::fromStdString(r.err);
    EXPECT_EQ(err.count("Driver prover crashed."), 16) << r.err;
    EXPECT_EQ(err.count("srun: error: Unable to allocate resources"), 16) << r.err;
    EXPECT_EQ(testutil::readFile(work.filePath("refused.pos")),
              testutil::readFile(EXAMPLE_DIR "/tank.pos"));
}

} // namespace
