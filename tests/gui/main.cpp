// SPDX-License-Identifier: MIT
// Runs the tests of a program with windows. Each warning of a library is a failure.
#include "tree.h"

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    gtk_init(&argc, &argv);
    fail_on_warnings();
    return RUN_ALL_TESTS();
}
