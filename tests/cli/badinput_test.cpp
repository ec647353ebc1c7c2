// Every kind of bad input a user can hand povrun, run through the real binary: the
// message the user sees, the exit status, and the status file left byte for byte as it
// was whenever nothing could be proved. The README's error table lists the same rows.

#include "common/faketools.h"
#include "common/testutil.h"
#include "pos/pos.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <functional>
#include <gtest/gtest.h>

namespace {

const std::string PROVING = "Proving comp with external mechanism m\n";
const std::string DRIVER_LINE = "\tProof driver d, still 1 unproved PO\n";

std::string report(int proved, int unproved) {
    const std::string p = std::to_string(proved);
    return "End of proof\n\nTOTAL for comp\t Proved " + p + "\t Proved externally " + p +
           "\t Unreliably proved 0\t Disproved 0\t Unproved " + std::to_string(unproved) + "\n";
}

// The marks of the one goal of group G, as a driver line is followed by them.
std::string marks(const std::string& mark) { return "\t\tG\n\t\t\t" + mark + "\n\n"; }

// Root opens a file whatever its mode says: rows about permissions must know it.
bool permissionsBindUs() {
    QTemporaryDir dir;
    const QString probe = dir.filePath("probe");
    testutil::writeFile(probe, "x");
    QFile::setPermissions(probe, QFileDevice::ReadOwner);
    QFile file(probe);
    return !file.open(QIODevice::WriteOnly | QIODevice::Append);
}

class BadInputTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(dir.isValid());
        tools = faketools::writeTools(dir.path());
        ASSERT_TRUE(QDir(dir.path()).mkdir("tmp"));
        testutil::writeFile(path("comp.pog"), "");
        writeMechanism(driver());
        faketools::GoalSpec goal;
        goal.drivers = {{"d", "Proved"}};
        goodPos = faketools::posXml("m", {{"G", {goal}}});
        writePos(goodPos);
    }

    QString path(const QString& name) const { return dir.filePath(name); }

    faketools::DriverSpec driver() const {
        faketools::DriverSpec d;
        d.name = "d";
        d.writer = tools.writer();
        d.prover = tools.prover();
        d.reader = tools.reader();
        return d;
    }

    QByteArray mechanismText(const faketools::DriverSpec& d) const {
        return faketools::mechanismXml("always", {d});
    }
    void writeMechanism(const faketools::DriverSpec& d) const {
        testutil::writeFile(path("m.xml"), mechanismText(d));
    }

    // Remembers the bytes so that posUnchanged() can compare them after the run.
    void writePos(const QByteArray& content) {
        posBytes = content;
        testutil::writeFile(path("comp.pos"), content);
    }
    bool posUnchanged() const {
        return QFileInfo(path("comp.pos")).isFile() && testutil::readFile(path("comp.pos")) == posBytes;
    }
    QString goalStatus() const {
        const QDomDocument doc = pos::documentOfFile(path("comp.pos"));
        return doc.documentElement()
            .firstChildElement("Proof_Obligation")
            .firstChildElement("Simple_Goal")
            .attribute("status");
    }

    testutil::RunResult run(const QStringList& extra = {}, const QString& pos = "comp.pos") const {
        return testutil::runPovrun(QStringList{"-m", path("m.xml"), "-s", path(pos), "-p",
                                               path("comp.pog"), "-d", path("tmp")} +
                                       extra,
                                   dir.path(), 20000);
    }

    QStringList leftInTmp() const { return QDir(path("tmp")).entryList(QDir::Files); }

    QTemporaryDir dir;
    faketools::ToolSet tools;
    QByteArray goodPos;
    QByteArray posBytes;
};

} // namespace

