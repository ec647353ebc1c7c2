// Every kind of bad input a user can hand povrun, run through the real binary: the
// message the user sees, the exit status, and the status file left byte for byte as it
// was whenever nothing could be proved.

#include "common/scene.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <functional>
#include <gtest/gtest.h>

namespace {

using scene::DriverSpec;
using Mode = QFileDevice;
using scene::FOLDER;
using scene::NONE;
using scene::POS;

const std::string PROVING = "Proving comp with external mechanism m\n";
const std::string DRIVER = PROVING + "\tProof driver d, still 1 unproved PO\n";
const std::string POS_ERROR = PROVING + "Error comp .pos\n";
const std::string NOT_READABLE = "ErrorFile not readable pos/comp.pos\n";
const std::string NOT_FOUND = "-- ProofDirector -- Secondary po tmp/comp_m_d_0_0.po2 not found.\n";

std::string report(int proved, int unproved) {
    const std::string p = std::to_string(proved);
    return "End of proof\n\nTOTAL for comp\t Proved " + p + "\t Proved externally " + p +
           "\t Unreliably proved 0\t Disproved 0\t Unproved " + std::to_string(unproved) + "\n";
}

// Driver d's run on the one goal of group G: the goal's mark under the group's heading
// (no heading when the job gave no mark), then the report of the file as saved.
std::string job(const std::string& mark, int proved = 0) {
    return DRIVER + (mark.empty() ? "\n" : "\t\tG\n\t\t\t" + mark + "\n\n") +
           report(proved, 1 - proved);
}

// The shared scene, with what a case does to it before the run.
struct Scene : scene::Scene {
    int timeoutMs = 5000;
};

using Spoil = std::function<void(Scene&)>;

Spoil puts(const QString& name, const QByteArray& what) {
    return [=](Scene& s) { s.put(name, what); };
}
Spoil edits(const QString& name, const QByteArray& from, const QByteArray& to) {
    return [=](Scene& s) { s.put(name, s.state(name).replace(from, to)); };
}
Spoil adds(const QStringList& options) {
    return [=](Scene& s) { s.options += options; };
}
// The mechanisms come from the status file, looked for in the current directory.
const Spoil byFolder = [](Scene& s) {
    s.options = s.options.mid(0, 6) << "-M"
                                    << ".";
};
// Tool `which` of driver d becomes `path`, made an executable file of `bytes` if given.
Spoil uses(QString DriverSpec::*which, const QString& path, const QByteArray& bytes = {}) {
    return [=](Scene& s) {
        if (!bytes.isNull()) {
            s.put(path, bytes);
            QFile::setPermissions(s.path(path), Mode::ReadOwner | Mode::ExeOwner);
        }
        s.drivers[0].*which = path;
        s.writeMechanism();
    };
}
const auto W = &DriverSpec::writer, P = &DriverSpec::prover;

// In err, $DIR is the case's folder and $CWD its real path; status is by default 0 exactly
// when the report is printed.
struct Case {
    std::string name;
    std::vector<Spoil> spoils;
    std::string out, err = "";
    int status = -1;
};

std::string expand(const std::string& text, const Scene& s) {
    const QString cwd = QDir(s.dir.path()).canonicalPath();
    return QString::fromStdString(text)
        .replace("$DIR", s.dir.path())
        .replace("$CWD", cwd)
        .toStdString();
}

// In every case: the exit status, a quick end, nothing left in tmp or beside the status
// file, whose mode is kept, and its bytes unless a proof is counted.
void check(const std::vector<Case>& cases) {
    for (const Case& c : cases) {
        Scene s;
        for (const Spoil& spoil : c.spoils)
            spoil(s);
        const QDir::Filters all = QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden;
        const QStringList beside = QDir(s.path("pos")).entryList(all);
        const QByteArray bytes = s.state(POS);
        const Mode::Permissions mode = QFileInfo(s.path(POS)).permissions();
        const testutil::RunResult r = s.run({}, s.timeoutMs);
        EXPECT_FALSE(r.crashed || r.timedOut) << c.name;
        EXPECT_EQ(r.exitCode,
                  c.status >= 0 ? c.status : c.out.find("End of proof") == std::string::npos)
            << c.name;
        EXPECT_EQ(r.out, c.out) << c.name;
        EXPECT_EQ(r.err, expand(c.err, s)) << c.name;
        if (c.out.find("\t Proved 1") == std::string::npos) {
            EXPECT_EQ(s.state(POS), bytes) << c.name << ": the status file changed";
        }
        EXPECT_EQ(QFileInfo(s.path(POS)).permissions(), mode) << c.name;
        EXPECT_EQ(QDir(s.path("pos")).entryList(all), beside) << c.name;
        EXPECT_EQ(QDir(s.path("tmp")).entryList(all), QStringList()) << c.name;
    }
}

} // namespace

