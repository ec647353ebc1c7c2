// The director on small mechanism and .pos files: loading, selection, job building,
// playing, errors and saving, on the shared scene's fake tools.

#include "common/scene.h"

#include <QFile>
#include <QFileInfo>
#include <gtest/gtest.h>

using scene::GoalSpec;
using scene::POS;
using scene::Scene;

namespace {

GoalSpec goal(const QString& status, const QString& mechanismStatus,
              std::vector<std::pair<QString, QString>> drivers, bool hasMechanism = true) {
    return GoalSpec{status, "Unproved", hasMechanism, mechanismStatus, std::move(drivers)};
}

const GoalSpec settled = scene::settledBy("d");
const GoalSpec open = goal("Unproved", "Unproved", {});
const GoalSpec unregistered = goal("Unproved", "Unproved", {}, false);

} // namespace

// A failed load after a good one must leave nothing that a save could write over the file.
TEST(Director, LoadThatFailsLeavesNothingToSave) {
    const QByteArray garbage = scene::posXml("m", {{"G", {open}}}).chopped(30);
    for (const bool firstPlay : {false, true}) {
        Scene s;
        auto director = s.director();
        ASSERT_TRUE(director->reloadPosFile()) << firstPlay;
        s.put(POS, garbage);
        EXPECT_FALSE(firstPlay ? director->loadPosFile() : director->reloadPosFile()) << firstPlay;
        EXPECT_TRUE(director->getPoTable().empty() && director->getDocument().isNull());
        EXPECT_FALSE(director->savePosFile()) << firstPlay;
        EXPECT_EQ(s.state(POS), garbage) << firstPlay;
    }
}

// play() saves the registration, then plays every driver on every goal it leaves open.
TEST(Director, PlayRegistersAndPlaysEveryDriver) {
    Scene s;
    s.writeMechanism("redundancy", {"d1", "d2"});
    s.writePos({{"G", {unregistered, unregistered}}});
    s.setAnswers("0 0 Disproved\n");
    EXPECT_EQ(scene::capturedStdout([&] { s.director()->play(); }),
              "\tProof driver d1, still 2 unproved PO\n\t\tG\n\t\t\t!*\n\n"
              "\tProof driver d2, still 0 unproved PO\n\t\tG\n\t\t\t+\n\n");
    EXPECT_EQ((s.goalStatus(0, 0) + " " + s.goalStatus(0, 1)).toStdString(), "Disproved Proved");
    EXPECT_EQ(testutil::readFile(s.writerLog()).count('\n'), 3) << "d2 on goal 1 only";
    s.writePos({{"G", {goal("Proved", "Unproved", {}, false)}}});
    scene::capturedStdout([&] { s.director()->play(); });
    EXPECT_TRUE(s.state(POS).contains("<Mechanism name=\"m\"")) << "saved with nothing to play";
}

TEST(Director, DriverFilterAndFastModeChooseTheDriversPlayed) {
    const std::tuple<const char*, std::string, bool, QStringList> rows[] = {
        {"everything", "", false, {"slow", "fast"}},
        {"filter", "slow", false, {"slow"}},
        {"unknown driver", "none", false, {}},
        {"fast only", "", true, {"fast"}},
        {"fast only and a slow driver", "slow", true, {}},
    };
    for (const auto& [name, filter, fastOnly, expected] : rows) {
        Scene s;
        s.drivers = {s.driver("slow"), s.driver("fast")};
        s.drivers[1].fast = true;
        s.writeMechanism();
        s.writePos(
            {{"G", {goal("Unproved", "Unproved", {{"slow", "Proved"}, {"fast", "Proved"}})}}});
        auto director = s.director("", filter, fastOnly);
        ASSERT_TRUE(director->reloadPosFile());
        const auto out =
            QString::fromStdString(scene::capturedStdout([&] { director->playDrivers(); }));
        QStringList played;
        for (const QString driver : {"slow", "fast"})
            if (out.contains("Proof driver " + driver + ","))
                played << driver;
        EXPECT_EQ(played, expected) << name;
    }
}

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
        scene::capturedStdout([&] { director->replay(); });
        EXPECT_EQ(director->getErrors(),
                  QStringList{QString(error).replace("$PO2", s.path("tmp/comp_m_d_0_0.po2"))})
            << name;
        EXPECT_EQ(s.goalStatus(0, 0), "Unproved") << name;
    }
}

