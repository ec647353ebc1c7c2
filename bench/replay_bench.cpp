// replay_bench: what povrun adds to the bare cost of its tools' processes. For each size
// it replays a synthetic component whose goals are all replayable by one group "none"
// driver of compiled trivial tools, with povrun at -c 1 and -c 2, and runs replay_baseline
// (the same processes, pipes and parallelism, nothing else) on the same jobs; it prints
// the time per job of each, their ratio and povrun's peak memory, then whether the targets
// are met, then where povrun's time per job goes.
//   replay_bench [--rounds=R] [--sizes=N,...] [--no-split|--split-only|--cache|--reports]
// With --cache it measures the result cache instead, with --reports what --report and
// --junit cost (replay_cache.h).
// Sizes default to 2,000 and 20,000 goals, every goal replayed.

#include "replay_cache.h"
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
    std::vector<unsigned> sizes = {2000, 20000};
    bool split = true;
    bool runs = true;     // whole povrun runs against the baseline
    bool cache = false;   // cold and warm runs with a result cache instead
    bool reports = false; // runs with and without --report and --junit instead
};

// What one size measured, for the targets.
struct row_t {
    unsigned goals = 0;
    double seconds[3] = {0, 0, 0}; // povrun's whole run at -c 1 and -c 2 (index = c)
    double ratio[3] = {0, 0, 0};
    long peakKib = 0;
};

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

double povrunSeconds(const workspace_t& ws, unsigned concurrency, long& peakKib) {
    return replaybench::povrunSeconds(ws, concurrency, {}, &peakKib);
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
                            unsigned concurrency, long& peakKib) {
    if (!replaybench::writePos(ws, goals, replayable))
        fail("cannot write the .pos file", goals);
    const double seconds = povrunSeconds(ws, concurrency, peakKib);
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
    long peakKib = 0;
    for (int round = 0; round < rounds; ++round)
        samples.push_back(checkedPovrunSeconds(ws, goals, 0, 1, peakKib));
    return median(samples);
}

row_t measureSize(const workspace_t& ws, unsigned goals, unsigned jobs, int rounds) {
    row_t row;
    row.goals = goals;
    std::printf("\n%u goals, %u jobs, load average %s\n", goals, jobs, loadAverage().c_str());
    const double fixed = fixedSeconds(ws, goals, rounds);
    std::printf("  povrun without jobs: %.1f ms (.pos file %.0f KiB)\n", fixed * 1e3,
                QFileInfo(ws.posFile).size() / 1024.0);
    std::printf("   -c | povrun ms/job | less fixed | baseline ms/job | ratio | ratio less "
                "fixed | whole run | peak RSS\n");
    for (unsigned concurrency : {1u, 2u}) {
        std::vector<double> povrun, baseline;
        long peakKib = 0;
        // Taken in turns, so that both see the same neighbours on the machine.
        for (int round = 0; round < rounds; ++round) {
            long peak = 0;
            povrun.push_back(checkedPovrunSeconds(ws, goals, jobs, concurrency, peak));
            peakKib = std::max(peakKib, peak);
            const double b = baselineSeconds(ws, concurrency, jobs);
            if (b < 0)
                fail("replay_baseline failed", goals);
            baseline.push_back(b);
        }
        const double perJob = median(povrun) * 1e3 / jobs;
        const double net = (median(povrun) - fixed) * 1e3 / jobs;
        const double base = median(baseline) * 1e3 / jobs;
        std::printf("   %2u | %13.3f | %10.3f | %15.3f | %5.2f | %17.2f | %7.1f s | %5.1f MB\n",
                    concurrency, perJob, net, base, perJob / base, net / base, median(povrun),
                    peakKib / 1024.0);
        row.seconds[concurrency] = median(povrun);
        row.ratio[concurrency] = perJob / base;
        row.peakKib = std::max(row.peakKib, peakKib);
    }
    std::printf("  load average after: %s\n", loadAverage().c_str());
    return row;
}

void target(bool met, const std::string& what) {
    std::printf("  %s  %s\n", met ? "met   " : "MISSED", what.c_str());
}

// The targets povrun is held to, where the sizes they name were measured.
void printTargets(const std::vector<row_t>& rows) {
    std::printf("\ntargets\n");
    for (const row_t& row : rows) {
        const std::string size = std::to_string(row.goals) + " goals";
        if (row.goals != 2000 && row.goals != 20000)
            continue;
        for (int c = 1; c <= 2; ++c)
            target(row.ratio[c] <= 1.5, size + ", -c " + std::to_string(c) + ": ratio " +
                                            std::to_string(row.ratio[c]) + " <= 1.5");
        if (row.goals == 2000)
            target(row.seconds[2] <= 0.6 * row.seconds[1],
                   size + ": -c 2 takes " + std::to_string(row.seconds[2] / row.seconds[1]) +
                       " of -c 1 <= 0.6");
        if (row.goals == 20000) {
            target(row.seconds[2] < 120,
                   size + ", -c 2: whole run " + std::to_string(row.seconds[2]) + " s < 120 s");
            target(row.peakKib <= 108 * 1024,
                   size + ": peak RSS " + std::to_string(row.peakKib / 1024) + " MB <= 108 MB");
        }
    }
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
        else if (std::strcmp(arg, "--no-split") == 0)
            settings.split = false;
        else if (std::strcmp(arg, "--split-only") == 0)
            settings.runs = false;
        else if (std::strcmp(arg, "--cache") == 0)
            settings.cache = true;
        else if (std::strcmp(arg, "--reports") == 0)
            settings.reports = true;
        else
            settings.sizes.clear();
    }
    if (settings.sizes.empty()) {
        std::fprintf(stderr, "usage: replay_bench [--rounds=R] [--sizes=N,...] "
                             "[--no-split|--split-only|--cache|--reports]\n");
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
    if (settings.cache || settings.reports) {
        for (unsigned goals : settings.sizes)
            if (!(settings.cache ? replaybench::printCacheRuns(ws, goals, settings.rounds)
                                 : replaybench::printReportRuns(ws, goals, settings.rounds)))
                return 1;
        return 0;
    }
    if (settings.runs) {
        std::vector<row_t> rows;
        for (unsigned goals : settings.sizes)
            rows.push_back(measureSize(ws, goals, goals, settings.rounds));
        printTargets(rows);
    }
    if (!settings.split)
        return 0;
    std::printf("\nwhere a job's time goes, ms (director code in this process; spawn = the "
                "same processes by posix_spawn), load average %s\n",
                loadAverage().c_str());
    for (unsigned goals : settings.sizes) {
        if (!replaybench::printSplit(ws, goals, settings.rounds, 20))
            return 1;
    }
    return 0;
}
