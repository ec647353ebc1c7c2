// The command line read in-process: what each one asks for and the settings it gives; the
// base name of a path.

#include "front/Options.h"
#include "front/Utils.h"

#include <getopt.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using Words = std::vector<std::string>;

// Parses COMPLETE + `words` (after the program name) as main would, from a fresh getopt state.
command_line_t parse(Words words, bool complete = true) {
    const Words head = {"povrun", "-d", "tmp", "-s", "a.pos", "-p", "a.pog"};
    words.insert(words.begin(), head.begin(), complete ? head.end() : head.begin() + 1);
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    optind = 0;
    opterr = 0;
    return parseCommandLine(static_cast<int>(words.size()), argv.data());
}

} // namespace

// Bad options, a missing value, --version before -h and a missing -d are the command-line test's.
TEST(Options, EachCommandLineAsksForARunTheUsageOrTheVersion) {
    using R = request_t;
    const struct {
        const char* name;
        Words words;
        bool complete;
        request_t request;
        bool runnable;
    } rows[] = {
        // clang-format off
        {"complete with -m", {"-m", "m.xml"}, true, R::RUN, true},
        {"complete with -M", {"-M", "d"}, true, R::RUN, true},
        {"-h", {"-h"}, false, R::USAGE, false},
        {"-h first wins", {"-h", "--version"}, false, R::USAGE, false},
        {"no mechanism", {}, true, R::RUN, false},
        {"both mechanisms", {"-m", "m", "-M", "d"}, true, R::RUN, false},
        {"no status file", {"-d", "t", "-p", "a.pog", "-m", "m"}, false, R::RUN, false},
        {"no obligation file", {"-d", "t", "-s", "a.pos", "-m", "m"}, false, R::RUN, false},
        {"concurrency 0", {"-m", "m", "-c", "0"}, true, R::RUN, false},
        {"concurrency not a number", {"-m", "m", "-c", "x"}, true, R::RUN, false},
        // clang-format on
    };
    for (const auto& row : rows) {
        const command_line_t result = parse(row.words, row.complete);
        EXPECT_EQ(result.request, row.request) << row.name;
        EXPECT_EQ(result.request == R::RUN && isRunnable(result.settings), row.runnable)
            << row.name;
    }
}

// Long options without an attached value are the command-line test's.
TEST(Options, ValuesLandInTheirSettings) {
    const settings_t s = parse({"-i", "a", "--installdir=b", "--mechanism=m", "--concurrency=4",
                                "--trace=2", "-x", "--first-play"})
                             .settings;
    EXPECT_EQ(s.installDirs, (Words{"a", "b"}));
    EXPECT_EQ(s.tempDir + s.posPath + s.pogPath + s.mechanismFile, "tmpa.posa.pogm");
    EXPECT_EQ(s.concurrency * 10 + s.trace, 42);
    EXPECT_TRUE(s.xml && s.firstPlay);
    EXPECT_FALSE(parse({}).settings.firstPlay);
}

TEST(BaseNameOfPath, DropsDirectoryAndLastExtension) {
    const std::pair<const char*, const char*> rows[] = {{"bdp\\comp.pos", "comp"},
                                                        {"a.b/comp", "comp"},
                                                        {"x/y.tar.gz", "y.tar"},
                                                        {"dir/", ""},
                                                        {"dir\\", ""},
                                                        {"mixed\\dir/comp.xml", "comp"},
                                                        {"mixed/dir\\comp.xml", "comp"},
                                                        {".hidden", ""},
                                                        {"trailing.", "trailing"}};
    for (const auto& [path, expected] : rows)
        EXPECT_EQ(baseNameOfPath(path), expected) << "path: " << path;
}