TEST(Director, WriterJobsFollowTheDriverGroup) {
    Scene s;
    // Only a Proved or Disproved driver of an open goal and mechanism makes a job. Group B
    // has nothing for the driver: "related" numbers its files with gaps.
    const auto by = [](const QString& answer, const QString& mechanismStatus = "Unproved") {
        return goal("Unproved", mechanismStatus, {{"d", answer}});
    };
    s.writePos(
        {{"A", {settled, open}},
         {"B", {open}},
         {"C",
          {by("Disproved"), scene::settledBy("d", "Proved"), settled, by("Proved", "Unknown"),
           by("Unproved"), by("Unknown"), by("UnreliablyProved")}}});
    const QString tmp = s.path("tmp"), pog = s.path("comp.pog");
    const auto job = [&](const QString& a, const QString& file) {
        return a.split(' ') + QStringList{"-i", pog, "-o", tmp + "/" + file, "--level", "2", "-v"};
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
        d.writer.params = {{"--level", " ", "2"}, {"", " ", "-v"}};
        director->setDriver(d);
        ProofDirector::selection_t selection;
        director->selectForDriver(selection);
        director->produceWriterData(tmp, pog, selection);
        director->produceProverData();
        const auto& jobs = director->getWriterJobs();
        ASSERT_EQ(jobs.size(), expected.size()) << "group " << group;
        for (std::size_t i = 0; i < jobs.size(); ++i) {
            EXPECT_EQ(jobs[i].args, expected[i]) << "group " << group << " job " << i;
            EXPECT_EQ(jobs[i].po2filename, jobs[i].args.at(jobs[i].args.indexOf("-o") + 1));
            EXPECT_EQ(director->getProverJobs().at(i).addresses, jobs[i].positions);
        }
    }
}

TEST(Director, ParametersBecomeWordsByTheirSeparator) {
    const QString null, empty = QLatin1String("");
    const std::tuple<const char*, mechanism::param_t, QStringList, QStringList> rows[] = {
        // name, parameter, writer's words, prover's and reader's words
        // clang-format off
        {"blank separator", {"-t", " ", "30"}, {"-t", "30"}, {"-t", "30"}},
        {"equals", {"--t", "=", "30"}, {"--t=30"}, {"--t=30"}},
        {"two blanks", {"-t", "  ", "30"}, {"-t  30"}, {"-t", "30"}},
        {"empty separator", {"-t", empty, "30"}, {"-t30"}, {"-t", "30"}},
        {"null name", {null, " ", "v"}, {"v"}, {"v"}},
        {"empty name", {empty, "=", "v"}, {"v"}, {"=v"}},
        {"empty value", {"-x", "=", empty}, {"-x"}, {"-x="}},
        {"file placeholder", {"--in", "=", "${file}.smt"}, {"--in=${file}.smt"}, {"--in=/t/f.po2.smt"}},
        // clang-format on
    };
    for (const auto& [name, param, writerWords, proverWords] : rows) {
        mechanism::tool_t tool;
        tool.params = {param};
        QStringList writer, prover;
        addParametersBits(writer, tool);
        append_param(param, prover, "/t/f.po2");
        EXPECT_EQ(writer, writerWords) << name;
        EXPECT_EQ(prover, proverWords) << name;
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
    s.writePos({{"A", {settled}}, {"B", {open, open}}});
    EXPECT_EQ(scene::capturedStdout([&] { s.director("B.2")->replay(); }),
              "\tProof driver d, still 3 unproved PO\n\t\tA\n\t\t\t\n\t\tB\n\t\t\t-model:\nx = "
              "1\ny = 2\n\n\n\n");
    EXPECT_EQ(testutil::readFile(s.writerLog()),
              "-a 0 1 -i " + s.path("comp.pog").toUtf8() + " -o " +
                  s.path("tmp/comp_m_d_0.po2").toUtf8() + " -m\n");
    const QByteArray saved = s.state(POS);
    EXPECT_TRUE(saved.contains("author=\"proof_director\"") && !saved.contains("Disproved"))
        << "saved although unchanged, and without the answer";
}

// The file is never created; a Latin-1 file stays Latin-1 through a symbolic link; a
// declaration Qt would write back broken (a quote, an unknown encoding) gives way to UTF-8.
TEST(Director, SavingKeepsTheUsersFile) {
    Scene s;
    auto director = s.director();
    ASSERT_TRUE(director->reloadPosFile());
    s.put(POS, scene::NONE);
    EXPECT_TRUE(!director->savePosFile() && s.state(POS) == scene::NONE) << "never created";
    s.put("real", scene::FOLDER);
    ASSERT_TRUE(QFile::link(s.path("real/comp.pos"), s.path(POS)));
    const QByteArray tail = "\"?>\n<Proof_Obligations><Proof_Obligation><Tag>Op\xe9ration_\xe0"
                            "</Tag></Proof_Obligation></Proof_Obligations>\n";
    for (const QByteArray encoding : {"ISO-8859-1", "ISO'8859-1", "no-such-codec"}) {
        s.put("real/comp.pos", "<?xml version=\"1.0\" encoding=\"" + encoding + tail);
        for (int cycle = 0; cycle < 2; ++cycle) { // the second reads what the first wrote
            auto again = s.director();
            ASSERT_TRUE(again->reloadPosFile() && again->savePosFile()) << encoding.constData();
            const std::string tag = again->getPoTable().at(0).first;
            EXPECT_TRUE(encoding != "ISO-8859-1" || tag == "Op\xc3\xa9ration_\xc3\xa0") << tag;
        }
    }
    EXPECT_TRUE(QFileInfo(s.path(POS)).isSymLink() && s.state("real/comp.pos").contains("author="));
}
