// The example as a user meets it: installed with cmake --install, then replayed by its
// own script (the one the manual page and the README quote) against the installed tree.

#include "common/testutil.h"
#include "pos/pos.h"

#include <QFileInfo>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <gtest/gtest.h>

TEST(ExampleRun, InstalledExampleScriptProvesDisprovesAndGivesUp) {
    if (QStandardPaths::findExecutable("z3").isEmpty() ||
        QStandardPaths::findExecutable("cvc5").isEmpty())
        GTEST_SKIP() << "z3 and cvc5 are needed for this test (scripts/demo installs them)";
    QTemporaryDir prefix, work;
    const auto install =
        testutil::run(CMAKE_COMMAND, {"--install", POVRUN_BUILD_DIR, "--prefix", prefix.path()});
    ASSERT_EQ(install.exitCode, 0) << install.out << install.err;
    for (const char* installed :
         {"bin/povrun", "lib/povrun/smtwriter", "lib/povrun/smtreader",
          "share/man/man1/povrun.1.gz", "share/bash-completion/completions/povrun",
          "share/doc/povrun/copyright", "share/doc/povrun/README.md"})
        EXPECT_TRUE(QFileInfo(prefix.filePath(installed)).isFile()) << installed;
    // gzip -9n: no file name and no time stamp in the header.
    EXPECT_EQ(testutil::readFile(prefix.filePath("share/man/man1/povrun.1.gz")).mid(3, 5),
              QByteArray(5, '\0'));

    // A goal the obligation file lacks (a status file of another component) is refused.
    const QString pog = prefix.filePath("share/doc/povrun/examples/tank.pog");
    const auto refused = testutil::run(prefix.filePath("lib/povrun/smtwriter"),
                                       {"-a", "1", "8", "-i", pog, "-o", work.filePath("x")});
    EXPECT_EQ(std::to_string(refused.exitCode) + refused.err,
              "1smtwriter: " + pog.toStdString() +
                  ": no goal 8 of group 1 \"fill\": it has 8 goals\n");
    // A writer reads only as far as its goals: what follows them is never its concern.
    QByteArray cut = testutil::readFile(pog);
    cut.truncate(cut.indexOf("</group>", cut.indexOf("</group>") + 1) + 8);
    testutil::writeFile(work.filePath("cut.pog"), cut);
    const auto early = testutil::run(
        prefix.filePath("lib/povrun/smtwriter"),
        {"-a", "1", "7", "-i", work.filePath("cut.pog"), "-o", work.filePath("cut.smt2")});
    EXPECT_EQ(early.exitCode, 0) << early.err;
    const auto r = testutil::run(prefix.filePath("share/doc/povrun/examples/run-example.sh"),
                                 {"ex"}, work.path(), {}, 180000);
    ASSERT_TRUE(r.exitCode == 0 && r.err.empty()) << r.out << r.err;
    const QDomDocument doc = pos::documentOfFile(work.filePath("ex/tank.pos"));
    // Each goal's status, then that of its element for the mechanism; group and goal from 0.
    const std::tuple<const char*, const char*, int, int, const char*> goals[] = {
        {"z3 proves a true goal", "z3", 0, 4, "Proved/Proved"},
        {"z3 disproves a false one", "z3", 1, 4, "Disproved/Disproved"},
        {"the cubic goal runs out of time", "z3", 4, 3, "Unproved/Unknown"},
        {"both solvers prove a goal z3 had left", "portfolio", 1, 5, "Proved/Proved"},
        {"only z3 was asked", "portfolio", 2, 3, "UnreliablyProved/UnreliablyProved"},
        {"neither solver settles the cubic goal", "portfolio", 4, 3, "Unproved/Unknown"},
    };
    const QDomNodeList groups = doc.elementsByTagName("Proof_Obligation");
    for (const auto& [name, mechanism, group, goal, status] : goals) {
        const QDomElement g =
            groups.at(group).toElement().elementsByTagName("Simple_Goal").at(goal).toElement();
        QDomElement m = g.firstChildElement("Mechanism");
        while (!m.isNull() && m.attribute("name") != mechanism)
            m = m.nextSiblingElement("Mechanism");
        EXPECT_EQ(g.attribute("status") + "/" + m.attribute("status"), status) << name;
    }
}
