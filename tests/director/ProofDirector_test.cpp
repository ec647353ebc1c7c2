// The director on small mechanism and .pos files: loading, selection, job building,
// status updates and saving. No test here starts a tool.

#include "director/ProofDirector.h"

#include "common/faketools.h"
#include "common/testutil.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <memory>
#include <sstream>
#include <thread>

using faketools::GoalSpec;
using faketools::GroupSpec;
using Address = ProofDirector::po_address_t;

namespace {

// A temporary folder with fake tools, a mechanism "m" and a .pos file.
class DirectorTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(dir.isValid());
        tools = faketools::writeTools(dir.path());
    }

    QString path(const QString& name) const { return dir.filePath(name); }

    void writeMechanism(const QString& trust, const QStringList& driverNames,
                        const QString& group = QStringLiteral("none")) {
        std::vector<faketools::DriverSpec> drivers;
        for (const QString& name : driverNames)
            drivers.push_back({name, group, tools.writer(), tools.prover(), tools.reader()});
        testutil::writeFile(path("m.xml"), faketools::mechanismXml(trust, drivers));
    }

    void writePos(const std::vector<GroupSpec>& groups) {
        testutil::writeFile(path("comp.pos"), faketools::posXml("m", groups));
    }

    std::unique_ptr<ProofDirector> makeDirector(const std::string& selector = std::string()) {
        auto director = std::make_unique<ProofDirector>(
            "comp", path("m.xml").toStdString(), path("comp.pos").toStdString(),
            path("dir/comp.pog").toStdString(), path("tmp").toStdString(),
            std::vector<std::string>(), false, 1u, 0, std::string(), selector, false);
        EXPECT_TRUE(director->isLoaded());
        return director;
    }

    QTemporaryDir dir;
    faketools::ToolSet tools;
};

GoalSpec goal(const QString& status, const QString& mechanismStatus,
              std::vector<std::pair<QString, QString>> drivers) {
    GoalSpec g;
    g.status = status;
    g.mechanismStatus = mechanismStatus;
    g.drivers = std::move(drivers);
    return g;
}

GoalSpec unregistered(const QString& status) {
    GoalSpec g;
    g.status = status;
    g.hasMechanism = false;
    return g;
}

QString goalStatus(const ProofDirector& director, const Address& a) {
    return director.getPoTable()[a.first].second[a.second].element.parentNode().toElement().attribute(
        "status");
}

} // namespace

TEST_F(DirectorTest, ReplayGivesOnlySettlingDrivers) {
    struct Row {
        const char* name;
        GoalSpec goal;
        QStringList expected;
    };
    const std::vector<Row> rows = {
        {"unproved goal, unproved mechanism",
         goal("Unproved", "Unproved",
              {{"d1", "Proved"}, {"d2", "Disproved"}, {"d3", "Unproved"}, {"d4", "Unknown"}}),
         {"d1", "d2"}},
        {"goal proved", goal("Proved", "Unproved", {{"d1", "Proved"}}), {}},
        {"goal unknown", goal("Unknown", "Unproved", {{"d1", "Proved"}}), {}},
        {"goal unreliably proved", goal("UnreliablyProved", "Unproved", {{"d1", "Proved"}}), {}},
        {"mechanism proved", goal("Unproved", "Proved", {{"d1", "Proved"}}), {}},
        {"mechanism unknown", goal("Unproved", "Unknown", {{"d1", "Disproved"}}), {}},
        {"driver unreliably proved", goal("Unproved", "Unproved", {{"d1", "UnreliablyProved"}}),
         {}},
    };
    std::vector<GoalSpec> goals;
    for (const Row& row : rows)
        goals.push_back(row.goal);
    writeMechanism("never", {"d1", "d2", "d3", "d4"});
    writePos({{"G", goals}});
    auto director = makeDirector();
    ASSERT_TRUE(director->reloadPosFile());
    const auto& table = director->getPoTable();
    ASSERT_EQ(table.size(), 1u);
    EXPECT_EQ(table[0].first, "G");
    ASSERT_EQ(table[0].second.size(), rows.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const ProofDirector::po_data_t& po = table[0].second[i];
        EXPECT_EQ(po.drivers, rows[i].expected) << rows[i].name;
        EXPECT_EQ(po.status, pos::UNPROVED) << rows[i].name;
        EXPECT_EQ(po.element.tagName(), "Mechanism") << rows[i].name;
    }
    EXPECT_EQ(director->getUnprovedCount(), 4u);
    EXPECT_TRUE(director->hasWork());
}

