// povrun: replays external proof mechanisms on the proof obligations of one component.

#include "director/ProofDirector.h"
#include "front/Utils.h"
#include "pos/pos.h"
#include "pos/printmetrics.h"
#include "resource/p_api.h"

#include <QHash>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fcntl.h>
#include <getopt.h>
#include <iostream>
#include <list>
#include <mutex>
#include <stdexcept>
#include <string>
#include <sys/prctl.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

// The director in use, for the SIGTERM path. main clears it under directorMutex before
// destroying a director; the signal watcher holds directorMutex from stop() to _exit(),
// so a signal never reaches a destroyed director.
std::atomic<ProofDirector*> director{nullptr};
std::mutex directorMutex;

// SIGTERM is turned into one byte on this pipe; the watcher thread does the real work
// outside the signal handler.
int signalPipe[2] = {-1, -1};

// Set when a mechanism's final state could not be written: the run still reports, but
// must not end as a success.
bool unsavedState = false;

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
    {nullptr, 0, nullptr, 0},
};

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
};

[[noreturn]] void print_help() {
    std::cout << USAGE << std::flush;
    exit(1);
}

extern "C" void sighandler(int) {
    const int savedErrno = errno;
    const char byte = 1;
    ssize_t written = write(signalPipe[1], &byte, 1);
    (void)written;
    errno = savedErrno;
}

void watchSignals() {
    char byte = 0;
    ssize_t got;
    do {
        got = read(signalPipe[0], &byte, 1);
    } while (got < 0 && errno == EINTR);
    if (got != 1)
        return;
    directorMutex.lock(); // never released: the process ends below
    if (ProofDirector* current = director.load())
        current->stop();
    std::cout.flush();
    std::clog.flush();
    fflush(nullptr);
    _exit(1);
}

void installSignalHandler() {
    if (pipe2(signalPipe, O_CLOEXEC) != 0) {
        perror("povrun: pipe");
        return;
    }
    std::thread(watchSignals).detach();
    signal(SIGTERM, sighandler);
}

// Optional long options only get a value in the attached form (--trace=1).
int numberOfOption(const char* value, const char* option) {
    if (value == nullptr)
        throw std::logic_error(std::string("option '--") + option + "' needs an attached value");
    return atoi(value);
}

settings_t parseOptions(int argc, char** argv) {
    settings_t settings;
    int letter;
    while ((letter = getopt_long(argc, argv, "r:i:m:M:d:s:p:c:t:xh", LONG_OPTIONS, nullptr)) !=
           -1) {
        switch (letter) {
        case 'r':
            load_resources(optarg, nullptr, nullptr);
            break;
        // std::string(nullptr) throws the library's logic error for a value-less
        // optional long option; main turns it into a message.
        case 'i':
            settings.installDirs.push_back(std::string(optarg));
            break;
        case 'm':
            settings.mechanismFile = std::string(optarg);
            break;
        case 'M':
            settings.mechanismDirectory = std::string(optarg);
            break;
        case 'd':
            settings.tempDir = optarg;
            break;
        case 's':
            settings.posPath = optarg;
            break;
        case 'p':
            settings.pogPath = optarg;
            break;
        case 'c':
            settings.concurrency = numberOfOption(optarg, "concurrency");
            break;
        case 't':
            settings.trace = numberOfOption(optarg, "trace");
            break;
        case 'x':
            settings.xml = true;
            break;
        default:
            print_help();
        }
    }
    return settings;
}

void traceCommandLine(const std::vector<std::string>& words) {
    std::clog << "[povrun]" << std::endl;
    std::clog << "command = \"";
    for (const std::string& word : words)
        std::clog << word << ' ';
    std::clog << '"' << std::endl;
}

void validate(const settings_t& settings) {
    if (settings.tempDir.empty() || settings.posPath.empty() || settings.pogPath.empty())
        print_help();
    if (settings.mechanismFile.empty() == settings.mechanismDirectory.empty())
        print_help();
    if (settings.concurrency < 1)
        print_help();
}

void setDirector(ProofDirector* current) {
    std::lock_guard<std::mutex> lock(directorMutex);
    director.store(current);
}

void destroyDirector(ProofDirector* current) {
    setDirector(nullptr);
    delete current;
}

// Creates, announces and replays one mechanism. False when it could not be loaded; the
// director is then kept (the run ends at once).
bool playMechanism(const settings_t& settings, const std::string& component,
                   const std::string& mechanismFile) {
    auto* current = new ProofDirector(component, mechanismFile, settings.posPath, settings.pogPath,
                                      settings.tempDir, settings.installDirs, settings.xml,
                                      static_cast<unsigned>(settings.concurrency), settings.trace,
                                      std::string(), std::string(), false);
    setDirector(current);
    if (!current->isLoaded())
        return false;
    std::cout << (settings.xml ? "<proving>" : "") << "Proving " << component
              << " with external mechanism " << current->getMechanismName()
              << (settings.xml ? "</proving>" : "") << std::endl;
    current->replay();
    if (current->hasUnsavedState())
        unsavedState = true;
    destroyDirector(current);
    return true;
}

int run(int argc, char** argv) {
    const std::vector<std::string> words(argv, argv + argc);
    init_resource_manager();
    const settings_t settings = parseOptions(argc, argv);
    if (settings.trace != 0)
        traceCommandLine(words);
    validate(settings);

    const std::string component = baseNameOfPath(settings.posPath);
    if (settings.xml)
        std::cout << "<proof>\n";

    if (!settings.mechanismFile.empty()) {
        if (!playMechanism(settings, component, settings.mechanismFile))
            return 1;
    } else {
        std::list<std::string> names;
        if (!pos::getMechanisms(settings.posPath, names))
            print_file_not_readable(settings.posPath, settings.xml);
        for (const std::string& name : names) {
            const std::string path = settings.mechanismDirectory + FILE_SEPARATOR + name + ".xml";
            if (!playMechanism(settings, component, path))
                return 1;
        }
    }
    print_metrics(settings.posPath, settings.xml, component);
    return unsavedState ? 1 : 0;
}

} // namespace

int main(int argc, char** argv) {
    // Qt keeps XML attributes in a hash: without a fixed seed every save would order the
    // .pos attributes differently.
    qSetGlobalQHashSeed(0);
    // Orphans of the tools (a wrapper script's solver, say) become our children instead
    // of init's, so that a stop can still find and kill them. Process groups would do it
    // too, but would take the tools out of the terminal's group and break Ctrl-C.
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    installSignalHandler();
    try {
        const int status = run(argc, argv);
        std::cout.flush();
        return status;
    } catch (const std::exception& e) {
        std::cout.flush();
        std::cerr << "povrun: " << e.what() << std::endl;
    } catch (...) {
        std::cout.flush();
        std::cerr << "povrun: unexpected exception" << std::endl;
    }
    return 1;
}
