// Reads arbitrary bytes as a status file and runs over it everything that reads or
// changes one: the metrics, the mechanism listing, checkPosInvariant, removeMechanism,
// unprove and a director reload. The only exception allowed out is the out-of-range
// error "map::at" of an unknown status text; anything else, and any memory error, is a
// fault. A file the director refuses must never be written by a save, and a file it
// accepts and saves must load again.

#include "director/ProofDirector.h"
#include "pos/pos.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <iostream>
#include <list>
#include <memory>
#include <stdexcept>
#include <string>
#include <unistd.h>

namespace {

// The unknown-vocabulary error: "map::at" alone, or a message naming the file, the
// attribute and the text that ends with "(map::at)".
bool isMapAt(const char* what) {
    const std::string text = what;
    const std::string tail = "(map::at)";
    return text == "map::at" || (text.size() > tail.size() &&
                                 text.compare(text.size() - tail.size(), tail.size(), tail) == 0);
}

struct Setup {
    QTemporaryDir dir;
    QString posPath;
    std::unique_ptr<ProofDirector> director;
};

Setup* setup = nullptr;

void writeFile(const QString& path, const QByteArray& content) {
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(content) < 0)
        abort();
}

QByteArray readFile(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        abort();
    return file.readAll();
}

// Runs one operation; an unknown status text may stop it, nothing else may.
template <typename Operation> void allowMapAt(Operation operation) {
    try {
        operation();
    } catch (const std::out_of_range& e) {
        if (!isMapAt(e.what()))
            abort();
    }
}

// checkPosInvariant prints the first inconsistent goal on stderr; one per input would
// drown the fuzzer's own output, so stderr points to /dev/null for that call only.
bool quietCheckPosInvariant(const QDomDocument& doc) {
    fflush(stderr);
    const int saved = dup(2);
    const int null = open("/dev/null", O_WRONLY);
    dup2(null, 2);
    close(null);
    bool consistent = false;
    try {
        consistent = pos::checkPosInvariant(doc);
    } catch (...) {
        fflush(stderr);
        dup2(saved, 2);
        close(saved);
        throw;
    }
    fflush(stderr);
    dup2(saved, 2);
    close(saved);
    return consistent;
}

void runDocumentOperations(const QString& posPath) {
    const std::string path = posPath.toStdString();
    allowMapAt([&] {
        pos::metrics_t metrics;
        pos::getMetrics(path, metrics);
    });
    std::list<std::string> names;
    allowMapAt([&] { pos::getMechanisms(path, names); });
    names.push_back("m");

    QDomDocument doc = pos::documentOfFile(posPath);
    allowMapAt([&] { quietCheckPosInvariant(doc); });
    for (const std::string& name : names) {
        allowMapAt([&] {
            bool changed = false;
            if (!pos::removeMechanism(doc, name, changed) && !doc.isNull())
                abort();
        });
    }
    pos::unprove(doc);
}

void runDirectorReload(const QString& posPath, const QByteArray& input) {
    ProofDirector& director = *setup->director;
    bool reloaded = false;
    allowMapAt([&] { reloaded = director.reloadPosFile(); });
    if (!reloaded) {
        if (director.savePosFile() || readFile(posPath) != input)
            abort();
        return;
    }
    if (!director.savePosFile())
        abort();
    if (pos::documentOfFile(posPath).isNull())
        abort();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    static Setup instance;
    setup = &instance;
    if (!setup->dir.isValid())
        abort();
    const QDir root(setup->dir.path());
    for (const char* tool : {"w", "p", "r"}) {
        writeFile(root.filePath(tool), "#!/bin/sh\nexit 0\n");
        QFile::setPermissions(root.filePath(tool), QFileDevice::ReadOwner | QFileDevice::ExeOwner);
    }
    writeFile(root.filePath("m.xml"),
              "<mechanism trust=\"redundancy\">"
              "<driver name=\"d\"><writer path=\"w\"/><prover path=\"p\"/><reader path=\"r\"/>"
              "</driver><driver name=\"e\"><writer path=\"w\"/><prover path=\"p\"/>"
              "<reader path=\"r\"/></driver></mechanism>");
    setup->posPath = root.filePath("fuzzed.pos");
    setup->director = std::make_unique<ProofDirector>(
        "fuzzed", root.filePath("m.xml").toStdString(), setup->posPath.toStdString(),
        root.filePath("fuzzed.pog").toStdString(), root.path().toStdString(),
        std::vector<std::string>{root.path().toStdString()}, false, 1, 0, "", "", false);
    if (!setup->director->isLoaded())
        abort();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray input(reinterpret_cast<const char*>(data), static_cast<int>(size));
    writeFile(setup->posPath, input);
    runDocumentOperations(setup->posPath);
    runDirectorReload(setup->posPath, input);
    return 0;
}
