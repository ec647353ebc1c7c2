// The built povrun as a user runs it: usage, validation, traces and option forms, then
// whole runs over the fake tools: the protocol, first play and concurrency.

#include "common/scene.h"
#include "pos/pos.h"

#include <QFile>
#include <QSet>
#include <gtest/gtest.h>
#include <tuple>

using scene::POS;
using scene::Scene;
using scene::settledBy;

namespace {

const QStringList COMPLETE = {"-d", "tmp", "-s", "a.pos", "-p", "a.pog", "-m", "m.xml"};

std::string expected(const char* name) {
    return testutil::readFile(POVRUN_SOURCE_DIR "/tests/cli/" + QString(name)).toStdString();
}

} // namespace

// getopt's own diagnostic names the program as invoked; validation adds nothing. A run
// needs a temporary folder, a status and an obligation file, one mechanism file or folder,
// and a concurrency of at least 1. The first of -h and --version wins. An optional long
// option without an attached value gets none (the next word is an operand): the run ends
// in an error that users' scripts match, never in a core dump.
TEST(CommandLine, EachCommandLineGetsItsAnswerAndStatus) {
    const std::string usage = expected("usage.expected");
    const std::string version = "povrun " POVRUN_PROJECT_VERSION "\n";
    const std::string null = "povrun: basic_string: construction from null is not valid\n";
    const auto with = [](const QString& option) { return COMPLETE + QStringList{option, "2"}; };
    const auto needs = [](const std::string& option) {
        return "povrun: option '" + option + "' needs an attached value\n";
    };
    const struct {
        QStringList args;
        std::string out, err;
    } rows[] = {
        {{"--help"}, usage, ""},
        {{"-h", "--version"}, usage, ""},
        {{"--version", "-h"}, version, ""},
        {{"-z"}, usage, POVRUN_BIN ": invalid option -- 'z'\n"},
        {COMPLETE.mid(0, 7), usage, POVRUN_BIN ": option requires an argument -- 'm'\n"},
        {COMPLETE.mid(2), usage, ""},
        {COMPLETE.mid(0, 2) + COMPLETE.mid(4), usage, ""},
        {COMPLETE.mid(0, 4) + COMPLETE.mid(6), usage, ""},
        {COMPLETE.mid(0, 6), usage, ""},
        {COMPLETE + QStringList{"-M", "d"}, usage, ""},
        {COMPLETE + QStringList{"-c", "0"}, usage, ""},
        {with("--mechanism"), "", null},
        {with("--mechanism-directory"), "", null},
        {with("--installdir"), "", null},
        {with("--concurrency"), "", needs("--concurrency")},
        {with("--trace"), "", needs("--trace")},
    };
    for (const auto& row : rows) {
        const testutil::RunResult r = testutil::runPovrun(row.args);
        const std::string name = row.args.join(' ').toStdString();
        EXPECT_TRUE(!r.crashed && r.exitCode == (row.out == version ? 0 : 1)) << name;
        EXPECT_EQ(r.out, row.out) << name;
        EXPECT_EQ(r.err, row.err) << name;
    }
}

// Any non-zero level shows the command line first, even one that fails validation: every
// word including the program, and a blank before the closing quote. Level 1 alone then
// tells what the director does.
TEST(CommandLine, TraceShowsTheCommandLineAndLevelOneWhatHappens) {
    EXPECT_EQ(testutil::runPovrun({"-t", "-1", "-s", "a b.pos"}).err,
              "[povrun]\ncommand = \"" POVRUN_BIN " -t -1 -s a b.pos \"\n");
    Scene s;
    s.writePos({{"G", {settledBy("d"), settledBy("d")}}});
    const QString log = QString::fromStdString(s.run({"-t", "1", "-c", "2"}).err);
    EXPECT_EQ(log.count("-- ProofDirector -- Playing 0-th driver (d)\n"), 2) << log.toStdString();
    EXPECT_EQ(log.count("-- Proof Director -- Thread "), 4) << "writes and proves, per job";
    EXPECT_TRUE(log.contains("-- ProofDirector -- Issuing writing command " + s.path("writer.sh") +
                             " -a 0 1 -i comp.pog"));
    EXPECT_EQ(s.run({"-t", "2"}).err.find("ProofDirector"), std::string::npos)
        << "only level 1 traces";
}

TEST(Replay, ProtocolShowsDriversHeadingsAndMarks) {
    for (const bool xml : {false, true}) {
        Scene s;
        s.writeMechanism("always", {"d1", "d2"});
        s.writePos({{"G0", {settledBy("d1"), settledBy("d1")}},
                    {"G1", {settledBy("d1", "Proved")}},
                    {"G2", {settledBy("d1")}}});
        s.setAnswers("0 0 Proved\n0 1 Disproved\n2 0 Unknown\n");
        const testutil::RunResult r = s.run(xml ? QStringList{"-x"} : QStringList{});
        EXPECT_EQ(std::to_string(r.exitCode) + r.out + r.err,
                  "0" + expected(xml ? "protocol_xml.expected" : "protocol.expected"));
    }
}

// A first play registers the mechanism and plays every driver on every goal it leaves
// unproved; a later replay, once the results are forgotten, plays only what it settled.
// What a first play prints is the director's test.
TEST(Replay, FirstPlayRegistersTheMechanismAndReplayFollowsIt) {
    Scene s;
    s.writeMechanism("always", {"d1", "d2"});
    const scene::GoalSpec bare{"Unproved", false, "Unproved", {}}; // no mechanism
    s.writePos({{"G", {bare, bare, bare}}});
    s.setAnswers("0 0 Proved\n0 1 Unknown\n0 2 Disproved\n");
    EXPECT_EQ(s.run({"--first-play"}).exitCode, 0);
    QDomDocument doc = pos::documentOfFile(s.path(POS));
    pos::unprove(doc);
    s.put(POS, doc.toByteArray(pos::XML_INDENT));
    const testutil::RunResult replay = s.run();
    EXPECT_EQ(std::to_string(replay.exitCode) + replay.out + replay.err,
              "0" + expected("replay_after_first_play.expected"));
}

