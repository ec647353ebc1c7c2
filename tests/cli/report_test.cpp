// What a team reads after a run: the JSON report, the JUnit file, the --strict status and
// the progress line on a terminal.

#include "common/scene.h"

#include <QDomDocument>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <csignal>
#include <gtest/gtest.h>

using scene::Scene;
using scene::settledBy;

namespace {

// One line per job: driver, goal, answer (or -), statuses, failure lines.
QStringList jobLines(const QJsonArray& jobs) {
    QStringList lines;
    for (const QJsonValue& value : jobs) {
        const QJsonObject job = value.toObject();
        const QJsonObject goal = job["goals"].toArray()[0].toObject();
        QStringList failures;
        for (const QJsonValue& failure : job["failures"].toArray())
            failures << failure.toString();
        lines << job["driver"].toString() + " " + goal["group"].toString() + "." +
                     QString::number(goal["number"].toInt()) + " " +
                     (goal["answer"].isNull() ? "-" : goal["answer"].toString()) + " " +
                     goal["before"].toString() + ">" + goal["after"].toString() + " " +
                     failures.join('|');
    }
    return lines;
}

QString toolEnd(const QJsonArray& jobs, int job, const char* tool) {
    const QJsonObject end = jobs[job].toObject()["tools"].toObject()[tool].toObject();
    return end["end"].toString() + " " + end["signal"].toString() + end["reason"].toString();
}

// Five drivers, each playing the goals it had settled: d1 gets every answer and a garbage
// line on group G, the others fail each in its own way on group H.
void writeEveryOutcome(Scene& s) {
    s.writeMechanism("always", {"d1", "lines", "pcrash", "rcrash", "nowriter"});
    testutil::writeScript(s.path("crash.sh"), "cat >/dev/null; kill -SEGV $$\n");
    testutil::writeScript(s.path("twice.sh"), "cat >/dev/null; echo Proved; echo Proved\n");
    testutil::writeScript(s.path("none.sh"), "");
    testutil::writeFile(s.path("none.sh"), "#!/nowhere/sh\n"); // its interpreter is missing
    s.drivers[1].reader = s.path("twice.sh");
    s.drivers[2].prover = s.drivers[3].reader = s.path("crash.sh");
    s.drivers[4].writer = s.path("none.sh");
    s.writeMechanism();
    s.writePos(
        {{"G", std::vector<scene::GoalSpec>(4, settledBy("d1"))},
         {"H",
          {settledBy("lines"), settledBy("pcrash"), settledBy("rcrash"), settledBy("nowriter")}}});
    s.setAnswers("0 1 Disproved\n0 2 Unknown\n0 3 garbage\n");
}

} // namespace

TEST(Report, EveryOutcomeIsInTheReportAndTheJunitFile) {
    Scene s;
    writeEveryOutcome(s);
    const testutil::RunResult r = s.run({"--report=r.json", "--junit=j.xml", "--strict"});
    EXPECT_EQ(r.exitCode, 2) << r.err;
    const QJsonObject report = QJsonDocument::fromJson(s.state("r.json")).object();
    const QJsonArray jobs = report["jobs"].toArray();
    EXPECT_EQ(jobLines(jobs), QStringList({
                                  "d1 G.1 Proved Unproved>Proved ",
                                  "d1 G.2 Disproved Unproved>Disproved ",
                                  "d1 G.3 Unknown Unproved>Unknown ",
                                  "d1 G.4 - Unproved>Unproved ",
                                  "lines H.1 - Unproved>Unproved Unexpected number of results. "
                                  "Expected: 1 Found: 2",
                                  "pcrash H.2 - Unproved>Unproved Driver prover crashed.",
                                  "rcrash H.3 - Unproved>Unproved Driver reader crashed.",
                                  "nowriter H.4 - Unproved>Unproved Writer had an error.",
                              }));
    EXPECT_EQ(jobs[3].toObject()["goals"].toArray()[0].toObject()["reader_line"], "garbage");
    EXPECT_EQ(toolEnd(jobs, 5, "prover"), "signal SIGSEGV");
    EXPECT_EQ(toolEnd(jobs, 6, "reader"), "signal SIGSEGV");
    EXPECT_TRUE(toolEnd(jobs, 7, "writer").startsWith("not started"))
        << toolEnd(jobs, 7, "writer").toStdString();
    const QJsonObject tools = jobs[0].toObject()["tools"].toObject();
    EXPECT_EQ(tools["writer"].toObject()["command"].toString(),
              s.path("writer.sh") + " -a 0 0 -i comp.pog -o tmp/comp_m_d1_0_0.po2");
    EXPECT_EQ(tools["reader"].toObject()["command"].toString(), s.path("reader.sh") + " ");
    const QJsonObject summary = report["summary"].toObject();
    EXPECT_EQ(QJsonDocument(summary["answers"].toObject()).toJson(QJsonDocument::Compact),
              R"({"Disproved":1,"Proved":1,"Unknown":1,"none":5})");
    EXPECT_EQ(summary["failed_jobs"].toInt(), 4);
    EXPECT_EQ(summary["drivers"].toArray().size(), 5);
    const testutil::RunResult valid = testutil::run(
        "/usr/bin/python3",
        {"-c",
         "import json, sys, jsonschema; jsonschema.validate(json.load(open(sys.argv[1])), "
         "json.load(open(sys.argv[2])))",
         s.path("r.json"), POVRUN_SOURCE_DIR "/docs/report.schema.json"});
    EXPECT_EQ(valid.exitCode, 0) << valid.err;

    QDomDocument junit;
    ASSERT_TRUE(junit.setContent(s.state("j.xml")));
    QStringList suites;
    const QDomNodeList suiteNodes = junit.elementsByTagName("testsuite");
    for (int i = 0; i < suiteNodes.size(); ++i) {
        const QDomElement suite = suiteNodes.at(i).toElement();
        suites << QStringList{suite.attribute("name"), suite.attribute("tests"),
                              suite.attribute("failures"), suite.attribute("errors")}
                      .join(' ');
    }
    EXPECT_EQ(suites, QStringList({"m/d1 4 3 0", "m/lines 1 1 0", "m/pcrash 1 0 1",
                                   "m/rcrash 1 0 1", "m/nowriter 1 0 1"}));
    const QDomElement disproved = junit.elementsByTagName("testcase").at(1).toElement();
    EXPECT_EQ(disproved.attribute("classname") + " " + disproved.attribute("name") + " " +
                  disproved.firstChildElement("failure").attribute("type"),
              "comp.G goal 2, driver d1 disproved");
}

