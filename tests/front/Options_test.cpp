// The command line read in-process: the settings it gives; the base name of a path. Which
// command lines are runnable, and long options without an attached value, are the
// command-line test's, run through the binary.

#include "front/Options.h"
#include "front/Utils.h"

#include <getopt.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using Words = std::vector<std::string>;

// Parses `words` after a program name, a temporary folder, a status and an obligation file,
// as main would, from a fresh getopt state.
command_line_t parse(Words words) {
    const Words head = {"povrun", "-d", "tmp", "-s", "a.pos", "-p", "a.pog"};
    words.insert(words.begin(), head.begin(), head.end());
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    optind = 0;
    opterr = 0;
    return parseCommandLine(static_cast<int>(words.size()), argv.data());
}

} // namespace

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
    const std::pair<const char*, const char*> rows[] = {
        {"bdp\\comp.pos", "comp"},       {"a.b/comp", "comp"},
        {"x/y.tar.gz", "y.tar"},         {"dir/", ""},
        {"mixed\\dir/comp.xml", "comp"}, {"mixed/dir\\comp.xml", "comp"},
        {"trailing.", "trailing"}};
    for (const auto& [path, expected] : rows)
        EXPECT_EQ(baseNameOfPath(path), expected) << "path: " << path;
}
