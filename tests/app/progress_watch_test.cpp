#include <QTimer>
#include <limits>

#include "app/progress_watch.h"
#include "support/command_fixture.h"

using namespace platform;

namespace {

using ProgressWatchTest = testing_support::CommandFixture;

TEST_F(ProgressWatchTest, ATransferSeenOnceDecidesTheVerdictThoughItFinishesLater) {
    registerOurDomain();
    ASSERT_FALSE(provider.extension.reportProgress(
        DOMAIN_ID, "downloading", {{"completedUnitCount", 1}, {"totalUnitCount", 4}}));
    QTimer::singleShot(PROGRESS_TICK_MS * 3 / 2, [&] {
        ASSERT_FALSE(
            provider.extension.reportProgress(DOMAIN_ID, "downloading", {{"finished", true}}));
    });
    const auto result = testing_support::runInProcess({"--progress", "1.7"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.lines.last(), "the system is tracking our transfers");
}

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
    EXPECT_EQ(progressLine("up", ProgressSnapshot{0, 0, false, false, true}),
              "  up 0/0 bytes (0%) pausable=n paused=y");
}

}  // namespace
