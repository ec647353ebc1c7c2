// Every kind of bad input a user can hand povrun, run through the real binary.

#include "common/scene.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <functional>
#include <gtest/gtest.h>

namespace {

using scene::DriverSpec;
using scene::POS;

const std::string PROVING = "Proving comp with external mechanism m\n";
const std::string DRIVER = PROVING + "\tProof driver d, still 1 unproved PO\n";
const std::string POS_ERROR = PROVING + "Error comp .pos\n";
const std::string NOT_READABLE = "ErrorFile not readable pos/comp.pos\n";

std::string report(int proved, int unproved) {
    const std::string p = std::to_string(proved);
    return "End of proof\n\nTOTAL for comp\t Proved " + p + "\t Proved externally " + p +
           "\t Unreliably proved 0\t Disproved 0\t Unproved " + std::to_string(unproved) + "\n";
}
const std::string UNREAD = NOT_READABLE + report(0, 0); // the report of no file

// Driver d's run on the one goal of group G: the goal's mark under the group's heading
// (no heading when the job gave no mark), then the report of the file as saved.
std::string job(const std::string& mark, int proved = 0) {
    return DRIVER + (mark.empty() ? "\n" : "\t\tG\n\t\t\t" + mark + "\n\n") +
           report(proved, 1 - proved);
}

// A file of `depth` nested elements under `root`.
QByteArray nested(const QByteArray& root, int depth) {
    return "<" + root + ">" + QByteArray("<a>").repeated(depth) +
           QByteArray("</a>").repeated(depth) + "</" + root + ">";
}
const std::string TOO_DEEP = "elements nested 100001 deep, more than the 2000 allowed";

std::string inPos(const std::string& why) {
    return "povrun: pos/comp.pos: " + why + "\n";
}

// What a case does to the scene before the run.
using Spoil = std::function<void(scene::Scene&)>;

template <typename... Spoils> Spoil all(Spoils... spoils) {
    return [=](scene::Scene& s) { (spoils(s), ...); };
}
Spoil puts(const QString& name, const QByteArray& what) {
    return [=](scene::Scene& s) { s.put(name, what); };
}
Spoil edits(const QString& name, const QByteArray& from, const QByteArray& to) {
    return [=](scene::Scene& s) { s.put(name, s.state(name).replace(from, to)); };
}
Spoil adds(const QStringList& options) {
    return [=](scene::Scene& s) { s.options += options; };
}
// The mechanisms come from the status file, looked for in the current directory.
const Spoil byFolder = [](scene::Scene& s) {
    s.options = s.options.mid(0, 6) + QStringList{"-M", "."};
};
// Tool `which` of driver d becomes `path`, made an executable file of `bytes` if given.
Spoil uses(QString DriverSpec::*which, const QString& path, const QByteArray& bytes = {}) {
    return [=](scene::Scene& s) {
        if (!bytes.isNull()) {
            s.put(path, bytes);
            QFile::setPermissions(s.path(path), QFile::ReadOwner | QFile::ExeOwner);
        }
        s.drivers[0].*which = path;
        s.writeMechanism();
    };
}
const auto W = &DriverSpec::writer, P = &DriverSpec::prover;

// In err, $DIR stands for the case's folder; status is by default 0 exactly when the
// report is printed.
struct Case {
    std::string name;
    Spoil spoil;
    std::string out, err = "";
    int status = -1;
    bool posKept = true; // false: it vanishes; else its mode, and its bytes unless a proof counts
};

// In every case: the exit status, an end within 3 s (a sanitized povrun takes 1), nothing
// left in tmp or beside the status file, whose mode is kept, and its bytes unless a proof
// is counted.
void check(const std::vector<Case>& cases) {
    for (const Case& c : cases) {
        scene::Scene s;
        c.spoil(s);
        const QDir::Filters all = QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden;
        const QStringList beside = QDir(s.path("pos")).entryList(all);
        const QByteArray bytes = s.state(POS);
        const QFile::Permissions mode = QFileInfo(s.path(POS)).permissions();
        const testutil::RunResult r = s.run({}, 3000);
        EXPECT_FALSE(r.crashed || r.timedOut) << c.name;
        EXPECT_EQ(s.leftInTmp(), QStringList()) << c.name;
        EXPECT_EQ(r.exitCode,
                  c.status >= 0 ? c.status : c.out.find("End of proof") == std::string::npos)
            << c.name;
        EXPECT_EQ(r.out, c.out) << c.name;
        EXPECT_EQ(r.err, QString::fromStdString(c.err).replace("$DIR", s.dir.path()).toStdString())
            << c.name;
        if (!c.posKept) {
            EXPECT_EQ(QDir(s.path("pos")).entryList(all), QStringList()) << c.name << ": created";
            continue;
        }
        if (c.out.find("\t Proved 1") == std::string::npos) {
            EXPECT_EQ(s.state(POS), bytes) << c.name << ": the status file changed";
        }
        EXPECT_EQ(QFileInfo(s.path(POS)).permissions(), mode) << c.name;
        EXPECT_EQ(QDir(s.path("pos")).entryList(all), beside) << c.name;
    }
}

} // namespace

