// Runs interrupted at random moments. SIGTERM, SIGINT and SIGHUP must leave a saved,
// consistent status file, no tool process and no secondary file; SIGKILL a whole one.
// CHAOS_TRIALS sets the number of trials.

#include "common/scene.h"
#include "pos/pos.h"

#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QThread>
#include <QUuid>
#include <csignal>
#include <cstring>
#include <gtest/gtest.h>
#include <iostream>
#include <random>

using scene::POS;

namespace {

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
            layout.push_back(
                {QStringLiteral("G%1").arg(g), {std::size_t(goals), scene::settledBy("d")}});
            for (int p = 0; p < goals; ++p)
                answers += QByteArray::number(g) + ' ' + QByteArray::number(p) + ' ' +
                           kinds[randomBetween(0, 3)] + '\n';
        }
        writePos(layout);
        setAnswers(answers);
    }
};

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
    // The mark is in the environment of povrun and of every tool it starts.
    QProcess povrun;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("POVRUN_TEST_MARK", mark);
    povrun.setProcessEnvironment(environment);
    povrun.setWorkingDirectory(component.dir.path());
    povrun.setStandardOutputFile(QProcess::nullDevice());
    povrun.setStandardErrorFile(QProcess::nullDevice());
    povrun.start(POVRUN_BIN, component.options + QStringList{"-c", "4"});
    QElapsedTimer waited; // until the first save
    waited.start();
    while (!component.state(POS).contains("proof_director")) {
        if (waited.elapsed() > 30000 || povrun.waitForFinished(5))
            return {"no save before the signal"};
    }
    QThread::msleep(static_cast<unsigned long>(randomBetween(0, 400)));
    ::kill(static_cast<pid_t>(povrun.processId()), signal);
    QStringList faults;
    if (!povrun.waitForFinished(3000))
        faults << "took more than 3 s to stop";
    povrun.kill();
    povrun.waitForFinished();
    const bool expectedEnd = signal == SIGTERM ? povrun.exitStatus() == QProcess::NormalExit
                                               : povrun.exitStatus() == QProcess::CrashExit;
    if (!expectedEnd || povrun.exitCode() != (signal == SIGTERM ? 1 : signal))
        faults << QStringLiteral("exit status %1, code %2")
                      .arg(povrun.exitStatus())
                      .arg(povrun.exitCode());
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
    if (signal == SIGKILL) {
        // Nothing cleans up after SIGKILL, but the file on disk must still be whole.
        for (const QString& pid : processesMarkedWith(mark))
            ::kill(static_cast<pid_t>(pid.toInt()), SIGKILL);
        return faults;
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
    // povrun keeps a signal ignored when it starts ignored (a background job of a script).
    signal(SIGINT, SIG_DFL);
    signal(SIGHUP, SIG_DFL);
    const int trials = qEnvironmentVariableIsSet("CHAOS_TRIALS")
                           ? qEnvironmentVariableIntValue("CHAOS_TRIALS")
                           : 24;
    const int stopSignals[] = {SIGTERM, SIGINT, SIGHUP, SIGKILL};
    int clean = 0;
    for (int trial = 0; trial < trials; ++trial) {
        const int signal = stopSignals[trial % 4];
        const QStringList faults = terminationTrial(signal);
        for (const QString& fault : faults)
            ADD_FAILURE() << "trial " << trial << " (" << strsignal(signal)
                          << "): " << fault.toStdString();
        clean += faults.isEmpty() ? 1 : 0;
    }
    std::cout << clean << "/" << trials << " trials clean" << std::endl;
}