TEST_F(BadInputTest, StatusFileThatCannotBeLoadedIsReportedAndNeverWritten) {
    struct Row {
        const char* name;
        std::function<void()> spoil;
    };
    const std::vector<Row> rows = {
        {"missing", [&] { QFile::remove(path("comp.pos")); }},
        {"a folder", [&] { QFile::remove(path("comp.pos")); QDir(dir.path()).mkdir("comp.pos"); }},
        {"empty", [&] { writePos(""); }},
        {"truncated", [&] { writePos(goodPos.left(goodPos.size() / 2)); }},
        {"malformed", [&] { writePos("<Proof_Obligations><Proof_Obligation></Simple_Goal>\n"); }},
        {"not text", [&] {
             static const char bytes[] = "\0\x01\xff\xfe garbage";
             writePos(QByteArray(bytes, sizeof bytes - 1));
         }},
    };
    const std::string notReadable = "ErrorFile not readable " + path("comp.pos").toStdString() + "\n";
    for (const Row& row : rows) {
        for (const bool directoryMode : {false, true}) {
            QDir(path("comp.pos")).removeRecursively();
            writePos(goodPos);
            row.spoil();
            const QStringList args{"-s", path("comp.pos"), "-p", path("comp.pog"), "-d", path("tmp")};
            const testutil::RunResult r = testutil::runPovrun(
                args + (directoryMode ? QStringList{"-M", dir.path()} : QStringList{"-m", path("m.xml")}),
                dir.path(), 20000);
            const std::string name = std::string(row.name) + (directoryMode ? " (-M)" : " (-m)");
            EXPECT_EQ(r.exitCode, 0) << name;
            EXPECT_EQ(r.err, "") << name;
            const std::string head = directoryMode ? notReadable : PROVING + "Error comp .pos\n";
            EXPECT_EQ(r.out, head + notReadable + report(0, 0)) << name;
            if (std::string(row.name) == "missing")
                EXPECT_FALSE(QFileInfo::exists(path("comp.pos"))) << "a status file is never created";
            else if (std::string(row.name) == "a folder")
                EXPECT_TRUE(QFileInfo(path("comp.pos")).isDir()) << name;
            else
                EXPECT_TRUE(posUnchanged()) << name;
        }
    }
}

TEST_F(BadInputTest, GoalWithoutTheMechanismIsRefusedAndLeftAlone) {
    faketools::GoalSpec registered, unregistered;
    registered.drivers = {{"d", "Proved"}};
    unregistered.hasMechanism = false;
    writePos(faketools::posXml("m", {{"G", {registered, unregistered}}}));
    const testutil::RunResult r = run();
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out, PROVING + "Error comp .pos\n" + report(0, 2));
    EXPECT_TRUE(posUnchanged());
}

TEST_F(BadInputTest, UnknownWordsEndTheRunWithMapAtAndChangeNothing) {
    struct Row {
        const char* name;
        QByteArray mechanism;  // empty: the good one
        faketools::GoalSpec goal;
        std::string out;
    };
    faketools::GoalSpec good;
    good.drivers = {{"d", "Proved"}};
    faketools::GoalSpec badGoal = good, badMechanism = good, badDriver = good;
    badGoal.status = "Bogus";
    badMechanism.mechanismStatus = "Bogus";
    badDriver.drivers = {{"d", "Bogus"}};
    const QByteArray mechanism = mechanismText(driver());
    const QByteArray plainWriter = QStringLiteral("path=\"%1\"/>").arg(tools.writer()).toUtf8();
    const QByteArray expandingWriter =
        QStringLiteral("path=\"%1\"><expand name=\"nowhere\"/></writer>").arg(tools.writer()).toUtf8();
    const std::vector<Row> rows = {
        {"trust", QByteArray(mechanism).replace("trust=\"always\"", "trust=\"sometimes\""), good, ""},
        {"group", QByteArray(mechanism).replace("group=\"none\"", "group=\"all\""), good, ""},
        {"expand", QByteArray(mechanism).replace(plainWriter, expandingWriter), good, ""},
        {"goal status", "", badGoal, PROVING + "\tProof driver d, still 0 unproved PO\n"},
        {"Mechanism status", "", badMechanism, PROVING + DRIVER_LINE},
        {"Driver status", "", badDriver, PROVING + DRIVER_LINE},
    };
    for (const Row& row : rows) {
        testutil::writeFile(path("m.xml"), row.mechanism.isEmpty() ? mechanism : row.mechanism);
        writePos(faketools::posXml("m", {{"G", {row.goal}}}));
        const testutil::RunResult r = run();
        EXPECT_EQ(r.exitCode, 1) << row.name;
        EXPECT_EQ(r.err, "povrun: map::at\n") << row.name;
        EXPECT_EQ(r.out, row.out) << row.name;
        EXPECT_TRUE(posUnchanged()) << row.name;
    }
}

