// replay_bench: what povrun adds to the bare cost of its tools' processes. For each size
// it replays a synthetic component whose goals are all replayable by one group "none"
// driver of compiled trivial tools, with povrun at -c 1 and -c 2, and runs replay_baseline
// (the same processes, pipes and parallelism, nothing else) on the same jobs; it prints
// the time per job of each and their ratio, then where povrun's time per job goes.
//   replay_bench [--rounds=R] [--sizes=N,...] [--big] [--big-jobs=K] [--no-split|--split-only]
// Sizes default to 200 and 2,000 goals; --big adds 20,000 goals of which only the first
// K (default 200) are replayable, the full run being extrapolated from them.

#include "replay_split.h"
#include "replay_workspace.h"
#include "spawn_job.h"

#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QTemporaryDir>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

namespace {

using replaybench::workspace_t;

struct settings_t {
    int rounds = 3;
    std::vector<unsigned> sizes = {200, 2000};
    bool big = false;
    unsigned bigJobs = 200;
    bool split = true;
    bool runs = true; // whole povrun runs against the baseline
};

constexpr unsigned BIG_SIZE = 20000;

std::string loadAverage() {
    std::ifstream in("/proc/loadavg");
    std::string one, five, fifteen;
    in >> one >> five >> fifteen;
    return one + " " + five + " " + fifteen;
}

double median(std::vector<double> samples) {
    std::sort(samples.begin(), samples.end());
    return samples[samples.size() / 2];
}

// Wall seconds of one run of `program`, its standard output discarded; negative when it
// failed.
double secondsOfRun(const std::string& program, const std::vector<std::string>& args) {
    const auto start = std::chrono::steady_clock::now();
    const bool ok = spawnjob::run(program, args, "/dev/null");
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return ok ? seconds : -1;
}

double povrunSeconds(const workspace_t& ws, unsigned concurrency) {
    return secondsOfRun(REPLAY_POVRUN,
                        {"-m", ws.mechanismFile.toStdString(), "-s", ws.posFile.toStdString(), "-p",
                         ws.pogFile.toStdString(), "-d", ws.tempDir.toStdString(), "-c",
                         std::to_string(concurrency)});
}

double baselineSeconds(const workspace_t& ws, unsigned concurrency, unsigned jobs) {
    return secondsOfRun(REPLAY_BASELINE,
                        {std::to_string(concurrency), std::to_string(jobs),
                         std::to_string(replaybench::GOALS_PER_GROUP), ws.tempDir.toStdString(),
                         ws.pogFile.toStdString(), ws.tools.writer.toStdString(),
                         ws.tools.prover.toStdString(), ws.tools.reader.toStdString()});
}

[[noreturn]] void fail(const char* what, unsigned goals) {
    std::fprintf(stderr, "replay_bench: %s (%u goals)\n", what, goals);
    std::exit(1);
}

// One povrun run on a fresh file with `replayable` replayable goals, checked: every one of
// them, and no other goal, ends "Proved", and no secondary file is left behind.
double checkedPovrunSeconds(const workspace_t& ws, unsigned goals, unsigned replayable,
                            unsigned concurrency) {
    if (!replaybench::writePos(ws, goals, replayable))
        fail("cannot write the .pos file", goals);
    const double seconds = povrunSeconds(ws, concurrency);
    if (seconds < 0)
        fail("povrun failed", goals);
    if (replaybench::provedGoals(ws.posFile) != static_cast<long>(replayable))
        fail("povrun did not prove exactly the replayable goals", goals);
    if (!QDir(ws.tempDir).isEmpty())
        fail("povrun left secondary files behind", goals);
    return seconds;
}

// povrun's cost with no job at all: starting, loading the file, finding no work and
// printing the report.
double fixedSeconds(const workspace_t& ws, unsigned goals, int rounds) {
    std::vector<double> samples;
    for (int round = 0; round < rounds; ++round)
        samples.push_back(checkedPovrunSeconds(ws, goals, 0, 1));
    return median(samples);
}

void measureSize(const workspace_t& ws, unsigned goals, unsigned jobs, int rounds) {
    std::printf("\n%u goals, %u jobs, load average %s\n", goals, jobs, loadAverage().c_str());
    const double fixed = fixedSeconds(ws, goals, rounds);
    std::printf("  povrun without jobs: %.1f ms (.pos file %.0f KiB)\n", fixed * 1e3,
                QFileInfo(ws.posFile).size() / 1024.0);
    std::printf("   -c | povrun ms/job | less fixed | baseline ms/job | ratio | ratio less "
                "fixed%s\n",
                jobs < goals ? " | full run, extrapolated" : "");
    for (unsigned concurrency : {1u, 2u}) {
        std::vector<double> povrun, baseline;
        // Taken in turns, so that both see the same neighbours on the machine.
        for (int round = 0; round < rounds; ++round) {
            povrun.push_back(checkedPovrunSeconds(ws, goals, jobs, concurrency));
            const double b = baselineSeconds(ws, concurrency, jobs);
            if (b < 0)
                fail("replay_baseline failed", goals);
            baseline.push_back(b);
        }
        const double perJob = median(povrun) * 1e3 / jobs;
        const double net = (median(povrun) - fixed) * 1e3 / jobs;
        const double base = median(baseline) * 1e3 / jobs;
        std::printf("   %2u | %13.3f | %10.3f | %15.3f | %5.2f | %17.2f", concurrency, perJob, net,
                    base, perJob / base, net / base);
        if (jobs < goals)
            std::printf(" | %.0f s", fixed + net * goals / 1e3);
        std::printf("\n");
    }
    std::printf("  load average after: %s\n", loadAverage().c_str());
}

std::vector<unsigned> sizesOf(const char* text) {
    std::vector<unsigned> sizes;
    for (const QString& word : QString::fromUtf8(text).split(',', Qt::SkipEmptyParts)) {
        bool ok = false;
        const unsigned size = word.toUInt(&ok);
        if (!ok || size == 0)
            return {};
        sizes.push_back(size);
    }
    return sizes;
}

settings_t parse(int argc, char** argv) {
    settings_t settings;
    for (int i = 1; i < argc; ++i) {
        const char* arg = argv[i];
        if (std::strncmp(arg, "--rounds=", 9) == 0)
            settings.rounds = std::max(1, std::atoi(arg + 9));
        else if (std::strncmp(arg, "--sizes=", 8) == 0)
            settings.sizes = sizesOf(arg + 8);
        else if (std::strcmp(arg, "--big") == 0)
            settings.big = true;
        else if (std::strncmp(arg, "--big-jobs=", 11) == 0)
            settings.bigJobs = static_cast<unsigned>(std::max(1, std::atoi(arg + 11)));
        else if (std::strcmp(arg, "--no-split") == 0)
            settings.split = false;
        else if (std::strcmp(arg, "--split-only") == 0)
            settings.runs = false;
        else
            settings.sizes.clear();
    }
    if (settings.sizes.empty() && !settings.big) {
        std::fprintf(stderr, "usage: replay_bench [--rounds=R] [--sizes=N,...] [--big] "
                             "[--big-jobs=K] [--no-split|--split-only]\n");
        std::exit(2);
    }
    return settings;
}

} // namespace

