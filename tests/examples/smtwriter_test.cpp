// The example's writer: its command line, the script it writes, and the example's own files.

#include "exampletools.h"

#include <QDomDocument>
#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>

using exampletools::runWriter;

namespace {

const QByteArray SMALL_POG = R"(<obligations component="small">
  <group name="first">
    <declare>(declare-const x Int)</declare>
    <obligation name="a"><goal>(> x 0)</goal></obligation>
    <obligation name="b"><hypothesis>(> x 1)</hypothesis><goal>(> x 0)</goal></obligation>
  </group>
  <group name="second">
    <obligation name="c">
      <declare>(declare-const y Int)</declare>
      <goal>(>= (* y y) 0)</goal>
    </obligation>
  </group>
</obligations>
)";

struct WriterFixture : ::testing::Test {
    QTemporaryDir dir;
    QString pog = dir.filePath("small.pog");
    QString out = dir.filePath("out.smt2");
    void SetUp() override { testutil::writeFile(pog, SMALL_POG); }
    QString script() const { return QString::fromUtf8(testutil::readFile(out)); }
};

} // namespace

TEST_F(WriterFixture, RejectsBadArgumentsWithUsageAndWritesNothing) {
    const struct {
        const char* name;
        QStringList args;
    } rows[] = {
        {"no arguments", {}},
        {"no output", {"-a", "0", "0", "-i", pog}},
        {"no input", {"-a", "0", "0", "-o", out}},
        {"address with one number", {"-i", pog, "-o", out, "-a", "0"}},
        {"address not a number", {"-a", "x", "0", "-i", pog, "-o", out}},
        {"negative address", {"-a", "0", "-1", "-i", pog, "-o", out}},
        {"input given twice", {"-i", pog, "-i", pog, "-o", out}},
        {"unknown option", {"-i", pog, "-o", out, "--bogus"}},
        {"logic without a name", {"-i", pog, "-o", out, "--logic"}},
    };
    for (const auto& row : rows) {
        const testutil::RunResult r = runWriter(row.args);
        EXPECT_EQ(r.exitCode, 2) << row.name;
        EXPECT_NE(r.err.find("usage: smtwriter"), std::string::npos) << row.name << ": " << r.err;
        EXPECT_FALSE(QFile::exists(out)) << row.name;
    }
}