// A status file is read by the director (-m) or, first, for its mechanisms (-M); either
// way the reason follows the error line. An unknown word ends the run with one line that
// names the file, the attribute and the text. A mechanism file that is not XML reads as a
// mechanism without drivers: it proves nothing, and says nothing.
TEST(BadInputTest, EachBadInputIsReportedAndTheStatusFileKeptUnlessAProofCounts) {
    const std::string unknown = inPos("unknown status \"X\" (map::at)");
    const Spoil badGoal = edits(POS, "Goal status=\"Unproved", "Goal status=\"X");
    const QByteArray drain = "#!/bin/sh\ncat >/dev/null\n", writer = "exec ./writer.sh \"$@\"\n";
    const QByteArray chatter =
        "head -c 1000000 /dev/zero\nhead -c 100000 /dev/zero | tr '\\0' x >&2\n";
    const Spoil readOnly = [](auto& s) { QFile::setPermissions(s.path(POS), QFile::ReadOwner); };
    check({
        {"status file missing", puts(POS, scene::NONE), POS_ERROR + UNREAD, inPos("no such file")},
        {"status file missing (-M)", all(puts(POS, scene::NONE), byFolder), NOT_READABLE + UNREAD,
         inPos("no such file")},
        {"status file is a folder", puts(POS, scene::FOLDER), POS_ERROR + UNREAD,
         inPos("cannot be read: file to open is a directory")},
        {"status file truncated",
         puts(POS, "<?xml version=\"1.0\"?>\n<Proof_Obligations>\n  <Proof_Obligation>\n"),
         POS_ERROR + UNREAD,
         inPos("not well-formed XML at line 4, column 1: unexpected end of file")},
        {"status file too deep", puts(POS, nested("Proof_Obligations", 100000)), POS_ERROR + UNREAD,
         inPos(TOO_DEEP)},
        {"status file too deep (-M)", all(puts(POS, nested("Proof_Obligations", 100000)), byFolder),
         NOT_READABLE + UNREAD, inPos(TOO_DEEP)},
        {"mechanism too deep", puts("m.xml", nested("mechanism", 100000)), "",
         "povrun: m.xml: " + TOO_DEEP + "\n"},
        {"a goal without the mechanism",
         edits(POS, "</Simple_Goal>", "</Simple_Goal><Simple_Goal status=\"Unproved\"/>"),
         POS_ERROR + report(0, 2), inPos("goal 2 of group G has no \"Mechanism\" element named m")},
        {"goal status", badGoal, PROVING + "\tProof driver d, still 0 unproved PO\n", unknown},
        {"Driver status", edits(POS, "\"Proved\"", "\"X\""), DRIVER, unknown},
        {"goal status (-M)", all(badGoal, byFolder), "", unknown},
        {"mechanism missing", puts("m.xml", scene::NONE), "", "Cannot open 'm.xml'.\n"},
        {"mechanism of the status file missing (-M, xml)",
         all(edits(POS, "name=\"m\"", "name=\"absent\""), byFolder, adds({"-x"})), "<proof>\n",
         "Cannot open './absent.xml'.\n"},
        {"mechanism truncated", puts("m.xml", "<mechanism>\n  <driver"), PROVING + report(0, 1),
         "povrun: m.xml: not well-formed XML at line 2, column 10: unexpected end of file\n"},
        // A mistake in a mechanism file names the file and the line; a word outside the
        // vocabulary lists the allowed ones, and whatever the reader does not read is said.
        {"unknown trust", edits("m.xml", "\"always\"", "\"alway\""), "",
         "povrun: m.xml:1: unknown trust \"alway\" (map::at); allowed: never, redundancy, "
         "always\n"},
        {"no reader element", edits("m.xml", "<reader", "<reder"), "",
         "povrun: m.xml:5: unknown element <reder> in <driver> ignored\n"
         "povrun: m.xml:2: driver \"d\" has no <reader> element\n"},
        {"misspelt attribute and input word",
         all(edits("m.xml", "group=", "grup="), edits("m.xml", "\"stdin\"", "\"stdn\"")), job("-"),
         "povrun: m.xml:2: unknown attribute \"grup\" of <driver> ignored\n"
         "povrun: m.xml:4: input \"stdn\" is neither \"stdin\" nor \"file\"; read as \"file\"\n"},
        // Warnings only: the run goes on as it would without them.
        {"files of two components", adds({"-p", "other.pog"}), job("+", 1),
         "povrun: pos/comp.pos and other.pog name different components\n"},
        {"resource lines that define nothing",
         all(puts("res", "Proof*p: /x\nZDR*Proof*p: /x"), adds({"-r", "res"})), job("+", 1),
         "res:2: Resource line ignored: the file ends before its newline\n"
         "res:1: Resource line ignored: it does not start with ZDR*Section*Name: value\n"},
        {"install folder missing", all(uses(W, "writer.sh"), adds({"-i", "nowhere"})), "",
         "povrun: filesystem error: install directory (-i) nowhere is not usable: No such file "
         "or directory [nowhere]\n"},
        {"resource file missing",
         all(adds({"-r", "res"}), edits("m.xml", "prover.sh\"", "x\" resource=\"ZDR*Proof*p\"")),
         "",
         "Unable to open resource file res because: No such file or directory\n"
         "Cannot locate prover p\npovrun: looked for \"$DIR/x\" only (an absolute path); "
         "resource \"ZDR*Proof*p\" not found\npovrun: to fix it, add the line \"ZDR*Proof*p: "
         "/absolute/path\" to a resource file given with -r, or write an absolute path in "
         "path=\"...\"\n"},
        // A failed job leaves its goal as it was; what a tool says on standard error reaches
        // the user headed by driver, tool and PO, cut short past 64 KiB. A writer, and a prover
        // with input="file", get an empty input: waiting for more would hang. Output nobody
        // reads must not block. A read-only status file is left alone even by root. No more
        // workers start than jobs: one per unit of -c took 2 s and 280 MB (33 s under TSan).
        {"writer is not a program", uses(W, "w", "\177ELF\2\1 not a program"), job("-"),
         "-- ProofDirector -- Writer had an error.\npovrun: driver d, writer $DIR/w, POs G.1: "
         "cannot exec '$DIR/w': Exec format error\n"},
        {"prover crashes", uses(P, "p", drain + "kill -SEGV $$\n"), job(""),
         "Driver prover crashed.\npovrun: driver d, prover $DIR/p, POs G.1: ended by signal "
         "SIGSEGV\n"},
        {"writer writes no file", uses(W, "w", drain), job("-"),
         "-- ProofDirector -- Secondary po tmp/comp_m_d_0_0.po2 not found.\n"},
        {"writer reads its standard input and chatters on both outputs",
         uses(W, "w", drain + chatter + writer), job("+", 1),
         "povrun: driver d, writer $DIR/w, POs G.1, wrote on standard error:\n" +
             std::string(65536, 'x') + "\n[34464 more bytes]\n"},
        {"prover with input=file reads its standard input",
         all(uses(&DriverSpec::input, "file"), uses(P, "p", drain + "cat \"$1\"\n")), job("+", 1)},
        {"status file vanishes during the run",
         uses(P, "p", "#!/bin/sh\nrm pos/comp.pos\nexec ./prover.sh\n"),
         DRIVER + "\t\tG\n\t\t\t+\n\n" + UNREAD,
         "povrun: cannot save pos/comp.pos: No such file or directory\n", 1, false},
        {"read-only status file", readOnly, job("+"),
         "povrun: cannot save pos/comp.pos: Permission denied\n", 1},
        {"huge concurrency", adds({"-c", "100000"}), job("+", 1)},
    });
}