TEST_F(DirectorTest, ReplayRefusesFilesItCannotPlay) {
    writeMechanism("never", {"d1"});
    auto director = makeDirector();
    EXPECT_FALSE(director->reloadPosFile()) << "missing file";

    writePos({{"G", {goal("Unproved", "Unproved", {{"d1", "Proved"}}), unregistered("Unproved")}}});
    EXPECT_FALSE(director->reloadPosFile()) << "a goal without the mechanism";

    const QByteArray whole = faketools::posXml("m", {{"G", {goal("Unproved", "Unproved", {})}}});
    testutil::writeFile(path("comp.pos"), whole.left(whole.size() - 30));
    EXPECT_FALSE(director->reloadPosFile()) << "truncated file";
    EXPECT_FALSE(director->savePosFile());
    EXPECT_EQ(testutil::readFile(path("comp.pos")), whole.left(whole.size() - 30));
}

TEST_F(DirectorTest, FirstPlayRegistersTheMechanismWhereItIsMissing) {
    writePos({{"G",
               {unregistered("Unproved"), unregistered("Unknown"), unregistered("Proved"),
                unregistered("UnreliablyProved"), unregistered("Disproved"),
                goal("Unproved", "Proved", {{"d1", "Proved"}}),
                goal("Unproved", "Unproved", {{"d1", "Unproved"}})}}});
    const QByteArray original = testutil::readFile(path("comp.pos"));
    struct Expectation {
        QStringList drivers;
        pos::status_t status;
    };
    const QStringList all = {"d1", "d2"};
    struct Row {
        const char* trust;
        std::vector<Expectation> goals;
    };
    const std::vector<Row> rows = {
        {"never",
         {{all, pos::UNPROVED},
          {all, pos::UNPROVED},
          {{}, pos::PROVED},
          {{}, pos::UNRELIABLY_PROVED},
          {{}, pos::DISPROVED},
          {{}, pos::UNPROVED},
          {{"d1"}, pos::UNPROVED}}},
        {"redundancy",
         {{all, pos::UNPROVED},
          {all, pos::UNPROVED},
          {{}, pos::PROVED},
          {all, pos::UNPROVED},
          {{}, pos::DISPROVED},
          {{}, pos::UNPROVED},
          {{"d1"}, pos::UNPROVED}}},
    };
    for (const Row& row : rows) {
        testutil::writeFile(path("comp.pos"), original);
        writeMechanism(row.trust, {"d1", "d2"});
        auto director = makeDirector();
        ASSERT_TRUE(director->loadPosFile()) << row.trust;
        const auto& goals = director->getPoTable().at(0).second;
        ASSERT_EQ(goals.size(), row.goals.size());
        for (std::size_t i = 0; i < goals.size(); ++i) {
            EXPECT_EQ(goals[i].drivers, row.goals[i].drivers) << row.trust << " goal " << i;
            EXPECT_EQ(goals[i].status, row.goals[i].status) << row.trust << " goal " << i;
        }
        EXPECT_EQ(goalStatus(*director, {0, 1}), "Unproved") << "an unknown goal is reset";
        const QDomElement registered = goals[2].element;
        EXPECT_EQ(registered.attribute("name"), "m");
        EXPECT_EQ(registered.attribute("status"), "Unproved");
        EXPECT_EQ(registered.firstChildElement("Driver").attribute("name"), "d1");
        EXPECT_EQ(registered.lastChildElement("Driver").attribute("name"), "d2");
        EXPECT_EQ(director->getUnprovedCount(), 3u);

        ASSERT_TRUE(director->savePosFile());
        auto again = makeDirector();
        EXPECT_FALSE(again->loadPosFile()) << "nothing left to register";
    }
}

