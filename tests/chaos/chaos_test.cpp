// Runs interrupted at random moments. SIGTERM must leave a saved, consistent status file,
// no tool process and no secondary file; SIGKILL must leave a complete status file.
// CHAOS_TRIALS and CRASH_TRIALS set the number of trials (bench/chaos runs many).

#include "common/faketools.h"
#include "common/testutil.h"
#include "pos/pos.h"

#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QProcess>
#include <QProcessEnvironment>
#include <QTemporaryDir>
#include <QThread>
#include <QUuid>
#include <csignal>
#include <gtest/gtest.h>
#include <iostream>
#include <random>

using faketools::GoalSpec;
using faketools::GroupSpec;

namespace {

int trialsFrom(const char* variable, int fallback) {
    const QByteArray value = qgetenv(variable);
    return value.isEmpty() ? fallback : value.toInt();
}

std::mt19937& randomness() {
    static std::mt19937 generator(std::random_device{}());
    return generator;
}

int randomBetween(int low, int high) {
    return std::uniform_int_distribution<int>(low, high)(randomness());
}

// Pids of the live processes whose environment carries `mark`.
QStringList processesMarkedWith(const QByteArray& mark) {
    QStringList found;
    const QByteArray needle = "POVRUN_CHAOS_MARK=" + mark;
    for (const QString& pid : QDir("/proc").entryList(QDir::Dirs)) {
        if (pid.toInt() <= 0)
            continue;
        const QByteArray stat = testutil::readFile("/proc/" + pid + "/stat");
        const int afterName = stat.lastIndexOf(')');
        if (afterName < 0 || stat.mid(afterName + 2, 1) == "Z")
            continue;
        if (testutil::readFile("/proc/" + pid + "/environ").split('\0').contains(needle))
            found << pid;
    }
    return found;
}

QStringList markedAfterSettling(const QByteArray& mark) {
    QElapsedTimer waited;
    waited.start();
    QStringList left = processesMarkedWith(mark);
    while (!left.isEmpty() && waited.elapsed() < 1000) {
        QThread::msleep(20);
        left = processesMarkedWith(mark);
    }
    return left;
}

// A component of `groups` x `goals` goals, each replayable by driver "d" of mechanism "m"
// (trust "always": no answer sequence can leave a goal inconsistent with its children).
class Component {
public:
    Component(int groups, int goals, const QByteArray& answers) {
        tools = faketools::writeTools(dir.path());
        // The prover is a wrapper that starts other processes and takes a few milliseconds.
        testutil::writeScript(path("prover.sh"), "sleep 0.00$(( $$ % 9 + 1 ))\ncat\n");
        faketools::setAnswers(tools, answers);
        faketools::DriverSpec driver;
        driver.name = "d";
        driver.writer = tools.writer();
        driver.prover = path("prover.sh");
        driver.reader = tools.reader();
        testutil::writeFile(path("m.xml"), faketools::mechanismXml("always", {driver}));
        GoalSpec goal;
        goal.drivers = {{"d", "Proved"}};
        std::vector<GroupSpec> layout;
        for (int g = 0; g < groups; ++g)
            layout.push_back({QStringLiteral("G%1").arg(g), std::vector<GoalSpec>(goals, goal)});
        testutil::writeFile(path("comp.pos"), faketools::posXml("m", layout));
        testutil::writeFile(path("comp.pog"), "");
        QDir(dir.path()).mkdir("tmp");
    }

    QString path(const QString& name) const { return dir.filePath(name); }

    // Starts povrun with a mark in its environment that every tool inherits.
    void start(QProcess& povrun, const QByteArray& mark, int concurrency) const {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("POVRUN_CHAOS_MARK", QString::fromLatin1(mark));
        povrun.setProcessEnvironment(environment);
        povrun.setStandardOutputFile(QProcess::nullDevice());
        povrun.start(POVRUN_BIN,
                     {"-m", path("m.xml"), "-s", path("comp.pos"), "-p", path("comp.pog"), "-d",
                      path("tmp"), "-c", QString::number(concurrency)});
        povrun.waitForStarted();
    }

    // Waits until povrun has saved the status file once.
    bool waitForFirstSave(QProcess& povrun) const {
        QElapsedTimer waited;
        waited.start();
        while (waited.elapsed() < 30000 && povrun.state() == QProcess::Running) {
            if (testutil::readFile(path("comp.pos")).contains("proof_director"))
                return true;
            QThread::msleep(5);
        }
        return false;
    }

