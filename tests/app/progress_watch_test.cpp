#include <QTimer>
#include <limits>

#include "app/domain_commands.h"
#include "app/progress_watch.h"
#include "support/command_fixture.h"

using namespace platform;
using testing_support::CommandFixture;
using testing_support::runInProcess;

namespace {

using ProgressWatchTest = CommandFixture;

const QString NOTHING = "nothing tracked — no transfer ran, or fileOperationKind is unset";
const QString TRACKING = "the system is tracking our transfers";

QString watching(int seconds) {
    return QStringLiteral("watching for %1s — read a file in the Vaskel folder to see it move")
        .arg(seconds);
}

TEST_F(ProgressWatchTest, NoDomainEndsWithStatusOneAfterTheFirstLine) {
    for (const auto& [argument, seconds] :
         std::vector<std::pair<QString, int>>{{"2.9", 2},
                                              {"abc", 20},
                                              {"nan", 20},
                                              {"inf", 2073600},
                                              {"1e999", 2073600}}) {
        const auto result = runInProcess({"--progress", argument});
        EXPECT_EQ(result.status, 1) << argument.toStdString();
        EXPECT_EQ(result.lines,
                  (QStringList{watching(seconds), QString::fromUtf8(NOT_REGISTERED_LINE)}));
    }
}

TEST_F(ProgressWatchTest, NothingUnfinishedEndsWithStatusTwo) {
    registerOurDomain();
    provider.reportProgress(DOMAIN_ID, FileOperationKind::downloading,
                            {{"completedUnitCount", 10}, {"totalUnitCount", 10}});
    const auto result = runInProcess({"--progress", "0.7"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.lines, (QStringList{watching(0), NOTHING}));
}

TEST_F(ProgressWatchTest, UnfinishedTransfersArePrintedUntilTheVerdict) {
    registerOurDomain();
    provider.reportProgress(DOMAIN_ID, FileOperationKind::uploading,
                            {{"completedUnitCount", 0}, {"totalUnitCount", 0}, {"paused", true}});
    provider.reportProgress(
        DOMAIN_ID, FileOperationKind::downloading,
        {{"completedUnitCount", 250}, {"totalUnitCount", 1000}, {"pausable", true}});
    const auto result = runInProcess({"--progress", "1.2"});
    EXPECT_EQ(result.status, 0);
    ASSERT_GE(result.lines.size(), 4);
    EXPECT_EQ(result.lines.first(), watching(1));
    EXPECT_EQ(result.lines.last(), TRACKING);
    const QStringList ticks = result.lines.mid(1, result.lines.size() - 2);
    for (qsizetype i = 0; i < ticks.size(); i += 2) {
        EXPECT_EQ(ticks[i], "  down 250/1000 bytes (25%) pausable=y paused=n");
        ASSERT_LT(i + 1, ticks.size());
        EXPECT_EQ(ticks[i + 1], "  up 0/0 bytes (0%) pausable=n paused=y");
    }
}

TEST_F(ProgressWatchTest, ATransferSeenOnceDecidesTheVerdict) {
    registerOurDomain();
    provider.reportProgress(DOMAIN_ID, FileOperationKind::uploading,
                            {{"completedUnitCount", 1}, {"totalUnitCount", 2}});
    // The extension finishes the upload as soon as it has been seen.
    QTimer finisher;
    QObject::connect(&finisher, &QTimer::timeout, [&] {
        provider.reportProgress(DOMAIN_ID, FileOperationKind::uploading,
                                {{"completedUnitCount", 2}, {"totalUnitCount", 2}});
    });
    finisher.setSingleShot(true);
    finisher.start(2 * PROGRESS_TICK_MS + PROGRESS_TICK_MS / 2);
    const auto result = runInProcess({"--progress", "2.2"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.lines.last(), TRACKING);
    EXPECT_EQ(result.lines.count("  up 1/2 bytes (50%) pausable=n paused=n"),
              result.lines.size() - 2);
}

TEST(ProgressPercentTest, NeverOverflows) {
    constexpr qint64 max = std::numeric_limits<qint64>::max();
    const std::vector<std::tuple<qint64, qint64, int>> cases{
        {0, 0, 0},       {5, 0, 0},          {5, -1, 0},
        {1, 3, 33},      {2, 3, 66},         {3, 3, 100},
        {max, max, 100}, {max / 2, max, 49}, {max, 1, std::numeric_limits<int>::max()},
        {-5, 10, -50},
    };
    for (const auto& [completed, total, percent] : cases) {
        EXPECT_EQ(progressPercent(completed, total), percent) << completed << "/" << total;
    }
    ProgressSnapshot huge{max, max, false, true, false};
    EXPECT_EQ(progressLine("down", huge),
              "  down 9223372036854775807/9223372036854775807 bytes (100%) pausable=y paused=n");
}

}  // namespace
