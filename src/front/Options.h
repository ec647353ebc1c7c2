#pragma once
// The command line of povrun: its option table, its usage text and the checks a run
// needs before it starts. Parsing never ends the process; it says what main should do.

#include <cstdint>
#include <string>
#include <vector>

// The exact usage text, written on standard output for -h and every rejected command line.
extern const char USAGE[];

struct settings_t {
    std::vector<std::string> installDirs;
    std::string mechanismFile;
    std::string mechanismDirectory;
    std::string tempDir;
    std::string posPath;
    std::string pogPath;
    int32_t concurrency = 1;
    int32_t trace = 0;
    bool xml = false;
    bool firstPlay = false;    // play() each mechanism, registering it, instead of replay()
    std::string cacheDir;      // folder of the result cache; empty for none
    std::string reportFile;    // JSON report of every job; empty for none
    std::string junitFile;     // JUnit XML of every goal played; empty for none
    bool strict = false;       // exit status 2 when a goal played ends without a proof
    bool retryUnknown = false; // also replay the drivers that left a goal "Unknown"
    bool reset = false;        // remove each mechanism's records, then play it for the first time
};

// What the command line asks for: a run with `settings`, the usage text (status 1) or
// the version line (status 0).
enum class request_t { RUN, USAGE, VERSION };

struct command_line_t {
    request_t request = request_t::RUN;
    settings_t settings;
};

// Reads argv with getopt_long from the current optind (a caller that parses twice sets
// optind to 0 first). "-r" loads its resource file at once. The first "-h", unknown
// option or missing short value gives USAGE, the first "--version" gives VERSION; the
// words after it are not read. Throws std::logic_error for a value-less "--installdir",
// "--mechanism", "--mechanism-directory", "--concurrency" or "--trace": their long forms
// take a value only attached ("--mechanism=m.xml").
command_line_t parseCommandLine(int argc, char** argv);

// True when a run can start: temporary folder, status file and obligation file given,
// exactly one of mechanism file and mechanism folder, concurrency at least 1.
bool isRunnable(const settings_t& settings);

// "povrun " followed by the project version.
std::string versionLine();
