// The director on small mechanism and .pos files: loading, selection, job building,
// playing, errors, the trust rule and the dumps, on the shared scene's fake tools.

#include "common/scene.h"

#include <gtest/gtest.h>
#include <sstream>

using scene::GoalSpec;
using scene::POS;
using scene::Scene;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

static GoalSpec goal(const QString& status, const QString& mechanismStatus,
                     std::vector<std::pair<QString, QString>> drivers, bool hasMechanism = true) {
    return GoalSpec{status, hasMechanism, mechanismStatus, std::move(drivers)};
}

const GoalSpec settled = scene::settledBy("d");
const GoalSpec unsettled = goal("Unproved", "Unproved", {});
const GoalSpec unregistered = goal("Unproved", "Unproved", {}, false);

template <typename T> static std::string dumped(const T& value) {
    std::ostringstream out;
    out << value;
    return out.str();
}

// A failed load after a good one must leave nothing that a save could write over the file:
// a file cut short, reloaded or loaded for a first play, and a goal without the mechanism.
TEST(Director, LoadThatFailsLeavesNothingToSave) {
    for (const int fault : {0, 1, 2}) {
        Scene s;
        auto director = s.director();
        ASSERT_TRUE(director->reloadPosFile());
        const QByteArray bad =
            fault < 2 ? s.state(POS).chopped(30) : s.state(POS).replace("name=\"m\"", "name=\"x\"");
        s.put(POS, bad);
        EXPECT_FALSE(fault == 1 ? director->loadPosFile() : director->reloadPosFile()) << fault;
        EXPECT_TRUE(director->getPoTable().empty() && director->getDocument().isNull()) << fault;
        EXPECT_FALSE(director->savePosFile()) << fault;
        EXPECT_EQ(s.state(POS), bad) << fault;
    }
}

// A stop before any answer leaves the file as it was, byte for byte; after one, it saves.
TEST(Director, StopSavesOnlyWhatTheFileLacks) {
    for (const bool answered : {false, true}) {
        Scene s;
        const QByteArray before = s.state(POS);
        // A stopped director keeps its locks for good: it is never destroyed, and kept
        // reachable it is no leak.
        static auto* stopped = new std::vector<ProofDirector*>();
        ProofDirector* director = stopped->emplace_back(s.director().release());
        ASSERT_TRUE(director->reloadPosFile());
        if (answered)
            director->updateStatus({0, 0}, "Disproved");
        director->stop();
        EXPECT_EQ(s.state(POS) == before, !answered);
    }
}

// play() saves the registration, then plays every driver on every goal it leaves open.
TEST(Director, PlayRegistersAndPlaysEveryDriver) {
    Scene s;
    s.writeMechanism("redundancy", {"d1", "d2"});
    s.writePos({{"G", {unregistered, unregistered}}});
    s.setAnswers("0 0 Disproved\n");
    CaptureStdout();
    s.director()->play();
    EXPECT_EQ(GetCapturedStdout(), "\tProof driver d1, still 2 unproved PO\n\t\tG\n\t\t\t!*\n\n"
                                   "\tProof driver d2, still 0 unproved PO\n\t\tG\n\t\t\t+\n\n");
    EXPECT_EQ((s.goalStatus(0, 0) + " " + s.goalStatus(0, 1)).toStdString(), "Disproved Proved");
    s.writePos({{"G", {goal("Proved", "Unproved", {}, false)}}});
    s.director()->play();
    EXPECT_TRUE(s.state(POS).contains("<Mechanism name=\"m\"")) << "saved with nothing to play";
    s.writePos({{"G", {goal("Unknown", "Unproved", {}, false)}}});
    s.director()->play();
    EXPECT_EQ(s.goalStatus(0, 0), "Disproved") << "an unknown goal starts again as unproved";
}

