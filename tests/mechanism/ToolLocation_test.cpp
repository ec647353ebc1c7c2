// Where a tool's executable is looked for, and which path text is looked for.

#include "mechanism/Mechanism_p.h"

#include "common/testutil.h"
#include "resource/p_api.h"

#include <QDir>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace fs = std::filesystem;

// Readable failure messages for QString values.
static void PrintTo(const QString& text, std::ostream* os) {
    *os << '"' << text.toStdString() << '"';
}
using mechanism::checkToolExistence;
using mechanism::computePath;

namespace {

// Moves into `directory` for the life of the object.
class CurrentDirectory {
public:
    explicit CurrentDirectory(const fs::path& directory) : saved(fs::current_path()) {
        fs::current_path(directory);
    }
    ~CurrentDirectory() { fs::current_path(saved); }

private:
    fs::path saved;
};

// A tree of install directories and a working directory under one temporary folder.
class ToolTree {
public:
    ToolTree() : root(fs::canonical(temp.path().toStdString())) {
        for (const char* directory : {"d1", "d2", "cwd", "abs", "d1/b", "d1/sub"})
            fs::create_directories(root / directory);
        fs::create_directory_symlink(root / "d2", root / "link");
    }
    void executable(const char* relative) const {
        testutil::writeScript(qpath(relative), "exit 0\n");
    }
    void plainFile(const char* relative) const {
        testutil::writeFile(qpath(relative), "not a program\n");
    }
    fs::path at(const char* relative) const { return root / relative; }
    std::string dir(const char* relative) const { return at(relative).string(); }

private:
    QString qpath(const char* relative) const { return QString::fromStdString(dir(relative)); }

    QTemporaryDir temp; // declared before root, which is computed from it
    const fs::path root;
};

} // namespace

TEST(ToolLocation, SearchesInstallDirsThenCurrentDirWithExeAfterEachPlainCandidate) {
    ToolTree tree;
    tree.plainFile("d1/a");
    tree.executable("d1/a.exe");
    tree.executable("d2/a");
    tree.executable("d2/b");
    tree.executable("d2/c.exe");
    tree.executable("cwd/c");
    tree.executable("cwd/e");
    tree.executable("cwd/f.exe");
    tree.executable("d1/g.sh.exe");
    tree.executable("cwd/g.sh");
    tree.executable("d1/h.sh.exe");
    tree.executable("d2/.exe");
    tree.executable("d1/sub/t");
    tree.executable("abs/x");
    tree.executable("abs/y.exe");
    tree.plainFile("abs/z");
    const CurrentDirectory inCwd(tree.at("cwd"));

    const std::vector<std::string> both = {tree.dir("d1"), tree.dir("d2")};
    struct Row {
        const char* name;
        std::string path;
        std::vector<std::string> installDirs;
        std::string found; // empty: not found
    };
    const Row rows[] = {
        {"exe in first dir beats plain in second", "a", both, tree.dir("d1/a.exe")},
        {"directory is skipped", "b", both, tree.dir("d2/b")},
        {"install dirs come before the current dir", "c", both, tree.dir("d2/c.exe")},
        {"current dir after every install dir", "e", both, tree.dir("cwd/e")},
        {"no install dirs: current dir only", "e", {}, tree.dir("cwd/e")},
        {"exe in the current dir", "f", {}, tree.dir("cwd/f.exe")},
        {"path with extension never gets exe", "g.sh", {tree.dir("d1")}, tree.dir("cwd/g.sh")},
        {"extension and only an exe candidate", "h.sh", {tree.dir("d1")}, ""},
        {"empty path is each directory itself", "", {tree.dir("d1")}, ""},
        {"empty path finds a file named .exe", "", {tree.dir("d2")}, tree.dir("d2/.exe")},
        {"relative path with a directory part", "sub/t", both, tree.dir("d1/sub/t")},
        {"install dir through a link is made canonical", "a", {tree.dir("link")}, tree.dir("d2/a")},
        {"relative install dir", "b", {"../d2"}, tree.dir("d2/b")},
        {"absolute executable", tree.dir("abs/x"), both, tree.dir("abs/x")},
        {"absolute path gets no exe", tree.dir("abs/y"), both, ""},
        {"absolute non-executable", tree.dir("abs/z"), both, ""},
        {"absolute missing file", tree.dir("abs/none"), both, ""},
    };
    for (const Row& row : rows) {
        fs::path path = row.path;
        const bool found = checkToolExistence(path, row.installDirs);
        EXPECT_EQ(found, !row.found.empty()) << row.name;
        EXPECT_EQ(path.string(), found ? row.found : row.path) << row.name;
    }
}

TEST(ToolLocation, MissingInstallDirThrowsOnlyWhenReached) {
    ToolTree tree;
    tree.executable("d1/a");
    const std::vector<std::string> dirs = {tree.dir("d1"), tree.dir("missing")};
    fs::path found = "a";
    EXPECT_TRUE(checkToolExistence(found, dirs));
    fs::path notInFirst = "b.sh";
    EXPECT_THROW(checkToolExistence(notInFirst, dirs), fs::filesystem_error);
    fs::path absolute = tree.at("d1/a");
    EXPECT_TRUE(checkToolExistence(absolute, {tree.dir("missing")}));
}

TEST(ToolLocation, UnknownResourceFallsBackToThePathAsWritten) {
    init_resource_manager();
    EXPECT_EQ(computePath("bin/../tool/", ""), "bin/../tool/") << "no resource: not cleaned";
    EXPECT_EQ(computePath("bin/tool", "ZDR*Proof*NoSuchResourceHere"), "bin/tool");
    EXPECT_EQ(computePath("bin/tool", "NoSuchResourceHere"), "bin/tool");
    EXPECT_EQ(computePath("", "x*"), "");
}

namespace {

// Loads `content` as the explicit resource file of a fresh manager; the file stays
// alive as long as the returned directory.
std::unique_ptr<QTemporaryDir> loadResources(const QByteArray& content) {
    auto dir = std::make_unique<QTemporaryDir>();
    const QString file = dir->filePath("res");
    testutil::writeFile(file, content);
    init_resource_manager();
    load_resources(file.toUtf8().constData(), nullptr, nullptr);
    return dir;
}

} // namespace

TEST(ResourceOverride, ComputePathTakesTheNameAfterTheLastStarInSectionProof) {
    const auto resources = loadResources("ZDR*Proof*prover: /opt/x/../tools//prover/\n"
                                         "ZDR*Other*only: /elsewhere/tool\n"
                                         "ZDR*Proof*plain: relative/./tool\n");
    struct Row {
        const char* name;
        const char* resource;
        const char* expected;
    };
    const Row rows[] = {
        {"three words", "ZDR*Other*prover", "/opt/tools/prover"},
        {"two words", "Other*prover", "/opt/tools/prover"},
        {"no star", "prover", "/opt/tools/prover"},
        {"relative value cleaned", "a*b*plain", "relative/tool"},
        {"other section is never consulted", "ZDR*Other*only", "default/tool"},
        {"nothing after the last star", "ZDR*Proof*", "default/tool"},
        {"unknown resource", "ZDR*Proof*missing", "default/tool"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(computePath("default/tool", row.resource).toStdString(), row.expected)
            << row.name;
}
