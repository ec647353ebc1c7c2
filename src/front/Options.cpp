#include "front/Options.h"

#include "resource/p_api.h"

#include <cstdlib>
#include <getopt.h>
#include <stdexcept>

const char USAGE[] =
    "povrun -i tooldir -r resources (-m mech.xml | -M dir) -s comp.pos -p comp.pog -d bdp/mech "
    "[-h]\n"
    "\t-r, --resources=FILE\n\t\tResource file\n"
    "\t-i, --installdir=DIR\n\t\tTools installation directory (optional, may be repeated)\n"
    "\t-m, --mechanism=FILE\n\t\tFile with proof mechanism description\n"
    "\t-M, --mechanism-directory=DIR\n\t\tDirectory with proof mechanism descriptions\n"
    "\t-s,  --pos=FILE\n\t\tFile with proof obligation statuses\n"
    "\t-p, --pog=FILE\n\t\tFile with proof obligations\n"
    "\t-d,  --directory=DIRECTORY\n\t\tDirectory for temporary files\n"
    "\t-h, --help\n\t\tPrints this and exits with error code\n";

namespace {

const char SHORT_OPTIONS[] = "r:i:m:M:d:s:p:c:t:xh";

// Long options without a short letter get codes above every character.
enum : int {
    OPTION_FIRST_PLAY = 0x100,
    OPTION_VERSION,
    OPTION_CACHE,
    OPTION_REPORT,
    OPTION_JUNIT,
    OPTION_STRICT
};
// Retrying and resetting: what a run plays beyond a replay's usual selection.
enum : int { OPTION_RETRY_UNKNOWN = 0x200, OPTION_RESET };

const option LONG_OPTIONS[] = {
    {"resources", required_argument, nullptr, 'r'},
    {"installdir", optional_argument, nullptr, 'i'},
    {"mechanism", optional_argument, nullptr, 'm'},
    {"mechanism-directory", optional_argument, nullptr, 'M'},
    {"directory", required_argument, nullptr, 'd'},
    {"pos", required_argument, nullptr, 's'},
    {"pog", required_argument, nullptr, 'p'},
    {"concurrency", optional_argument, nullptr, 'c'},
    {"trace", optional_argument, nullptr, 't'},
    {"xml", no_argument, nullptr, 'x'},
    {"help", no_argument, nullptr, 'h'},
    {"first-play", no_argument, nullptr, OPTION_FIRST_PLAY},
    {"version", no_argument, nullptr, OPTION_VERSION},
    {"cache", required_argument, nullptr, OPTION_CACHE},
    {"report", required_argument, nullptr, OPTION_REPORT},
    {"junit", required_argument, nullptr, OPTION_JUNIT},
    {"strict", no_argument, nullptr, OPTION_STRICT},
    {"retry-unknown", no_argument, nullptr, OPTION_RETRY_UNKNOWN},
    {"reset", no_argument, nullptr, OPTION_RESET},
    {nullptr, 0, nullptr, 0},
};

// Users' scripts match this text: it is the one a value-less optional long option of a
// path has always ended with.
std::string pathOfOption(const char* value) {
    if (value == nullptr)
        throw std::logic_error("basic_string: construction from null is not valid");
    return value;
}

int numberOfOption(const char* value, const char* option) {
    if (value == nullptr)
        throw std::logic_error(std::string("option '--") + option + "' needs an attached value");
    return atoi(value);
}

// Applies one of the options that choose what a run plays beyond a replay's usual
// selection; false for a letter it does not know.
bool applyPlayOption(int letter, settings_t& settings) {
    if (letter == OPTION_RETRY_UNKNOWN)
        settings.retryUnknown = true;
    else if (letter == OPTION_RESET)
        settings.reset = true;
    else
        return false;
    return true;
}

// The options that have no short letter.
bool applyLongOption(int code, const char* value, settings_t& settings) {
    switch (code) {
    case OPTION_FIRST_PLAY:
        settings.firstPlay = true;
        return true;
    case OPTION_CACHE:
        settings.cacheDir = value;
        return true;
    case OPTION_REPORT:
        settings.reportFile = value;
        return true;
    case OPTION_JUNIT:
        settings.junitFile = value;
        return true;
    case OPTION_STRICT:
        settings.strict = true;
        return true;
    default:
        return applyPlayOption(code, settings);
    }
}

// Applies one option with a value or a flag; false for a letter it does not know.
bool applyOption(int letter, const char* value, settings_t& settings) {
    switch (letter) {
    case 'r':
        load_resources(value, nullptr, nullptr);
        return true;
    case 'i':
        settings.installDirs.push_back(pathOfOption(value));
        return true;
    case 'm':
        settings.mechanismFile = pathOfOption(value);
        return true;
    case 'M':
        settings.mechanismDirectory = pathOfOption(value);
        return true;
    case 'd':
        settings.tempDir = value;
        return true;
    case 's':
        settings.posPath = value;
        return true;
    case 'p':
        settings.pogPath = value;
        return true;
    case 'c':
        settings.concurrency = numberOfOption(value, "concurrency");
        return true;
    case 't':
        settings.trace = numberOfOption(value, "trace");
        return true;
    case 'x':
        settings.xml = true;
        return true;
    default:
        return applyLongOption(letter, value, settings);
    }
}

} // namespace

command_line_t parseCommandLine(int argc, char** argv) {
    command_line_t result;
    int letter;
    while ((letter = getopt_long(argc, argv, SHORT_OPTIONS, LONG_OPTIONS, nullptr)) != -1) {
        if (letter == OPTION_VERSION) {
            result.request = request_t::VERSION;
            return result;
        }
        if (!applyOption(letter, optarg, result.settings)) {
            result.request = request_t::USAGE;
            return result;
        }
    }
    return result;
}

bool isRunnable(const settings_t& settings) {
    if (settings.tempDir.empty() || settings.posPath.empty() || settings.pogPath.empty())
        return false;
    if (settings.mechanismFile.empty() == settings.mechanismDirectory.empty())
        return false;
    return settings.concurrency >= 1;
}

std::string versionLine() {
    return std::string("povrun ") + POVRUN_VERSION;
}