TEST_F(DirectorTest, WriterJobsFollowTheDriverGroup) {
    writeMechanism("never", {"d"});
    // Group B has nothing for the driver: "related" numbers its files with gaps.
    writePos({{"A", {goal("Unproved", "Unproved", {{"d", "Proved"}}),
                     goal("Unproved", "Unproved", {{"d", "Unproved"}})}},
              {"B", {goal("Unproved", "Unproved", {{"d", "Unproved"}})}},
              {"C", {goal("Unproved", "Unproved", {{"d", "Disproved"}}),
                     goal("Proved", "Unproved", {{"d", "Proved"}}),
                     goal("Unproved", "Unproved", {{"d", "Proved"}})}}});
    const QString tmp = path("tmp");
    const QString pog = path("dir/comp.pog");
    struct Row {
        mechanism::group_t group;
        std::vector<QStringList> args;
        QStringList files;
    };
    const auto tail = [&](const QString& file) {
        return QStringList{"-i", pog, "-o", tmp + "/" + file, "--level", "2", "-v"};
    };
    const std::vector<Row> rows = {
        {mechanism::GROUP_NONE,
         {QStringList{"-a", "0", "0"} + tail("comp_m_d_0_0.xpo"),
          QStringList{"-a", "2", "0"} + tail("comp_m_d_2_0.xpo"),
          QStringList{"-a", "2", "2"} + tail("comp_m_d_2_2.xpo")},
         {"comp_m_d_0_0.xpo", "comp_m_d_2_0.xpo", "comp_m_d_2_2.xpo"}},
        {mechanism::GROUP_RELATED,
         {QStringList{"-a", "0", "0"} + tail("comp_m_d_0.xpo"),
          QStringList{"-a", "2", "0", "-a", "2", "2"} + tail("comp_m_d_2.xpo")},
         {"comp_m_d_0.xpo", "comp_m_d_2.xpo"}},
        {mechanism::GROUP_FULL,
         {QStringList{"-a", "0", "0", "-a", "2", "0", "-a", "2", "2"} + tail("comp_m_d.xpo")},
         {"comp_m_d.xpo"}},
    };
    auto director = makeDirector();
    ASSERT_TRUE(director->reloadPosFile());
    for (const Row& row : rows) {
        mechanism::driver_t d = director->getMechanism().drivers.at(0);
        d.group = row.group;
        d.ext = "xpo";
        d.writer.params = {{"--level", " ", "2"}, {"", " ", "-v"}};
        director->setDriver(d);
        ProofDirector::selection_t selection;
        director->selectForDriver(selection);
        ASSERT_EQ(selection.size(), 3u) << "one inner vector per group";
        EXPECT_TRUE(selection[1].empty());
        director->produceWriterData(tmp, pog, selection);
        director->produceProverData();
        const auto& jobs = director->getWriterJobs();
        ASSERT_EQ(jobs.size(), row.args.size()) << "group " << row.group;
        for (std::size_t i = 0; i < jobs.size(); ++i) {
            EXPECT_EQ(jobs[i].args, row.args[i]) << "group " << row.group << " job " << i;
            EXPECT_EQ(jobs[i].po2filename, tmp + "/" + row.files[i]);
            EXPECT_EQ(jobs[i].cmd, d.writer.path);
            const auto& proverJob = director->getProverJobs().at(i);
            EXPECT_EQ(proverJob.inpath, jobs[i].po2filename);
            EXPECT_EQ(proverJob.addresses, jobs[i].positions);
        }
    }
}