TEST_F(BadInputTest, MechanismFileThatCannotBeReadStopsTheRun) {
    QFile::remove(path("m.xml"));
    testutil::RunResult r = run();
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "Cannot open '" + path("m.xml").toStdString() + "'.\n");
    EXPECT_TRUE(posUnchanged());

    ASSERT_TRUE(QDir(dir.path()).mkdir("m.xml"));
    r = run();
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err, "Cannot open '" + path("m.xml").toStdString() + "'.\n") << "a folder";
    EXPECT_TRUE(posUnchanged());
}

// A mechanism file that is not XML reads as a mechanism without drivers: it proves
// nothing, and says nothing.
TEST_F(BadInputTest, EmptyOrMalformedMechanismHasNoDriversAndProvesNothing) {
    const QByteArray good = mechanismText(driver());
    const std::vector<std::pair<const char*, QByteArray>> rows = {
        {"empty", ""},
        {"truncated", good.left(good.size() / 2)},
        {"malformed", "<mechanism trust=\"always\"><driver name=\"d\"></mechanism>"},
    };
    for (const auto& row : rows) {
        testutil::writeFile(path("m.xml"), row.second);
        const testutil::RunResult r = run();
        EXPECT_EQ(r.exitCode, 0) << row.first;
        EXPECT_EQ(r.err, "") << row.first;
        EXPECT_EQ(r.out, PROVING + report(0, 1)) << row.first;
        EXPECT_TRUE(posUnchanged()) << row.first;
    }
}

