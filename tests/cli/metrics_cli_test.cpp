// The end of a run in directory mode as the built povrun shows it: the mechanisms listed in
// the .pos file are played, then the report closes the output.

#include "common/testutil.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

TEST(MetricsCli, DirectoryModeEndsWithTheReportOrStopsAtAMechanismItCannotPlay) {
    QTemporaryDir dir;
    const QString pos = "<Proof_Obligations><Proof_Obligation><Tag>g</Tag><Simple_Goal "
                        "status='Proved'/><Simple_Goal status='%1'/><Simple_Goal "
                        "status='UnreliablyProved'/><Simple_Goal>%2</Simple_Goal>"
                        "</Proof_Obligation></Proof_Obligations>\n";
    const std::string total = "TOTAL for comp\t Proved 1\t Proved externally 0\t Unreliably "
                              "proved 1\t Disproved 0\t Unproved 1";
    const struct {
        const char* name;
        QString pos;
        bool xml;
        int exitCode;
        std::string out, err;
    } rows[] = {
        {"no mechanism, xml", pos.arg("Unknown", ""), true, 0,
         "<proof>\n\n<proofResult>\n\n<total>" + total + "</total>\n</proofResult>\n</proof>\n",
         ""},
        {"unplayable mechanism", pos.arg("Unknown", "<Mechanism name='absent'/>"), true, 1,
         "<proof>\n", "Cannot open '" + dir.filePath("absent.xml").toStdString() + "'.\n"},
        {"unknown status", pos.arg("Valid", ""), false, 1, "",
         "povrun: comp.pos: unknown status \"Valid\" (map::at)\n"},
    };
    for (const auto& row : rows) {
        testutil::writeFile(dir.filePath("comp.pos"), row.pos.toUtf8());
        QStringList args = {"-d", dir.path(), "-s", "comp.pos", "-p", "comp.pog", "-M", dir.path()};
        if (row.xml)
            args << "-x";
        const testutil::RunResult r = testutil::runPovrun(args, dir.path());
        EXPECT_EQ(r.exitCode, row.exitCode) << row.name;
        EXPECT_EQ(r.out, row.out) << row.name;
        EXPECT_EQ(r.err, row.err) << row.name;
        EXPECT_EQ(testutil::readFile(dir.filePath("comp.pos")), row.pos.toUtf8()) << row.name;
    }
}