TEST_F(DirectorTest, SelectionWithoutWorkAndSingleSelector) {
    writeMechanism("never", {"d", "idle"});
    writePos({{"A", {goal("Unproved", "Unproved", {{"d", "Proved"}})}},
              {"B", {goal("Unproved", "Unproved", {{"d", "Unproved"}}),
                     goal("Unproved", "Unproved", {{"d", "Unproved"}}),
                     goal("Unproved", "Unproved", {{"d", "Unproved"}})}}});
    auto director = makeDirector();
    ASSERT_TRUE(director->reloadPosFile());
    mechanism::driver_t idle = director->getMechanism().drivers.at(1);
    for (mechanism::group_t group :
         {mechanism::GROUP_NONE, mechanism::GROUP_RELATED, mechanism::GROUP_FULL}) {
        idle.group = group;
        director->setDriver(idle);
        ProofDirector::selection_t selection;
        director->selectForDriver(selection);
        ASSERT_EQ(selection.size(), 2u);
        director->produceWriterData(path("tmp"), "comp.pog", selection);
        const auto& jobs = director->getWriterJobs();
        ASSERT_EQ(jobs.size(), group == mechanism::GROUP_FULL ? 1u : 0u) << group;
        if (!jobs.empty()) {
            EXPECT_EQ(jobs[0].args,
                      (QStringList{"-i", "comp.pog", "-o", path("tmp/comp_m_idle.po2")}));
        }
    }

    // The selector picks its PO whatever the driver lists say; "related" writes k = 0.
    auto single = makeDirector("B.3");
    ASSERT_TRUE(single->reloadPosFile());
    mechanism::driver_t d = single->getMechanism().drivers.at(0);
    d.group = mechanism::GROUP_RELATED;
    single->setDriver(d);
    ProofDirector::selection_t selection;
    single->selectForDriver(selection);
    ASSERT_EQ(selection.size(), 1u);
    EXPECT_EQ(selection[0], (std::vector<Address>{{1, 2}}));
    single->produceWriterData(path("tmp"), "comp", selection);
    ASSERT_EQ(single->getWriterJobs().size(), 1u);
    EXPECT_EQ(single->getWriterJobs()[0].args,
              (QStringList{"-a", "0", "2", "-i", "comp", "-o", path("tmp/comp_m_d_0.po2"), "-m"}));

    auto nowhere = makeDirector("Z.1");
    ASSERT_TRUE(nowhere->reloadPosFile());
    ProofDirector::selection_t none;
    nowhere->selectForDriver(none);
    EXPECT_TRUE(none.empty());
}

TEST(Parameters, BecomeWordsByTheirSeparator) {
    struct Row {
        const char* name;
        mechanism::param_t param;
        QStringList writerWords;
        QStringList proverWords;
    };
    const QString null;
    const QString empty = QLatin1String("");
    const std::vector<Row> rows = {
        {"blank separator", {"-t", " ", "30"}, {"-t", "30"}, {"-t", "30"}},
        {"equals", {"--t", "=", "30"}, {"--t=30"}, {"--t=30"}},
        {"padded equals", {"--t", " = ", "30"}, {"--t = 30"}, {"--t = 30"}},
        {"two blanks", {"-t", "  ", "30"}, {"-t  30"}, {"-t", "30"}},
        {"empty separator", {"-t", empty, "30"}, {"-t30"}, {"-t", "30"}},
        {"null name", {null, " ", "v"}, {"v"}, {"v"}},
        {"empty name", {empty, "=", "v"}, {"v"}, {"=v"}},
        {"null value", {"-x", "=", null}, {"-x"}, {"-x"}},
        {"empty value", {"-x", "=", empty}, {"-x"}, {"-x="}},
        {"both null", {null, " ", null}, {""}, {}},
        {"file placeholder", {"--in", "=", "${file}.smt"}, {"--in=${file}.smt"}, {"--in=/t/f.po2.smt"}},
    };
    for (const Row& row : rows) {
        mechanism::tool_t tool;
        tool.params = {row.param};
        QStringList writerWords;
        addParametersBits(writerWords, tool);
        EXPECT_EQ(writerWords, row.writerWords) << row.name;
        QStringList proverWords;
        append_param(row.param, proverWords, "/t/f.po2");
        EXPECT_EQ(proverWords, row.proverWords) << row.name;
        for (int i = 0; i < proverWords.size(); ++i)
            EXPECT_EQ(proverWords[i].isNull(), false) << row.name;
    }
}

