// The store: precedence of the sources, lookup, programmatic changes, deletion and save.

#include "resource/resource_fixture.h"

#include "common/testutil.h"
#include "resource/p_file.h"
#include "resource/p_line.h"
#include "resource/p_mana.h"
#include "resource/p_resour.h"
#include "resource/p_tool.h"

#include <QFile>
#include <stdlib.h>

namespace {

std::vector<std::string> lines(std::initializer_list<const char*> texts) {
    return std::vector<std::string>(texts.begin(), texts.end());
}

std::string readText(const std::string& file) {
    return testutil::readFile(QString::fromStdString(file)).toStdString();
}

} // namespace

TEST_F(ResourceTest, ExplicitBeatsUserBeatsProductWithoutFallback) {
    const std::string product = write("product", "ZDR*t*a: product\nZDR*t*p: p\nZDR*t*u: p\n");
    const std::string user = write("user", "ZDR*t*a: user\nZDR*t*u: user\n");
    const std::string expl = write("explicit", "ZDR*t*a: explicit\n");
    load_resources(product.c_str(), user.c_str(), expl.c_str());
    EXPECT_EQ(lookup("t", "a"), "explicit");
    EXPECT_EQ(lookup("t", "u"), "user");
    EXPECT_EQ(lookup("t", "p"), "p");
    EXPECT_EQ(lineTexts(get_resource_manager()->product_file), lines({"ZDR*t*p: p"}))
        << "overridden definitions leave their file";

    delete_explicit_resources();
    EXPECT_EQ(lookup("t", "a"), "<none>") << "no fallback to an overridden value";
    EXPECT_EQ(lookup("t", "u"), "user");
    delete_user_resources();
    EXPECT_EQ(lookup("t", "u"), "<none>");
    EXPECT_EQ(lookup("t", "p"), "p");
    delete_zendrel_resources();
    EXPECT_EQ(lookup("t", "p"), "<none>");
}

TEST_F(ResourceTest, ReloadingASourceReplacesOrExtendsItsFile) {
    const std::string first = write("first", "ZDR*t*a: 1\nZDR*t*only_first: 1\n");
    const std::string second = write("second", "ZDR*t*a: 2\n");
    load_resources(first.c_str(), nullptr, nullptr);
    load_resources(second.c_str(), nullptr, nullptr);
    EXPECT_EQ(lookup("t", "a"), "2");
    EXPECT_EQ(lookup("t", "only_first"), "<none>") << "a second product file replaces the first";

    load_resources(nullptr, nullptr, first.c_str());
    T_resource_file* kept = get_resource_manager()->explicit_file;
    load_resources(nullptr, nullptr, second.c_str());
    EXPECT_EQ(get_resource_manager()->explicit_file, kept);
    EXPECT_STREQ(kept->name->chars, second.c_str());
    EXPECT_EQ(lookup("t", "a"), "2");
    EXPECT_EQ(lookup("t", "only_first"), "1") << "an explicit file keeps its earlier lines";
    EXPECT_EQ(static_cast<T_resource_line*>(kept->last_line)->number, 3u);
}

TEST_F(ResourceTest, LookupComparesNamesExactly) {
    const std::string file = write("res", "ZDR*proof*x: v\nZDR*Proof*y: w\nZDR*Proof*yy: ww\n");
    load_resources(file.c_str(), nullptr, nullptr);
    EXPECT_EQ(lookup("proof", "x"), "v");
    EXPECT_EQ(lookup("Proof", "x"), "<none>");
    EXPECT_EQ(lookup("proof", "X"), "<none>");
    EXPECT_EQ(lookup("Proof", "y"), "w");
    EXPECT_EQ(lookup("Proof", "yy"), "ww");
    EXPECT_EQ(lookup("Proo", "y"), "<none>");
    EXPECT_EQ(lookup("Proof", ""), "<none>");
}

TEST_F(ResourceTest, SetWithoutFilesGoesToTheDefaultUserFile) {
    set_resource("Proof", "writer", "/bin/w");
    set_resource("Proof", "reader", "/bin/r");
    set_resource("Proof", "writer", "/bin/w2");
    EXPECT_EQ(lookup("Proof", "writer"), "/bin/w2");
    const T_resource_file* user = get_resource_manager()->user_file;
    ASSERT_NE(user, nullptr);
    const std::string expectedName = path(".Zendrel");
    EXPECT_STREQ(user->name->chars, expectedName.c_str());
    EXPECT_EQ(lineTexts(user), lines({"ZDR*Proof*writer: /bin/w2", "ZDR*Proof*reader: /bin/r"}));
    EXPECT_FALSE(QFile::exists(QString::fromStdString(expectedName))) << "written only on save";

    testing::internal::CaptureStderr();
    save_resources();
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(err.rfind("Can rename file: " + expectedName + " in " + expectedName + "~ because", 0),
              0u)
        << err;
    EXPECT_EQ(readText(expectedName), "ZDR*Proof*writer: /bin/w2\nZDR*Proof*reader: /bin/r\n");
}

