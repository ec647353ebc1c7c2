// Recognition of resource lines: separators, blanks, continuations, errors, comments.

#include "resource/resource_fixture.h"

#include "resource/p_comm.h"
#include "resource/p_file.h"
#include "resource/p_line.h"
#include "resource/p_mana.h"
#include "resource/p_resour.h"
#include "resource/p_synt.h"

namespace {

struct ValueRow {
    const char* row;
    const char* content;
    const char* tool;
    const char* name;
    const char* expected;   // null: the resource must not exist
};

const ValueRow VALUE_ROWS[] = {
    {"star separators", "ZDR*tool*name: value\n", "tool", "name", "value"},
    {"point separators, no blank", "ZDR.tool.name:value\n", "tool", "name", "value"},
    {"mixed separators", "ZDR.tool*name: value\n", "tool", "name", "value"},
    {"trailing blanks", "ZDR*tool*name:   value  \t\n", "tool", "name", "value"},
    {"leading blanks", " \t ZDR*tool*name: value\n", "tool", "name", "value"},
    {"inner blanks kept", "ZDR*tool*name: a  b\n", "tool", "name", "a  b"},
    {"name up to the first colon", "ZDR*tool*na me :a:b\n", "tool", "na me ", "a:b"},
    {"tool up to the next separator", "ZDR*a.b*c: v\n", "a", "b*c", "v"},
    {"final backslash dropped", "ZDR*tool*name: value\\\n", "tool", "name", "value"},
    {"trailing blanks go before the backslash", "ZDR*t*n: a \\  \n", "t", "n", "a "},
    {"continuation", "ZDR*t*n: \\\n   value  \nZDR*t*m: 2\n", "t", "n", "value"},
    {"line after a continuation", "ZDR*t*n: \\\n   value  \nZDR*t*m: 2\n", "t", "m", "2"},
    {"chained continuations", "ZDR*t*n: \\\n \\ x\n\tend\n", "t", "n", "end"},
    {"text after a leading backslash dropped", "ZDR*t*n: \\skip\nkept\n", "t", "n", "kept"},
    {"continuation at end of file", "ZDR*t*n: \\\n", "t", "n", ""},
    {"last definition wins", "ZDR*t*n: 1\nZDR*t*n: 2\n", "t", "n", "2"},
    {"last line without newline", "ZDR*t*a: 1\nZDR*t*n: 2", "t", "n", nullptr},
    {"line before an unfinished one", "ZDR*t*n: 1\nZDR*t*b: 2", "t", "n", "1"},
    {"other prefix", "xyz*tool*name: v\n", "tool", "name", nullptr},
    {"mark without separator", "ZDRtool*name: v\n", "tool", "name", nullptr},
    {"mark in lower case", "zdr*tool*name: v\n", "tool", "name", nullptr},
    {"comment", "!ZDR*tool*name: v\n", "tool", "name", nullptr},
};

} // namespace

TEST_F(ResourceTest, LinesDefineValuesAsTheSyntaxSays) {
    for (const ValueRow& row : VALUE_ROWS) {
        const std::string file = write("res", row.content);
        EXPECT_EQ(loadCapturingErrors(file.c_str(), nullptr, nullptr), "") << row.row;
        EXPECT_EQ(lookup(row.tool, row.name), row.expected ? row.expected : "<none>") << row.row;
        delete_zendrel_resources();
        delete_all_resources();
    }
}

TEST_F(ResourceTest, SyntaxErrorsNameFileAndLineAndParsingGoesOn) {
    const std::string file = write("res.txt",
                                   "ZDR*ok*a: 1\n"
                                   "! a comment\n"
                                   "ZDR*tool\n"
                                   "ZDR*tool*name value\n"
                                   "ZDR*tool*name:  \t \n"
                                   "\n"
                                   "ZDR*ok*b: 2\n");
    const std::string prefix = file + ":";
    EXPECT_EQ(loadCapturingErrors(nullptr, nullptr, file.c_str()),
              prefix + "3: Resource syntax error: tool name not found\n" + prefix +
                  "4: Resource syntax error: resource name or colon not found\n" + prefix +
                  "5: Resource syntax error: resource value not found\n");
    EXPECT_EQ(lookup("ok", "a"), "1");
    EXPECT_EQ(lookup("ok", "b"), "2");
    EXPECT_EQ(get_resource_manager()->get_tool("tool"), nullptr) << "a bad line defines nothing";
    EXPECT_EQ(lookup("ok", "a"), "1");
    EXPECT_EQ(lineTexts(get_resource_manager()->explicit_file).size(), 7u)
        << "bad lines stay in the file";
}