TEST_F(DirectorTest, StatusUpdatesFollowTheTrustRule) {
    struct Step {
        const char* driver;
        const char* answer;
    };
    struct Row {
        const char* name;
        const char* trust;
        std::vector<Step> steps;
        const char* goalStatus;
        const char* mechanismStatus;
        pos::status_t status;
        QStringList drivers;
        uint32_t unproved;
    };
    const uint32_t wrapped = 0xffffffffu;
    const std::vector<Row> rows = {
        {"never proved", "never", {{"d1", "Proved"}}, "UnreliablyProved", "UnreliablyProved",
         pos::UNRELIABLY_PROVED, {}, 0},
        {"always proved", "always", {{"d1", "Proved"}}, "Proved", "Proved", pos::PROVED, {}, 0},
        {"redundancy once", "redundancy", {{"d1", "Proved"}}, "UnreliablyProved",
         "UnreliablyProved", pos::UNRELIABLY_PROVED, {"d2"}, 0},
        {"redundancy twice", "redundancy", {{"d1", "Proved"}, {"d2", "Proved"}}, "Proved",
         "Proved", pos::PROVED, {}, wrapped},
        {"disproved", "never", {{"d1", "Disproved"}}, "Disproved", "Disproved", pos::DISPROVED,
         {}, 0},
        {"unknown from a driver that is not last", "always", {{"d1", "Unknown"}}, "Unproved",
         "Unproved", pos::UNPROVED, {"d2"}, 1},
        {"unknown from the last driver", "always", {{"d2", "Unknown"}}, "Unproved", "Unknown",
         pos::UNKNOWN, {"d1"}, 1},
        {"redundancy proof then last unknown", "redundancy", {{"d1", "Proved"}, {"d2", "Unknown"}},
         "UnreliablyProved", "Unknown", pos::UNKNOWN, {}, 0},
        {"always proof then disproof", "always", {{"d1", "Proved"}, {"d2", "Disproved"}},
         "Proved", "Disproved", pos::DISPROVED, {}, 0},
        {"never proof then disproof", "never", {{"d1", "Proved"}, {"d2", "Disproved"}},
         "Disproved", "Disproved", pos::DISPROVED, {}, wrapped},
        {"always proved twice", "always", {{"d1", "Proved"}, {"d2", "Proved"}}, "Proved",
         "Proved", pos::PROVED, {}, 0},
    };
    const GoalSpec settledByBoth = goal("Unproved", "Unproved", {{"d1", "Proved"}, {"d2", "Disproved"}});
    for (const Row& row : rows) {
        writeMechanism(row.trust, {"d1", "d2"});
        writePos({{"G", {settledByBoth}}});
        auto director = makeDirector();
        ASSERT_TRUE(director->reloadPosFile());
        const auto& drivers = director->getMechanism().drivers;
        for (const Step& step : row.steps) {
            director->setDriver(drivers.at(QString(step.driver) == "d1" ? 0 : 1));
            director->updateStatus({0, 0}, step.answer);
        }
        const ProofDirector::po_data_t& po = director->getPoTable()[0].second[0];
        EXPECT_EQ(goalStatus(*director, {0, 0}), row.goalStatus) << row.name;
        EXPECT_EQ(po.element.attribute("status"), row.mechanismStatus) << row.name;
        EXPECT_EQ(po.status, row.status) << row.name;
        EXPECT_EQ(po.drivers, row.drivers) << row.name;
        EXPECT_EQ(director->getUnprovedCount(), row.unproved) << row.name;
        const Step& lastStep = row.steps.back();
        QDomElement d = po.element.firstChildElement("Driver");
        if (QString(lastStep.driver) == "d2")
            d = d.nextSiblingElement("Driver");
        EXPECT_EQ(d.attribute("status"), lastStep.answer) << row.name;
    }
}

