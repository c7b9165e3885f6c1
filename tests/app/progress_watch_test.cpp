#include <gtest/gtest.h>

#include <limits>

#include "app/progress_watch.h"

using namespace platform;

namespace {

TEST(ProgressPercentTest, NeverOverflows) {
    constexpr qint64 max = std::numeric_limits<qint64>::max();
    constexpr int top = std::numeric_limits<int>::max();
    const std::tuple<qint64, qint64, int> cases[] = {{0, 0, 0},    {5, -1, 0},      {1, 3, 33},
                                                     {2, 3, 66},   {max, max, 100}, {-5, 10, -50},
                                                     {max, 1, top}};
    for (const auto& [completed, total, percent] : cases) {
        EXPECT_EQ(progressPercent(completed, total), percent) << completed << "/" << total;
    }
    EXPECT_EQ(progressLine("down", ProgressSnapshot{max, max, false, true, false}),
              "  down 9223372036854775807/9223372036854775807 bytes (100%) pausable=y paused=n");
}

}  // namespace
