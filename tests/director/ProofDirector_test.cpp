// The director on small mechanism and .pos files: loading, selection, job building,
// status updates, saving, and the stage workers on fake tools.

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
    GoalSpec g = goal(status, "Unproved", {});
    g.hasMechanism = false;
    return g;
}

const std::vector<std::pair<QString, QString>> settledByD = {{"d", "Proved"}};

QString goalStatus(const ProofDirector& director, const Address& a) {
    const QDomElement mechanism = director.getPoTable()[a.first].second[a.second].element;
    return mechanism.parentNode().toElement().attribute("status");
}

// Runs `action` with std::cout captured.
template <typename F> std::string captured(F action) {
    std::ostringstream out;
    std::streambuf* const saved = std::cout.rdbuf(out.rdbuf());
    action();
    std::cout.rdbuf(saved);
    return out.str();
}

} // namespace

TEST_F(DirectorTest, ReplayGivesOnlySettlingDrivers) {
    struct Row {
        const char* name;
        GoalSpec goal;
        QStringList expected;
    };
    const std::vector<Row> rows = {
        {"unproved goal and mechanism",
         goal("Unproved", "Unproved",
              {{"d1", "Proved"}, {"d2", "Disproved"}, {"d3", "Unproved"}, {"d4", "Unknown"}}),
         {"d1", "d2"}},
        {"goal proved", goal("Proved", "Unproved", {{"d1", "Proved"}}), {}},
        {"goal unknown", goal("Unknown", "Unproved", {{"d1", "Proved"}}), {}},
        {"mechanism unknown", goal("Unproved", "Unknown", {{"d1", "Disproved"}}), {}},
        {"driver unreliably proved",
         goal("Unproved", "Unproved", {{"d1", "UnreliablyProved"}}),
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
    ASSERT_EQ(table.at(0).second.size(), rows.size());
    EXPECT_EQ(table[0].first, "G");
    for (std::size_t i = 0; i < rows.size(); ++i) {
        EXPECT_EQ(table[0].second[i].drivers, rows[i].expected) << rows[i].name;
        EXPECT_EQ(table[0].second[i].status, pos::UNPROVED) << rows[i].name;
    }
    EXPECT_EQ(director->getUnprovedCount(), 3u);
}

TEST_F(DirectorTest, ReplayRefusesFilesItCannotPlay) {
    writeMechanism("never", {"d"});
    auto director = makeDirector();
    EXPECT_FALSE(director->reloadPosFile()) << "missing file";
    writePos({{"G", {goal("Unproved", "Unproved", settledByD), unregistered("Unproved")}}});
    EXPECT_FALSE(director->reloadPosFile()) << "a goal without the mechanism";
    const QByteArray truncated =
        faketools::posXml("m", {{"G", {goal("Unproved", "Unproved", {})}}}).chopped(30);
    testutil::writeFile(path("comp.pos"), truncated);
    EXPECT_FALSE(director->reloadPosFile()) << "truncated file";
    EXPECT_FALSE(director->savePosFile());
    EXPECT_EQ(testutil::readFile(path("comp.pos")), truncated);
}

TEST_F(DirectorTest, FirstPlayRegistersTheMechanismWhereItIsMissing) {
    const QStringList all = {"d1", "d2"};
    for (const char* trust : {"never", "redundancy"}) {
        writeMechanism(trust, all);
        writePos(
            {{"G",
              {unregistered("Unproved"), unregistered("Unknown"), unregistered("Proved"),
               unregistered("UnreliablyProved"), goal("Unproved", "Proved", {{"d1", "Proved"}}),
               goal("Unproved", "Unproved", {{"d1", "Unproved"}})}}});
        auto director = makeDirector();
        ASSERT_TRUE(director->loadPosFile()) << trust;
        const auto& goals = director->getPoTable().at(0).second;
        const bool redundancy = QString(trust) == "redundancy";
        const std::vector<QStringList> drivers = {all, all,   {}, redundancy ? all : QStringList(),
                                                  {},  {"d1"}};
        const std::vector<pos::status_t> statuses = {
            pos::UNPROVED, pos::UNPROVED,
            pos::PROVED,   redundancy ? pos::UNPROVED : pos::UNRELIABLY_PROVED,
            pos::UNPROVED, pos::UNPROVED};
        for (std::size_t i = 0; i < goals.size(); ++i) {
            EXPECT_EQ(goals[i].drivers, drivers.at(i)) << trust << " goal " << i;
            EXPECT_EQ(goals[i].status, statuses.at(i)) << trust << " goal " << i;
        }
        EXPECT_EQ(goalStatus(*director, {0, 1}), "Unproved") << "an unknown goal is reset";
        EXPECT_EQ(goals[2].element.attribute("status"), "Unproved");
        EXPECT_EQ(goals[2].element.lastChildElement("Driver").attribute("name"), "d2");
        EXPECT_EQ(director->getUnprovedCount(), 3u);
        ASSERT_TRUE(director->savePosFile());
        EXPECT_FALSE(makeDirector()->loadPosFile()) << "nothing left to register";
    }
}

TEST_F(DirectorTest, WriterJobsFollowTheDriverGroup) {
    writeMechanism("never", {"d"});
    // Group B has nothing for the driver: "related" numbers its files with gaps.
    writePos(
        {{"A", {goal("Unproved", "Unproved", settledByD), goal("Unproved", "Unproved", {})}},
         {"B", {goal("Unproved", "Unproved", {})}},
         {"C",
          {goal("Unproved", "Unproved", {{"d", "Disproved"}}),
           goal("Proved", "Unproved", settledByD), goal("Unproved", "Unproved", settledByD)}}});
    const QString tmp = path("tmp");
    const QString pog = path("dir/comp.pog");
    const auto tail = [&](const QString& file) {
        return QStringList{"-i", pog, "-o", tmp + "/" + file, "--level", "2", "-v"};
    };
    const std::vector<std::pair<mechanism::group_t, std::vector<QStringList>>> rows = {
        {mechanism::GROUP_NONE,
         {QStringList{"-a", "0", "0"} + tail("comp_m_d_0_0.xpo"),
          QStringList{"-a", "2", "0"} + tail("comp_m_d_2_0.xpo"),
          QStringList{"-a", "2", "2"} + tail("comp_m_d_2_2.xpo")}},
        {mechanism::GROUP_RELATED,
         {QStringList{"-a", "0", "0"} + tail("comp_m_d_0.xpo"),
          QStringList{"-a", "2", "0", "-a", "2", "2"} + tail("comp_m_d_2.xpo")}},
        {mechanism::GROUP_FULL,
         {QStringList{"-a", "0", "0", "-a", "2", "0", "-a", "2", "2"} + tail("comp_m_d.xpo")}},
    };
    auto director = makeDirector();
    ASSERT_TRUE(director->reloadPosFile());
    for (const auto& row : rows) {
        mechanism::driver_t d = director->getMechanism().drivers.at(0);
        d.group = row.first;
        d.ext = "xpo";
        d.writer.params = {{"--level", " ", "2"}, {"", " ", "-v"}};
        director->setDriver(d);
        ProofDirector::selection_t selection;
        director->selectForDriver(selection);
        ASSERT_EQ(selection.size(), 3u) << "one inner vector per group, even empty";
        director->produceWriterData(tmp, pog, selection);
        director->produceProverData();
        const auto& jobs = director->getWriterJobs();
        ASSERT_EQ(jobs.size(), row.second.size()) << "group " << row.first;
        for (std::size_t i = 0; i < jobs.size(); ++i) {
            EXPECT_EQ(jobs[i].args, row.second[i]) << "group " << row.first << " job " << i;
            EXPECT_EQ(jobs[i].po2filename, jobs[i].args.at(jobs[i].args.indexOf("-o") + 1));
            EXPECT_EQ(director->getProverJobs().at(i).addresses, jobs[i].positions);
        }
    }
}

TEST_F(DirectorTest, SelectionWithoutWorkAndSingleSelector) {
    writeMechanism("never", {"d", "idle"});
    writePos({{"A", {goal("Unproved", "Unproved", settledByD)}},
              {"B", std::vector<GoalSpec>(3, goal("Unproved", "Unproved", {}))}});
    auto director = makeDirector();
    ASSERT_TRUE(director->reloadPosFile());
    mechanism::driver_t idle = director->getMechanism().drivers.at(1);
    for (mechanism::group_t group :
         {mechanism::GROUP_NONE, mechanism::GROUP_RELATED, mechanism::GROUP_FULL}) {
        idle.group = group;
        director->setDriver(idle);
        ProofDirector::selection_t selection;
        director->selectForDriver(selection);
        director->produceWriterData(path("tmp"), "comp.pog", selection);
        const std::size_t expected = group == mechanism::GROUP_FULL ? 1 : 0;
        ASSERT_EQ(director->getWriterJobs().size(), expected) << "group " << group;
        if (expected == 1) {
            EXPECT_EQ(director->getWriterJobs()[0].args.first(), "-i") << "no -a words";
        }
    }
    // The selector takes its PO whatever the driver lists say; "related" writes k = 0.
    auto single = makeDirector("B.3");
    ASSERT_TRUE(single->reloadPosFile());
    mechanism::driver_t d = single->getMechanism().drivers.at(0);
    d.group = mechanism::GROUP_RELATED;
    single->setDriver(d);
    ProofDirector::selection_t selection;
    single->selectForDriver(selection);
    EXPECT_EQ(selection, (ProofDirector::selection_t{{{1, 2}}}));
    single->produceWriterData(path("tmp"), "comp", selection);
    EXPECT_EQ(single->getWriterJobs().at(0).args,
              (QStringList{"-a", "0", "2", "-i", "comp", "-o", path("tmp/comp_m_d_0.po2"), "-m"}));
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
        // clang-format off
        {"blank separator", {"-t", " ", "30"}, {"-t", "30"}, {"-t", "30"}},
        {"equals", {"--t", "=", "30"}, {"--t=30"}, {"--t=30"}},
        {"two blanks", {"-t", "  ", "30"}, {"-t  30"}, {"-t", "30"}},
        {"empty separator", {"-t", empty, "30"}, {"-t30"}, {"-t", "30"}},
        {"null name", {null, " ", "v"}, {"v"}, {"v"}},
        {"empty name", {empty, "=", "v"}, {"v"}, {"=v"}},
        {"null value", {"-x", "=", null}, {"-x"}, {"-x"}},
        {"empty value", {"-x", "=", empty}, {"-x"}, {"-x="}},
        {"file placeholder", {"--in", "=", "${file}.smt"}, {"--in=${file}.smt"}, {"--in=/t/f.po2.smt"}},
        // clang-format on
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
    }
}

TEST_F(DirectorTest, StatusUpdatesFollowTheTrustRule) {
    struct Row {
        const char* trust;
        std::vector<std::pair<int, const char*>> steps; // driver index, answer
        const char* goal;
        const char* mechanism;
        pos::status_t status;
        QStringList drivers;
        uint32_t unproved; // unsigned arithmetic: a second decrement wraps
    };
    const uint32_t wrapped = 0xffffffffu;
    const std::vector<Row> rows = {
        // clang-format off
        {"never", {{0, "Proved"}}, "UnreliablyProved", "UnreliablyProved", pos::UNRELIABLY_PROVED, {}, 0},
        {"always", {{0, "Proved"}}, "Proved", "Proved", pos::PROVED, {}, 0},
        {"redundancy", {{0, "Proved"}}, "UnreliablyProved", "UnreliablyProved", pos::UNRELIABLY_PROVED, {"d2"}, 0},
        {"redundancy", {{0, "Proved"}, {1, "Proved"}}, "Proved", "Proved", pos::PROVED, {}, wrapped},
        {"never", {{0, "Disproved"}}, "Disproved", "Disproved", pos::DISPROVED, {}, 0},
        {"always", {{0, "Unknown"}}, "Unproved", "Unproved", pos::UNPROVED, {"d2"}, 1},
        {"always", {{1, "Unknown"}}, "Unproved", "Unknown", pos::UNKNOWN, {"d1"}, 1},
        {"redundancy", {{0, "Proved"}, {1, "Unknown"}}, "UnreliablyProved", "Unknown", pos::UNKNOWN, {}, 0},
        {"always", {{0, "Proved"}, {1, "Disproved"}}, "Proved", "Disproved", pos::DISPROVED, {}, 0},
        {"never", {{0, "Proved"}, {1, "Disproved"}}, "Disproved", "Disproved", pos::DISPROVED, {}, wrapped},
        // clang-format on
    };
    for (std::size_t r = 0; r < rows.size(); ++r) {
        const Row& row = rows[r];
        writeMechanism(row.trust, {"d1", "d2"});
        writePos({{"G", {goal("Unproved", "Unproved", {{"d1", "Proved"}, {"d2", "Disproved"}})}}});
        auto director = makeDirector();
        ASSERT_TRUE(director->reloadPosFile());
        for (const auto& step : row.steps) {
            director->setDriver(director->getMechanism().drivers.at(step.first));
            director->updateStatus({0, 0}, step.second);
        }
        const ProofDirector::po_data_t& po = director->getPoTable()[0].second[0];
        const std::string name = "row " + std::to_string(r) + " (" + row.trust + ")";
        EXPECT_EQ(goalStatus(*director, {0, 0}), row.goal) << name;
        EXPECT_EQ(po.element.attribute("status"), row.mechanism) << name;
        EXPECT_EQ(po.status, row.status) << name;
        EXPECT_EQ(po.drivers, row.drivers) << name;
        EXPECT_EQ(director->getUnprovedCount(), row.unproved) << name;
        QDomElement d = po.element.firstChildElement("Driver");
        if (row.steps.back().first == 1)
            d = d.nextSiblingElement("Driver");
        EXPECT_EQ(d.attribute("status"), row.steps.back().second) << name;
    }
}

TEST_F(DirectorTest, SavingKeepsTheUsersFile) {
    writeMechanism("never", {"d"});
    writePos({{"G", {goal("Unproved", "Unproved", settledByD)}}});
    auto director = makeDirector();
    ASSERT_TRUE(director->reloadPosFile());
    QFile::remove(path("comp.pos"));
    EXPECT_FALSE(director->savePosFile());
    EXPECT_FALSE(QFile::exists(path("comp.pos"))) << "a status file is never created";

    // A Latin-1 file stays Latin-1, through a symbolic link, with its permissions.
    const QByteArray latin1 =
        "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n<Proof_Obligations><Proof_Obligation>"
        "<Tag>Op\xe9ration_\xe0</Tag><Simple_Goal status=\"Unproved\"><Mechanism name=\"m\" "
        "status=\"Unproved\"/></Simple_Goal></Proof_Obligation></Proof_Obligations>\n";
    ASSERT_TRUE(QDir().mkpath(path("real")));
    testutil::writeFile(path("real/comp.pos"), latin1);
    const auto mode = QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadGroup;
    QFile::setPermissions(path("real/comp.pos"), mode);
    ASSERT_TRUE(QFile::link(path("real/comp.pos"), path("comp.pos")));
    QByteArray first;
    for (int cycle = 0; cycle < 10; ++cycle) {
        auto again = makeDirector();
        ASSERT_TRUE(again->reloadPosFile() && again->savePosFile()) << "cycle " << cycle;
        EXPECT_EQ(again->getPoTable()[0].first, "Op\xc3\xa9ration_\xc3\xa0");
        const QByteArray saved = testutil::readFile(path("real/comp.pos"));
        first = cycle == 0 ? saved : first;
        EXPECT_EQ(saved, first) << "cycle " << cycle;
    }
    EXPECT_TRUE(first.contains("Op\xe9ration_\xe0") && first.contains("author=\"proof_director\""));
    EXPECT_TRUE(QFileInfo(path("comp.pos")).isSymLink());
    EXPECT_EQ(QFile::permissions(path("real/comp.pos")) &
                  ~(QFileDevice::ReadUser | QFileDevice::WriteUser),
              mode);
    EXPECT_EQ(QDir(path("real")).entryList(QDir::Files), QStringList{"comp.pos"});

    // A declaration Qt would write back broken (a quote in a value, an unknown
    // encoding) gives way to UTF-8 rather than leave a file that does not parse.
    for (const char* encoding : {"ISO'8859-1", "no-such-codec"}) {
        testutil::writeFile(path("real/comp.pos"), "<?xml version=\"1.0\" encoding=\"" +
                                                       QByteArray(encoding) +
                                                       "\"?>\n<Proof_Obligations/>\n");
        auto director = makeDirector();
        ASSERT_TRUE(director->reloadPosFile() && director->savePosFile()) << encoding;
        EXPECT_FALSE(pos::documentOfFile(path("comp.pos")).isNull()) << encoding;
    }
    QFile::setPermissions(path("real/comp.pos"), QFileDevice::ReadOwner);
    auto readOnly = makeDirector();
    ASSERT_TRUE(readOnly->reloadPosFile());
    const QByteArray before = testutil::readFile(path("real/comp.pos"));
    EXPECT_FALSE(readOnly->savePosFile()) << "not even when run as root";
    EXPECT_EQ(testutil::readFile(path("real/comp.pos")), before);
}

TEST_F(DirectorTest, SinglePoModeEchoesTheModelAndUpdatesNothing) {
    testutil::writeScript(path("model.sh"),
                          "cat >/dev/null\necho Disproved\necho 'x = 1'\necho 'y = 2'\n");
    testutil::writeFile(path("m.xml"),
                        faketools::mechanismXml("always", {{"d", "none", tools.writer(),
                                                            tools.prover(), path("model.sh")}}));
    writePos({{"A", {goal("Unproved", "Unproved", settledByD)}},
              {"B", std::vector<GoalSpec>(2, goal("Unproved", "Unproved", {}))}});
    ASSERT_TRUE(QDir().mkpath(path("tmp")));
    auto director = makeDirector("B.2");
    EXPECT_EQ(captured([&] { director->replay(); }),
              "\tProof driver d, still 3 unproved PO\n\t\tA\n\t\t\t\n\t\tB\n\t\t\t-model:\nx = "
              "1\ny = 2\n\n\n\n");
    EXPECT_TRUE(testutil::readFile(tools.writerLog()).endsWith(" -m\n"));
    const QByteArray saved = testutil::readFile(path("comp.pos"));
    EXPECT_TRUE(saved.contains("author=\"proof_director\"")) << "saved although unchanged";
    EXPECT_FALSE(saved.contains("Disproved"));
}

TEST_F(DirectorTest, StageWorkersHandOutEveryJobOnce) {
    writeMechanism("always", {"d"});
    writePos({{"G", std::vector<GoalSpec>(7, goal("Unproved", "Unproved", settledByD))}});
    ASSERT_TRUE(QDir().mkpath(path("tmp")));
    const auto inThreeThreads = [&](auto body) {
        auto director = makeDirector();
        EXPECT_TRUE(director->reloadPosFile());
        director->setDriver(director->getMechanism().drivers.at(0));
        ProofDirector::selection_t selection;
        director->selectForDriver(selection);
        director->produceWriterData(path("tmp"), "comp.pog", selection);
        director->produceProverData();
        std::vector<std::thread> threads;
        for (int n = 0; n < 3; ++n)
            threads.emplace_back([&] { body(*director); });
        for (std::thread& t : threads)
            t.join();
    };
    inThreeThreads([](ProofDirector& director) { director.writeJob(); });
    const QStringList calls =
        QString::fromUtf8(testutil::readFile(tools.writerLog())).split('\n', Qt::SkipEmptyParts);
    EXPECT_EQ(QSet<QString>(calls.begin(), calls.end()).size(), 7);
    EXPECT_EQ(calls.size(), 7);
    const std::string marks =
        captured([&] { inThreeThreads([](ProofDirector& director) { director.proveJob(); }); });
    EXPECT_EQ(marks, "\t\tG\n\t\t\t+++++++");
    EXPECT_EQ(testutil::readFile(path("comp.pos")).count("status=\"Proved\""), 7 * 3);
}