TEST(BadInputTest, StatusFileThatCannotBeLoadedOrUsedIsReportedAndNeverWritten) {
    // why: the reason given after the first error line
    const struct {
        std::string name;
        QByteArray content;
        std::string why;
    } kinds[] = {{"missing", NONE, "no such file"},
                 {"a folder", FOLDER, "cannot be read: file to open is a directory"},
                 {"truncated",
                  "<?xml version=\"1.0\"?>\n<Proof_Obligations>\n  <Proof_Obligation>\n",
                  "not well-formed XML at line 4, column 1: unexpected end of file"}};
    for (const auto& kind : kinds) {
        const std::string err = "povrun: pos/comp.pos: " + kind.why + "\n";
        check({{kind.name, {puts(POS, kind.content)}, POS_ERROR + NOT_READABLE + report(0, 0), err},
               {kind.name + " (-M)",
                {puts(POS, kind.content), byFolder},
                NOT_READABLE + NOT_READABLE + report(0, 0),
                err}});
    }
    check({{"a goal without the mechanism",
            {edits(POS, "</Simple_Goal>", "</Simple_Goal><Simple_Goal status=\"Unproved\"/>")},
            POS_ERROR + report(0, 2),
            "povrun: pos/comp.pos: goal 2 of group G has no \"Mechanism\" element named m\n"}});
}

// The one line names the file, the attribute and the text.
TEST(BadInputTest, UnknownWordsEndTheRunWithMapAtAndChangeNothing) {
    const std::string inPos = "povrun: pos/comp.pos: unknown status \"X\" (map::at)\n";
    check({{"goal status",
            {edits(POS, "Goal status=\"Unproved", "Goal status=\"X")},
            PROVING + "\tProof driver d, still 0 unproved PO\n",
            inPos},
           {"Driver status", {edits(POS, "\"Proved\"", "\"X\"")}, DRIVER, inPos},
           {"goal status (-M)",
            {edits(POS, "Goal status=\"Unproved", "Goal status=\"X"), byFolder},
            "",
            inPos},
           {"trust",
            {edits("m.xml", "\"always\"", "\"X\"")},
            "",
            "povrun: m.xml: unknown trust \"X\" (map::at)\n"},
           {"expand",
            {edits("m.xml", "</prover>", "<expand name=\"X\"/></prover>")},
            "",
            "povrun: map::at\n"}});
}

