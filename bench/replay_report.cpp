// What --report and --junit cost: the same replay with and without them, in turns.

#include "replay_cache.h"

#include <QFileInfo>
#include <algorithm>
#include <cstdio>

namespace replaybench {

namespace {

double median(std::vector<double> samples) {
    std::sort(samples.begin(), samples.end());
    return samples[samples.size() / 2];
}

void target(bool met, const std::string& what) {
    std::printf("  %s  %s\n", met ? "met   " : "MISSED", what.c_str());
}

} // namespace

bool printReportRuns(const workspace_t& ws, unsigned goals, int rounds) {
    const std::string report = (ws.dir + "/report.json").toStdString();
    const std::string junit = (ws.dir + "/junit.xml").toStdString();
    std::printf("\nreports, %u goals, one job each\n   -c | plain s | reports s | ratio | "
                "plain peak | reports peak | ratio | report, JUnit\n",
                goals);
    for (unsigned concurrency : {1u, 2u}) {
        std::vector<double> plain, reported;
        long plainPeak = 0, reportedPeak = 0;
        for (int round = 0; round < rounds; ++round) {
            long peak = 0;
            if (!writePos(ws, goals, goals))
                return false;
            plain.push_back(povrunSeconds(ws, concurrency, {}, &peak));
            plainPeak = std::max(plainPeak, peak);
            if (!writePos(ws, goals, goals))
                return false;
            reported.push_back(
                povrunSeconds(ws, concurrency, {"--report=" + report, "--junit=" + junit}, &peak));
            reportedPeak = std::max(reportedPeak, peak);
            if (std::min(plain.back(), reported.back()) < 0 ||
                provedGoals(ws.posFile) != static_cast<long>(goals)) {
                std::fprintf(stderr, "replay_bench: a report run failed (%u goals)\n", goals);
                return false;
            }
        }
        const double ratio = median(reported) / median(plain);
        const double peakRatio = static_cast<double>(reportedPeak) / plainPeak;
        std::printf("   %2u | %7.2f | %9.2f | %5.3f | %7.1f MB | %9.1f MB | %5.3f | %.1f MB, "
                    "%.1f MB\n",
                    concurrency, median(plain), median(reported), ratio, plainPeak / 1024.0,
                    reportedPeak / 1024.0, peakRatio,
                    QFileInfo(QString::fromStdString(report)).size() / 1048576.0,
                    QFileInfo(QString::fromStdString(junit)).size() / 1048576.0);
        const std::string at = std::to_string(goals) + " goals, -c " + std::to_string(concurrency);
        target(ratio <= 1.03, at + ": time with reports " + std::to_string(ratio) + " <= 1.03");
        target(peakRatio <= 1.10,
               at + ": peak memory with reports " + std::to_string(peakRatio) + " <= 1.10");
    }
    return true;
}

} // namespace replaybench
