// The example replayed by the built povrun with the real solvers, the way scripts/demo runs
// it: first the z3 mechanism, then the portfolio on the same status file.

#include "common/testutil.h"

#include <QDomDocument>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace {

// "goal status/mechanism status" of Simple_Goal number `goal` of Proof_Obligation number
// `group` (both from 0) in the .pos at `path`.
std::string statusOf(const QString& path, int group, int goal, const QString& mechanism) {
    QDomDocument pos;
    pos.setContent(testutil::readFile(path));
    const QDomElement element = pos.elementsByTagName("Proof_Obligation")
                                    .at(group)
                                    .toElement()
                                    .elementsByTagName("Simple_Goal")
                                    .at(goal)
                                    .toElement();
    QString status = element.attribute("status") + "/";
    const QDomNodeList mechanisms = element.elementsByTagName("Mechanism");
    for (int i = 0; i < mechanisms.size(); ++i)
        if (mechanisms.at(i).toElement().attribute("name") == mechanism)
            status += mechanisms.at(i).toElement().attribute("status");
    return status.toStdString();
}

} // namespace

TEST(ExampleRun, RealSolversProveDisproveAndGiveUp) {
    const QString z3 = QStandardPaths::findExecutable("z3");
    const QString cvc5 = QStandardPaths::findExecutable("cvc5");
    if (z3.isEmpty() || cvc5.isEmpty())
        GTEST_SKIP() << "z3 and cvc5 are needed for this test (scripts/demo installs them)";
    QTemporaryDir work;
    const QString pos = work.filePath("tank.pos"), res = work.filePath("solvers.res");
    ASSERT_TRUE(QFile::copy(EXAMPLE_DIR "/tank.pos", pos));
    QFile::setPermissions(pos, QFile::permissions(pos) | QFileDevice::WriteOwner);
    testutil::writeFile(res, ("ZDR*Proof*z3: " + z3 + "\nZDR*Proof*cvc5: " + cvc5 + "\n").toUtf8());
    QStringList common = {"-r", res, "-i", QFileInfo(SMTWRITER_BIN).path()};
    common << "-d" << work.path() << "-s" << pos << "-p" << EXAMPLE_DIR "/tank.pog";
    for (const QStringList& run : {QStringList{"-m", EXAMPLE_DIR "/z3.xml", "-c", "2"},
                                   QStringList{"-m", EXAMPLE_DIR "/portfolio.xml", "-x"}}) {
        const testutil::RunResult r = testutil::runPovrun(common + run, QString(), 180000);
        ASSERT_EQ(r.exitCode, 0) << r.out << r.err;
    }
    // Each goal's status, then that of its element for the mechanism.
    const std::tuple<const char*, const char*, int, int, const char*> goals[] = {
        {"z3 proves a true goal", "z3", 0, 4, "Proved/Proved"},
        {"z3 disproves a false one", "z3", 1, 4, "Disproved/Disproved"},
        {"the cubic goal runs out of time", "z3", 4, 3, "Unproved/Unknown"},
        {"both solvers prove a goal z3 had left", "portfolio", 1, 5, "Proved/Proved"},
        {"only z3 was asked", "portfolio", 2, 3, "UnreliablyProved/UnreliablyProved"},
        {"neither solver settles the cubic goal", "portfolio", 4, 3, "Unproved/Unknown"},
    };
    for (const auto& [name, mechanism, group, goal, status] : goals)
        EXPECT_EQ(statusOf(pos, group, goal, mechanism), status) << name;
}