TEST_F(BadInputTest, ToolThatCannotBeFoundStopsTheRunBeforeAnyJob) {
    testutil::writeScript(path("plain.sh"), "exit 0\n");
    QFile::setPermissions(path("plain.sh"), QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    struct Row {
        const char* name;
        std::function<void(faketools::DriverSpec&)> spoil;
        QStringList extra;
        std::string err;
    };
    const std::string missingDir = path("nowhere").toStdString();
    const std::vector<Row> rows = {
        {"writer missing", [&](faketools::DriverSpec& d) { d.writer = path("nowhere.sh"); }, {},
         "Cannot locate tool w\n"},
        {"prover not executable", [&](faketools::DriverSpec& d) { d.prover = path("plain.sh"); }, {},
         "Cannot locate prover p\n"},
        {"reader is a folder", [&](faketools::DriverSpec& d) { d.reader = path("tmp"); }, {},
         "Cannot locate tool r\n"},
        {"install folder missing", [](faketools::DriverSpec& d) { d.writer = "writer.sh"; },
         {"-i", path("nowhere")},
         "povrun: filesystem error: cannot make canonical path: No such file or directory [" +
             missingDir + "]\n"},
    };
    for (const Row& row : rows) {
        faketools::DriverSpec d = driver();
        row.spoil(d);
        writeMechanism(d);
        const testutil::RunResult r = run(row.extra);
        EXPECT_EQ(r.exitCode, 1) << row.name;
        EXPECT_EQ(r.out, "") << row.name;
        EXPECT_EQ(r.err, row.err) << row.name;
        EXPECT_TRUE(posUnchanged()) << row.name;
    }
}

TEST_F(BadInputTest, ResourceFileThatCannotBeUsedLeavesTheToolUnlocated) {
    faketools::DriverSpec d = driver();
    d.prover = "nowhere";
    testutil::writeFile(path("m.xml"), mechanismText(d).replace(
                                          "path=\"nowhere\"", "path=\"nowhere\" resource=\"ZDR*Proof*prover\""));
    const QByteArray line = "ZDR*Proof*prover: " + tools.prover().toUtf8();
    const std::string res = path("res").toStdString();
    struct Row {
        const char* name;
        std::function<void()> write;
        std::string err;  // followed by the prover's own message
    };
    const std::vector<Row> rows = {
        {"missing", [] {}, "Unable to open resource file " + res + " because: No such file or directory\n"},
        {"a folder", [&] { QDir(dir.path()).mkdir("res"); },
         "Can not open file: " + res + " because: Is a directory\n"},
        {"empty", [&] { testutil::writeFile(path("res"), ""); }, ""},
        {"truncated (no final newline)", [&] { testutil::writeFile(path("res"), line); }, ""},
        {"malformed", [&] { testutil::writeFile(path("res"), QByteArray(line).replace(':', ' ') + "\n"); },
         res + ":1: Resource syntax error: resource name or colon not found\n"},
    };
    for (const Row& row : rows) {
        QFile::remove(path("res"));
        QDir(path("res")).removeRecursively();
        row.write();
        const testutil::RunResult r = run({"-r", path("res")});
        EXPECT_EQ(r.exitCode, 1) << row.name;
        EXPECT_EQ(r.out, "") << row.name;
        EXPECT_EQ(r.err, row.err + "Cannot locate prover p\n") << row.name;
        EXPECT_TRUE(posUnchanged()) << row.name;
    }

    // The same mechanism with a usable resource file proves the goal.
    testutil::writeFile(path("res"), line + "\n");
    const testutil::RunResult r = run({"-r", path("res")});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(goalStatus(), "Proved");
}

TEST_F(BadInputTest, UnreadableFilesAreReportedLikeMissingOnes) {
    if (!permissionsBindUs())
        GTEST_SKIP() << "running as root: a mode-000 file is still readable; the folder rows "
                        "of the other tests stand for an unreadable file";
    const QFileDevice::Permissions none;
    QFile::setPermissions(path("comp.pos"), none);
    testutil::RunResult r = run();
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out, PROVING + "Error comp .pos\nErrorFile not readable " +
                         path("comp.pos").toStdString() + "\n" + report(0, 0));
    QFile::setPermissions(path("comp.pos"), QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    EXPECT_TRUE(posUnchanged());

    QFile::setPermissions(path("m.xml"), none);
    r = run();
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err, "Cannot open '" + path("m.xml").toStdString() + "'.\n");
    EXPECT_TRUE(posUnchanged());
}

TEST_F(BadInputTest, ToolThatMisbehavesLeavesItsGoalAsItWas) {
    struct Row {
        const char* name;
        QByteArray writer;  // empty: the fake one
        QByteArray prover;
        QByteArray reader;
        std::string err;
        std::string marks;  // empty: no mark at all
    };
    static const char elfHeadOnly[] = "\x7f" "ELF\x02\x01 not a program";
    const QByteArray notAProgram(elfHeadOnly, sizeof elfHeadOnly - 1);
    const std::vector<Row> rows = {
        {"writer crashes", "kill -SEGV $$\n", "", "", "-- ProofDirector -- Writer crashed.\n", "-"},
        {"prover crashes", "", "kill -SEGV $$\n", "", "Driver prover crashed.\n", ""},
        {"reader crashes", "", "", "cat >/dev/null; kill -SEGV $$\n", "Driver reader crashed.\n", ""},
        {"writer is not a program", notAProgram, "", "", "-- ProofDirector -- Writer had an error.\n", "-"},
        {"prover is not a program", "", notAProgram, "", "", "-"},
        {"reader is not a program", "", "", notAProgram, "", "-"},
        {"writer writes no file", "exit 0\n", "", "", "-- ProofDirector -- Secondary po " +
             path("tmp/comp_m_d_0_0.po2").toStdString() + " not found.\n", "-"},
        {"prover prints garbage", "", "cat >/dev/null; printf 'x\\001\\nyy \\377\\n\\n\\376z\\n'\n", "",
         "Unexpected number of results. Expected: 1 Found: 4\n", ""},
        {"reader prints garbage", "", "", "cat >/dev/null; printf '\\377\\376Proved\\001'\n", "", "-"},
    };
    for (const Row& row : rows) {
        faketools::DriverSpec d = driver();
        const auto replace = [&](QString& tool, const char* file, const QByteArray& body) {
            if (body.isEmpty())
                return;
            tool = path(file);
            if (body.startsWith('\x7f')) {
                testutil::writeFile(tool, body);
                QFile::setPermissions(tool, QFileDevice::ReadOwner | QFileDevice::ExeOwner);
            } else {
                testutil::writeScript(tool, body);
            }
        };
        replace(d.writer, "w2", row.writer);
        replace(d.prover, "p2", row.prover);
        replace(d.reader, "r2", row.reader);
        writeMechanism(d);
        const testutil::RunResult r = run();
        EXPECT_EQ(r.exitCode, 0) << row.name;
        EXPECT_EQ(r.err, row.err) << row.name;
        const std::string shown = row.marks.empty() ? "\n" : marks(row.marks);
        EXPECT_EQ(r.out, PROVING + DRIVER_LINE + shown + report(0, 1)) << row.name;
        EXPECT_TRUE(posUnchanged()) << row.name;
        EXPECT_EQ(leftInTmp(), QStringList()) << row.name;
    }
}

