// The interface before the manager exists: nothing is stored, nothing crashes.

#include "resource/p_api.h"

#include <gtest/gtest.h>

TEST(ResourceManagerAbsent, InterfaceDoesNothingUntilCreated) {
    EXPECT_EQ(get_resource_manager(), nullptr);
    load_resources("/nonexistent/product", "/nonexistent/user", nullptr);
    set_resource("Proof", "writer", "/bin/w");
    EXPECT_EQ(lookup_resource("Proof", "writer"), nullptr);
    EXPECT_EQ(get_default_user_file(), nullptr);
    delete_tool_resources(nullptr);

    init_resource_manager();
    T_resource_manager* manager = get_resource_manager();
    ASSERT_NE(manager, nullptr);
    init_resource_manager();
    EXPECT_EQ(get_resource_manager(), manager) << "a second call keeps the first manager";
}
