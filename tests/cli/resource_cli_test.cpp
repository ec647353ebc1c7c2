// The -r option of the built povrun: each file is loaded while the options are read.

#include "common/testutil.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

TEST(ResourceOption, ReportsSyntaxErrorsWithFileAndLineAndAFileItCannotOpen) {
    QTemporaryDir dir;
    testutil::writeFile(dir.filePath("res.txt"),
                        "! tools\nZDR*Proof*writer: /bin/true\nZDR*Proof*prover value\n");
    const testutil::RunResult r =
        testutil::runPovrun({"-r", "res.txt", "-r", "missing.txt"}, dir.path());
    EXPECT_EQ(r.exitCode, 1) << "the other options are still missing";
    EXPECT_EQ(r.err.rfind("res.txt:3: Resource syntax error: resource name or colon not found\n"
                          "Unable to open resource file missing.txt because: ",
                          0),
              0u)
        << r.err;
}