// povrun feeds a writer nothing and a prover with input="file" nothing: both must see
// the end of their input rather than wait for ever. Output nobody reads must not block.
TEST_F(BadInputTest, ToolThatReadsItsInputOrChattersStillFinishes) {
    const QByteArray forward = "exec '" + tools.writer().toUtf8() + "' \"$@\"\n";
    struct Row {
        const char* name;
        QByteArray writer;
        QByteArray prover;
        const char* input;
    };
    const std::vector<Row> rows = {
        {"writer reads its standard input", "cat >/dev/null\n" + forward, "", "stdin"},
        {"prover with input=file reads its standard input", "", "cat >/dev/null\ncat \"$1\"\n", "file"},
        {"writer chatters on both outputs",
         "head -c 1000000 /dev/zero\nhead -c 1000000 /dev/zero >&2\n" + forward, "", "stdin"},
    };
    for (const Row& row : rows) {
        faketools::DriverSpec d = driver();
        d.input = row.input;
        if (!row.writer.isEmpty())
            testutil::writeScript(d.writer = path("w2"), row.writer);
        if (!row.prover.isEmpty())
            testutil::writeScript(d.prover = path("p2"), row.prover);
        writeMechanism(d);
        writePos(goodPos);
        QElapsedTimer timer;
        timer.start();
        const testutil::RunResult r = run();
        EXPECT_FALSE(r.timedOut) << row.name;
        EXPECT_LT(timer.elapsed(), 10000) << row.name;
        EXPECT_EQ(r.exitCode, 0) << row.name;
        EXPECT_EQ(r.err, "") << row.name;
        EXPECT_EQ(r.out, PROVING + DRIVER_LINE + marks("+") + report(1, 0)) << row.name;
        EXPECT_EQ(goalStatus(), "Proved") << row.name;
    }
}

TEST_F(BadInputTest, TemporaryFolderThatCannotBeUsedFailsEveryJob) {
    for (const char* folder : {"nowhere", "comp.pog"}) {
        const testutil::RunResult r = testutil::runPovrun(
            {"-m", path("m.xml"), "-s", path("comp.pos"), "-p", path("comp.pog"), "-d", path(folder)},
            dir.path(), 20000);
        EXPECT_EQ(r.exitCode, 0) << folder;
        EXPECT_EQ(r.err, "-- ProofDirector -- Secondary po " + path(folder).toStdString() +
                             "/comp_m_d_0_0.po2 not found.\n")
            << folder;
        EXPECT_EQ(r.out, PROVING + DRIVER_LINE + marks("-") + report(0, 1)) << folder;
        EXPECT_TRUE(posUnchanged()) << folder;
    }
}

