// Whole runs of povrun over fake tools: the protocol, failures of single jobs,
// concurrency and termination.

#include "common/faketools.h"
#include "common/testutil.h"
#include "pos/pos.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>
#include <QThread>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

using faketools::GoalSpec;
using faketools::GroupSpec;

namespace {

GoalSpec settledBy(const QString& driver, const QString& goalStatus = "Unproved") {
    GoalSpec goal;
    goal.status = goalStatus;
    goal.drivers = {{driver, "Proved"}};
    return goal;
}

// Starts povrun with its outputs thrown away; QProcess cannot tell which signal ended it.
// SIGINT and SIGHUP get their default action back: povrun keeps a signal ignored when it
// starts ignored, as it does in a background job of a script that runs the tests.
pid_t spawnQuietly(const QStringList& args) {
    std::vector<std::string> words{POVRUN_BIN};
    for (const QString& arg : args)
        words.push_back(arg.toStdString());
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t restored;
    sigemptyset(&restored);
    sigaddset(&restored, SIGINT);
    sigaddset(&restored, SIGHUP);
    posix_spawnattr_setsigdefault(&attributes, &restored);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    pid_t pid = -1;
    if (posix_spawn(&pid, POVRUN_BIN, &actions, &attributes, argv.data(), environ) != 0)
        pid = -1;
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

// The wait status of `pid`, which is killed when it has not ended after `ms`.
int waitUpTo(pid_t pid, int ms) {
    int status = 0;
    for (int waited = 0; waitpid(pid, &status, WNOHANG) == 0; waited += 10) {
        if (waited >= ms)
            ::kill(pid, SIGKILL);
        QThread::msleep(10);
    }
    return status;
}

// Zombies do not count: whoever inherits them reaps them in its own time.
bool isAlive(const QString& pid) {
    const QByteArray stat = testutil::readFile("/proc/" + pid + "/stat");
    const int afterName = stat.lastIndexOf(')');
    return afterName > 0 && stat.mid(afterName + 2, 1) != "Z";
}

class ReplayTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(dir.isValid());
        tools = faketools::writeTools(dir.path());
        ASSERT_TRUE(QDir(dir.path()).mkdir("tmp"));
        testutil::writeFile(path("comp.pog"), "");
    }

    QString path(const QString& name) const { return dir.filePath(name); }

    void writeMechanism(const QString& trust, std::vector<faketools::DriverSpec> drivers) {
        for (auto& d : drivers) {
            if (d.writer.isEmpty())
                d.writer = tools.writer();
            if (d.prover.isEmpty())
                d.prover = tools.prover();
            if (d.reader.isEmpty())
                d.reader = tools.reader();
        }
        testutil::writeFile(path("m.xml"), faketools::mechanismXml(trust, drivers));
    }

    QStringList args(const QStringList& extra = {}) const {
        return QStringList{"-m", path("m.xml"),    "-s", path("comp.pos"),
                           "-p", path("comp.pog"), "-d", path("tmp")} +
               extra;
    }

    QStringList leftInTmp() const { return QDir(path("tmp")).entryList(QDir::Files); }

    QString goalStatus(int group, int goal) const {
        const QDomDocument doc = pos::documentOfFile(path("comp.pos"));
        QDomElement g = doc.documentElement().firstChildElement("Proof_Obligation");
        for (int i = 0; i < group; ++i)
            g = g.nextSiblingElement("Proof_Obligation");
        QDomElement s = g.firstChildElement("Simple_Goal");
        for (int i = 0; i < goal; ++i)
            s = s.nextSiblingElement("Simple_Goal");
        return s.attribute("status");
    }

    QTemporaryDir dir;
    faketools::ToolSet tools;
};

} // namespace

