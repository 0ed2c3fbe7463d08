// SPDX-License-Identifier: MIT
// How long the main loop sleeps: as long as it is told, without a turn in between.
#include <gtest/gtest.h>

#include "app.cpp"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// How long the loop's poll takes that ends with nothing but its time.
milliseconds time_of_poll(gint wanted) {
    const auto begun = steady_clock::now();
    EXPECT_EQ(poll_with_window_signals(nullptr, 0, wanted), 0);
    return std::chrono::duration_cast<milliseconds>(steady_clock::now() - begun);
}

TEST(Poll, TakesTheTimeThatItIsGiven) {
    for (const gint wanted : {30, 999, 1000, 1030}) {
        const milliseconds taken = time_of_poll(wanted);
        EXPECT_GE(taken, milliseconds(wanted));
        EXPECT_LT(taken, milliseconds(wanted + 5000));
    }
}

TEST(Poll, TakesNoTimeWhereItIsGivenNone) {
    EXPECT_LT(time_of_poll(0), milliseconds(5000));
}

TEST(Poll, EndsWithWhatItWaitsForAndNotWithATime) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    GPollFD reader{ends[0], G_IO_IN, 0};
    std::thread writer([end = ends[1]] {
        std::this_thread::sleep_for(milliseconds(200));
        EXPECT_EQ(write(end, "x", 1), 1);
    });
    const auto begun = steady_clock::now();
    EXPECT_EQ(poll_with_window_signals(&reader, 1, -1), 1);
    EXPECT_GE(steady_clock::now() - begun, milliseconds(150));
    EXPECT_EQ(reader.revents, G_IO_IN);
    writer.join();
    close(ends[0]);
    close(ends[1]);
}

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
