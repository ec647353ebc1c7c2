// Which path text names a tool, and where its executable is looked for.

#include "mechanism/Mechanism_p.h"

#include "common/testutil.h"
#include "resource/p_api.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace fs = std::filesystem;

TEST(ToolLocation, ResourceThenInstallDirsThenCurrentDirWithExeRightAfterEachPlainCandidate) {
    QTemporaryDir temp;
    const fs::path root = fs::canonical(temp.path().toStdString());
    const auto at = [&](const char* relative) { return (root / relative).string(); };
    for (const char* directory : {"d1/b", "d2", "cwd"})
        fs::create_directories(root / directory);
    for (const char* tool :
         {"d1/a.exe", "d2/a", "d2/b", "d2/c.exe", "cwd/c", "cwd/f.exe", "d1/g.sh.exe", "cwd/g.sh"})
        testutil::writeScript(QString::fromStdString(at(tool)), "exit 0\n");
    testutil::writeFile(QString::fromStdString(at("d1/a")), "not a program\n");
    testutil::writeFile(temp.filePath("r"), ("ZDR*Proof*x: " + at("d2") + "/../d2//b/\n").c_str());
    init_resource_manager();
    load_resources(temp.filePath("r").toUtf8().constData(), nullptr, nullptr);
    const fs::path savedCwd = fs::current_path();
    fs::current_path(root / "cwd");

    const std::vector<std::string> both = {at("d1"), at("d2")};
    // found empty: not found
    const struct {
        const char* name;
        std::string path;
        const char* resource;
        std::vector<std::string> installDirs;
        std::string found;
    } rows[] = {
        {"a non-executable is passed over for the exe", "a", "", both, at("d1/a.exe")},
        {"a directory is skipped", "b", "", both, at("d2/b")},
        {"install dirs come before the current dir", "c", "", both, at("d2/c.exe")},
        {"no install dirs: exe in the current dir", "f", "", {}, at("cwd/f.exe")},
        {"a path with an extension never gets exe", "g.sh", "", {at("d1")}, at("cwd/g.sh")},
        {"absolute path gets no exe", at("d2/c"), "", both, ""},
        {"cleaned resource, named after the last star", "none", "ZDR*Other*x", both, at("d2/b")},
        {"unknown resource falls back to the path", "b", "ZDR*Proof*zz", both, at("d2/b")},
    };
    for (const auto& row : rows) {
        const QString text = mechanism::computePath(QString::fromStdString(row.path), row.resource);
        fs::path path = text.toStdString();
        const bool found = mechanism::checkToolExistence(path, row.installDirs);
        EXPECT_EQ(found, !row.found.empty()) << row.name;
        EXPECT_EQ(path.string(), found ? row.found : text.toStdString()) << row.name;
    }
    fs::current_path(savedCwd);
}
