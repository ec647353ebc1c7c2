// How povrun behaves when the mechanism given with -m cannot be loaded, and when it can.

#include "common/testutil.h"

#include <QDir>
#include <QTemporaryDir>
#include <algorithm>
#include <gtest/gtest.h>

using testutil::runPovrun;

namespace {

const QByteArray POS_CONTENT = "<Proof_Obligations/>\n";

// A working folder with tools/{w,p,r}, a status file comp.pos and a PO file comp.pog;
// povrun runs inside it with relative paths.
class Workspace {
public:
    Workspace() {
        QDir(temp.path()).mkpath("tools");
        QDir(temp.path()).mkpath("tmp");
        for (const char* tool : {"w", "p", "r"})
            testutil::writeScript(temp.filePath(QString("tools/") + tool), "exit 0\n");
        testutil::writeFile(temp.filePath("comp.pos"), POS_CONTENT);
        testutil::writeFile(temp.filePath("comp.pog"), "<Proof_Obligations/>\n");
    }
    void writeMechanism(const QByteArray& content) const {
        testutil::writeFile(temp.filePath("m.xml"), content);
    }
    testutil::RunResult run(const QStringList& extra, bool xml = false) const {
        QStringList args = {"-s", "comp.pos", "-p", "comp.pog", "-d", "tmp", "-m", "m.xml"};
        if (xml)
            args << "-x";
        return runPovrun(args + extra, temp.path());
    }
    QByteArray pos() const { return testutil::readFile(temp.filePath("comp.pos")); }

private:
    QTemporaryDir temp;
};

QByteArray mechanismXml(const QByteArray& trust, const QByteArray& writerPath) {
    return "<mechanism trust=\"" + trust + "\"><driver name=\"d\">" +
           "<writer name=\"extract\" path=\"" + writerPath + "\"/>" +
           "<prover name=\"prove\" path=\"p\"/><reader name=\"read\" path=\"r\"/>" +
           "</driver></mechanism>\n";
}

} // namespace

TEST(MechanismCommandLine, UnloadableMechanismEndsTheRunWithoutReport) {
    struct Row {
        const char* name;
        QByteArray mechanism; // empty: no m.xml at all
        QStringList extra;
        std::string err;
    };
    const Row rows[] = {
        {"writer not found",
         mechanismXml("never", "nowhere"),
         {"-i", "tools"},
         "Cannot locate tool extract\n"},
        {"without -i only the current directory is searched",
         mechanismXml("never", "w"),
         {},
         "Cannot locate tool extract\n"},
        {"missing mechanism file", "", {"-i", "tools"}, ""},
        {"unknown trust", mechanismXml("sometimes", "w"), {"-i", "tools"}, "povrun: map::at\n"},
    };
    for (const Row& row : rows) {
        for (const bool xml : {false, true}) {
            Workspace workspace;
            if (!row.mechanism.isEmpty())
                workspace.writeMechanism(row.mechanism);
            const testutil::RunResult r = workspace.run(row.extra, xml);
            EXPECT_FALSE(r.crashed) << row.name;
            EXPECT_EQ(r.exitCode, 1) << row.name;
            EXPECT_EQ(r.out, xml ? "<proof>\n" : "") << row.name << ": no announcement, no report";
            const std::string expectedErr =
                row.mechanism.isEmpty() ? std::string("Cannot open 'm.xml'.\n") : row.err;
            EXPECT_EQ(r.err, expectedErr) << row.name;
            EXPECT_EQ(workspace.pos(), POS_CONTENT) << row.name;
        }
    }
}

TEST(MechanismCommandLine, MissingInstallDirIsOneLineOnStderr) {
    Workspace workspace;
    workspace.writeMechanism(mechanismXml("never", "w"));
    const testutil::RunResult r = workspace.run({"-i", "no-such-dir"});
    EXPECT_FALSE(r.crashed);
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err.rfind("povrun: ", 0), 0u) << r.err;
    EXPECT_NE(r.err.find("no-such-dir"), std::string::npos) << r.err;
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    EXPECT_EQ(workspace.pos(), POS_CONTENT);
}

TEST(MechanismCommandLine, LoadedMechanismIsAnnouncedByItsFileBaseName) {
    Workspace workspace;
    workspace.writeMechanism(mechanismXml("always", "w"));
    const testutil::RunResult r = workspace.run({"-i", "tools"}, true);
    EXPECT_FALSE(r.crashed);
    EXPECT_EQ(
        r.out.rfind("<proof>\n<proving>Proving comp with external mechanism m</proving>\n", 0), 0u)
        << r.out;
    EXPECT_EQ(r.err.find("Cannot"), std::string::npos) << r.err;
}
