#include <QHash>
#include <gtest/gtest.h>

int main(int argc, char** argv) {
    // Qt keeps XML attributes in a hash: a fixed seed keeps written documents stable.
    qSetGlobalQHashSeed(0);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
