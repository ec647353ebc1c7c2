// What povrun does when a tool of the mechanism given with -m cannot be found.

#include "common/testutil.h"

#include <QDir>
#include <QTemporaryDir>
#include <gtest/gtest.h>

TEST(MechanismCommandLine, UnlocatableWriterEndsTheRunWithoutReportAndLeavesThePosAlone) {
    const QByteArray pos = "<Proof_Obligations/>\n";
    const struct {
        const char* name;
        QByteArray writer;
        QStringList extra;
        std::string searched; // where the writer was looked for, before the current dir
    } rows[] = {
        {"writer missing from the install dir", "nowhere", {"-i", "tools"}, "nowhere\" in tools,"},
        {"without -i only the current dir is searched", "w", {}, "w\" in"},
        {"with -x only the frame's opening tag is written",
         "nowhere",
         {"-i", "tools", "-x"},
         "nowhere\" in tools,"},
    };
    for (const auto& row : rows) {
        QTemporaryDir temp;
        QDir(temp.path()).mkpath("tools");
        QDir(temp.path()).mkpath("tmp");
        for (const char* tool : {"w", "p", "r"})
            testutil::writeScript(temp.filePath(QString("tools/") + tool), "exit 0\n");
        testutil::writeFile(temp.filePath("comp.pos"), pos);
        testutil::writeFile(temp.filePath("comp.pog"), pos);
        testutil::writeFile(temp.filePath("m.xml"),
                            "<mechanism><driver name=\"d\"><writer name=\"extract\" path=\"" +
                                row.writer + "\"/><prover path=\"p\"/><reader path=\"r\"/>" +
                                "</driver></mechanism>\n");
        const testutil::RunResult r = testutil::runPovrun(
            QStringList{"-s", "comp.pos", "-p", "comp.pog", "-d", "tmp", "-m", "m.xml"} + row.extra,
            temp.path());
        EXPECT_FALSE(r.crashed) << row.name;
        EXPECT_EQ(r.exitCode, 1) << row.name;
        EXPECT_EQ(r.out, row.extra.contains("-x") ? "<proof>\n" : "") << row.name;
        EXPECT_EQ(r.err, "Cannot locate tool extract\npovrun: looked for \"" + row.searched +
                             (row.extra.isEmpty() ? " " : " then in ") + "the current directory " +
                             QDir(temp.path()).canonicalPath().toStdString() +
                             "; no resource named\n")
            << row.name;
        EXPECT_EQ(testutil::readFile(temp.filePath("comp.pos")), pos) << row.name;
    }
}