TEST_F(ResourceTest, UnreadableFilesAreReportedAndEmptyOnesDefineNothing) {
    const std::string missing = path("missing");
    EXPECT_EQ(loadCapturingErrors(missing.c_str(), nullptr, nullptr),
              "Unable to open resource file " + missing + " because: No such file or directory\n");
    const std::string empty = write("empty", "");
    EXPECT_EQ(loadCapturingErrors(nullptr, empty.c_str(), nullptr), "");
    EXPECT_EQ(get_resource_manager()->user_file->first_line, nullptr);
}

TEST_F(ResourceTest, CommentsBelongToTheNextResource) {
    const std::string file = write("res",
                                   "! about a\n"
                                   "\n"
                                   "  !   second\n"
                                   "ZDR*t*a: 1\n"
                                   "ZDR*t*b: \\\n"
                                   "  2\n"
                                   "! belongs to nothing\n");
    EXPECT_EQ(loadCapturingErrors(nullptr, file.c_str(), nullptr), "");

    std::vector<std::string> texts;
    for (T_resource_item* item = ident("t", "a")->first_comment; item; item = item->next) {
        T_resource_comment* comment = static_cast<T_resource_comment*>(item);
        EXPECT_EQ(comment->ident, ident("t", "a"));
        texts.push_back(comment->line->value->chars);
    }
    EXPECT_EQ(texts, (std::vector<std::string>{"! about a", "  !   second"}));
    EXPECT_EQ(ident("t", "b")->first_comment, nullptr);
    const T_resource_file* user = get_resource_manager()->user_file;
    EXPECT_EQ(ident("t", "b")->line, user->last_line->prev) << "the last definition line";
    EXPECT_EQ(static_cast<T_resource_line*>(user->last_line)->attached, nullptr)
        << "a comment with no resource after it is dropped";

    // The comments die with their resource; their lines stay and forget them.
    delete_resource("t", "a");
    EXPECT_EQ(lineTexts(user), (std::vector<std::string>{"! about a", "", "  !   second",
                                                          "ZDR*t*b: \\", "  2",
                                                          "! belongs to nothing"}));
    for (T_resource_item* item = user->first_line; item; item = item->next) {
        const T_resource_line* line = static_cast<T_resource_line*>(item);
        if (line->number < 4) {
            EXPECT_EQ(line->attached, nullptr) << "line " << line->number;
        }
    }

    // Destroying a comment line leaves its comment alive without a line.
    load_resources(nullptr, file.c_str(), nullptr);
    get_resource_manager()->user_file->delete_line(1);
    T_resource_comment* orphan = static_cast<T_resource_comment*>(ident("t", "a")->first_comment);
    ASSERT_NE(orphan, nullptr);
    EXPECT_EQ(orphan->line, nullptr);
}

TEST_F(ResourceTest, DestroyingAnyLineOfADefinitionTakesTheResourceAndItsOtherLines) {
    const std::string file = write("res", "ZDR*t*a: \\\n\\\nvalue\nZDR*t*b: 2\n");
    for (uint32_t doomed = 1; doomed <= 3; ++doomed) {
        load_resources(file.c_str(), nullptr, nullptr);
        ASSERT_EQ(lookup("t", "a"), "value");
        get_resource_manager()->product_file->delete_line(doomed);
        EXPECT_EQ(lookup("t", "a"), "<none>") << "line " << doomed;
        EXPECT_EQ(lineTexts(get_resource_manager()->product_file),
                  std::vector<std::string>{"ZDR*t*b: 2"})
            << "line " << doomed;
        EXPECT_EQ(lookup("t", "b"), "2");
    }
}

TEST_F(ResourceTest, AnalysingLinesAgainChangesNothing) {
    const std::string file = write("res", "! c\nZDR*t*a: \\\n 1\nZDR*t*b: 2\n! end\n");
    load_resources(file.c_str(), nullptr, nullptr);
    T_resource_ident* before = ident("t", "a");
    syntax_analysis(get_resource_manager()->product_file->get_line(1));
    EXPECT_EQ(ident("t", "a"), before);
    EXPECT_EQ(lookup("t", "a"), "1");
    EXPECT_EQ(lineTexts(get_resource_manager()->product_file).size(), 5u);
}
