#include "front/Utils.h"

#include <gtest/gtest.h>

TEST(BaseNameOfPath, DropsDirectoryAndLastExtension) {
    struct Row {
        const char* path;
        const char* expected;
    };
    const Row rows[] = {
        {"comp.pos", "comp"},
        {"bdp\\comp.pos", "comp"},
        {"a.b/comp", "comp"},
        {"x/y.tar.gz", "y.tar"},
        {"comp", "comp"},
        {"dir/", ""},
        {"dir\\", ""},
        {"/abs/path/comp.pos", "comp"},
        {"mixed\\dir/comp.xml", "comp"},
        {"mixed/dir\\comp.xml", "comp"},
        {".hidden", ""},
        {"dir/.hidden", ""},
        {"a.b\\c", "c"},
        {"", ""},
        {"trailing.", "trailing"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(baseNameOfPath(row.path), row.expected) << "path: " << row.path;
}
