// The example replayed end to end by the built povrun with the real solvers, the way
// scripts/demo runs it: first the z3 mechanism, then the portfolio on the same status file.

#include "exampletools.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using exampletools::goalOf;
using exampletools::mechanismStatus;

namespace {

struct GoalExpectation {
    const char* name;
    int group;
    int goal;
    const char* status;
    const char* mechanism;
    const char* mechanismStatus;
};

void expectGoals(const QString& pos, const std::vector<GoalExpectation>& rows) {
    for (const GoalExpectation& row : rows) {
        const QDomElement goal = goalOf(pos, row.group, row.goal);
        ASSERT_FALSE(goal.isNull()) << row.name;
        EXPECT_EQ(goal.attribute("status").toStdString(), row.status) << row.name;
        EXPECT_EQ(mechanismStatus(goal, row.mechanism).toStdString(), row.mechanismStatus)
            << row.name;
    }
}

} // namespace

TEST(ExampleRun, RealSolversProveDisproveAndGiveUp) {
    const QString z3 = QStandardPaths::findExecutable("z3");
    const QString cvc5 = QStandardPaths::findExecutable("cvc5");
    if (z3.isEmpty() || cvc5.isEmpty())
        GTEST_SKIP() << "z3 and cvc5 are needed for this test (scripts/demo installs them)";

    QTemporaryDir work;
    const QString pos = work.filePath("tank.pos");
    const QString resources = work.filePath("solvers.res");
    ASSERT_TRUE(QFile::copy(EXAMPLE_DIR "/tank.pos", pos));
    QFile::setPermissions(pos, QFile::permissions(pos) | QFileDevice::WriteOwner);
    ASSERT_TRUE(QDir(work.path()).mkdir("tmp"));
    testutil::writeFile(resources, ("ZDR*Proof*z3: " + z3 + "\nZDR*Proof*cvc5: " + cvc5 + "\n")
                                       .toUtf8());
    const QStringList common = {"-r", resources, "-i", QFileInfo(SMTWRITER_BIN).path(),
                                "-s", pos, "-p", EXAMPLE_DIR "/tank.pog",
                                "-d", work.filePath("tmp")};

    const testutil::RunResult first = testutil::runPovrun(
        common + QStringList{"-m", EXAMPLE_DIR "/z3.xml", "-c", "2"}, QString(), 180000);
    ASSERT_EQ(first.exitCode, 0) << first.out << first.err;
    EXPECT_NE(first.out.find("Proving tank with external mechanism z3\n"), std::string::npos)
        << first.out;
    expectGoals(pos, {
        {"a true goal is proved", 0, 4, "Proved", "z3", "Proved"},
        {"a goal that no longer holds is disproved", 1, 4, "Disproved", "z3", "Disproved"},
        {"the cubic goal runs out of time", 4, 3, "Unproved", "z3", "Unknown"},
        {"a goal z3 never settled is left alone", 1, 5, "Unproved", "z3", "Unproved"},
    });

    const testutil::RunResult second = testutil::runPovrun(
        common + QStringList{"-m", EXAMPLE_DIR "/portfolio.xml", "-x"}, QString(), 180000);
    ASSERT_EQ(second.exitCode, 0) << second.out << second.err;
    EXPECT_EQ(second.out.rfind("<proof>\n", 0), 0u) << second.out;
    EXPECT_EQ(second.out.substr(second.out.size() - 9), "</proof>\n") << second.out;
    expectGoals(pos, {
        {"both solvers prove it", 1, 5, "Proved", "portfolio", "Proved"},
        {"only z3 was asked", 2, 3, "UnreliablyProved", "portfolio", "UnreliablyProved"},
        {"z3 disproves it", 3, 4, "Disproved", "portfolio", "Disproved"},
        {"neither solver settles the cubic goal", 4, 3, "Unproved", "portfolio", "Unknown"},
        {"proved by the environment", 0, 0, "Proved", "portfolio", "Unproved"},
        {"never settled by any driver", 2, 7, "Unproved", "portfolio", "Unproved"},
    });
}