TEST_F(DirectorTest, SavingKeepsTheUsersFile) {
    writeMechanism("never", {"d"});
    auto director = makeDirector();
    EXPECT_FALSE(director->savePosFile()) << "nothing loaded";

    writePos({{"G", {goal("Unproved", "Unproved", {{"d", "Proved"}})}}});
    ASSERT_TRUE(director->reloadPosFile());
    QFile::remove(path("comp.pos"));
    EXPECT_FALSE(director->savePosFile());
    EXPECT_FALSE(QFile::exists(path("comp.pos"))) << "a status file is never created";

    // A Latin-1 file with non-ASCII group names stays Latin-1, through a symbolic link,
    // with its permissions.
    const QByteArray latin1 =
        "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n<Proof_Obligations>\n"
        "<Proof_Obligation><Tag>Op\xe9ration_\xe0_\xe7\x61</Tag>\n"
        "<Simple_Goal status=\"Unproved\"><Proof_State proofState=\"Unproved\"/>"
        "<Mechanism name=\"m\" status=\"Unproved\"><Driver name=\"d\" status=\"Proved\"/>"
        "</Mechanism></Simple_Goal></Proof_Obligation></Proof_Obligations>\n";
    ASSERT_TRUE(QDir().mkpath(path("real")));
    testutil::writeFile(path("real/comp.pos"), latin1);
    QFile::setPermissions(path("real/comp.pos"), QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                                      QFileDevice::ReadGroup);
    ASSERT_TRUE(QFile::link(path("real/comp.pos"), path("comp.pos")));
    QByteArray first;
    for (int cycle = 0; cycle < 10; ++cycle) {
        auto again = makeDirector();
        ASSERT_TRUE(again->reloadPosFile()) << "cycle " << cycle;
        EXPECT_EQ(again->getPoTable()[0].first, "Op\xc3\xa9ration_\xc3\xa0_\xc3\xa7" "a");
        ASSERT_TRUE(again->savePosFile()) << "cycle " << cycle;
        const QByteArray saved = testutil::readFile(path("real/comp.pos"));
        if (cycle == 0)
            first = saved;
        EXPECT_EQ(saved, first) << "cycle " << cycle;
    }
    EXPECT_TRUE(first.contains("Op\xe9ration_\xe0_\xe7" "a")) << first.toStdString();
    EXPECT_TRUE(first.contains("author=\"proof_director\""));
    EXPECT_TRUE(QFileInfo(path("comp.pos")).isSymLink());
    EXPECT_EQ(QFile::permissions(path("real/comp.pos")),
              QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadGroup |
                  QFileDevice::ReadUser | QFileDevice::WriteUser);
    EXPECT_EQ(QDir(path("real")).entryList(QDir::Files), QStringList{"comp.pos"})
        << "no temporary file left beside it";

    // A read-only status file is not replaced.
    QFile::setPermissions(path("real/comp.pos"), QFileDevice::ReadOwner);
    auto readOnly = makeDirector();
    ASSERT_TRUE(readOnly->reloadPosFile());
    const QByteArray before = testutil::readFile(path("real/comp.pos"));
    EXPECT_FALSE(readOnly->savePosFile()) << "not even when run as root";
    EXPECT_EQ(testutil::readFile(path("real/comp.pos")), before);
}

TEST_F(DirectorTest, DumpsShowJobsForDiagnostics) {
    writeMechanism("never", {"d"});
    writePos({{"G", {goal("Unproved", "Unproved", {{"d", "Proved"}})}}});
    auto director = makeDirector();
    ASSERT_TRUE(director->reloadPosFile());
    mechanism::driver_t d = director->getMechanism().drivers.at(0);
    d.prover.params = {{"-p", "=", "1"}};
    d.reader.params = {{"-r", "=", "2"}};
    director->setDriver(d);
    ProofDirector::selection_t selection;
    director->selectForDriver(selection);
    director->produceWriterData(path("tmp"), "comp.pog", selection);
    director->produceProverData();
    std::ostringstream writer;
    writer << director->getWriterJobs().at(0);
    EXPECT_NE(writer.str().find("positions: {0, 0}"), std::string::npos) << writer.str();
    std::ostringstream prover;
    prover << director->getProverJobs().at(0);
    EXPECT_NE(prover.str().find("argsp: -p=1\n"), std::string::npos) << prover.str();
    EXPECT_NE(prover.str().find("argsr:-p=1\n"), std::string::npos) << prover.str();
    EXPECT_NE(prover.str().find("po addresses:\t0\t0\n"), std::string::npos) << prover.str();
    std::ostringstream whole;
    whole << *director;
    EXPECT_EQ(whole.str().rfind("pos: " + path("comp.pos").toStdString() + "\n", 0), 0u);
    EXPECT_NE(whole.str().find("\nmechanism:\n[mechanism]\n"), std::string::npos) << whole.str();
    EXPECT_FALSE(director->hasErrors());
}

