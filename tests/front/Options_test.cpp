// The command line read in-process, and the base name of a path. Which command lines run,
// and optional long options without an attached value, are tried on the binary.

#include "front/Options.h"
#include "front/Utils.h"

#include <getopt.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using Words = std::vector<std::string>;

// Parses `words` as main would, from a fresh getopt state.
command_line_t parse(Words words) {
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    optind = 0;
    return parseCommandLine(static_cast<int>(words.size()), argv.data());
}

} // namespace

// The plain forms and flags are what every whole run uses.
TEST(Options, AttachedValuesLandInTheirSettingsAndEachDashIAddsAFolder) {
    const settings_t s = parse({"povrun", "-i", "a", "--installdir=b", "--mechanism=m",
                                "--mechanism-directory=d", "--concurrency=4", "--trace=2"})
                             .settings;
    EXPECT_EQ(s.installDirs, (Words{"a", "b"}));
    EXPECT_EQ(s.mechanismFile + s.mechanismDirectory, "md");
    EXPECT_EQ(s.concurrency * 10 + s.trace, 42);
}

TEST(BaseNameOfPath, DropsDirectoryAndLastExtension) {
    const std::pair<const char*, const char*> rows[] = {
        {"a.b/comp", "comp"},
        {"x/y.tar.gz", "y.tar"},
        {"dir/", ""},
        {"mixed\\dir/comp.xml", "comp"},
        {"mixed/dir\\comp.xml", "comp"},
        {"trailing.", "trailing"},
    };
    for (const auto& [path, expected] : rows)
        EXPECT_EQ(baseNameOfPath(path), expected) << "path: " << path;
}
