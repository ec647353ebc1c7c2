// Runs interrupted at random moments. SIGTERM, SIGINT and SIGHUP must leave a saved,
// consistent status file, no tool process and no secondary file; SIGKILL a whole one.
// CHAOS_TRIALS sets the number of trials.

#include "common/scene.h"
#include "pos/pos.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QThread>
#include <QUuid>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <random>
#include <sys/stat.h>
#include <unistd.h>

using scene::POS;

namespace {

std::mt19937 random(std::random_device{}());

// Pids of the processes whose state letter and parent (from /proc) pass `keep`.
QStringList processesWhere(const std::function<bool(const QString&, char, qint64)>& keep) {
    QStringList found;
    for (const QString& pid : QDir("/proc").entryList(QDir::Dirs)) {
        const QByteArray stat = testutil::readFile("/proc/" + pid + "/stat");
        const QList<QByteArray> fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
        if (pid.toInt() > 0 && fields.size() > 1 && keep(pid, fields[0][0], fields[1].toLongLong()))
            found << pid;
    }
    return found;
}

// Pids of the live processes (zombies do not count) marked with `mark`, once there are none
// or `waitMs` have passed: tools ended by povrun may still be in the kernel's hands a moment.
QStringList processesMarkedWith(const QByteArray& mark, int waitMs) {
    const QByteArray needle = "POVRUN_TEST_MARK=" + mark;
    for (int waited = 0;; waited += 20, QThread::msleep(20)) {
        const QStringList found = processesWhere([&](const QString& pid, char state, qint64) {
            return state != 'Z' &&
                   testutil::readFile("/proc/" + pid + "/environ").split('\0').contains(needle);
        });
        if (found.isEmpty() || waited >= waitMs)
            return found;
    }
}

// How povrun's standard output is wired in a trial, and what ends the run.
enum class Ending {
    SIGNAL,        // into a file; the trial's signal
    IGNORED_FIRST, // as a shell's background job: SIGINT and SIGHUP ignored, then SIGTERM
    HEAD,          // `| head -c 100`: the reader leaves
    FULL_PIPE,     // into a pipe nobody reads, nearly full from the start; then SIGTERM
};

// Runs povrun through bash, wired as `ending` says, in `s`'s folder.
void startPovrun(QProcess& povrun, const scene::Scene& s, const QByteArray& mark, Ending ending) {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("POVRUN_TEST_MARK", mark);
    povrun.setProcessEnvironment(environment);
    povrun.setWorkingDirectory(s.dir.path());
    povrun.setStandardErrorFile(QProcess::nullDevice());
    const QString script = ending == Ending::HEAD        ? "\"$0\" \"$@\" | head -c 100 >out; "
                                                           "exit ${PIPESTATUS[0]}"
                           : ending == Ending::FULL_PIPE ? "exec \"$0\" \"$@\" >fifo"
                                                         : "exec \"$0\" \"$@\" >out";
    const bool ignoring = ending == Ending::IGNORED_FIRST;
    signal(SIGINT, ignoring ? SIG_IGN : SIG_DFL);
    signal(SIGHUP, ignoring ? SIG_IGN : SIG_DFL);
    povrun.start("bash",
                 QStringList{"-c", script, POVRUN_BIN} + s.options + QStringList{"-c", "4"});
    povrun.waitForStarted();
    signal(SIGINT, SIG_DFL);
    signal(SIGHUP, SIG_DFL);
}

// A pipe that holds only a few more lines, for povrun's standard output.
int nearlyFullPipe(const QString& path) {
    mkfifo(QFile::encodeName(path).constData(), 0600);
    const int fd = open(QFile::encodeName(path).constData(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    fcntl(fd, F_SETPIPE_SZ, 4096);
    const QByteArray filler(4000, '.');
    EXPECT_EQ(write(fd, filler.constData(), filler.size()), filler.size());
    return fd;
}

void expectStatus(const QProcess& povrun, int signal, Ending ending) {
    const bool term = ending != Ending::SIGNAL || signal == SIGTERM;
    // bash passes on povrun's death by SIGPIPE as a status.
    EXPECT_EQ(povrun.exitCode(), ending == Ending::HEAD ? 128 + SIGPIPE : term ? 1 : signal);
    EXPECT_EQ(povrun.exitStatus(), term ? QProcess::NormalExit : QProcess::CrashExit);
}

// One trial on 4 groups of 75 goals; the prover takes a few milliseconds and the answers
// are random (trust "always" keeps any answers consistent). SIGTERM ends with status 1; an
// interrupt, a hang-up or a reader that leaves ends by its own signal, after the same
// clean-up, so that a shell sees an interrupted command.
void terminationTrial(int signal, Ending ending = Ending::SIGNAL) {
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
    const int pipe = ending == Ending::FULL_PIPE ? nearlyFullPipe(s.path("fifo")) : -1;
    QProcess povrun;
    startPovrun(povrun, s, mark, ending);
    for (int waited = 0; ending != Ending::HEAD && !s.state(POS).contains("proof_director");
         waited += 5) // the first save
        ASSERT_FALSE(waited > 30000 || povrun.waitForFinished(5)) << "no save";
    QThread::msleep(random() % 401);
    const pid_t pid = static_cast<pid_t>(povrun.processId());
    if (ending == Ending::IGNORED_FIRST) {
        ::kill(pid, SIGINT);
        ::kill(pid, SIGHUP);
        QThread::msleep(100);
    }
    if (ending != Ending::HEAD)
        ::kill(pid, ending == Ending::SIGNAL ? signal : SIGTERM);
    // A stop may give the tools 1 s to end and then 2 s to be reaped, then saves; a
    // machine busy with other tests' solvers and fsyncs, and ThreadSanitizer's slower
    // povrun, can stretch that past 6 s. A stop that hangs still fails.
    EXPECT_TRUE(povrun.waitForFinished(ending == Ending::HEAD ? 30000 : 10000)) << "took too long";
    povrun.kill();
    povrun.waitForFinished();
    expectStatus(povrun, signal, ending);
    const QDomDocument doc = pos::documentOfFile(s.path(POS));
    EXPECT_TRUE(pos::checkPosInvariant(doc)) << "a goal's status disagrees with its children";
    EXPECT_EQ(doc.documentElement().attribute("author"), "proof_director");
    EXPECT_EQ(doc.elementsByTagName("Simple_Goal").size(), 300) << "goals were lost";
    if (signal == SIGKILL && ending == Ending::SIGNAL) { // nothing cleans up after it
        for (const QString& pid : processesMarkedWith(mark, 0))
            ::kill(static_cast<pid_t>(pid.toInt()), SIGKILL);
        return;
    }
    EXPECT_EQ(processesMarkedWith(mark, 1000).join(' ').toStdString(), "")
        << "processes still alive";
    EXPECT_EQ(s.leftInTmp().join(' ').toStdString(), "") << "secondary files left";
    // A verdict is recorded under the lock that the stop saves under, and printed after:
    // each one printed is in the file.
    const QByteArray out = s.state("out"), saved = s.state(POS);
    EXPECT_LE(out.count('+'), saved.count("Goal status=\"Proved\""));
    EXPECT_LE(out.count('!'), saved.count("Goal status=\"Disproved\""));
    if (pipe >= 0)
        close(pipe);
}

} // namespace

TEST(Chaos, TerminationAtRandomMomentsLeavesNothingBehind) {
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

// A signal the shell ignores stays ignored; a reader that leaves, or one that stops
// reading, never keeps povrun from stopping cleanly.
TEST(Chaos, IgnoredSignalsAndStalledOrClosedOutputStillStopCleanly) {
    const Ending endings[] = {Ending::IGNORED_FIRST, Ending::HEAD, Ending::FULL_PIPE};
    for (int trial = 0; trial < 6; ++trial) {
        SCOPED_TRACE(testing::Message() << "trial " << trial << ", ending " << trial % 3);
        terminationTrial(SIGTERM, endings[trial % 3]);
    }
}

// A prover that leaves a background child in each of 400 jobs: povrun reaps those orphans
// as they end, so zombies never pile up (they would exhaust the process limit of a large
// replay), and none outlives the run.
TEST(Chaos, OrphansOfToolsNeverPileUpAsZombies) {
    scene::Scene s;
    testutil::writeScript(s.path("prover.sh"), "(sleep 0.01 &)\ncat\n");
    s.writePos(std::vector<scene::GroupSpec>(4, {"G", {100, scene::settledBy("d")}}));
    const QByteArray mark = QUuid::createUuid().toByteArray();
    QProcess povrun;
    startPovrun(povrun, s, mark, Ending::SIGNAL);
    int most = 0;
    while (!povrun.waitForFinished(20))
        most = std::max<int>(most, processesWhere([&](const QString&, char state, qint64 parent) {
                                       return state == 'Z' && parent == povrun.processId();
                                   }).size());
    EXPECT_EQ(povrun.exitCode(), 0);
    EXPECT_LE(most, 8) << "zombies piled up";
    EXPECT_EQ(processesMarkedWith(mark, 1000).join(' ').toStdString(), "");
}