TEST_F(ReplayTest, ProtocolShowsDriversHeadingsAndMarks) {
    faketools::DriverSpec d1;
    d1.name = "d1";
    faketools::DriverSpec d2 = d1;
    d2.name = "d2";
    writeMechanism("always", {d1, d2});
    const QByteArray pos = faketools::posXml("m", {{"G0", {settledBy("d1"), settledBy("d1")}},
                                                   {"G1", {settledBy("d1", "Proved")}},
                                                   {"G2", {settledBy("d1")}}});
    faketools::setAnswers(tools, "0 0 Proved\n0 1 Disproved\n2 0 Unknown\n");
    const char* report = "TOTAL for comp\t Proved 2\t Proved externally 1\t Unreliably proved 0"
                         "\t Disproved 1\t Unproved 1";

    testutil::writeFile(path("comp.pos"), pos);
    const testutil::RunResult plain = testutil::runPovrun(args());
    EXPECT_EQ(plain.exitCode, 0);
    EXPECT_EQ(plain.err, "");
    EXPECT_EQ(plain.out, std::string("Proving comp with external mechanism m\n"
                                     "\tProof driver d1, still 3 unproved PO\n"
                                     "\t\tG0\n\t\t\t+!\n\t\tG1\n\t\t\t\n\t\tG2\n\t\t\t-\n\n"
                                     "\tProof driver d2, still 1 unproved PO\n"
                                     "End of proof\n\n") +
                             report + "\n");
    EXPECT_EQ(goalStatus(0, 0), "Proved");
    EXPECT_EQ(goalStatus(0, 1), "Disproved");
    EXPECT_EQ(goalStatus(2, 0), "Unproved");
    EXPECT_NE(testutil::readFile(path("comp.pos")).indexOf("author=\"proof_director\""), -1);
    EXPECT_EQ(leftInTmp(), QStringList()) << "secondary files are removed after the driver";

    testutil::writeFile(path("comp.pos"), pos);
    const testutil::RunResult xml = testutil::runPovrun(args({"-x"}));
    EXPECT_EQ(xml.exitCode, 0);
    EXPECT_EQ(xml.err, "");
    EXPECT_EQ(xml.out,
              std::string("<proof>\n<proving>Proving comp with external mechanism m</proving>\n"
                          "<proofPass>\tProof driver d1, still 3 unproved PO</proofPass>\n"
                          "\t\t<operation><name>G0</name>\n\t\t\t<p/><d/></operation>\n"
                          "\t\t<operation><name>G1</name>\n\t\t\t</operation>\n"
                          "\t\t<operation><name>G2</name>\n\t\t\t<m/>\n</operation>\n"
                          "<proofPass>\tProof driver d2, still 1 unproved PO</proofPass>\n"
                          "\n<proofResult>\n\n<total>") +
                  report + "</total>\n</proofResult>\n</proof>\n");
}

// A first play registers the mechanism and plays every driver on every goal it leaves
// unproved; a later replay, once the results are forgotten, plays only what it settled.
TEST_F(ReplayTest, FirstPlayRegistersTheMechanismAndReplayFollowsIt) {
    faketools::DriverSpec d1;
    d1.name = "d1";
    faketools::DriverSpec d2 = d1;
    d2.name = "d2";
    writeMechanism("always", {d1, d2});
    GoalSpec bare;
    bare.hasMechanism = false;
    testutil::writeFile(path("comp.pos"), faketools::posXml("m", {{"G", {bare, bare, bare}}}));
    faketools::setAnswers(tools, "0 0 Proved\n0 1 Unknown\n0 2 Disproved\n");

    const testutil::RunResult first = testutil::runPovrun(args({"--first-play"}));
    EXPECT_EQ(first.exitCode, 0);
    EXPECT_EQ(first.err, "");
    const std::string report = "End of proof\n\nTOTAL for comp\t Proved 1\t Proved externally 1"
                               "\t Unreliably proved 0\t Disproved 1\t Unproved 1\n";
    EXPECT_EQ(first.out, "Proving comp with external mechanism m\n"
                         "\tProof driver d1, still 3 unproved PO\n\t\tG\n\t\t\t+-!\n\n"
                         "\tProof driver d2, still 1 unproved PO\n\t\tG\n\t\t\t-\n\n" +
                             report);

    QDomDocument doc = pos::documentOfFile(path("comp.pos"));
    pos::unprove(doc);
    testutil::writeFile(path("comp.pos"), doc.toByteArray(pos::XML_INDENT));
    const testutil::RunResult replay = testutil::runPovrun(args());
    EXPECT_EQ(replay.exitCode, 0);
    EXPECT_EQ(replay.err, "");
    EXPECT_EQ(replay.out, "Proving comp with external mechanism m\n"
                          "\tProof driver d1, still 3 unproved PO\n\t\tG\n\t\t\t+!\n\n"
                          "\tProof driver d2, still 1 unproved PO\n" +
                              report);
}