    int goalCount() const {
        const QDomDocument doc = pos::documentOfFile(path("comp.pos"));
        return doc.elementsByTagName("Simple_Goal").size();
    }

    QTemporaryDir dir;
    faketools::ToolSet tools;
};

QByteArray randomAnswers(int groups, int goals) {
    static const char* const kinds[] = {"Proved", "Disproved", "Unknown", "garbage"};
    QByteArray answers;
    for (int g = 0; g < groups; ++g)
        for (int p = 0; p < goals; ++p)
            answers += QByteArray::number(g) + ' ' + QByteArray::number(p) + ' ' +
                       kinds[randomBetween(0, 3)] + '\n';
    return answers;
}

// One SIGTERM trial; returns the faults it found (none for a clean trial).
QStringList terminationTrial(int trial) {
    const int groups = 4;
    const int goals = 75;
    Component component(groups, goals, randomAnswers(groups, goals));
    const QByteArray mark = QUuid::createUuid().toByteArray(QUuid::WithoutBraces);
    QProcess povrun;
    component.start(povrun, mark, 4);
    QStringList faults;
    if (!component.waitForFirstSave(povrun))
        faults << "no save before the signal";
    QThread::msleep(static_cast<unsigned long>(randomBetween(0, 400)));
    ::kill(static_cast<pid_t>(povrun.processId()), SIGTERM);
    if (!povrun.waitForFinished(10000)) {
        povrun.kill();
        povrun.waitForFinished();
        faults << "povrun did not end within 10 s";
    }
    if (povrun.exitStatus() != QProcess::NormalExit || povrun.exitCode() != 1)
        faults << QStringLiteral("exit status %1 (crashed: %2): %3")
                      .arg(povrun.exitCode())
                      .arg(povrun.exitStatus() != QProcess::NormalExit)
                      .arg(QString::fromUtf8(povrun.readAllStandardError().right(3000)));
    const QDomDocument doc = pos::documentOfFile(component.path("comp.pos"));
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
    const QStringList left = QDir(component.path("tmp")).entryList(QDir::Files);
    if (!left.isEmpty())
        faults << "secondary files left: " + left.join(' ');
    for (QString& fault : faults)
        fault = QStringLiteral("trial %1: %2").arg(trial).arg(fault);
    return faults;
}

} // namespace

TEST(Chaos, TerminationAtRandomMomentsLeavesNothingBehind) {
    const int trials = trialsFrom("CHAOS_TRIALS", 20);
    int clean = 0;
    for (int trial = 0; trial < trials; ++trial) {
        const QStringList faults = terminationTrial(trial);
        for (const QString& fault : faults)
            ADD_FAILURE() << fault.toStdString();
        clean += faults.isEmpty() ? 1 : 0;
    }
    std::cout << clean << "/" << trials << " trials clean" << std::endl;
    EXPECT_EQ(clean, trials);
}

TEST(Chaos, KillDuringSavesLeavesACompleteStatusFile) {
    const int trials = trialsFrom("CRASH_TRIALS", 10);
    const int groups = 20;
    const int goals = 50;
    Component component(groups, goals, QByteArray());
    const QByteArray original = testutil::readFile(component.path("comp.pos"));
    for (int trial = 0; trial < trials; ++trial) {
        testutil::writeFile(component.path("comp.pos"), original);
        const QByteArray mark = QUuid::createUuid().toByteArray(QUuid::WithoutBraces);
        QProcess povrun;
        component.start(povrun, mark, 2);
        ASSERT_TRUE(component.waitForFirstSave(povrun)) << "trial " << trial;
        QThread::msleep(static_cast<unsigned long>(randomBetween(0, 300)));
        ::kill(static_cast<pid_t>(povrun.processId()), SIGKILL);
        povrun.waitForFinished();
        const QDomDocument doc = pos::documentOfFile(component.path("comp.pos"));
        ASSERT_FALSE(doc.isNull()) << "trial " << trial << ": the status file does not parse";
        EXPECT_EQ(doc.elementsByTagName("Simple_Goal").size(), groups * goals) << "trial " << trial;
        EXPECT_TRUE(pos::checkPosInvariant(doc)) << "trial " << trial;
        // Nothing stops the orphaned tools of a killed run: end them before the next trial.
        for (const QString& pid : processesMarkedWith(mark))
            ::kill(static_cast<pid_t>(pid.toInt()), SIGKILL);
    }
}
