// povrun with a result cache: a replay answered from it is the replay the tools gave.

#include "common/scene.h"

#include <gtest/gtest.h>

using scene::POS;
using scene::Scene;
using scene::settledBy;

namespace {

std::string counts(const Scene& s, int answered, int run, int stored) {
    return "povrun: cache " + s.path("cache").toStdString() +
           ", mechanism m: " + std::to_string(answered) + " jobs answered from the cache, " +
           std::to_string(run) + " run, " + std::to_string(stored) + " stored\n";
}

// Makes the driver's prover and reader log each of their runs to tools.log.
void countToolRuns(Scene& s) {
    for (const QString tool : {"prover", "reader"}) {
        const QString counted = s.path("counted_" + tool + ".sh");
        testutil::writeScript(counted, ("echo " + tool + " >> \"$(dirname \"$0\")/tools.log\"\n" +
                                        "exec \"$(dirname \"$0\")/" + tool + ".sh\" \"$@\"\n")
                                           .toUtf8());
        (tool == "prover" ? s.drivers[0].prover : s.drivers[0].reader) = counted;
    }
    s.writeMechanism();
}

const std::vector<scene::GroupSpec> GOALS = {
    {"G", {settledBy("d"), settledBy("d"), settledBy("d")}}, {"H", {settledBy("d")}}};

} // namespace

// The warm replay runs the writers only, even from another component and temporary
// folder, and ends as the cold one did, Unknown answers included; the answers file no
// longer matters because no reader reads it. A retry of unknown goals does not take the
// cache's Unknown for an answer.
TEST(Cache, WarmReplayRunsOnlyTheWritersAndEndsAsTheColdRun) {
    Scene s;
    countToolRuns(s);
    s.writePos(GOALS);
    s.setAnswers("0 1 Disproved\n0 2 Unknown\n");
    const QByteArray before = s.state(POS);
    const QStringList cache = {"--cache=" + s.path("cache")};
    const testutil::RunResult cold = s.run(cache);
    EXPECT_EQ(std::to_string(cold.exitCode) + cold.err, "0" + counts(s, 0, 4, 4));
    EXPECT_EQ(s.state("tools.log").count('\n'), 8);
    const QByteArray settled = s.state(POS);
    s.setAnswers("");
    s.put("tools.log", "");
    s.put("pos/other.pos", before);
    s.put("tmp2", scene::FOLDER);
    const testutil::RunResult warm =
        s.run(cache + QStringList{"-s", "pos/other.pos", "-p", "other.pog", "-d", "tmp2"});
    EXPECT_EQ(warm.err, counts(s, 4, 0, 0));
    EXPECT_EQ(QString::fromStdString(warm.out).replace("other", "comp").toStdString(), cold.out);
    EXPECT_EQ(s.state("pos/other.pos"), settled);
    EXPECT_EQ(s.state("tools.log"), "");
    EXPECT_TRUE(s.leftInTmp().isEmpty());
    s.put(POS, before); // a retry asks the tools again what they left unknown
    EXPECT_EQ(s.run(cache + QStringList{"--retry-unknown"}).err, counts(s, 3, 1, 1));
}

// A reader may answer for a prover that could not start: used, but never kept.
TEST(Cache, AnswersOfAProverThatNeverRanAreNotKept) {
    Scene s;
    testutil::writeScript(s.path("bad.sh"), "");
    testutil::writeFile(s.path("bad.sh"), "#!/nowhere/sh\n"); // its interpreter is missing
    s.drivers[0].prover = s.path("bad.sh");
    s.writeMechanism();
    testutil::writeScript(s.path("reader.sh"), "echo Proved\n");
    const std::string err = s.run({"--cache=" + s.path("cache")}).err;
    EXPECT_NE(err.find(counts(s, 0, 1, 0)), std::string::npos) << err;
    EXPECT_EQ(s.goalStatus(0, 0), "Proved");
}

// Two processes sharing one folder at -c 4 store whole entries; a third run finds them all.
TEST(Cache, ProcessesSharingTheFolderStoreEntriesAThirdRunFinds) {
    Scene a, b;
    b.drivers[0] = a.driver("d"); // the same tools, so the same keys
    b.writeMechanism();
    const std::vector<scene::GroupSpec> many(3, {"G", {8, settledBy("d")}});
    a.writePos(many);
    b.writePos(many);
    const QByteArray before = a.state(POS);
    const QString command =
        POVRUN_BIN " -s pos/comp.pos -p comp.pog -d tmp -m m.xml -c 4 --cache=" + a.path("cache");
    const testutil::RunResult both =
        testutil::run("/bin/sh", {"-c", "(cd " + a.dir.path() + " && " + command + ") & (cd " +
                                            b.dir.path() + " && " + command + ") & wait"});
    EXPECT_EQ(both.exitCode, 0) << both.err;
    EXPECT_EQ(a.state(POS), b.state(POS));
    const QByteArray settled = a.state(POS);
    a.put(POS, before);
    EXPECT_EQ(a.run({"-c", "4", "--cache=" + a.path("cache")}).err, counts(a, 24, 0, 0));
    EXPECT_EQ(a.state(POS), settled);
}

// A folder that cannot be made or written is said once; the run records every verdict.
TEST(Cache, FolderThatCannotBeUsedIsSaidOnceAndTheRunGoesOn) {
    const std::pair<QString, std::string> rows[] = {
        {"comp.pog/cache", "povrun: cannot use the cache folder comp.pog/cache: "},
        {"/proc", "povrun: cannot store results in the cache folder /proc: "},
    };
    for (const auto& [folder, said] : rows) {
        Scene s;
        s.writePos(GOALS);
        const testutil::RunResult r = s.run({"--cache=" + folder, "-c", "2"});
        EXPECT_EQ(r.exitCode, 0);
        EXPECT_EQ(r.err.rfind(said, 0), 0u) << r.err;
        EXPECT_EQ(QString::fromStdString(r.err).count("povrun: "), 2) << r.err;
        EXPECT_EQ(s.goalStatus(1, 0), "Proved");
    }
}