TEST_F(ReplayTest, TraceLevelOneTellsWhatHappens) {
    faketools::DriverSpec d;
    d.name = "d";
    writeMechanism("always", {d});
    const QByteArray pos = faketools::posXml("m", {{"G", {settledBy("d"), settledBy("d")}}});
    testutil::writeFile(path("comp.pos"), pos);
    const testutil::RunResult traced = testutil::runPovrun(args({"-t", "1", "-c", "2"}));
    EXPECT_EQ(traced.exitCode, 0);
    const QString log = QString::fromStdString(traced.err);
    EXPECT_EQ(log.count("-- ProofDirector -- Playing 0-th driver (d)\n"), 2) << traced.err;
    EXPECT_EQ(
        log.count(QRegularExpression("-- Proof Director -- Thread \\d+ writes entry \\d\\.\n")), 2)
        << traced.err;
    EXPECT_EQ(log.count("-- Proof Director -- Thread "), 4) << "writes and proves, per job";
    EXPECT_TRUE(log.contains("-- ProofDirector -- Issuing writing command " + tools.writer() +
                             " -a 0 1 -i " + path("comp.pog")));
    EXPECT_TRUE(log.contains("-- ProofDirector -- Saving new DOM in POS file " + path("comp.pos")));
    EXPECT_TRUE(log.endsWith("-- ProofDirector -- Destroyed ProofDirector for component comp\n"));

    testutil::writeFile(path("comp.pos"), pos);
    const testutil::RunResult quiet = testutil::runPovrun(args({"-t", "2"}));
    EXPECT_EQ(quiet.exitCode, 0);
    EXPECT_EQ(quiet.err.find("ProofDirector"), std::string::npos) << "only level 1 traces";
}

TEST_F(ReplayTest, FailedJobsAreLoggedAndLeaveTheirGoalsAlone) {
    struct Row {
        const char* name;
        QByteArray writer; // empty: the fake writer
        QByteArray prover;
        QByteArray reader;
        std::string log; // expected on stderr
        std::string marks;
    };
    const std::vector<Row> rows = {
        {"writer creates no file", "exit 3\n", "", "", "-- ProofDirector -- Secondary po ", "-"},
        {"writer crashes", "kill -SEGV $$\n", "", "", "-- ProofDirector -- Writer crashed.\n", "-"},
        {"prover crashes", "", "kill -SEGV $$\n", "", "Driver prover crashed.\n", ""},
        {"reader crashes", "", "", "cat >/dev/null; kill -SEGV $$\n", "Driver reader crashed.\n",
         ""},
        {"reader answers twice", "", "", "cat >/dev/null; echo Proved; echo Proved\n",
         "Unexpected number of results. Expected: 1 Found: 2\n", ""},
        {"reader answers garbage", "", "", "cat >/dev/null; echo proved\n", "", "-"},
        {"reader prints nothing", "", "", "cat >/dev/null\n", "", "-"},
    };
    for (const Row& row : rows) {
        faketools::DriverSpec d;
        d.name = "d";
        if (!row.writer.isEmpty()) {
            d.writer = path("w2.sh");
            testutil::writeScript(d.writer, row.writer);
        }
        if (!row.prover.isEmpty()) {
            d.prover = path("p2.sh");
            testutil::writeScript(d.prover, row.prover);
        }
        if (!row.reader.isEmpty()) {
            d.reader = path("r2.sh");
            testutil::writeScript(d.reader, row.reader);
        }
        writeMechanism("always", {d});
        testutil::writeFile(path("comp.pos"), faketools::posXml("m", {{"G", {settledBy("d")}}}));
        const testutil::RunResult r = testutil::runPovrun(args());
        EXPECT_EQ(r.exitCode, 0) << row.name;
        if (row.log.empty())
            EXPECT_EQ(r.err, "") << row.name;
        else
            EXPECT_NE(r.err.find(row.log), std::string::npos) << row.name << ": " << r.err;
        const std::string expectedMarks =
            row.marks.empty() ? "\n" : "\t\tG\n\t\t\t" + row.marks + "\n\n";
        EXPECT_NE(r.out.find("unproved PO\n" + expectedMarks + "End of proof"), std::string::npos)
            << row.name << ": " << r.out;
        EXPECT_EQ(goalStatus(0, 0), "Unproved") << row.name;
        EXPECT_EQ(leftInTmp(), QStringList()) << row.name;
    }
}