// Which drivers a goal of drivers d1 and d2 gets: a replay takes those that settled it, a
// retry adds those that left it Unknown (under an element Unproved or Unknown), a first play
// takes all under an element Unproved and, retrying, the Unknown ones under one Unknown.
TEST(Director, RetryAddsTheDriversThatLeftAGoalUnknown) {
    // first play, retry, goal status, element status, d1's and d2's statuses, drivers given
    const std::tuple<bool, bool, const char*, const char*, const char*, const char*, QString>
        rows[] = {
            {false, false, "Unproved", "Unproved", "Proved", "Unknown", "d1"},
            {false, true, "Unproved", "Unproved", "Proved", "Unknown", "d1 d2"},
            {false, true, "Unproved", "Unknown", "Proved", "Unknown", "d2"},
            {false, true, "UnreliablyProved", "Unknown", "Unproved", "Unknown", ""},
            {true, false, "Unproved", "Unknown", "Unproved", "Unknown", ""},
            {true, true, "Unproved", "Unknown", "Unproved", "Unknown", "d2"},
            {true, true, "Unproved", "Unproved", "Disproved", "Unknown", "d1 d2"},
        };
    for (const auto& [firstPlay, retry, goalStatus, element, d1, d2, expected] : rows) {
        Scene s;
        s.writeMechanism("redundancy", {"d1", "d2"});
        s.writePos({{"G", {goal(goalStatus, element, {{"d1", d1}, {"d2", d2}})}}});
        auto director = s.director();
        director->setPlayOptions({retry, false});
        firstPlay ? director->loadPosFile() : director->reloadPosFile();
        EXPECT_EQ(director->getPoTable().at(0).second.at(0).drivers.join(' '), expected)
            << firstPlay << retry << goalStatus << element << d1 << d2;
    }
}

TEST(Director, DriverFilterAndFastModeChooseTheDriversPlayed) {
    Scene s;
    s.drivers = {s.driver("slow"), s.driver("fast")};
    s.drivers[1].fast = true;
    s.writeMechanism();
    // filter, fast only, the drivers played
    const std::tuple<std::string, bool, QString> rows[] = {
        {"", false, "slow fast"}, {"slow", false, "slow"}, {"", true, "fast"}};
    for (const auto& [filter, fastOnly, expected] : rows) {
        s.writePos(
            {{"G", {goal("Unproved", "Unproved", {{"slow", "Proved"}, {"fast", "Proved"}})}}});
        CaptureStdout();
        s.director("", filter, fastOnly)->replay();
        const QString out = QString::fromStdString(GetCapturedStdout());
        QStringList played;
        for (const QString driver : {"slow", "fast"})
            if (out.contains("Proof driver " + driver + ","))
                played << driver;
        EXPECT_EQ(played.join(' '), expected) << filter << " " << fastOnly;
    }
}

// None of them is kept in a result cache.
TEST(Director, FailedJobsAreListedAsErrors) {
    const QByteArray crash = "cat >/dev/null; kill -SEGV $$\n";
    using scene::DriverSpec;
    const std::tuple<const char*, QString DriverSpec::*, QByteArray, QString> rows[] = {
        // clang-format off
        {"writer crashes", &DriverSpec::writer, crash, "Secondary proof obligation generation for driver d crashed."},
        {"writer writes nothing", &DriverSpec::writer, "exit 0\n", "Secondary proof obligation for driver d not found in file $PO2."},
        {"prover crashes", &DriverSpec::prover, crash, "Driver d prover crashed."},
        {"reader crashes", &DriverSpec::reader, crash, "Driver d reader crashed."},
        {"reader answers twice", &DriverSpec::reader, "cat >/dev/null; echo Proved; echo Proved\n", "Unexpected number of results from driver d reader."},
        // clang-format on
    };
    for (const auto& [name, tool, script, error] : rows) {
        Scene s;
        testutil::writeScript(s.path("bad.sh"), script);
        s.drivers[0].*tool = s.path("bad.sh");
        s.writeMechanism();
        auto director = s.director();
        director::ResultCache cache(s.path("cache"));
        director->useCache(&cache);
        director->replay();
        EXPECT_EQ(director->getErrors(),
                  QStringList{QString(error).replace("$PO2", s.path("tmp/comp_m_d_0_0.po2"))})
            << name;
        EXPECT_EQ(s.goalStatus(0, 0), "Unproved") << name;
        EXPECT_EQ(director->getCacheCounts().stored, 0u) << name;
    }
}

