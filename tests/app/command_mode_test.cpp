#include "app/command_mode.h"
#include "app/command_arguments.h"
#include "support/command_fixture.h"

using namespace platform;
using testing_support::HeldService;
using testing_support::runInProcess;

namespace {

using CommandModeTest = testing_support::CommandFixture;

TEST_F(CommandModeTest, OptionsAreExactAndCaseSensitive) {
    registerOurDomain();
    for (const QString option : {"--VERSION", "--Add", "--remove ", "-refresh", "--", ""}) {
        const auto result = runInProcess({option});
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.lines, QStringList{"com.norva.vaskel.domain  \"Vaskel\"  hidden=false  "
                                            "disconnected=false  syncsTrash=false"})
            << option.toStdString();
    }
}

TEST_F(CommandModeTest, ACommandThatNeverCompletesIsCutOffSilently) {
    HeldService held(provider.service);
    StandIn<FileProviderService> standIn(held);
    const auto version = runInProcess({"--version", "--add"});
    EXPECT_EQ(version.lines, QStringList{"Vaskel 20261007-080416"});
    EXPECT_EQ(held.held(), 0) << "--version leaves the service alone";
    // With a limit that would fail the suite's time-out, the answer must not depend on it.
    EXPECT_EQ(runInProcess({"--evict"}, std::chrono::hours(1)).lines,
              QStringList{"usage: --evict <path>"});

    for (const char* option : {"--add", "--remove", "--reconnect", "--refresh", "--resync",
                               "--probe", "--identify", "--evict", "--list"}) {
        const auto result =
            runInProcess({option, platform.home.dir}, std::chrono::milliseconds(20));
        EXPECT_EQ(result.status, 0) << option;
        EXPECT_EQ(result.lines, QString(option) == "--resync"
                                    ? QStringList{"cursor rewound; replaying the change feed"}
                                    : QStringList{})
            << option;
    }
    // The answers that come after the limit print nothing. Everything released has run once the
    // service answers a later request.
    held.releaseAll();
    testing_support::waitFor(
        [&](ErrorCompletion done) { provider.service.signalWorkingSet(DOMAIN_ID, done); });
}

TEST(CommandArgumentsTest, SecondsParseLikeNumbersAndOutOfRangeValuesAreTamed) {
    constexpr double max = MAX_COMMAND_SECONDS;
    // text, --progress seconds, --watch interval
    const std::tuple<const char*, double, double> cases[] = {
        {"", 20, 60},      {"5s", 20, 60},       {" 5", 20, 60},
        {"5 ", 20, 60},    {"1,5", 20, 60},      {"nan", 20, 60},
        {"0x10", 16, 16},  {"0x1p3", 8, 8},      {"0", 0, 60},
        {"-3", -3, 60},    {"-1e999", -max, 60}, {"1e-999", 0, 60},
        {"1e1", 10, 10},   {"+2.5", 2.5, 2.5},   {"0.001", 0.001, MIN_WATCH_INTERVAL},
        {"inf", max, max}, {"1e999", max, max}};
    for (const auto& [text, progress, watch] : cases) {
        EXPECT_EQ(progressSeconds(text), progress) << text;
        EXPECT_EQ(watchInterval(text), watch) << text;
    }
}

}  // namespace
