// Command-line behaviour of the built povrun: usage, validation, traces, option forms.

#include "common/testutil.h"

#include <gtest/gtest.h>

using testutil::runPovrun;

namespace {

const QStringList COMPLETE = {"-d", "tmp", "-s", "a.pos", "-p", "a.pog", "-m", "m.xml"};

} // namespace

// getopt's own diagnostic names the program as it was invoked; validation adds nothing.
// Which command lines fail validation is the options module's test.
TEST(CommandLine, HelpBadOptionsAndValidationFailuresPrintUsageAndFail) {
    const std::string usage =
        testutil::readFile(POVRUN_SOURCE_DIR "/tests/cli/usage.expected").toStdString();
    const struct {
        const char* name;
        QStringList args;
        std::string err;
    } rows[] = {
        // clang-format off
        {"--help", {"--help"}, ""},
        {"unknown option", {"-z"}, POVRUN_BIN ": invalid option -- 'z'\n"},
        {"unknown long option", {"--bogus"}, POVRUN_BIN ": unrecognized option '--bogus'\n"},
        {"short option without value", COMPLETE.mid(0, 7), POVRUN_BIN ": option requires an argument -- 'm'\n"},
        {"no temporary folder", COMPLETE.mid(2), ""},
        // clang-format on
    };
    for (const auto& row : rows) {
        const testutil::RunResult r = runPovrun(row.args);
        EXPECT_TRUE(!r.crashed && r.exitCode == 1) << row.name;
        EXPECT_EQ(r.out, usage) << row.name;
        EXPECT_EQ(r.err, row.err) << row.name;
    }
    const testutil::RunResult version = runPovrun({"--version", "-h"});
    EXPECT_EQ(version.exitCode, 0);
    EXPECT_EQ(version.out + version.err, "povrun " POVRUN_PROJECT_VERSION "\n");
}

// The trace comes before validation, names every word including the program, and ends
// with a blank before the closing quote.
TEST(CommandLine, AnyNonZeroTraceLevelShowsTheCommandLineBeforeValidation) {
    EXPECT_EQ(runPovrun({"-t", "1", "-s", "a b.pos"}).err,
              "[povrun]\ncommand = \"" POVRUN_BIN " -t 1 -s a b.pos \"\n");
    EXPECT_EQ(runPovrun({"-t", "-1"}).err, "[povrun]\ncommand = \"" POVRUN_BIN " -t -1 \"\n");
    EXPECT_EQ(runPovrun({"-t", "0"}).err, "");
}

// "--mechanism m.xml" hands the option no value: the run ends in an error, never a core dump.
// Attached values are the options module's test.
TEST(CommandLine, OptionalLongOptionsWithoutAttachedValueFailWithoutCrashing) {
    for (const char* option :
         {"--mechanism", "--mechanism-directory", "--installdir", "--concurrency", "--trace"}) {
        const testutil::RunResult r = runPovrun(COMPLETE + QStringList{option, "2"});
        EXPECT_TRUE(!r.crashed && r.exitCode == 1 && r.out.empty()) << option;
        EXPECT_EQ(r.err.rfind("povrun: ", 0), 0u) << option << ": " << r.err;
    }
}
