// Runs interrupted at random moments. SIGTERM, SIGINT and SIGHUP must leave a saved,
// consistent status file, no tool process and no secondary file; SIGKILL a whole one.
// CHAOS_TRIALS sets the number of trials.

#include "common/scene.h"
#include "pos/pos.h"

#include <QDir>
#include <QProcess>
#include <QThread>
#include <QUuid>
#include <csignal>
#include <cstring>
#include <gtest/gtest.h>
#include <random>

using scene::POS;

namespace {

std::mt19937 random(std::random_device{}());

// Pids of the live processes (zombies do not count) marked with `mark`, once there are none
// or `waitMs` have passed: tools ended by povrun may still be in the kernel's hands a moment.
QStringList processesMarkedWith(const QByteArray& mark, int waitMs) {
    const QByteArray needle = "POVRUN_TEST_MARK=" + mark;
    for (int waited = 0;; waited += 20, QThread::msleep(20)) {
        QStringList found;
        for (const QString& pid : QDir("/proc").entryList(QDir::Dirs)) {
            const QByteArray stat = testutil::readFile("/proc/" + pid + "/stat");
            const int afterName = stat.lastIndexOf(')');
            if (pid.toInt() > 0 && afterName >= 0 && stat.mid(afterName + 2, 1) != "Z" &&
                testutil::readFile("/proc/" + pid + "/environ").split('\0').contains(needle))
                found << pid;
        }
        if (found.isEmpty() || waited >= waitMs)
            return found;
    }
}

// One trial on 4 groups of 75 goals; the prover takes a few milliseconds and the answers
// are random (trust "always" keeps any answers consistent). SIGTERM ends with status 1; an
// interrupt or a hang-up ends by its own signal, after the same clean-up, so that a shell
// sees an interrupted command.
void terminationTrial(int signal) {
    scene::Scene s;
    testutil::writeScript(s.path("prover.sh"), "sleep 0.00$(( $$ % 9 + 1 ))\ncat\n");
    const char* const kinds[] = {"Proved", "Disproved", "Unknown", "garbage"};
    QString answers;
    for (int goal = 0; goal < 300; ++goal)
        answers +=
            QStringLiteral("%1 %2 %3\n").arg(goal / 75).arg(goal % 75).arg(kinds[random() % 4]);
    s.setAnswers(answers.toUtf8());
    s.writePos(std::vector<scene::GroupSpec>(4, {"G", {75, scene::settledBy("d")}}));
    // The mark is in the environment of povrun and of every tool it starts.
    const QByteArray mark = QUuid::createUuid().toByteArray();
    QProcess povrun;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("POVRUN_TEST_MARK", mark);
    povrun.setProcessEnvironment(environment);
    povrun.setWorkingDirectory(s.dir.path());
    povrun.setStandardOutputFile(s.path("out"));
    povrun.setStandardErrorFile(QProcess::nullDevice());
    povrun.start(POVRUN_BIN, s.options + QStringList{"-c", "4"});
    for (int waited = 0; !s.state(POS).contains("proof_director"); waited += 5) // the first save
        ASSERT_FALSE(waited > 30000 || povrun.waitForFinished(5)) << "no save";
    QThread::msleep(random() % 401);
    ::kill(static_cast<pid_t>(povrun.processId()), signal);
    // A stop may give the tools 1 s to end and the workers 2 s to reap them, then saves; a
    // machine busy with other tests' solvers and fsyncs can stretch that past 3 s.
    EXPECT_TRUE(povrun.waitForFinished(6000)) << "took more than 6 s to stop";
    povrun.kill();
    povrun.waitForFinished();
    EXPECT_EQ(povrun.exitStatus(), signal == SIGTERM ? QProcess::NormalExit : QProcess::CrashExit);
    EXPECT_EQ(povrun.exitCode(), signal == SIGTERM ? 1 : signal);
    const QDomDocument doc = pos::documentOfFile(s.path(POS));
    EXPECT_TRUE(pos::checkPosInvariant(doc)) << "a goal's status disagrees with its children";
    EXPECT_EQ(doc.documentElement().attribute("author"), "proof_director");
    EXPECT_EQ(doc.elementsByTagName("Simple_Goal").size(), 300) << "goals were lost";
    if (signal == SIGKILL) { // nothing cleans up after it, but the file must still be whole
        for (const QString& pid : processesMarkedWith(mark, 0))
            ::kill(static_cast<pid_t>(pid.toInt()), SIGKILL);
        return;
    }
    EXPECT_EQ(processesMarkedWith(mark, 1000), QStringList()) << "processes still alive";
    EXPECT_EQ(s.leftInTmp(), QStringList()) << "secondary files left";
    // A verdict is recorded and printed under the lock that the stop saves under: each one
    // printed is in the file, and no other.
    const QByteArray out = s.state("out"), saved = s.state(POS);
    EXPECT_EQ(out.count('+'), saved.count("Goal status=\"Proved\""));
    EXPECT_EQ(out.count('!'), saved.count("Goal status=\"Disproved\""));
}

} // namespace

TEST(Chaos, TerminationAtRandomMomentsLeavesNothingBehind) {
    // povrun keeps a signal ignored when it starts ignored (a background job of a script).
    signal(SIGINT, SIG_DFL);
    signal(SIGHUP, SIG_DFL);
    const int trials = qEnvironmentVariableIsSet("CHAOS_TRIALS")
                           ? qEnvironmentVariableIntValue("CHAOS_TRIALS")
                           : 24;
    const int stopSignals[] = {SIGTERM, SIGINT, SIGHUP, SIGKILL};
    for (int trial = 0; trial < trials; ++trial) {
        SCOPED_TRACE(testing::Message()
                     << "trial " << trial << ", " << strsignal(stopSignals[trial % 4]));
        terminationTrial(stopSignals[trial % 4]);
    }
}
