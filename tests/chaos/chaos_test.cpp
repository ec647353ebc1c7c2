// Runs interrupted at random moments. SIGTERM, SIGINT and SIGHUP must leave a saved,
// consistent status file, no tool process and no secondary file. CHAOS_TRIALS sets the
// number of trials.

#include "common/scene.h"
#include "pos/pos.h"

#include <QDir>
#include <QElapsedTimer>
#include <QThread>
#include <QUuid>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <iostream>
#include <random>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

using scene::POS;

namespace {

// Starts povrun in `workDir` with outputs thrown away and `mark` in the environment of it
// and every tool it starts; SIGINT and SIGHUP get their default action back, since povrun
// keeps a signal ignored when it starts ignored (a background job of a script). -1 on failure.
pid_t spawnPovrun(const QStringList& args, const QString& workDir, const QByteArray& mark) {
    qputenv("POVRUN_TEST_MARK", mark);
    std::vector<std::string> words{POVRUN_BIN};
    for (const QString& arg : args)
        words.push_back(arg.toStdString());
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addchdir_np(&actions, workDir.toLocal8Bit().constData());
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
    qunsetenv("POVRUN_TEST_MARK");
    return pid;
}

// Pids of the live processes (zombies do not count) whose environment holds `mark`.
QStringList processesMarkedWith(const QByteArray& mark) {
    QStringList found;
    const QByteArray needle = "POVRUN_TEST_MARK=" + mark;
    for (const QString& pid : QDir("/proc").entryList(QDir::Dirs)) {
        const QByteArray stat = testutil::readFile("/proc/" + pid + "/stat");
        const int afterName = stat.lastIndexOf(')');
        if (pid.toInt() <= 0 || afterName < 0 || stat.mid(afterName + 2, 1) == "Z")
            continue;
        if (testutil::readFile("/proc/" + pid + "/environ").split('\0').contains(needle))
            found << pid;
    }
    return found;
}

int randomBetween(int low, int high) {
    static std::mt19937 generator(std::random_device{}());
    return std::uniform_int_distribution<int>(low, high)(generator);
}

// The scene with `groups` x `goals` goals for driver d, whose prover starts a process and
// takes a few milliseconds, and random answers (trust "always": no answer sequence can
// leave a goal inconsistent with its children).
struct Component : scene::Scene {
    Component(int groups, int goals) {
        testutil::writeScript(path("prover.sh"), "sleep 0.00$(( $$ % 9 + 1 ))\ncat\n");
        static const char* const kinds[] = {"Proved", "Disproved", "Unknown", "garbage"};
        QByteArray answers;
        std::vector<scene::GroupSpec> layout;
        for (int g = 0; g < groups; ++g) {
            layout.push_back({QStringLiteral("G%1").arg(g), {std::size_t(goals), scene::settledBy("d")}});
            for (int p = 0; p < goals; ++p)
                answers += QByteArray::number(g) + ' ' + QByteArray::number(p) + ' ' +
                           kinds[randomBetween(0, 3)] + '\n';
        }
        writePos(layout);
        setAnswers(answers);
    }
};

// The wait status of `pid`, killed when it has not ended after `ms`.
int waitUpTo(pid_t pid, int ms) {
    int status = 0;
    for (int waited = 0; waitpid(pid, &status, WNOHANG) == 0; waited += 10) {
        if (waited >= ms)
            ::kill(pid, SIGKILL);
        QThread::msleep(10);
    }
    return status;
}

// Tools ended by povrun may still be in the kernel's hands for a moment.
QStringList markedAfterSettling(const QByteArray& mark) {
    QStringList left = processesMarkedWith(mark);
    for (int waited = 0; !left.isEmpty() && waited < 1000; waited += 20) {
        QThread::msleep(20);
        left = processesMarkedWith(mark);
    }
    return left;
}

// One trial; returns the faults it found (none for a clean trial). SIGTERM ends with
// status 1; an interrupt or a hang-up ends by its own signal, after the same clean-up, so
// that a shell sees an interrupted command.
QStringList terminationTrial(int signal) {
    const int groups = 4, goals = 75;
    const Component component(groups, goals);
    const QByteArray mark = QUuid::createUuid().toByteArray(QUuid::WithoutBraces);
    const pid_t povrun = spawnPovrun(component.options + QStringList{"-c", "4"},
                                     component.dir.path(), mark);
    QElapsedTimer waited; // until the first save
    waited.start();
    while (povrun > 0 && !component.state(POS).contains("proof_director")) {
        if (waited.elapsed() > 30000 || waitpid(povrun, nullptr, WNOHANG) != 0)
            return {"no save before the signal"};
        QThread::msleep(5);
    }
    QThread::msleep(static_cast<unsigned long>(randomBetween(0, 400)));
    QElapsedTimer stopping;
    stopping.start();
    ::kill(povrun, signal);
    const int status = waitUpTo(povrun, 10000);
    QStringList faults;
    if (stopping.elapsed() > 3000)
        faults << QStringLiteral("took %1 ms to stop").arg(stopping.elapsed());
    const bool expectedEnd = signal == SIGTERM ? WIFEXITED(status) && WEXITSTATUS(status) == 1
                                               : WIFSIGNALED(status) && WTERMSIG(status) == signal;
    if (!expectedEnd)
        faults << QStringLiteral("wait status %1").arg(status);
    const QDomDocument doc = pos::documentOfFile(component.path(POS));
    if (doc.isNull()) {
        faults << "the status file does not parse";
    } else {
        if (!pos::checkPosInvariant(doc))
            faults << "a goal's status disagrees with its children";
        if (doc.documentElement().attribute("author") != "proof_director")
            faults << "author is not proof_director";
        if (doc.elementsByTagName("Simple_Goal").size() != groups * goals)
            faults << "goals were lost";
    }
    const QStringList alive = markedAfterSettling(mark);
    if (!alive.isEmpty())
        faults << "processes still alive: " + alive.join(' ');
    if (!component.leftInTmp().isEmpty())
        faults << "secondary files left: " + component.leftInTmp().join(' ');
    return faults;
}

} // namespace

TEST(Chaos, TerminationAtRandomMomentsLeavesNothingBehind) {
    const int trials = qEnvironmentVariableIsSet("CHAOS_TRIALS")
                           ? qEnvironmentVariableIntValue("CHAOS_TRIALS") : 21;
    const int stopSignals[] = {SIGTERM, SIGINT, SIGHUP};
    int clean = 0;
    for (int trial = 0; trial < trials; ++trial) {
        const int signal = stopSignals[trial % 3];
        const QStringList faults = terminationTrial(signal);
        for (const QString& fault : faults)
            ADD_FAILURE() << "trial " << trial << " (" << strsignal(signal)
                          << "): " << fault.toStdString();
        clean += faults.isEmpty() ? 1 : 0;
    }
    std::cout << clean << "/" << trials << " trials clean" << std::endl;
}