// Four workers must leave the file that one worker leaves, and run each job once, also
// beside a make jobserver that cannot be used; level 1 traces which case applied.
TEST(Replay, ConcurrencyRunsEveryJobOnceWithTheSameResult) {
    const std::tuple<const char*, QByteArray, std::string> runs[] = {
        {"1", "", "Job slots: no jobserver in MAKEFLAGS"},
        {"4", "", "Job slots: no jobserver in MAKEFLAGS"},
        {"4", " -j4 --jobserver-auth=3,4", "Job slots: jobserver 3,4 cannot be used ("},
        {"4", "--jobserver-fds=0,1", "jobserver 0,1 cannot be used (not the two ends of one pipe)"},
        {"4", "--jobserver-auth=fifo:/gone/fifo", "(No such file or directory)"},
    };
    QByteArray first;
    for (const auto& [concurrency, makeflags, trace] : runs) {
        Scene s;
        s.writePos(std::vector<scene::GroupSpec>(4, {"G", {10, settledBy("d")}}));
        s.setAnswers("1 3 Disproved\n2 5 Unknown\n3 9 garbage\n");
        qputenv("MAKEFLAGS", makeflags);
        const testutil::RunResult r = s.run({"-c", concurrency, "-t", "1"});
        qunsetenv("MAKEFLAGS");
        const std::string name = makeflags.toStdString() + " -c " + concurrency;
        EXPECT_EQ(r.exitCode, 0) << name;
        EXPECT_NE(r.err.find(trace), std::string::npos) << r.err;
        EXPECT_EQ(r.err.find("povrun: "), std::string::npos) << r.err;
        first = first.isEmpty() ? s.state(POS) : first;
        EXPECT_EQ(s.state(POS), first) << name;
        const QStringList calls =
            QString(testutil::readFile(s.writerLog())).split('\n', Qt::SkipEmptyParts);
        EXPECT_EQ(calls.size(), 40) << name;
        EXPECT_EQ(QSet<QString>(calls.begin(), calls.end()).size(), 40) << "each job once";
    }
}

// A user's second hour, without editing the status file: a first play from a truncated
// mechanism file registers it without drivers, and only a reset plays it once fixed; a goal
// left Unknown at 2 s is retried alone once the limit is raised, not one that got no verdict; a
// driver added later is played after a reset. Each run leaves every goal's status in agreement with
// its records.
TEST(Replay, RetryUnknownAndResetReplayWhatAFirstPlayLeftWithoutAVerdict) {
    Scene s;
    const scene::GoalSpec bare{"Unproved", false, "Unproved", {}};
    s.writePos({{"G", {bare, bare, bare}}});
    // Goal 0 1 takes 10 s: below that limit the prover gives the reader no answer it knows.
    testutil::writeScript(s.path("slow.sh"),
                          "while read g p; do [ \"$g $p\" = \"0 1\" ] && [ \"$1\" -lt 10 ] && "
                          "p=\"${p}x\"; echo \"$g $p\"; done\n");
    s.setAnswers("0 1x Unknown\n0 2 garbage\n");
    s.drivers[0].prover = s.path("slow.sh");
    s.writeMechanism();
    const QByteArray mechanism = s.state("m.xml").replace(
        "input=\"stdin\">", "input=\"stdin\" timeout=\"2\"><param value=\"${timeout}\"/>");
    const auto play = [&](const QStringList& options, const std::string& err) {
        QFile::remove(s.writerLog());
        const testutil::RunResult r = s.run(options);
        EXPECT_EQ(std::to_string(r.exitCode) + r.err, "0" + err) << options.join(' ').toStdString();
        EXPECT_TRUE(pos::checkPosInvariant(pos::documentOfFile(s.path(POS))));
        return QString(testutil::readFile(s.writerLog())).count("-a ");
    };
    const auto statuses = [&] {
        return s.goalStatus(0, 0) + " " + s.goalStatus(0, 1) + " " + s.goalStatus(0, 2);
    };
    const std::string idle = "povrun: no job was started although 3 goals are unproved: ";
    const std::string reset = "povrun: pos/comp.pos: mechanism m reset, its records removed "
                              "from 3 goals\n";
    s.put("m.xml", mechanism.left(mechanism.indexOf("<writer")));
    s.run({"--first-play"});
    s.put("m.xml", mechanism);
    EXPECT_EQ(play({"--first-play"}, idle + "m already left each of them without a verdict; "
                                            "try --retry-unknown or --reset\n"),
              0);
    EXPECT_EQ(play({"--reset"}, reset), 3);
    EXPECT_EQ(statuses(), "Proved Unproved Unproved");
    s.put("m.xml", QByteArray(mechanism).replace("\"2\"", "\"20\""));
    EXPECT_EQ(play({}, "povrun: no job was started although 2 goals are unproved: no unproved goal "
                       "records a driver of m as having proved or disproved it; try "
                       "--first-play, --retry-unknown or --reset\n"),
              0);
    EXPECT_EQ(play({"--retry-unknown"}, ""), 1) << "goal 0 1 alone";
    EXPECT_EQ(statuses(), "Proved Proved Unproved");
    s.writeMechanism("redundancy", {"d", "added"});
    EXPECT_EQ(play({"--reset"}, reset), 6) << "both drivers on every goal";
    EXPECT_EQ(statuses(), "Proved Proved Unproved");
}