// Only a Proved or Disproved driver of an open goal and mechanism makes a job; group B has
// nothing for the driver, so "related" numbers its files with gaps. The writer and the
// prover/reader make different words of the same parameters.
TEST(Director, JobsFollowTheDriverGroupAndTheParameters) {
    Scene s;
    s.writePos(
        {{"A", {settled, unsettled}},
         {"B", {unsettled}},
         {"C",
          {goal("Unproved", "Unproved", {{"d", "Disproved"}}), scene::settledBy("d", "Proved"),
           settled, goal("Unproved", "Unknown", {{"d", "Proved"}}),
           goal("Unproved", "Unproved", {{"d", "Unknown"}})}}});
    const QString null, empty = QLatin1String(""), tmp = s.path("tmp"), pog = s.path("comp.pog");
    const std::list<mechanism::param_t> params = {
        {"-t", " ", "30"}, {"--t", "=", "30"}, {"-t", "  ", "30"},          {null, "=", "v"},
        {empty, "=", "v"}, {"-x", "=", empty}, {"--in", "=", "${file}.smt"}};
    const QStringList writerWords = {"-t", "30", "--t=30", "-t  30",
                                     "v",  "v",  "-x",     "--in=${file}.smt"};
    const auto job = [&](const QString& a, const QString& file) {
        return a.split(' ') + QStringList{"-i", pog, "-o", tmp + "/" + file} + writerWords;
    };
    const std::vector<std::pair<mechanism::group_t, std::vector<QStringList>>> rows = {
        // clang-format off
        {mechanism::GROUP_NONE, {job("-a 0 0", "comp_m_d_0_0.xpo"), job("-a 2 0", "comp_m_d_2_0.xpo"), job("-a 2 2", "comp_m_d_2_2.xpo")}},
        {mechanism::GROUP_RELATED, {job("-a 0 0", "comp_m_d_0.xpo"), job("-a 2 0 -a 2 2", "comp_m_d_2.xpo")}},
        {mechanism::GROUP_FULL, {job("-a 0 0 -a 2 0 -a 2 2", "comp_m_d.xpo")}},
        // clang-format on
    };
    auto director = s.director();
    ASSERT_TRUE(director->reloadPosFile());
    for (const auto& [group, expected] : rows) {
        mechanism::driver_t d = director->getMechanism().drivers.at(0);
        d.group = group;
        d.ext = "xpo";
        d.writer.params = d.prover.params = params;
        d.reader.params = {params.front()};
        director->setDriver(d);
        ProofDirector::selection_t selection;
        director->selectForDriver(selection);
        director->produceWriterData(tmp, pog, selection);
        director->produceProverData();
        const auto& jobs = director->getWriterJobs();
        ASSERT_EQ(jobs.size(), expected.size()) << "group " << group;
        for (std::size_t i = 0; i < jobs.size(); ++i) {
            const ProofDirector::prover_data_t& prover = director->getProverJobs().at(i);
            EXPECT_EQ(jobs[i].args, expected[i]) << "group " << group << " job " << i;
            EXPECT_EQ(prover.addresses, jobs[i].positions);
            EXPECT_EQ(prover.argsp, (QStringList{"-t", "30", "--t=30", "-t", "30", "v", "=v",
                                                 "-x=", "--in=" + jobs[i].po2filename + ".smt"}));
            EXPECT_EQ(prover.argsr, (QStringList{"-t", "30"}));
        }
    }
}

// The selector takes its PO whatever the driver lists say; "related" writes k = 0.
TEST(Director, SinglePoModeEchoesTheModelAndUpdatesNothing) {
    Scene s;
    testutil::writeScript(s.path("model.sh"),
                          "cat >/dev/null; echo Disproved; echo 'x = 1\ny = 2'\n");
    s.drivers[0].reader = s.path("model.sh");
    s.drivers[0].group = "related";
    s.writeMechanism();
    s.writePos({{"A", {settled}}, {"B", {unsettled, unsettled}}});
    CaptureStdout();
    s.director("B.2")->replay();
    EXPECT_EQ(GetCapturedStdout(),
              "\tProof driver d, still 3 unproved PO\n\t\tA\n\t\t\t\n\t\tB\n\t\t\t-model:\nx = "
              "1\ny = 2\n\n\n\n");
    EXPECT_EQ(testutil::readFile(s.writerLog()),
              "-a 0 1 -i " + s.path("comp.pog").toUtf8() + " -o " +
                  s.path("tmp/comp_m_d_0.po2").toUtf8() + " -m\n");
    const QByteArray saved = s.state(POS);
    EXPECT_TRUE(saved.contains("author=\"proof_director\"") && !saved.contains("Disproved"))
        << "saved although unchanged, and without the answer";
}

