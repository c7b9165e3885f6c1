#include <QTimer>
#include <limits>

#include "app/domain_commands.h"
#include "app/progress_watch.h"
#include "support/command_fixture.h"

using namespace platform;
using testing_support::runInProcess;

namespace {

using ProgressWatchTest = testing_support::CommandFixture;

QString watching(int seconds) {
    return QStringLiteral("watching for %1s — read a file in the Vaskel folder to see it move")
        .arg(seconds);
}

TEST_F(ProgressWatchTest, NoDomainEndsWithStatusOneAndNothingUnfinishedWithStatusTwo) {
    for (const auto& [argument, seconds] : {std::pair{"2.9", 2}, std::pair{"inf", 2073600}}) {
        const auto result = runInProcess({"--progress", argument});
        EXPECT_EQ(result.status, 1) << argument;
        EXPECT_EQ(result.lines,
                  (QStringList{watching(seconds), QString::fromUtf8(NOT_REGISTERED_LINE)}));
    }
    registerOurDomain();
    provider.reportProgress(DOMAIN_ID, FileOperationKind::downloading,
                            {{"completedUnitCount", 10}, {"totalUnitCount", 10}});
    const auto result = runInProcess({"--progress", "0.7"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.lines,
              (QStringList{watching(0),
                           "nothing tracked — no transfer ran, or fileOperationKind is unset"}));
}

TEST_F(ProgressWatchTest, UnfinishedTransfersArePrintedAndOnceSeenDecideTheVerdict) {
    registerOurDomain();
    const auto report = [&](FileOperationKind kind, const QJsonObject& counts) {
        provider.reportProgress(DOMAIN_ID, kind, counts);
    };
    report(FileOperationKind::uploading,
           {{"completedUnitCount", 0}, {"totalUnitCount", 0}, {"paused", true}});
    report(FileOperationKind::downloading,
           {{"completedUnitCount", 250}, {"totalUnitCount", 1000}, {"pausable", true}});
    // The extension finishes both soon after they have been seen.
    QTimer::singleShot(2 * PROGRESS_TICK_MS + PROGRESS_TICK_MS / 2, [&] {
        report(FileOperationKind::uploading, {{"finished", true}});
        report(FileOperationKind::downloading, {{"finished", true}});
    });
    const auto result = runInProcess({"--progress", "2.2"});
    EXPECT_EQ(result.status, 0);
    const QStringList ticks = result.lines.mid(1, result.lines.size() - 2);
    EXPECT_EQ(result.lines.first(), watching(2));
    EXPECT_EQ(result.lines.last(), "the system is tracking our transfers");
    ASSERT_TRUE(ticks.size() >= 2 && ticks.size() <= 6 && ticks.size() % 2 == 0) << ticks.size();
    for (qsizetype i = 0; i < ticks.size(); ++i) {
        EXPECT_EQ(ticks[i], i % 2 ? "  up 0/0 bytes (0%) pausable=n paused=y"
                                  : "  down 250/1000 bytes (25%) pausable=y paused=n");
    }
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
}

}  // namespace
