// metrics_bench: how much counting adds to parsing. For 2,000 and 20,000 goals it times a
// bare QDomDocument::setContent of a synthetic .pos file, pos::getMetrics and
// print_metrics on the same file, and prints the ratios (target: below 1.3).
//   metrics_bench [ROUNDS]

#include "posgen.h"

#include "pos/pos.h"
#include "pos/printmetrics.h"

#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <sstream>
#include <time.h>
#include <vector>

namespace {

// CPU time of this thread: the machine is shared, and wall time mostly measures the
// neighbours.
double cpuMilliseconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return now.tv_sec * 1e3 + now.tv_nsec / 1e6;
}

double millisecondsOf(const std::function<void()>& work) {
    const double start = cpuMilliseconds();
    work();
    return cpuMilliseconds() - start;
}

double median(std::vector<double> samples) {
    std::sort(samples.begin(), samples.end());
    return samples[samples.size() / 2];
}

void bareParse(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        std::abort();
    QDomDocument doc;
    if (!doc.setContent(&file))
        std::abort();
}

void metricsOf(const std::string& path) {
    pos::metrics_t m;
    if (!pos::getMetrics(path, m))
        std::abort();
}

// print_metrics writes on std::cout; the report lands in a string while it is timed.
void reportOf(const std::string& path) {
    std::ostringstream sink;
    std::streambuf* saved = std::cout.rdbuf(sink.rdbuf());
    print_metrics(path, true, "bench");
    std::cout.rdbuf(saved);
}

void measure(const QTemporaryDir& dir, unsigned goals, int rounds) {
    posgen::options_t options;
    options.goalsPerGroup = 20;
    options.groups = goals / options.goalsPerGroup;
    options.seed = 42;
    options.mechanisms = QStringList{"alpha", "beta", "gamma"};
    const QString path = dir.filePath(QStringLiteral("bench%1.pos").arg(goals));
    if (!posgen::writeFile(path, options))
        std::abort();
    const std::string narrowPath = path.toStdString();

    std::vector<double> parse, metrics, report;
    // The first round warms caches and Qt's lazily built tables; it is not counted.
    for (int round = 0; round <= rounds; ++round) {
        const double p = millisecondsOf([&] { bareParse(path); });
        const double m = millisecondsOf([&] { metricsOf(narrowPath); });
        const double r = millisecondsOf([&] { reportOf(narrowPath); });
        if (round == 0)
            continue;
        parse.push_back(p);
        metrics.push_back(m);
        report.push_back(r);
    }
    const double p = median(parse), m = median(metrics), r = median(report);
    std::printf("%6u goals  %7.0f KiB  setContent %8.2f ms  getMetrics %8.2f ms (x%.3f)  "
                "print_metrics %8.2f ms (x%.3f)%s\n",
                goals, QFileInfo(path).size() / 1024.0, p, m, m / p, r, r / p,
                std::max(m, r) / p < 1.3 ? "" : "  ABOVE 1.3");
}

} // namespace

int main(int argc, char** argv) {
    qSetGlobalQHashSeed(0);
    const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 9;
    QTemporaryDir dir;
    if (!dir.isValid())
        return 1;
    std::printf("thread CPU time, median of %d rounds; ratio = time / bare setContent of the "
                "same file\n",
                rounds);
    for (unsigned goals : {2000u, 20000u})
        measure(dir, goals, rounds);
    return 0;
}