int main(int argc, char** argv) {
    qSetGlobalQHashSeed(0);
    // A run takes minutes: show each figure as soon as it is measured.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const settings_t settings = parse(argc, argv);
    // Static so that the exit of a failed check still removes the work folder.
    static QTemporaryDir dir;
    workspace_t ws;
    if (!dir.isValid() ||
        !replaybench::prepare(dir.path(), {REPLAY_WRITER, REPLAY_PROVER, REPLAY_READER}, ws)) {
        std::fprintf(stderr, "replay_bench: cannot set up a work folder\n");
        return 1;
    }
    std::printf("wall time, median of %d rounds; group \"none\", one job per goal; "
                "ratio = povrun / baseline\n",
                settings.rounds);
    if (settings.runs) {
        for (unsigned goals : settings.sizes)
            measureSize(ws, goals, goals, settings.rounds);
        if (settings.big)
            measureSize(ws, BIG_SIZE, std::min(settings.bigJobs, BIG_SIZE), settings.rounds);
    }
    if (!settings.split)
        return 0;
    std::printf("\nwhere a job's time goes, ms (director code in this process; spawn = the "
                "same processes by posix_spawn), load average %s\n",
                loadAverage().c_str());
    std::vector<unsigned> sizes = settings.sizes;
    if (settings.big)
        sizes.push_back(BIG_SIZE);
    for (unsigned goals : sizes) {
        if (!replaybench::printSplit(ws, goals, settings.rounds, 20))
            return 1;
    }
    return 0;
}
