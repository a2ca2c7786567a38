#include "tests/support/private_network.h"

#include <gtest/gtest.h>

int main(int argc, char** argv) {
    // Before any thread exists: a user namespace cannot be entered later.
    halvo::testkit::isolateDaemonPort();
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