TEST_F(DirectorTest, SinglePoModeEchoesTheModelAndUpdatesNothing) {
    testutil::writeScript(path("model.sh"), "cat >/dev/null\necho Disproved\necho 'x = 1'\n"
                                            "echo 'y = 2'\n");
    faketools::DriverSpec driver;
    driver.name = "d";
    driver.writer = tools.writer();
    driver.prover = tools.prover();
    driver.reader = path("model.sh");
    testutil::writeFile(path("m.xml"), faketools::mechanismXml("always", {driver}));
    writePos({{"A", {goal("Unproved", "Unproved", {{"d", "Proved"}})}},
              {"B", {goal("Unproved", "Unproved", {{"d", "Unproved"}}),
                     goal("Unproved", "Unproved", {{"d", "Unproved"}})}}});
    ASSERT_TRUE(QDir().mkpath(path("tmp")));
    auto director = makeDirector("B.2");
    std::ostringstream out;
    std::streambuf* const saved = std::cout.rdbuf(out.rdbuf());
    director->replay();
    std::cout.rdbuf(saved);
    EXPECT_EQ(out.str(), "\tProof driver d, still 3 unproved PO\n"
                         "\t\tA\n\t\t\t\n\t\tB\n\t\t\t-model:\nx = 1\ny = 2\n\n\n\n");
    EXPECT_EQ(QStringList(QString::fromUtf8(testutil::readFile(tools.writerLog())).trimmed()),
              QStringList{"-a 1 1 -i " + path("dir/comp.pog") + " -o " +
                          path("tmp/comp_m_d_1_1.po2") + " -m"});
    const QByteArray saved_pos = testutil::readFile(path("comp.pos"));
    EXPECT_TRUE(saved_pos.contains("author=\"proof_director\"")) << "saved although unchanged";
    EXPECT_EQ(saved_pos.count("status=\"Disproved\""), 0);
    EXPECT_FALSE(director->hasErrors());
}

TEST_F(DirectorTest, StageWorkersHandOutEveryJobOnce) {
    writeMechanism("always", {"d"});
    std::vector<GoalSpec> goals(7, goal("Unproved", "Unproved", {{"d", "Proved"}}));
    writePos({{"G", goals}});
    ASSERT_TRUE(QDir().mkpath(path("tmp")));
    const auto prepare = [&](ProofDirector& director) {
        ASSERT_TRUE(director.reloadPosFile());
        director.setDriver(director.getMechanism().drivers.at(0));
        ProofDirector::selection_t selection;
        director.selectForDriver(selection);
        director.produceWriterData(path("tmp"), "comp.pog", selection);
        director.produceProverData();
    };
    auto writing = makeDirector();
    prepare(*writing);
    std::vector<std::thread> writers;
    for (int n = 0; n < 3; ++n)
        writers.emplace_back([&] { writing->writeJob(); });
    for (std::thread& t : writers)
        t.join();
    const QStringList calls =
        QString::fromUtf8(testutil::readFile(tools.writerLog())).split('\n', Qt::SkipEmptyParts);
    EXPECT_EQ(calls.size(), 7);
    EXPECT_EQ(QSet<QString>(calls.begin(), calls.end()).size(), 7);
    EXPECT_EQ(QDir(path("tmp")).entryList(QDir::Files).size(), 7);

    auto proving = makeDirector();
    prepare(*proving);
    std::ostringstream out;
    std::streambuf* const saved = std::cout.rdbuf(out.rdbuf());
    std::vector<std::thread> provers;
    for (int n = 0; n < 3; ++n)
        provers.emplace_back([&] { proving->proveJob(); });
    for (std::thread& t : provers)
        t.join();
    std::cout.rdbuf(saved);
    EXPECT_EQ(out.str(), "\t\tG\n\t\t\t+++++++");
    EXPECT_EQ(testutil::readFile(path("comp.pos")).count("status=\"Proved\""), 7 * 3)
        << "goal, mechanism and driver of each PO";
}
