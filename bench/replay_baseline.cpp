// replay_baseline: the replay benchmark's yardstick. Runs JOBS jobs the way povrun runs a
// group "none" driver — per job the writer (waited for), then the prover reading the
// secondary file on standard input and piped into the reader — in the calling thread
// for concurrency 1, else on exactly CONCURRENCY threads taking job indices from a shared
// counter. It does nothing else: no status file, no output but errors.
//   replay_baseline CONCURRENCY JOBS GOALS_PER_GROUP TMPDIR POG WRITER PROVER READER
//   [--writer-only]
// With --writer-only each job runs the writer alone: the floor of a job whose answers come
// from a cache.
// Job i is the PO (i / GOALS_PER_GROUP, i % GOALS_PER_GROUP). Exit status 1 when a tool
// failed or a reader did not answer exactly one "Proved".

#include "spawn_job.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

struct run_t {
    unsigned long jobs = 0;
    unsigned long goalsPerGroup = 1;
    std::string tempDir, pog, writer, prover, reader;

    bool writerOnly = false;

    std::mutex jobMutex; // guards nextJob only, held while one index is taken
    unsigned long nextJob = 0;
    std::atomic<unsigned long> failures{0};
};

std::string secondaryFile(const run_t& run, unsigned long group, unsigned long po) {
    return run.tempDir + "/baseline_" + std::to_string(group) + "_" + std::to_string(po) + ".po2";
}

void runJob(run_t& run, unsigned long index) {
    const unsigned long group = index / run.goalsPerGroup;
    const unsigned long po = index % run.goalsPerGroup;
    const std::string file = secondaryFile(run, group, po);
    std::string output;
    const bool ok =
        spawnjob::run(run.writer, {"-a", std::to_string(group), std::to_string(po), "-i", run.pog,
                                   "-o", file}) &&
        (run.writerOnly ||
         (spawnjob::runProverReader(run.prover, run.reader, file, output) && output == "Proved\n"));
    if (!ok) {
        std::fprintf(stderr, "replay_baseline: job %lu failed\n", index);
        ++run.failures;
    }
}

void worker(run_t& run) {
    for (;;) {
        unsigned long index;
        {
            std::lock_guard<std::mutex> lock(run.jobMutex);
            if (run.nextJob == run.jobs)
                return;
            index = run.nextJob++;
        }
        runJob(run, index);
    }
}

unsigned long number(const char* text) {
    char* end = nullptr;
    const unsigned long value = std::strtoul(text, &end, 10);
    if (*text == '\0' || *end != '\0') {
        std::fprintf(stderr, "replay_baseline: not a number: %s\n", text);
        std::exit(2);
    }
    return value;
}

} // namespace

int main(int argc, char** argv) {
    const bool writerOnly = argc == 10 && std::string(argv[9]) == "--writer-only";
    if (argc != 9 && !writerOnly) {
        std::fprintf(stderr, "usage: replay_baseline CONCURRENCY JOBS GOALS_PER_GROUP TMPDIR "
                             "POG WRITER PROVER READER [--writer-only]\n");
        return 2;
    }
    const unsigned long concurrency = number(argv[1]);
    run_t run;
    run.jobs = number(argv[2]);
    run.goalsPerGroup = number(argv[3]);
    run.tempDir = argv[4];
    run.pog = argv[5];
    run.writer = argv[6];
    run.prover = argv[7];
    run.reader = argv[8];
    run.writerOnly = writerOnly;
    if (concurrency == 0 || run.goalsPerGroup == 0)
        return 2;

    if (concurrency == 1) {
        for (unsigned long i = 0; i < run.jobs; ++i)
            runJob(run, i);
    } else {
        std::vector<std::thread> threads;
        for (unsigned long t = 0; t < concurrency; ++t)
            threads.emplace_back(worker, std::ref(run));
        for (std::thread& thread : threads)
            thread.join();
    }
    // povrun removes a driver's secondary files once its jobs are done; so does this.
    for (unsigned long i = 0; i < run.jobs; ++i)
        unlink(secondaryFile(run, i / run.goalsPerGroup, i % run.goalsPerGroup).c_str());
    return run.failures == 0 ? 0 : 1;
}
