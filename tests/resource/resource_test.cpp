// The resource manager: line syntax, precedence of the sources, programmatic changes,
// deletion and save.

#include "common/testutil.h"
#include "resource/p_api.h"
#include "resource/p_mana.h"

#include <QFile>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <stdlib.h>

// A fresh store per test: every file and tool is dropped before and after, and HOME points
// into the test's temporary folder so that the default user file lands there.
class ResourceTest : public ::testing::Test {
protected:
    void SetUp() override {
        setenv("HOME", dir.path().toLocal8Bit().constData(), 1);
        init_resource_manager();
    }
    void TearDown() override {
        delete_explicit_resources();
        delete_user_resources();
        delete_zendrel_resources();
        delete_all_resources();
    }
    std::string write(const char* name, const std::string& content) const {
        testutil::writeFile(dir.filePath(name), QByteArray::fromStdString(content));
        return dir.filePath(name).toStdString();
    }
    static std::string lookup(const char* tool, const char* name) {
        const char* value = lookup_resource(tool, name);
        return value ? value : "<none>";
    }
    // Loads the files given; returns what that wrote on stderr.
    static std::string load(const char* product, const char* user, const char* expl) {
        testing::internal::CaptureStderr();
        load_resources(product, user, expl);
        return testing::internal::GetCapturedStderr();
    }
    QTemporaryDir dir;
};

// A bad line is named by file and line, defines nothing, and parsing goes on.
TEST_F(ResourceTest, LinesDefineValuesAsTheSyntaxSays) {
    // expected null: the resource must not exist
    const struct {
        const char *row, *content, *tool, *name, *expected, *err = nullptr;
    } rows[] = {
        // clang-format off
        {"star separators, trailing blanks", "ZDR*t*name:   value  \t\n", "t", "name", "value"},
        {"point separators, no blank", " \tZDR.tool.name:value\n", "tool", "name", "value"},
        {"name up to the first colon", "ZDR*t*na me :a:b\n", "t", "na me ", "a:b"},
        {"continuation", "ZDR*t*n: \\\n   value  \nZDR*t*m: 2\n", "t", "n", "value"},
        {"chained continuations", "ZDR*t*n: \\\n \\ x\n\tend\n", "t", "n", "end"},
        {"continuation at end of file", "ZDR*t*n: \\\n", "t", "n", ""},
        {"last definition wins", "ZDR*t*n: 1\nZDR*t*n: 2\n", "t", "n", "2"},
        {"last line without newline", "ZDR*t*n: 1\nZDR*t*n: 2", "t", "n", "1", ":2: Resource line ignored: the file ends before its newline"},
        {"other prefix", "\n! c\nxyz*tool*name: v\n", "tool", "name", nullptr, ":3: Resource line ignored: it does not start with ZDR*Section*Name: value"},
        {"mark without separator", "ZDRtool*name: v\n", "tool", "name", nullptr, ":1: Resource line ignored: it does not start with ZDR*Section*Name: value"},
        {"no tool name", "ZDR*x\nZDR*t*n: 1\n", "t", "n", "1", ":1: Resource syntax error: tool name not found"},
        {"no colon", "! c\nZDR*x*n value\n", "x", "n", nullptr, ":2: Resource syntax error: resource name or colon not found"},
        {"no value", "ZDR*x*n:  \t \nZDR*t*n: 1\n", "t", "n", "1", ":1: Resource syntax error: resource value not found"},
        // clang-format on
    };
    for (const auto& row : rows) {
        const std::string file = write("res", row.content);
        EXPECT_EQ(load(file.c_str(), nullptr, nullptr), row.err ? file + row.err + "\n" : "")
            << row.row;
        EXPECT_EQ(lookup(row.tool, row.name), row.expected ? row.expected : "<none>") << row.row;
        EXPECT_TRUE(!row.err || !get_resource_manager()->get_tool("x"))
            << row.row << ": a bad line defines nothing";
        TearDown();
    }
}

TEST_F(ResourceTest, ExplicitBeatsUserBeatsProductWithoutFallback) {
    const std::string product = write("product", "ZDR*t*a: product\nZDR*t*p: p\nZDR*t*u: p\n");
    const std::string user = write("user", "ZDR*t*a: user\nZDR*t*u: user\n");
    load(product.c_str(), user.c_str(), write("explicit", "ZDR*t*a: explicit\n").c_str());
    EXPECT_EQ(lookup("t", "a") + " " + lookup("t", "u") + " " + lookup("t", "p"),
              "explicit user p");
    delete_explicit_resources(); // takes its own definitions only, and nothing falls back
    EXPECT_EQ(lookup("t", "a") + " " + lookup("t", "u") + " " + lookup("t", "p"), "<none> user p");
}

// A null tool name means the first tool: none yet, nothing happens.
TEST_F(ResourceTest, SetWithoutFilesGoesToTheDefaultUserFileWrittenOnlyOnSave) {
    set_resource(nullptr, "writer", "/bin/w0");
    EXPECT_EQ(get_resource_manager()->get_tool(nullptr), nullptr);
    set_resource("Proof", "writer", "/bin/w");
    set_resource("Proof", "writer", "/bin/w2");
    set_resource(nullptr, "reader", "/bin/r");
    const T_resource_file* user = get_resource_manager()->user_file;
    ASSERT_NE(user, nullptr);
    EXPECT_EQ(user->name->chars, dir.filePath(".Zendrel").toStdString());
    EXPECT_FALSE(QFile::exists(user->name->chars));
    save_resources(); // says that the backup of a file not yet there failed
    EXPECT_EQ(testutil::readFile(user->name->chars),
              "ZDR*Proof*writer: /bin/w2\nZDR*Proof*reader: /bin/r\n");
}

// A deletion takes every line of a definition; a change rewrites its line in place, or
// moves a definition of another file to the one a save writes; a save keeps a backup.
TEST_F(ResourceTest, ChangesRewriteTheFileLineForLineAndASaveKeepsABackup) {
    const std::string original = "ZDR*A*x: 1\n\nodd\nZDR*B*y: \\\n 2\nZDR*t*b: \\\n   2\n";
    const std::string file = write("res", original);
    load(nullptr, write("user", "ZDR*A*w: 0\nZDR*t*u: 1\n").c_str(), file.c_str());
    delete_tool_resources(nullptr); // the first tool
    delete_resource("B", "y");
    delete_resource("B", "absent");
    set_resource("t", "b", "3");
    set_resource("t", "u", "4");
    save_resources();
    const QString saved = QString::fromStdString(file);
    EXPECT_EQ(testutil::readFile(saved), "\nodd\nZDR*t*b: 3\nZDR*t*u: 4\n");
    EXPECT_EQ(testutil::readFile(saved + "~"), original.c_str());
    delete_all_resources();
    save_resources();
    EXPECT_EQ(testutil::readFile(saved), "\nodd\n");
}