TEST_F(ResourceTest, SetMovesDefinitionsToTheSaveTargetOrRewritesThemThere) {
    const std::string product = write("product", "ZDR*t*p: 1\nZDR*t*q: 1\n");
    const std::string user = write("user", "! u\nZDR*t*u: \\\n  1\n");
    load_resources(product.c_str(), user.c_str(), nullptr);
    set_resource("t", "u", "2");
    set_resource("t", "p", "2");
    T_resource_manager* manager = get_resource_manager();
    EXPECT_EQ(lineTexts(manager->user_file), lines({"! u", "ZDR*t*u: 2", "ZDR*t*p: 2"}))
        << "rewritten in place, continuation collapsed; moved from the product file";
    EXPECT_EQ(lineTexts(manager->product_file), lines({"ZDR*t*q: 1"}));
    EXPECT_NE(ident("t", "u")->first_comment, nullptr) << "the comment stays with its resource";

    const std::string expl = write("explicit", "ZDR*t*e: 1\n");
    load_resources(nullptr, nullptr, expl.c_str());
    set_resource("t", "u", "3");
    set_resource("t", "e", lookup_resource("t", "e"));
    set_resource("new", "n", "v");
    EXPECT_EQ(lineTexts(manager->user_file), lines({"! u", "ZDR*t*p: 2"}));
    EXPECT_EQ(lineTexts(manager->explicit_file),
              lines({"ZDR*t*e: 1", "ZDR*t*u: 3", "ZDR*new*n: v"}));
    EXPECT_EQ(static_cast<T_resource_line*>(manager->explicit_file->last_line)->number, 3u);
}

TEST_F(ResourceTest, SetRefusesAResourceWithoutLine) {
    T_resource_tool tool("t", nullptr, nullptr, nullptr);
    new T_resource_ident("n", "old", &tool.first_ident, &tool.last_ident, &tool);
    testing::internal::CaptureStderr();
    EXPECT_EQ(tool.set_resource("n", "new", nullptr), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Resource \"n\" sans ligne rattachee");
}

TEST_F(ResourceTest, DefaultUserFileFollowsHome) {
    unsetenv("HOME");
    char* name = get_default_user_file();
    EXPECT_STREQ(name, "/.Zendrel");
    delete[] name;
    setenv("HOME", "/home/someone", 1);
    name = get_default_user_file();
    EXPECT_STREQ(name, "/home/someone/.Zendrel");
    delete[] name;
}

TEST_F(ResourceTest, DeletingToolsAndResourcesRemovesTheirLines) {
    const std::string file = write("res", "ZDR*A*x: 1\nother\nZDR*B*y: \\\n 2\nZDR*C*z: 3\n");
    load_resources(nullptr, file.c_str(), nullptr);
    const T_resource_file* user = get_resource_manager()->user_file;

    delete_tool_resources(nullptr);
    EXPECT_EQ(lookup("A", "x"), "<none>") << "a null name destroys the first tool";
    EXPECT_EQ(get_resource_manager()->get_tool("A"), nullptr);
    EXPECT_EQ(lineTexts(user), lines({"other", "ZDR*B*y: \\", " 2", "ZDR*C*z: 3"}));

    delete_resource("B", "y");
    delete_resource("B", "absent");
    delete_resource("absent", "y");
    EXPECT_EQ(lookup("B", "y"), "<none>");
    EXPECT_NE(get_resource_manager()->get_tool("B"), nullptr) << "the tool itself stays";
    EXPECT_EQ(lineTexts(user), lines({"other", "ZDR*C*z: 3"}));

    delete_tool_resources("C");
    EXPECT_EQ(lineTexts(user), lines({"other"}));
    delete_all_resources();
    EXPECT_EQ(get_resource_manager()->first_tool, nullptr);
}

TEST_F(ResourceTest, SaveRewritesTheFileLineForLineAndKeepsABackup) {
    const std::string original = "! header\n"
                                 "\n"
                                 "ZDR*t*a: 1\n"
                                 "not a resource\n"
                                 "ZDR*t\n"
                                 "ZDR*t*b: \\\n"
                                 "   2\n";
    const std::string file = write("res", original);
    testing::internal::CaptureStderr();
    load_resources(nullptr, nullptr, file.c_str());
    testing::internal::GetCapturedStderr();
    set_resource("t", "b", "3");
    set_resource("t", "c", "4");

    save_resources();
    EXPECT_EQ(readText(file), "! header\n\nZDR*t*a: 1\nnot a resource\nZDR*t\nZDR*t*b: 3\n"
                              "ZDR*t*c: 4\n");
    EXPECT_EQ(readText(file + "~"), original);

    delete_explicit_resources();
    EXPECT_EQ(loadCapturingErrors(nullptr, nullptr, file.c_str()),
              file + ":5: Resource syntax error: tool name not found\n");
    EXPECT_EQ(lookup("t", "b"), "3") << "the saved file reads back";
    EXPECT_EQ(lookup("t", "c"), "4");
}

TEST_F(ResourceTest, PrintWritesOneResourceLinePerIdent) {
    const std::string file = write("res", "ZDR.A.x:1\nZDR*B*y:   two words \nZDR*A*z: 3\n");
    load_resources(file.c_str(), nullptr, nullptr);
    char* text = nullptr;
    size_t size = 0;
    FILE* out = open_memstream(&text, &size);
    print_resources(out);
    fclose(out);
    EXPECT_STREQ(text, "ZDR*A*x: 1\nZDR*A*z: 3\nZDR*B*y: two words\n");
    free(text);
}

TEST_F(ResourceTest, InfoPrintsTheBanner) {
    testing::internal::CaptureStdout();
    resource_info();
    const std::string banner = testing::internal::GetCapturedStdout();
    EXPECT_EQ(banner.rfind("- Resource Manager version ", 0), 0u) << banner;
    const std::string tail = "\nThe following flags have been used : \n"
                             "Compiled with gcc version " __VERSION__ "\n"
                             "Compiled for Windows 32 target\n";
    ASSERT_GE(banner.size(), tail.size());
    EXPECT_EQ(banner.substr(banner.size() - tail.size()), tail);
    EXPECT_EQ(banner.find("\n                   "), banner.find('\n')) << banner;
}
