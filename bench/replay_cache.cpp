#include "replay_cache.h"

#include "spawn_job.h"

#include "director/ResultCache.h"

#include <QDir>
#include <QDirIterator>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <sys/stat.h>

namespace replaybench {

namespace {

double median(std::vector<double> samples) {
    std::sort(samples.begin(), samples.end());
    return samples[samples.size() / 2];
}

// Seconds of one replay of every goal, checked; negative when it failed or ended wrong.
double checkedRun(const workspace_t& ws, unsigned goals, unsigned concurrency,
                  const std::vector<std::string>& extra) {
    if (!writePos(ws, goals, goals))
        return -1;
    const double seconds = povrunSeconds(ws, concurrency, extra);
    if (seconds < 0 || provedGoals(ws.posFile) != static_cast<long>(goals) ||
        !QDir(ws.tempDir).isEmpty())
        return -1;
    return seconds;
}

double floorSeconds(const workspace_t& ws, unsigned goals, unsigned concurrency) {
    const auto start = std::chrono::steady_clock::now();
    const bool ok = spawnjob::run(
        REPLAY_BASELINE,
        {std::to_string(concurrency), std::to_string(goals), std::to_string(GOALS_PER_GROUP),
         ws.tempDir.toStdString(), ws.pogFile.toStdString(), ws.tools.writer.toStdString(),
         ws.tools.prover.toStdString(), ws.tools.reader.toStdString(), "--writer-only"},
        "/dev/null");
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    return ok ? elapsed.count() : -1;
}

struct disk_t {
    long entries = 0;
    long long bytes = 0;  // the entries' own sizes
    long long blocks = 0; // what they take on disk, folders included, in bytes
};

disk_t diskUse(const QString& folder) {
    disk_t use;
    QDirIterator it(folder, QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        struct stat info {};
        if (::stat(QFile::encodeName(it.next()).constData(), &info) != 0)
            continue;
        use.blocks += static_cast<long long>(info.st_blocks) * 512;
        if (S_ISREG(info.st_mode)) {
            ++use.entries;
            use.bytes += info.st_size;
        }
    }
    return use;
}

// The cache's own work in a warm job, measured in this process: the key (reading the
// secondary file and hashing) and the lookup of a stored entry, in microseconds.
void printCacheWork(const workspace_t& ws) {
    constexpr int ROUNDS = 2000;
    const QString file = ws.tempDir + "/work.po2";
    QFile question(file);
    if (!question.open(QIODevice::WriteOnly) || question.write("0 0\n") != 4)
        return;
    question.close();
    director::ResultCache cache(ws.dir + "/work-cache");
    mechanism::driver_t driver;
    driver.prover.path = ws.tools.prover.toStdString();
    driver.reader.path = ws.tools.reader.toStdString();
    const QByteArray driverKey = cache.driverKey(driver);
    QByteArray key, found;
    const auto start = std::chrono::steady_clock::now();
    for (int round = 0; round < ROUNDS; ++round)
        key = director::ResultCache::jobKey(driverKey, {}, {}, file);
    const auto keyed = std::chrono::steady_clock::now();
    cache.store(key, "Proved\n");
    for (int round = 0; round < ROUNDS; ++round)
        cache.find(key, found);
    const auto looked = std::chrono::steady_clock::now();
    const std::chrono::duration<double, std::micro> keying = keyed - start, lookup = looked - keyed;
    std::printf("  cache work per warm job: key %.1f us, lookup %.1f us\n", keying.count() / ROUNDS,
                lookup.count() / ROUNDS);
    QFile::remove(file);
    QDir(ws.dir + "/work-cache").removeRecursively();
}

void target(bool met, const std::string& what) {
    std::printf("  %s  %s\n", met ? "met   " : "MISSED", what.c_str());
}

} // namespace

double povrunSeconds(const workspace_t& ws, unsigned concurrency,
                     const std::vector<std::string>& extra, long* peakKib) {
    std::vector<std::string> args = {
        "-m", ws.mechanismFile.toStdString(), "-s", ws.posFile.toStdString(),
        "-p", ws.pogFile.toStdString(),       "-d", ws.tempDir.toStdString(),
        "-c", std::to_string(concurrency)};
    args.insert(args.end(), extra.begin(), extra.end());
    const auto start = std::chrono::steady_clock::now();
    const bool ok = spawnjob::run(REPLAY_POVRUN, args, "/dev/null", peakKib);
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    return ok ? elapsed.count() : -1;
}

bool printCacheRuns(const workspace_t& ws, unsigned goals, int rounds) {
    const QString cacheDir = ws.dir + "/cache";
    const std::vector<std::string> withCache = {"--cache=" + cacheDir.toStdString()};
    std::printf("\ncache, %u goals, one job each\n   -c | plain ms/job | cold ms/job | "
                "cold/plain | warm ms/job | floor ms/job | warm/floor | disk per entry\n",
                goals);
    for (unsigned concurrency : {1u, 2u}) {
        std::vector<double> plain, cold, warm, floor;
        disk_t disk;
        // Taken in turns, so that all four see the same neighbours on the machine.
        for (int round = 0; round < rounds; ++round) {
            plain.push_back(checkedRun(ws, goals, concurrency, {}));
            QDir(cacheDir).removeRecursively();
            cold.push_back(checkedRun(ws, goals, concurrency, withCache));
            disk = diskUse(cacheDir);
            warm.push_back(checkedRun(ws, goals, concurrency, withCache));
            floor.push_back(floorSeconds(ws, goals, concurrency));
            if (std::min({plain.back(), cold.back(), warm.back(), floor.back()}) < 0 ||
                disk.entries != static_cast<long>(goals)) {
                std::fprintf(stderr, "replay_bench: a cache run failed (%u goals)\n", goals);
                return false;
            }
        }
        const double perJob[4] = {median(plain) * 1e3 / goals, median(cold) * 1e3 / goals,
                                  median(warm) * 1e3 / goals, median(floor) * 1e3 / goals};
        std::printf("   %2u | %12.3f | %11.3f | %10.3f | %11.3f | %12.3f | %10.3f | %lld B, "
                    "%lld B on disk\n",
                    concurrency, perJob[0], perJob[1], perJob[1] / perJob[0], perJob[2], perJob[3],
                    perJob[2] / perJob[3], disk.bytes / disk.entries, disk.blocks / disk.entries);
        const std::string at = std::to_string(goals) + " goals, -c " + std::to_string(concurrency);
        target(perJob[1] <= 1.05 * perJob[0],
               at + ": cold/plain " + std::to_string(perJob[1] / perJob[0]) + " <= 1.05");
        target(perJob[2] <= 1.3 * perJob[3],
               at + ": warm/floor " + std::to_string(perJob[2] / perJob[3]) + " <= 1.3");
    }
    printCacheWork(ws);
    return true;
}

} // namespace replaybench