TEST_F(ReplayTest, ConcurrencyRunsEveryJobOnceWithTheSameResult) {
    std::vector<GroupSpec> groups;
    for (int g = 0; g < 4; ++g) {
        std::vector<GoalSpec> goals(10, settledBy("d"));
        groups.push_back({QStringLiteral("G%1").arg(g), goals});
    }
    const QByteArray pos = faketools::posXml("m", groups);
    faketools::setAnswers(tools, "1 3 Disproved\n2 5 Unknown\n3 9 garbage\n");
    for (const char* input : {"stdin", "file"}) {
        faketools::DriverSpec d;
        d.name = "d";
        d.input = input;
        writeMechanism("never", {d});
        QByteArray results[2];
        const char* levels[2] = {"1", "4"};
        for (int run = 0; run < 2; ++run) {
            testutil::writeFile(path("comp.pos"), pos);
            QFile::remove(tools.writerLog());
            const testutil::RunResult r = testutil::runPovrun(args({"-c", levels[run]}));
            EXPECT_EQ(r.exitCode, 0) << input << " -c " << levels[run];
            EXPECT_EQ(r.err, "");
            results[run] = testutil::readFile(path("comp.pos"));
            const QStringList calls = QString::fromUtf8(testutil::readFile(tools.writerLog()))
                                          .split('\n', Qt::SkipEmptyParts);
            EXPECT_EQ(calls.size(), 40) << input << " -c " << levels[run];
            EXPECT_EQ(QSet<QString>(calls.begin(), calls.end()).size(), 40) << "each job once";
            EXPECT_EQ(leftInTmp(), QStringList());
        }
        EXPECT_EQ(results[0], results[1]) << input;
        EXPECT_EQ(goalStatus(0, 0), "UnreliablyProved");
        EXPECT_EQ(goalStatus(1, 3), "Disproved");
        EXPECT_EQ(goalStatus(2, 5), "Unproved");
        EXPECT_EQ(goalStatus(3, 9), "Unproved");
    }
}

// SIGTERM ends with status 1; an interrupt or a hang-up ends by its own signal, after the
// same clean-up, so that a shell sees an interrupted command.
TEST_F(ReplayTest, TerminationKillsToolsRemovesFilesAndSavesTheDocument) {
    // The prover is a wrapper: it records its pid and that of the long sleep it starts.
    testutil::writeScript(path("slow.sh"),
                          "pids=\"$(dirname \"$0\")/pids\"\n"
                          "sleep 60 &\necho $$ >> \"$pids\"\necho $! >> \"$pids\"\n"
                          "wait\n");
    faketools::DriverSpec d;
    d.name = "d";
    d.prover = path("slow.sh");
    writeMechanism("never", {d});
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        const std::string name = strsignal(signal);
        QFile::remove(path("pids"));
        std::vector<GoalSpec> goals(6, settledBy("d"));
        testutil::writeFile(path("comp.pos"), faketools::posXml("m", {{"G", goals}}));

        const pid_t povrun = spawnQuietly(args({"-c", "4"}));
        ASSERT_GT(povrun, 0);
        QElapsedTimer waited;
        waited.start();
        QStringList pids;
        while (pids.size() < 8 && waited.elapsed() < 20000) {
            QThread::msleep(20);
            pids =
                QString::fromUtf8(testutil::readFile(path("pids"))).split('\n', Qt::SkipEmptyParts);
        }
        ASSERT_EQ(pids.size(), 8) << name << ": four workers run a prover";

        QElapsedTimer stopping;
        stopping.start();
        ::kill(povrun, signal);
        const int status = waitUpTo(povrun, 10000);
        EXPECT_LT(stopping.elapsed(), 3000) << name;
        if (signal == SIGTERM)
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1) << name << " " << status;
        else
            EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << name << " " << status;
        for (const QString& pid : pids)
            EXPECT_FALSE(isAlive(pid)) << name << ": process " << pid.toStdString();
        EXPECT_EQ(leftInTmp(), QStringList()) << name;
        const QDomDocument doc = pos::documentOfFile(path("comp.pos"));
        ASSERT_FALSE(doc.isNull()) << name;
        EXPECT_EQ(doc.documentElement().attribute("author"), "proof_director") << name;
        EXPECT_TRUE(pos::checkPosInvariant(doc)) << name;
    }
}