TEST_F(BadInputTest, TemporaryFolderThatIsNotWritableFailsEveryJob) {
    if (!permissionsBindUs())
        GTEST_SKIP() << "running as root: a read-only folder is still writable; the rows of "
                        "TemporaryFolderThatCannotBeUsedFailsEveryJob cover an unusable folder";
    QFile::setPermissions(path("tmp"), QFileDevice::ReadOwner | QFileDevice::ExeOwner);
    const testutil::RunResult r = run();
    QFile::setPermissions(path("tmp"), QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                           QFileDevice::ExeOwner);
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_NE(r.err.find(" not found.\n"), std::string::npos) << r.err;
    EXPECT_EQ(r.out, PROVING + DRIVER_LINE + marks("-") + report(0, 1));
    EXPECT_TRUE(posUnchanged());
}

// Without root the save is refused: the marks are shown, the file keeps its bytes and
// the report counts what the file says. Root writes anyway; see the disabled test below.
TEST_F(BadInputTest, ReadOnlyStatusFileIsNotRewritten) {
    const QFileDevice::Permissions readOnly = QFileDevice::ReadOwner | QFileDevice::ReadUser;
    QFile::setPermissions(path("comp.pos"), readOnly);
    const bool bound = permissionsBindUs();
    const testutil::RunResult r = run();
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.err, "");
    if (bound) {
        EXPECT_EQ(r.out, PROVING + DRIVER_LINE + marks("+") + report(0, 1));
        EXPECT_TRUE(posUnchanged());
    } else {
        // All root can check: the run ended normally and left a file that loads.
        EXPECT_NE(r.out.find(marks("+")), std::string::npos) << r.out;
        EXPECT_FALSE(pos::documentOfFile(path("comp.pos")).isNull());
    }
}

// Root could write a file the user made read-only (mode 0444); povrun leaves it alone
// whoever runs it, bytes and mode.
TEST_F(BadInputTest, ReadOnlyStatusFileKeepsItsBytesAndModeEvenForRoot) {
    QFile::setPermissions(path("comp.pos"), QFileDevice::ReadOwner | QFileDevice::ReadUser |
                                                QFileDevice::ReadGroup | QFileDevice::ReadOther);
    const testutil::RunResult r = run();
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_TRUE(posUnchanged());
    EXPECT_EQ(QFileInfo(path("comp.pos")).permissions() &
                  (QFileDevice::WriteOwner | QFileDevice::WriteGroup | QFileDevice::WriteOther),
              QFileDevice::Permissions());
}

// The file itself may be written, so the results are recorded, in place when no
// temporary file can be made beside it; nothing is left behind in the folder.
TEST_F(BadInputTest, StatusFileInReadOnlyFolderStillRecordsResults) {
    ASSERT_TRUE(QDir(dir.path()).mkdir("ro"));
    testutil::writeFile(path("ro/comp.pos"), goodPos);
    const QFileDevice::Permissions before = QFileInfo(path("ro/comp.pos")).permissions();
    QFile::setPermissions(path("ro"), QFileDevice::ReadOwner | QFileDevice::ExeOwner);
    const testutil::RunResult r = run({}, "ro/comp.pos");
    QFile::setPermissions(path("ro"), QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                          QFileDevice::ExeOwner);
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out, PROVING + DRIVER_LINE + marks("+") + report(1, 0));
    EXPECT_EQ(QDir(path("ro")).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden),
              QStringList{"comp.pos"});
    EXPECT_EQ(QFileInfo(path("ro/comp.pos")).permissions(), before);
}

TEST_F(BadInputTest, MoreWorkersThanJobsStillEndWithTheReport) {
    const testutil::RunResult r = run({"-c", "200"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out, PROVING + DRIVER_LINE + marks("+") + report(1, 0));
}

// One thread per unit of -c would take seconds and gigabytes here (a TSan build ran out
// of memory); no more workers are started than there are jobs.
TEST_F(BadInputTest, HugeConcurrencyOnATinyComponentEndsAtOnce) {
    QElapsedTimer timer;
    timer.start();
    const testutil::RunResult r = run({"-c", "100000"});
    EXPECT_LT(timer.elapsed(), 1500);
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out, PROVING + DRIVER_LINE + marks("+") + report(1, 0));
}
