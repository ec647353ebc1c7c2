// Whole runs of povrun over the fake tools: the protocol, first play, traces, concurrency
// and a reader that says more than a pipe holds.

#include "common/scene.h"
#include "pos/pos.h"

#include <QSet>
#include <gtest/gtest.h>

using scene::POS;
using scene::Scene;
using scene::settledBy;

namespace {

std::string expected(const char* name) {
    return testutil::readFile(POVRUN_SOURCE_DIR "/tests/cli/" + QString(name)).toStdString();
}

} // namespace

TEST(Replay, ProtocolShowsDriversHeadingsAndMarks) {
    for (const char* form : {"plain", "xml"}) {
        Scene s;
        s.writeMechanism("always", {"d1", "d2"});
        s.writePos({{"G0", {settledBy("d1"), settledBy("d1")}},
                    {"G1", {settledBy("d1", "Proved")}},
                    {"G2", {settledBy("d1")}}});
        s.setAnswers("0 0 Proved\n0 1 Disproved\n2 0 Unknown\n");
        const bool xml = QString(form) == "xml";
        const testutil::RunResult r = s.run(xml ? QStringList{"-x"} : QStringList{});
        EXPECT_EQ(r.exitCode, 0) << form;
        EXPECT_EQ(r.out + r.err, expected(xml ? "protocol_xml.expected" : "protocol.expected"))
            << form;
        EXPECT_EQ(s.goalStatus(0, 0) + s.goalStatus(0, 1) + s.goalStatus(2, 0),
                  "ProvedDisprovedUnproved");
    }
}

// A first play registers the mechanism and plays every driver on every goal it leaves
// unproved; a later replay, once the results are forgotten, plays only what it settled.
TEST(Replay, FirstPlayRegistersTheMechanismAndReplayFollowsIt) {
    Scene s;
    s.writeMechanism("always", {"d1", "d2"});
    scene::GoalSpec bare;
    bare.hasMechanism = false;
    s.writePos({{"G", {bare, bare, bare}}});
    s.setAnswers("0 0 Proved\n0 1 Unknown\n0 2 Disproved\n");
    const testutil::RunResult first = s.run({"--first-play"});
    EXPECT_EQ(std::to_string(first.exitCode) + first.out + first.err,
              "0" + expected("first_play.expected"));

    QDomDocument doc = pos::documentOfFile(s.path(POS));
    pos::unprove(doc);
    s.put(POS, doc.toByteArray(pos::XML_INDENT));
    const testutil::RunResult replay = s.run();
    EXPECT_EQ(std::to_string(replay.exitCode) + replay.out + replay.err,
              "0" + expected("replay_after_first_play.expected"));
}

TEST(Replay, TraceLevelOneTellsWhatHappens) {
    Scene s;
    s.writePos({{"G", {settledBy("d"), settledBy("d")}}});
    const testutil::RunResult traced = s.run({"-t", "1", "-c", "2"});
    EXPECT_EQ(traced.exitCode, 0);
    const QString log = QString::fromStdString(traced.err);
    EXPECT_EQ(log.count("-- ProofDirector -- Playing 0-th driver (d)\n"), 2) << traced.err;
    EXPECT_EQ(log.count("-- Proof Director -- Thread "), 4) << "writes and proves, per job";
    EXPECT_TRUE(log.contains("-- ProofDirector -- Issuing writing command " + s.path("writer.sh") +
                             " -a 0 1 -i comp.pog"));
    EXPECT_TRUE(log.endsWith("-- ProofDirector -- Destroyed ProofDirector for component comp\n"));
    EXPECT_EQ(s.run({"-t", "2"}).err.find("ProofDirector"), std::string::npos)
        << "only level 1 traces";
}

TEST(Replay, ConcurrencyRunsEveryJobOnceWithTheSameResult) {
    std::vector<scene::GroupSpec> groups;
    for (int g = 0; g < 4; ++g)
        groups.push_back({QStringLiteral("G%1").arg(g), {10, settledBy("d")}});
    for (const char* input : {"stdin", "file"}) {
        QByteArray results[2];
        const char* levels[2] = {"1", "4"};
        for (int run = 0; run < 2; ++run) {
            Scene s;
            s.drivers[0].input = input;
            s.writeMechanism();
            s.writePos(groups);
            s.setAnswers("1 3 Disproved\n2 5 Unknown\n3 9 garbage\n");
            const testutil::RunResult r = s.run({"-c", levels[run]});
            EXPECT_EQ(std::to_string(r.exitCode) + r.err, "0") << input << " -c " << levels[run];
            results[run] = s.state(POS);
            const QStringList calls = QString::fromUtf8(testutil::readFile(s.writerLog()))
                                          .split('\n', Qt::SkipEmptyParts);
            EXPECT_EQ(calls.size(), 40) << input << " -c " << levels[run];
            EXPECT_EQ(QSet<QString>(calls.begin(), calls.end()).size(), 40) << "each job once";
        }
        EXPECT_EQ(results[0], results[1]) << input;
    }
}

// The reader fills its pipe before it reads a word, while the prover still runs: povrun
// must drain the pipe at once, not after both tools have ended.
TEST(Replay, ReaderThatSaysMoreThanAPipeHoldsIsReadWhileTheProverRuns) {
    Scene s;
    testutil::writeScript(s.path("prover.sh"), "sleep 0.3\ncat\n");
    testutil::writeScript(s.path("reader.sh"), "seq 200000\ncat >/dev/null\n");
    s.drivers[0].prover = s.path("prover.sh");
    s.drivers[0].reader = s.path("reader.sh");
    s.writeMechanism();
    const testutil::RunResult r = s.run({}, 10000);
    EXPECT_TRUE(!r.timedOut && r.exitCode == 0);
    EXPECT_EQ(r.err, "Unexpected number of results. Expected: 1 Found: 200000\n");
    EXPECT_EQ(s.goalStatus(0, 0), "Unproved");
}