// 0 when every goal played ends proved, or nothing was to be played; 2 when one does not;
// 1 for errors, which win.
TEST(Report, StrictExitStatusSaysWhetherTheProofsHold) {
    const std::tuple<const char*, QByteArray, QStringList, int> rows[] = {
        {"all proved", "", {}, 0},
        {"one disproved", "0 1 Disproved\n", {}, 2},
        {"one unknown", "0 0 Unknown\n", {}, 2},
        {"one without an answer", "0 1 garbage\n", {}, 2},
        {"nothing to play", "", {"-s", "nothing.pos"}, 0},
        {"usage error", "", {"-c", "0"}, 1},
        {"mechanism not loaded", "", {"-m", "missing.xml"}, 1},
    };
    for (const auto& [name, answers, extra, status] : rows) {
        Scene s;
        s.writePos({{"G", {settledBy("d"), settledBy("d")}}});
        s.put("nothing.pos", s.state(scene::POS).replace("Proved\"/>", "Unproved\"/>"));
        s.setAnswers(answers);
        EXPECT_EQ(s.run(QStringList{"--strict"} + extra).exitCode, status) << name;
    }
}

// On a terminal the line is drawn and cleared on standard error, never on standard
// output; into a file or a pipe nothing of it is written.
TEST(Report, ProgressLineOnlyOnATerminal) {
    Scene s;
    s.writePos({{"G", {settledBy("d"), settledBy("d")}}});
    const QByteArray fresh = s.state(scene::POS);
    const QString command = "TERM=xterm " POVRUN_BIN " " + s.options.join(' ') + " >out.txt";
    const testutil::RunResult tty =
        testutil::run("script", {"-qec", command, "typescript"}, s.dir.path());
    EXPECT_EQ(tty.exitCode, 0) << tty.err;
    const QByteArray shown = s.state("typescript");
    EXPECT_TRUE(shown.contains("\r\x1b[K[2/2] driver d, 0 running, 0:0")) << shown.data();
    EXPECT_TRUE(shown.contains(" elapsed, answers: 2 Proved\r\n")) << shown.data();
    EXPECT_FALSE(s.state("out.txt").contains('\x1b'));
    s.put(scene::POS, fresh);
    const testutil::RunResult piped = s.run();
    EXPECT_EQ(s.state("out.txt").toStdString(), piped.out);
    EXPECT_EQ(piped.err, "");
}

// A stop leaves a whole report of the jobs that ended, says so, and does not call the tools
// it ended crashed; every answer the report holds was saved.
TEST(Report, StoppedRunLeavesAWholeReportAndSaysSo) {
    Scene s;
    testutil::writeScript(s.path("prover.sh"), "sleep 0.05\ncat\n");
    s.writePos({{"G", std::vector<scene::GoalSpec>(200, settledBy("d"))}});
    QProcess povrun;
    povrun.setWorkingDirectory(s.dir.path());
    povrun.start(POVRUN_BIN, s.options + QStringList{"-c", "2", "--report=r.json"});
    for (int waited = 0; !s.state(scene::POS).contains("proof_director"); waited += 5)
        ASSERT_FALSE(waited > 30000 || povrun.waitForFinished(5)) << "no save";
    ::kill(static_cast<pid_t>(povrun.processId()), SIGTERM);
    ASSERT_TRUE(povrun.waitForFinished(10000));
    EXPECT_EQ(povrun.exitCode(), 1);
    const QString err = QString::fromUtf8(povrun.readAllStandardError());
    EXPECT_FALSE(err.contains("crashed")) << err.toStdString();
    const QJsonArray jobs = QJsonDocument::fromJson(s.state("r.json"))["jobs"].toArray();
    ASSERT_GT(jobs.size(), 0);
    EXPECT_LT(jobs.size(), 200);
    const int saved = s.state(scene::POS).count("Goal status=\"Proved\"");
    EXPECT_TRUE(
        err.endsWith(QString("povrun: interrupted by SIGTERM; %1 answers saved\n").arg(saved)))
        << err.toStdString();
    EXPECT_LE(jobs.size(), saved);
    EXPECT_TRUE(QDir(s.dir.path()).entryList({"r.json.tmp*"}).isEmpty());
}