// A mechanism file that is not XML reads as a mechanism without drivers: it proves
// nothing, and says nothing. Tools are located before any job runs.
TEST(BadInputTest, MechanismToolOrResourceThatCannotBeUsedStopsTheRunBeforeAnyJob) {
    const std::string searched =
        "povrun: looked for \"nowhere\" in the current directory $CWD; no resource named\n";
    const auto resource = [](const QByteArray& what) -> std::vector<Spoil> {
        return {adds({"-r", "res"}), puts("res", what),
                edits("m.xml", "prover.sh\"", "x\" resource=\"ZDR*Proof*prover\"")};
    };
    check({{"mechanism missing", {puts("m.xml", NONE)}, "", "Cannot open 'm.xml'.\n"},
           {"mechanism of the status file missing (-M, xml)",
            {edits(POS, "name=\"m\"", "name=\"absent\""), byFolder, adds({"-x"})},
            "<proof>\n",
            "Cannot open './absent.xml'.\n"},
           {"mechanism truncated",
            {puts("m.xml", "<mechanism>\n  <driver")},
            PROVING + report(0, 1),
            "povrun: m.xml: not well-formed XML at line 2, column 10: unexpected end of file\n"},
           {"writer missing", {uses(W, "nowhere")}, "", "Cannot locate tool w\n" + searched},
           {"install folder missing",
            {uses(W, "writer.sh"), adds({"-i", "nowhere"})},
            "",
            "povrun: filesystem error: install directory (-i) nowhere is not usable: No such file "
            "or directory [nowhere]\n"},
           {"resource file missing", resource(NONE), "",
            "Unable to open resource file res because: No such file or directory\n"
            "Cannot locate prover p\npovrun: looked for \"$DIR/x\" only (an absolute path); "
            "resource \"ZDR*Proof*prover\" not found\n"},
           {"resource file usable", resource("ZDR*Proof*prover: prover.sh\n"), job("+", 1)}});
}

TEST(BadInputTest, JobThatFailsLeavesItsGoalAsItWas) {
    const QByteArray sh = "#!/bin/sh\ncat >/dev/null; ", crash = sh + "kill -SEGV $$\n";
    // What the writer's shell says reaches the user, headed by driver, tool and PO.
    const std::string noFolder =
        "povrun: driver d, writer $DIR/writer.sh, POs G.1, wrote on standard error:\n"
        "$DIR/writer.sh: 16: cannot create tmp/comp_m_d_0_0.po2: Directory nonexistent\n";
    check({{"writer crashes",
            {uses(W, "w", crash)},
            job("-"),
            "-- ProofDirector -- Writer crashed.\n"},
           {"prover crashes", {uses(P, "p", crash)}, job(""), "Driver prover crashed.\n"},
           {"writer is not a program",
            {uses(W, "w", "\177ELF\2\1 not a program")},
            job("-"),
            "-- ProofDirector -- Writer had an error.\n"},
           {"writer writes no file", {uses(W, "w", sh)}, job("-"), NOT_FOUND},
           {"temporary folder missing", {puts("tmp", NONE)}, job("-"), noFolder + NOT_FOUND}});
}

// povrun feeds a writer, and a prover with input="file", nothing: both must see the end of
// their input rather than wait for ever; output nobody reads must not block. A read-only
// status file is left alone even by root. No more workers start than there are jobs: one
// per unit of -c took seconds and hundreds of megabytes.
TEST(BadInputTest, UsableInputThatLooksOddStillRunsTheJob) {
    const QByteArray drain = "#!/bin/sh\ncat >/dev/null\n", writer = "exec ./writer.sh \"$@\"\n";
    const QByteArray chatter =
        "head -c 1000000 /dev/zero\nhead -c 100000 /dev/zero | tr '\\0' x >&2\n";
    const std::string chatterShown =
        "povrun: driver d, writer $DIR/w, POs G.1, wrote on standard error:\n" +
        std::string(65536, 'x') + "\n[34464 more bytes]\n";
    const Spoil readOnly = [](Scene& s) { QFile::setPermissions(s.path(POS), Mode::ReadOwner); };
    check({{"writer reads its standard input", {uses(W, "w", drain + writer)}, job("+", 1)},
           {"prover with input=file reads its standard input",
            {uses(&DriverSpec::input, "file"), uses(P, "p", drain + "cat \"$1\"\n")},
            job("+", 1)},
           {"writer chatters on both outputs",
            {uses(W, "w", drain + chatter + writer)},
            job("+", 1),
            chatterShown},
           {"read-only status file",
            {readOnly},
            job("+"),
            "povrun: cannot save pos/comp.pos: Permission denied\n",
            1},
           // The bound leaves room for a sanitizer's own second at exit.
           {"huge concurrency",
            {adds({"-c", "100000"}), [](Scene& s) { s.timeoutMs = 3000; }},
            job("+", 1)}});
}
