// Reads arbitrary bytes as a mechanism file against an install directory of a few
// executables. The only exception allowed out of the reader is the out-of-range error
// of an unknown "trust", "group" or "expand" word; anything else, and any memory error,
// is a fault. Every mechanism read is also dumped.

#include "mechanism/Mechanism.h"
#include "resource/p_api.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <streambuf>
#include <string>

namespace {

// The unknown-vocabulary error: "map::at" alone, or a message naming the file, the line,
// the attribute and the text, with "(map::at)" before the allowed words.
bool isMapAt(const char* what) {
    const std::string text = what;
    return text == "map::at" || text.find(" (map::at); allowed: ") != std::string::npos ||
           text.find(" (map::at); nothing is defined") != std::string::npos;
}

// Swallows the reader's messages: one per input would drown the fuzzer's own output.
class NullBuffer : public std::streambuf {
protected:
    int overflow(int c) override { return traits_type::not_eof(c); }
};

struct Setup {
    QTemporaryDir dir;
    QString mechanismFile;
    std::vector<std::string> installDirs;
    NullBuffer sink;
};

Setup* setup = nullptr;

void writeFile(const QString& path, const QByteArray& content, bool executable) {
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(content) < 0)
        abort();
    file.close();
    if (executable)
        file.setPermissions(file.permissions() | QFileDevice::ExeOwner);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    static Setup instance;
    setup = &instance;
    if (!setup->dir.isValid())
        abort();
    const QDir root(setup->dir.path());
    root.mkpath("tools/sub");
    root.mkpath("tools/dir");
    for (const char* tool : {"w", "p", "r", "t.exe", "sub/x", ".exe"})
        writeFile(root.filePath(QString("tools/") + tool), "#!/bin/sh\nexit 0\n", true);
    writeFile(root.filePath("tools/plain"), "not a program\n", false);
    setup->installDirs = {root.filePath("tools").toStdString()};
    setup->mechanismFile = root.filePath("fuzzed.xml");

    // Resources that resolve to a tool, to a directory and to nothing usable.
    const QByteArray tools = root.filePath("tools").toUtf8();
    const QString resources = root.filePath("res");
    writeFile(resources,
              "ZDR*Proof*w: " + tools + "/w\n" + "ZDR*Proof*dir: " + tools + "/dir/../\n" +
                  "ZDR*Proof*rel: sub/./x\n" + "ZDR*Other*p: " + tools + "/p\n",
              false);
    init_resource_manager();
    load_resources(resources.toUtf8().constData(), nullptr, nullptr);

    std::cerr.rdbuf(&setup->sink);
    std::clog.rdbuf(&setup->sink);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    writeFile(setup->mechanismFile,
              QByteArray(reinterpret_cast<const char*>(data), static_cast<int>(size)), false);
    mechanism::mechanism_t mechanism;
    try {
        mechanism::ofFile(setup->mechanismFile, mechanism, setup->installDirs);
    } catch (const std::out_of_range& e) {
        if (!isMapAt(e.what()))
            abort();
    }
    if (mechanism.drivers.size() != mechanism.driverNames.size())
        abort();
    std::ostringstream dump;
    dump << mechanism;
    return 0;
}