TEST_F(WriterFixture, WritesOneCheckedBlockPerAddressInTheOrderGiven) {
    const testutil::RunResult r = runWriter(
        {"-a", "1", "0", "-a", "0", "1", "-a", "1", "0", "-i", pog, "-o", out, "--logic", "NIA"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const QString text = script();
    EXPECT_TRUE(text.contains("(set-logic NIA)\n"));
    EXPECT_EQ(text.count("(push 1)"), 3);
    EXPECT_EQ(text.count("(check-sat)"), 3);
    EXPECT_EQ(text.count("(pop 1)"), 3);
    EXPECT_FALSE(text.contains("get-model"));

    const int c1 = text.indexOf("(echo \"@po 0\")");
    const int b = text.indexOf("(echo \"@po 1\")");
    const int c2 = text.indexOf("(echo \"@po 2\")");
    ASSERT_TRUE(c1 >= 0 && b > c1 && c2 > b) << text.toStdString();
    EXPECT_TRUE(text.mid(c1, b - c1).contains("(assert (not (>= (* y y) 0)))"));
    EXPECT_TRUE(text.mid(c2).contains("(declare-const y Int)"));
    const QString blockB = text.mid(b, c2 - b);
    EXPECT_TRUE(blockB.contains("(declare-const x Int)\n(assert (> x 1))\n(assert (not (> x 0)))"))
        << blockB.toStdString();
}

TEST_F(WriterFixture, AsksForModelsOnlyWithM) {
    ASSERT_EQ(runWriter({"-a", "0", "0", "-i", pog, "-o", out, "-m"}).exitCode, 0);
    const QString text = script();
    EXPECT_TRUE(text.contains("(set-option :produce-models true)"));
    EXPECT_TRUE(text.contains("(check-sat)\n(get-model)\n(pop 1)"));

    ASSERT_EQ(runWriter({"-i", pog, "-o", out}).exitCode, 0) << "no address is an empty script";
    EXPECT_EQ(script().count("(check-sat)"), 0);
    EXPECT_TRUE(script().contains("(set-logic ALL)")) << "ALL is the default logic";
}

TEST_F(WriterFixture, FailsWithoutScriptOnUnknownAddressOrBadFile) {
    const QString broken = dir.filePath("broken.pog");
    const struct {
        const char* name;
        QByteArray pogContent;
        QStringList addresses;
        const char* message;
    } rows[] = {
        {"group out of range", SMALL_POG, {"-a", "0", "0", "-a", "2", "0"}, "there is no group 2"},
        {"obligation out of range", SMALL_POG, {"-a", "1", "1"}, "has no obligation 1"},
        {"obligation without goal",
         "<obligations><group name='g'><obligation name='o'/></group></obligations>",
         {"-a", "0", "0"}, "obligation \"o\" has no <goal>"},
        {"unknown element",
         "<obligations><group name='g'><lemma/></group></obligations>", {}, "unexpected <lemma>"},
        {"not well-formed", "<obligations><group>", {}, "broken.pog:1:"},
        {"wrong root", "<goals/>", {}, "root element must be <obligations>"},
    };
    for (const auto& row : rows) {
        testutil::writeFile(broken, row.pogContent);
        const testutil::RunResult r = runWriter(row.addresses + QStringList{"-i", broken, "-o", out});
        EXPECT_EQ(r.exitCode, 1) << row.name;
        EXPECT_NE(r.err.find(row.message), std::string::npos) << row.name << ": " << r.err;
        EXPECT_FALSE(QFile::exists(out)) << row.name;
    }
    const testutil::RunResult missing =
        runWriter({"-i", dir.filePath("missing.pog"), "-o", out});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_FALSE(QFile::exists(out));
}

// The writer's addresses are positions in the .pos: the two files must keep the same layout,
// and a replay refuses a .pos where a goal lacks the replayed mechanism's element.
TEST(ExampleFiles, ObligationFileFollowsStatusFileLayout) {
    QDomDocument pos;
    ASSERT_TRUE(pos.setContent(testutil::readFile(EXAMPLE_DIR "/tank.pos")));
    QStringList posLayout;
    for (QDomElement group = pos.documentElement().firstChildElement("Proof_Obligation");
         !group.isNull(); group = group.nextSiblingElement("Proof_Obligation")) {
        int goals = 0;
        for (QDomElement goal = group.firstChildElement("Simple_Goal"); !goal.isNull();
             goal = goal.nextSiblingElement("Simple_Goal"), ++goals) {
            for (const char* mechanism : {"z3", "portfolio"})
                EXPECT_NE(exampletools::mechanismStatus(goal, mechanism), "(none)")
                    << group.firstChildElement("Tag").text().toStdString() << " goal " << goals
                    << " lacks " << mechanism;
        }
        posLayout << group.firstChildElement("Tag").text() + ":" + QString::number(goals);
    }

    QDomDocument pog;
    ASSERT_TRUE(pog.setContent(testutil::readFile(EXAMPLE_DIR "/tank.pog")));
    QStringList pogLayout;
    for (QDomElement group = pog.documentElement().firstChildElement("group"); !group.isNull();
         group = group.nextSiblingElement("group"))
        pogLayout << group.attribute("name") + ":" +
                         QString::number(group.elementsByTagName("obligation").size());
    EXPECT_EQ(posLayout.join(' ').toStdString(), pogLayout.join(' ').toStdString());
    EXPECT_GE(posLayout.size(), 5);
}
