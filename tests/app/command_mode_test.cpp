#include <cmath>

#include "app/command_arguments.h"
#include "app/command_mode.h"
#include "support/command_fixture.h"

using namespace platform;
using testing_support::CommandFixture;
using testing_support::HeldService;
using testing_support::runInProcess;

namespace {

using CommandModeTest = CommandFixture;

TEST_F(CommandModeTest, VersionPrintsOneLineAndLeavesTheServiceAlone) {
    HeldService held(provider.service);
    StandIn<FileProviderService> standIn(held);
    const auto result = runInProcess({"--version", "--add"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.lines, QStringList{"Vaskel 20261007-080416"});
    EXPECT_EQ(held.held(), 0);
}

TEST_F(CommandModeTest, OptionsAreExactAndCaseSensitive) {
    registerOurDomain();
    const QString listed =
        "com.norva.vaskel.domain  \"Vaskel\"  hidden=false  disconnected=false  syncsTrash=false";
    for (const QString option : {"--VERSION", "--Add", "--remove ", "-refresh", "--", "", "list"}) {
        const auto result = runInProcess({option});
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.lines, QStringList{listed}) << option.toStdString();
    }
}

TEST_F(CommandModeTest, ACommandThatNeverCompletesIsCutOffSilently) {
    HeldService held(provider.service);
    StandIn<FileProviderService> standIn(held);
    for (const char* option : {"--add", "--remove", "--reconnect", "--refresh", "--resync",
                               "--probe", "--identify", "--evict", "--list"}) {
        const auto result =
            runInProcess({option, platform.home.dir}, std::chrono::milliseconds(20));
        EXPECT_EQ(result.status, 0) << option;
        const QStringList expected = QString(option) == "--resync"
                                         ? QStringList{"cursor rewound; replaying the change feed"}
                                         : QStringList{};
        EXPECT_EQ(result.lines, expected) << option;
    }
    // The answers that come after the limit print nothing.
    held.releaseAll();
    // Everything released has run once the service answers a later request; what those answers
    // asked for next stays held.
    testing_support::waitFor(
        [&](ErrorCompletion done) { provider.service.signalWorkingSet(DOMAIN_ID, done); });
}

TEST_F(CommandModeTest, UsageLinesComeBeforeTheWait) {
    HeldService held(provider.service);
    StandIn<FileProviderService> standIn(held);
    // With a limit that would fail the suite's time-out, the answer must not depend on it.
    const auto result = runInProcess({"--evict"}, std::chrono::hours(1));
    EXPECT_EQ(result.lines, QStringList{"usage: --evict <path>"});
}

TEST(CommandArgumentsTest, SecondsParseLikeNumbersAndOutOfRangeValuesAreTamed) {
    const std::vector<std::tuple<QString, double, double>> cases{
        // text, --progress seconds, --watch interval
        {"", 20, 60},
        {"abc", 20, 60},
        {"5s", 20, 60},
        {" 5", 20, 60},
        {"5", 5, 5},
        {"+2.5", 2.5, 2.5},
        {"2.9", 2.9, 2.9},
        {"1e1", 10, 10},
        {"0.5", 0.5, 0.5},
        {"0", 0, 60},
        {"-0", 0, 60},
        {"-3", 0, 60},
        {"0.001", 0.001, MIN_WATCH_INTERVAL},
        {"nan", 20, 60},
        {"inf", MAX_COMMAND_SECONDS, MAX_COMMAND_SECONDS},
        {"-inf", 0, 60},
        {"1e999", MAX_COMMAND_SECONDS, MAX_COMMAND_SECONDS},
        {"1e-999", 0, 60},
        {"0x10", 20, 60},
    };
    for (const auto& [text, progress, watch] : cases) {
        EXPECT_EQ(progressSeconds(text), progress) << text.toStdString();
        EXPECT_EQ(watchInterval(text), watch) << text.toStdString();
    }
    EXPECT_EQ(wholeSeconds(2.9), 2);
    EXPECT_EQ(wholeSeconds(0.5), 0);
    EXPECT_EQ(wholeSeconds(MAX_COMMAND_SECONDS), 2073600);
}

}  // namespace
