// The command line read in-process: what each one asks for and the settings it gives.

#include "front/Options.h"

#include <getopt.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

// Parses `words` (the program name comes first) as main would, from a fresh getopt state.
command_line_t parse(std::vector<std::string> words) {
    words.insert(words.begin(), "povrun");
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    optind = 0;
    opterr = 0;
    return parseCommandLine(static_cast<int>(words.size()), argv.data());
}

const std::vector<std::string> COMPLETE = {"-d", "tmp", "-s", "a.pos", "-p", "a.pog"};

std::vector<std::string> operator+(std::vector<std::string> a, const std::vector<std::string>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

} // namespace

TEST(Options, EachCommandLineAsksForARunTheUsageOrTheVersion) {
    using R = request_t;
    const struct {
        const char* name;
        std::vector<std::string> words;
        request_t request;
        bool runnable;
    } rows[] = {
        {"complete with -m", COMPLETE + std::vector<std::string>{"-m", "m.xml"}, R::RUN, true},
        {"complete with -M", COMPLETE + std::vector<std::string>{"-M", "d"}, R::RUN, true},
        {"-h", {"-h"}, R::USAGE, false},
        {"unknown option", COMPLETE + std::vector<std::string>{"-z", "-m", "m"}, R::USAGE, false},
        {"missing short value", {"-m"}, R::USAGE, false},
        {"--version first wins", {"--version", "-h"}, R::VERSION, false},
        {"-h first wins", {"-h", "--version"}, R::USAGE, false},
        {"no mechanism", COMPLETE, R::RUN, false},
        {"both mechanisms", COMPLETE + std::vector<std::string>{"-m", "m", "-M", "d"}, R::RUN,
         false},
        {"no temporary folder", {"-s", "a.pos", "-p", "a.pog", "-m", "m"}, R::RUN, false},
        {"no status file", {"-d", "t", "-p", "a.pog", "-m", "m"}, R::RUN, false},
        {"no obligation file", {"-d", "t", "-s", "a.pos", "-m", "m"}, R::RUN, false},
        {"concurrency 0", COMPLETE + std::vector<std::string>{"-m", "m", "-c", "0"}, R::RUN, false},
        {"concurrency not a number", COMPLETE + std::vector<std::string>{"-m", "m", "-c", "x"},
         R::RUN, false},
    };
    for (const auto& row : rows) {
        const command_line_t result = parse(row.words);
        EXPECT_EQ(result.request, row.request) << row.name;
        if (row.request == R::RUN) {
            EXPECT_EQ(isRunnable(result.settings), row.runnable) << row.name;
        }
    }
}

TEST(Options, ValuesLandInTheirSettingsAndValuelessLongOptionsThrow) {
    const settings_t s =
        parse(COMPLETE + std::vector<std::string>{"-i", "a", "--installdir=b", "--mechanism=m",
                                                  "-c", "4", "--trace=2", "-x", "--first-play"})
            .settings;
    EXPECT_EQ(s.installDirs, (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(s.tempDir + s.posPath + s.pogPath + s.mechanismFile, "tmpa.posa.pogm");
    EXPECT_EQ(s.concurrency * 10 + s.trace, 42);
    EXPECT_TRUE(s.xml && s.firstPlay);
    EXPECT_FALSE(parse(COMPLETE).settings.firstPlay);

    for (const char* option : {"--installdir", "--mechanism", "--mechanism-directory"}) {
        try {
            parse(COMPLETE + std::vector<std::string>{option, "m.xml"});
            ADD_FAILURE() << option << " without an attached value was accepted";
        } catch (const std::logic_error& e) {
            EXPECT_STREQ(e.what(), "basic_string: construction from null is not valid") << option;
        }
    }
    for (const char* option : {"--concurrency", "--trace"})
        EXPECT_THROW(parse(COMPLETE + std::vector<std::string>{option, "2"}), std::logic_error)
            << option;
}
