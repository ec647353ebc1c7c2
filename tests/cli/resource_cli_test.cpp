// The -r option of the built povrun: the file is loaded while the options are read.

#include "common/testutil.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

TEST(ResourceOption, LoadsTheFileAndReportsItsSyntaxErrors) {
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    testutil::writeFile(dir.filePath("res.txt"), "! tools\n"
                                                 "ZDR*Proof*writer: /bin/true\n"
                                                 "ZDR*Proof*prover value\n"
                                                 "ZDR*Proof\n");
    const testutil::RunResult r = testutil::runPovrun({"-r", "res.txt", "-r", "missing.txt"},
                                                      dir.path());
    EXPECT_FALSE(r.crashed);
    EXPECT_EQ(r.exitCode, 1) << "the other options are still missing";
    EXPECT_EQ(r.err.rfind("res.txt:3: Resource syntax error: resource name or colon not found\n"
                          "res.txt:4: Resource syntax error: tool name not found\n"
                          "Unable to open resource file missing.txt because: ",
                          0),
              0u)
        << r.err;
}
