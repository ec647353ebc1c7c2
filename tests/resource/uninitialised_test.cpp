// The interface before the manager exists: nothing is stored, nothing crashes.

#include "resource/p_api.h"

#include <gtest/gtest.h>

TEST(ResourceManagerAbsent, InterfaceDoesNothingUntilCreated) {
    load_resources("/nonexistent/product", "/nonexistent/user", nullptr);
    set_resource("Proof", "writer", "/bin/w");
    EXPECT_EQ(lookup_resource("Proof", "writer"), nullptr);
    EXPECT_EQ(get_default_user_file(), nullptr);
    delete_tool_resources(nullptr);
    init_resource_manager();
    EXPECT_NE(get_resource_manager(), nullptr);
}