// One reader answer after another on a goal of drivers d1 and d2: what the trust rule makes of
// the goal, of the mechanism element, of the drivers left and of the unproved count.
TEST(TrustRule, AnswersEditTheGoalTheMechanismAndTheCount) {
    // name, trust, steps {driver index, answer}, goal/mechanism statuses, drivers left,
    // unproved count (unsigned arithmetic: a second decrement wraps)
    using step_t = std::pair<int, const char*>;
    const std::tuple<const char*, const char*, std::vector<step_t>, const char*, QStringList,
                     uint32_t>
        rows[] = {
            // clang-format off
        {"an untrusted proof is unreliable", "never", {{0, "Proved"}}, "UnreliablyProved/UnreliablyProved", {}, 0},
        {"a first proof leaves the other driver", "redundancy", {{0, "Proved"}}, "UnreliablyProved/UnreliablyProved", {"d2"}, 0},
        {"a trusted proof drops the other driver", "always", {{0, "Proved"}}, "Proved/Proved", {}, 0},
        {"a second proof counts twice", "redundancy", {{0, "Proved"}, {1, "Proved"}}, "Proved/Proved", {}, 0xffffffffu},
        {"a third proof starts over", "redundancy", {{0, "Proved"}, {1, "Proved"}, {0, "Proved"}}, "Proved/UnreliablyProved", {}, 0xffffffffu},
        {"an earlier unknown changes nothing", "always", {{0, "Unknown"}}, "Unproved/Unproved", {"d2"}, 1},
        {"the last unknown marks the mechanism only", "always", {{1, "Unknown"}}, "Unproved/Unknown", {"d1"}, 1},
        {"the last unknown after a first proof", "redundancy", {{0, "Proved"}, {1, "Unknown"}}, "UnreliablyProved/Unknown", {}, 0},
        {"a disproof drops the other driver", "always", {{0, "Disproved"}}, "Disproved/Disproved", {}, 0},
        {"a disproof after a first proof", "redundancy", {{0, "Proved"}, {1, "Disproved"}}, "Disproved/Disproved", {}, 0xffffffffu},
        {"a disproof leaves a proved goal", "always", {{0, "Proved"}, {1, "Disproved"}}, "Proved/Disproved", {}, 0},
            // clang-format on
        };
    const GoalSpec start = goal("Unproved", "Unproved", {{"d1", "Proved"}, {"d2", "Disproved"}});
    for (const auto& [name, trust, steps, statuses, drivers, unproved] : rows) {
        scene::Scene s;
        s.writeMechanism(trust, {"d1", "d2"});
        s.writePos({{"G", {start}}});
        auto director = s.director();
        ASSERT_TRUE(director->reloadPosFile());
        for (const auto& step : steps) {
            director->setDriver(director->getMechanism().drivers.at(step.first));
            director->updateStatus({0, 0}, step.second);
        }
        const ProofDirector::po_data_t& po = director->getPoTable()[0].second[0];
        const QDomElement m = po.element, goal = m.parentNode().toElement();
        EXPECT_EQ((goal.attribute("status") + "/" + m.attribute("status")).toStdString(), statuses)
            << name;
        EXPECT_EQ(pos::strOfProofStatus(po.status), m.attribute("status")) << name;
        const auto [driver, answer] = steps.back();
        EXPECT_EQ(m.elementsByTagName("Driver").at(driver).toElement().attribute("status"), answer)
            << name;
        EXPECT_EQ(po.drivers, drivers) << name;
        EXPECT_EQ(director->getUnprovedCount(), unproved) << name;
    }
}

// "argsr:" repeats the prover's arguments, not the reader's: kept so for the tools that
// read the dump.
TEST(Dumps, DirectorJobsAndRecordsShowEveryField) {
    scene::Scene s;
    auto director = s.director();
    EXPECT_EQ(dumped(*director), "pos: " + s.path(scene::POS).toStdString() +
                                     "\npog: " + s.path("comp.pog").toStdString() + "\ndir: " +
                                     s.path("tmp").toStdString() + "\nloaded: 1\nmechanism:\n" +
                                     dumped(director->getMechanism()) + "concurrency:1\n");
    const std::vector<ProofDirector::po_address_t> positions{{0, 1}, {2, 3}};
    ProofDirector::writer_data_t writer{"/w", {"-a", "0", "1"}, "/t/f.po2", positions};
    EXPECT_EQ(dumped(writer), "cmd: /w\nargs: -a 0 1\npo2filename: /t/f.po2\n"
                              "positions: {0, 1}{2, 3}\n");
    ProofDirector::prover_data_t prover{"/p", {"-x", "f"}, "/r", {"-y"}, "/t/f.po2", positions};
    EXPECT_EQ(dumped(prover), "cmdp: /p\nargsp: -x f\ncmdr:/r\nargsr:-x f\ninpath:/t/f.po2\n"
                              "po addresses:\t0\t1\t2\t3\n");
    QDomDocument doc;
    ProofDirector::po_data_t po{pos::UNRELIABLY_PROVED, {"d1", "d2"}, doc.createElement("M")};
    po.element.setAttribute("status", "Unproved");
    EXPECT_EQ(dumped(po),
              "{<M status=\"Unproved\"/>\n, " + dumped(pos::UNRELIABLY_PROVED) + ", {d1 d2}}");
    ProofDirector::po_table_t table{{"G", {po, po}}};
    EXPECT_EQ(dumped(table), "G\n" + dumped(po) + "\n" + dumped(po) + "\n");
}
