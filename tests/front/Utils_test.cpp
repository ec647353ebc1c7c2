#include "front/Utils.h"

#include <gtest/gtest.h>

TEST(BaseNameOfPath, DropsDirectoryAndLastExtension) {
    const std::pair<const char*, const char*> rows[] = {
        {"comp.pos", "comp"},      {"bdp\\comp.pos", "comp"},       {"a.b/comp", "comp"},
        {"x/y.tar.gz", "y.tar"},   {"comp", "comp"},                {"dir/", ""},
        {"dir\\", ""},             {"mixed\\dir/comp.xml", "comp"}, {"mixed/dir\\comp.xml", "comp"},
        {".hidden", ""},           {"a.b\\c", "c"},                 {"", ""},
        {"trailing.", "trailing"},
    };
    for (const auto& [path, expected] : rows)
        EXPECT_EQ(baseNameOfPath(path), expected) << "path: " << path;
}
