// Command-line behaviour of the built povrun: usage, validation, traces, option forms.

#include "common/testutil.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

using testutil::runPovrun;

namespace {

std::string usage() {
    return testutil::readFile(POVRUN_SOURCE_DIR "/tests/cli/usage.expected").toStdString();
}

void expectUsage(const QStringList& args, const std::string& why) {
    const testutil::RunResult r = runPovrun(args);
    EXPECT_FALSE(r.crashed) << why;
    EXPECT_EQ(r.exitCode, 1) << why;
    EXPECT_EQ(r.out, usage()) << why;
}

} // namespace

TEST(CommandLine, HelpAndBadOptionsPrintUsageAndFail) {
    const testutil::RunResult help = runPovrun({"-h"});
    EXPECT_EQ(help.exitCode, 1);
    EXPECT_EQ(help.out, usage());
    EXPECT_EQ(help.err, "");
    EXPECT_EQ(runPovrun({"--help"}).out, usage());

    const testutil::RunResult unknown = runPovrun({"-z"});
    EXPECT_EQ(unknown.exitCode, 1);
    EXPECT_EQ(unknown.out, usage());
    EXPECT_NE(unknown.err.find("invalid option"), std::string::npos) << unknown.err;

    expectUsage({"-d", "t", "-s", "a.pos", "-p", "a.pog", "-m"}, "short option without value");
    expectUsage({"--bogus"}, "unknown long option");
}

TEST(CommandLine, ValidationFailuresPrintUsageInOrder) {
    const QStringList complete = {"-d", "tmp", "-s", "a.pos", "-p", "a.pog", "-m", "m.xml"};
    expectUsage({"-s", "a.pos", "-p", "a.pog", "-m", "m.xml"}, "no temporary directory");
    expectUsage({"-d", "tmp", "-p", "a.pog", "-m", "m.xml"}, "no pos");
    expectUsage({"-d", "tmp", "-s", "a.pos", "-m", "m.xml"}, "no pog");
    expectUsage({"-d", "tmp", "-s", "a.pos", "-p", "a.pog"}, "no mechanism");
    expectUsage(complete + QStringList{"-M", "dir"}, "both mechanism options");
    expectUsage(complete + QStringList{"-c", "0"}, "concurrency 0");
    expectUsage(complete + QStringList{"-c", "abc"}, "concurrency not a number");
    expectUsage(complete + QStringList{"-c", "-2"}, "negative concurrency");
}

TEST(CommandLine, TraceShowsCommandLineBeforeValidation) {
    const testutil::RunResult r = runPovrun({"-t", "1", "-s", "a b.pos"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.out, usage());
    EXPECT_EQ(r.err, "[povrun]\ncommand = \"" POVRUN_BIN " -t 1 -s a b.pos \"\n");

    const testutil::RunResult negative = runPovrun({"-t", "-1"});
    EXPECT_EQ(negative.err.rfind("[povrun]\n", 0), 0u) << "any non-zero level traces";
    EXPECT_EQ(runPovrun({"-t", "0"}).err, "");
}

TEST(CommandLine, OptionalLongOptionsTakeOnlyAttachedValues) {
    const QStringList base = {"-d", "tmp", "-s", "a.pos", "-p", "a.pog"};
    for (const QString& option :
         {QStringLiteral("--mechanism"), QStringLiteral("--mechanism-directory"),
          QStringLiteral("--installdir")}) {
        const testutil::RunResult r = runPovrun(base + QStringList{option, "m.xml"});
        EXPECT_FALSE(r.crashed) << option.toStdString() << " must not dump core";
        EXPECT_EQ(r.exitCode, 1) << option.toStdString();
        EXPECT_NE(r.err.find("basic_string: construction from null is not valid"),
                  std::string::npos)
            << r.err;
    }
    for (const QString& option : {QStringLiteral("--concurrency"), QStringLiteral("--trace")}) {
        const testutil::RunResult r = runPovrun(base + QStringList{"-m", "m.xml", option, "2"});
        EXPECT_FALSE(r.crashed) << option.toStdString();
        EXPECT_EQ(r.exitCode, 1) << option.toStdString();
        EXPECT_NE(r.err.find("povrun: "), std::string::npos) << r.err;
    }
    const testutil::RunResult attached =
        runPovrun(base + QStringList{"--mechanism=missing.xml", "--concurrency=2", "--trace=0"});
    EXPECT_EQ(attached.err.find("basic_string"), std::string::npos) << attached.err;
    EXPECT_NE(attached.out, usage());
}

TEST(CommandLine, DirectoryModeWithUnreadablePosReportsAndGoesOn) {
    QTemporaryDir dir;
    const testutil::RunResult text =
        runPovrun({"-d", dir.path(), "-s", "nope.pos", "-p", "a.pog", "-M", dir.path()});
    EXPECT_EQ(text.exitCode, 0);
    EXPECT_EQ(text.out.rfind("ErrorFile not readable nope.pos\n", 0), 0u) << text.out;

    const testutil::RunResult xml =
        runPovrun({"-x", "-d", dir.path(), "-s", "nope.pos", "-p", "a.pog", "-M", dir.path()});
    EXPECT_EQ(xml.exitCode, 0);
    EXPECT_EQ(xml.out.rfind("<proof>\n<error>File not readable nope.pos</error>\n", 0), 0u)
        << xml.out;
}
