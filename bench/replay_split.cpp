#include "replay_split.h"

#include "spawn_job.h"

#include "director/ProofDirector.h"
#include "pos/pos.h"

#include <QFile>
#include <QFileInfo>
#include <QTextStream>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <iostream>
#include <sstream>
#include <vector>

namespace replaybench {

namespace {

double millisecondsOf(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
        .count();
}

double median(std::vector<double> samples) {
    std::sort(samples.begin(), samples.end());
    return samples.empty() ? 0 : samples[samples.size() / 2];
}

std::vector<std::string> narrow(const QStringList& words) {
    std::vector<std::string> result;
    for (const QString& word : words)
        result.push_back(word.toStdString());
    return result;
}

struct split_t {
    double load = 0, save = 0;
    double serialise = 0; // the part of a save that only turns the DOM into text
    double directorWriter = 0, directorProve = 0; // writeEntry, proveEntry
    double spawnWriter = 0, spawnProverReader = 0;
};

// The text a save writes, built in memory as the director builds it.
void serialise(const QDomDocument& document) {
    QByteArray bytes;
    QTextStream stream(&bytes);
    stream.setCodec("UTF-8");
    document.save(stream, pos::XML_INDENT, QDomNode::EncodingFromDocument);
    stream.flush();
}

bool measureLoadAndSave(ProofDirector& director, int rounds, split_t& split) {
    std::vector<double> loads, saves, serialisations;
    bool ok = true;
    for (int round = 0; round < rounds; ++round) {
        loads.push_back(millisecondsOf([&] { ok = director.reloadPosFile() && ok; }));
        saves.push_back(millisecondsOf([&] { ok = director.savePosFile() && ok; }));
        serialisations.push_back(millisecondsOf([&] { serialise(director.getDocument()); }));
    }
    split.load = median(loads);
    split.save = median(saves);
    split.serialise = median(serialisations);
    return ok;
}

// Each job runs through the director first (its marks go to a sink), then again with
// posix_spawn on the same tools and files.
bool measureJobs(ProofDirector& director, unsigned jobs, split_t& split) {
    std::vector<double> qWriter, qProve, sWriter, sProverReader;
    bool ok = true;
    const auto& writerJobs = director.getWriterJobs();
    const auto& proverJobs = director.getProverJobs();
    const unsigned count = std::min<unsigned>(jobs, static_cast<unsigned>(writerJobs.size()));
    std::ostringstream sink;
    std::streambuf* saved = std::cout.rdbuf(sink.rdbuf());
    for (unsigned i = 0; i < count; ++i) {
        qWriter.push_back(millisecondsOf([&] { director.writeEntry(i); }));
        qProve.push_back(millisecondsOf([&] { director.proveEntry(i); }));
        const std::string writer = writerJobs[i].cmd.string();
        const std::vector<std::string> args = narrow(writerJobs[i].args);
        sWriter.push_back(millisecondsOf([&] { ok = spawnjob::run(writer, args) && ok; }));
        std::string output;
        sProverReader.push_back(millisecondsOf([&] {
            ok = spawnjob::runProverReader(proverJobs[i].cmdp.string(), proverJobs[i].cmdr.string(),
                                           proverJobs[i].inpath.toStdString(), output) &&
                 output == "Proved\n" && ok;
        }));
        QFile::remove(writerJobs[i].po2filename);
    }
    std::cout.rdbuf(saved);
    split.directorWriter = median(qWriter);
    split.directorProve = median(qProve);
    split.spawnWriter = median(sWriter);
    split.spawnProverReader = median(sProverReader);
    return ok && !director.hasErrors() && count > 0;
}

} // namespace

bool printSplit(const workspace_t& workspace, unsigned goals, int rounds, unsigned jobs) {
    if (!writePos(workspace, goals, goals)) {
        std::fprintf(stderr, "replay_bench: cannot write %s\n", qPrintable(workspace.posFile));
        return false;
    }
    ProofDirector director("comp", workspace.mechanismFile.toStdString(),
                           workspace.posFile.toStdString(), workspace.pogFile.toStdString(),
                           workspace.tempDir.toStdString(), {}, false, 1, 0, std::string(),
                           std::string(), false);
    split_t split;
    if (!director.isLoaded() || !measureLoadAndSave(director, rounds, split)) {
        std::fprintf(stderr, "replay_bench: the director cannot load or save %s\n",
                     qPrintable(workspace.posFile));
        return false;
    }
    // The table is the one of the last reload, with every goal still to replay.
    director.setDriver(director.getMechanism().drivers.at(0));
    ProofDirector::selection_t selection;
    director.selectForDriver(selection);
    director.produceWriterData(workspace.tempDir, workspace.pogFile, selection);
    director.produceProverData();
    if (!measureJobs(director, jobs, split)) {
        std::fprintf(stderr, "replay_bench: a job failed while measuring the split\n");
        return false;
    }
    const double proverReader = split.directorProve;
    std::printf("%6u goals %6.0f KiB | load %7.2f | save %7.2f, text alone %7.2f | writer %5.2f "
                "(spawn %5.2f) | prover+reader %5.2f (spawn %5.2f) | writer+prover %7.2f\n",
                goals, QFileInfo(workspace.posFile).size() / 1024.0, split.load, split.save,
                split.serialise, split.directorWriter, split.spawnWriter, proverReader,
                split.spawnProverReader, split.directorWriter + split.directorProve);
    return true;
}

} // namespace replaybench
