#include <gtest/gtest.h>

#include <QTimer>

#include "app/command_arguments.h"
#include "app/domain_commands.h"
#include "app/progress_watch.h"
#include "app/vaskel_host.h"
#include "shared/config.h"
#include "support/command_fixture.h"
#include "support/event_loop_wait.h"
#include "support/fake_platform.h"

using namespace platform;
using namespace testing_support;

namespace {

const QString NOT_REGISTERED = QString::fromUtf8(NOT_REGISTERED_LINE);
const QString LOCK_FAILURE = "failed: could not lock the state folder";

QString listed(const char* id, const char* name, bool disconnected) {
    return QStringLiteral("%1  \"%2\"  hidden=false  disconnected=%3  syncsTrash=false")
        .arg(id, name, disconnected ? "true" : "false");
}

QStringList lines(const QStringList& arguments) {
    return runInProcess(arguments).lines;
}

using CommandModeTest = CommandFixture;

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
        EXPECT_EQ(std::pair(progressSeconds(text), watchInterval(text)), std::pair(progress, watch))
            << text;
    }
}

TEST_F(CommandModeTest, ListAndRemoveBesideAnotherDomain) {
    EXPECT_EQ(lines({"--remove"}), QStringList{"remove failed: no domain with identifier "
                                               "com.norva.vaskel.domain is registered"});
    provider.addDomain("other.domain", "Other");
    ASSERT_FALSE(provider.extension.setDisconnected("other.domain", true));
    registerOurDomain();
    const QString other = listed("other.domain", "Other", true);
    // Anything but an exact option lists the domains.
    for (const QString option :
         {"anything", "--VERSION", "--Add", "--remove ", "-refresh", "--", ""}) {
        const auto result = runInProcess({option});
        EXPECT_EQ(std::pair(result.status, result.lines),
                  std::pair(0, QStringList{other, listed(DOMAIN_ID, "Vaskel", false)}))
            << option.toStdString();
    }
    EXPECT_EQ(lines({"--remove"}), QStringList{"domain removed"});
    EXPECT_EQ(lines({"--list"}), QStringList{other});
    writeFile(provider.registryPath(), "{broken");
    EXPECT_EQ(lines({"--refresh"}), QStringList{NOT_REGISTERED}) << "a failed listing: no domain";
}

TEST_F(CommandModeTest, AddFailuresShowTheFullDescriptionOrWhyThereIsNoFolder) {
    writeFile(folderOf("Vaskel"), "a file in the folder's place");
    const auto failed = lines({"--add"});
    ASSERT_EQ(failed.size(), 2);
    EXPECT_TRUE(failed[0].startsWith("add failed: the synced folder cannot be created: "));
    EXPECT_TRUE(failed[1].startsWith(
        "  Error Domain=com.norva.vaskel.FileProviderError Code=5 \"the synced folder"));
    EXPECT_EQ(readFile(folderOf("Vaskel")), "a file in the folder's place");
    EXPECT_EQ(lines({"--list"}), QStringList{"no domains registered"});
    QFile::remove(folderOf("Vaskel"));
    writeFile(Shared::configPath(), R"({"account_email": ""})");  // named as without an account
    const auto added = runBetweenAnswers({"--add"}, [&] {
        QDir(folderOf("Vaskel")).removeRecursively();
        writeFile(folderOf("Vaskel"), "x");
    });
    ASSERT_EQ(added.size(), 2);
    EXPECT_EQ(added[0], "domain added: Vaskel");
    EXPECT_TRUE(
        added[1].startsWith("visible URL unavailable: the synced folder cannot be created"));
}

TEST_F(CommandModeTest, ReconnectAndRefreshNeedOurDomainAndShowFailures) {
    provider.addDomain("other.domain", "Not ours");
    for (const char* option : {"--reconnect", "--refresh"})
        EXPECT_EQ(lines({option}), QStringList{NOT_REGISTERED}) << option;
    registerOurDomain();
    ASSERT_FALSE(provider.extension.setDisconnected(DOMAIN_ID, true));
    breakStateWrites();
    const auto reconnect = lines({"--reconnect"});
    ASSERT_EQ(reconnect.size(), 2);
    EXPECT_TRUE(reconnect[0].startsWith("reconnect " + LOCK_FAILURE));
    EXPECT_TRUE(
        reconnect[1].startsWith("  Error Domain=com.norva.vaskel.FileProviderError Code=2"));
}

// Each attempt prints a failure here; the end-to-end run shows that success prints nothing.
TEST_F(CommandModeTest, WatchSignalsAtOnceAndOnEveryIntervalAndPrintsFailures) {
    registerOurDomain();
    breakStateWrites();
    const Output out = CommandOutput::capture();
    QObject context;  // the watch's timer goes with it
    int finished = -1;
    watchDomain(
        0.1, out, [&](int status) { finished = status; }, &context);
    EXPECT_TRUE(runEventsUntil([&] { return out->lines().size() >= 4; }, 30000));
    QStringList printed = out->lines();
    EXPECT_EQ(printed.removeAll("watching: refreshing every 0s — ctrl-C to stop"), 1);
    for (const QString& line : printed)
        EXPECT_TRUE(line.startsWith("refresh " + LOCK_FAILURE)) << line.toStdString();
    EXPECT_EQ(finished, -1) << "the watch never ends by itself";
}

TEST_F(CommandModeTest, IdentifyAndEvictAskThePathsOwnDomain) {
    registerOurDomain();
    provider.addDomain("other.domain", "Other");
    const QString folder = folderOf("Vaskel"), file = folder + "/docs/q4 report.pdf";
    const QString other = folderOf("Other") + "/a.txt", outside = platform.root.path() + "/x";
    for (const QString& path : {file, other, outside}) writeFile(path, "x");
    const QString ours = "\ndomain    : com.norva.vaskel.domain";
    // clang-format off
    const std::pair<QStringList, QString> cases[] = {
        {{"--identify"}, "usage: --identify <path>"}, {{"--evict", ""}, "usage: --evict <path>"},
        {{"--identify", ""}, "usage: --identify <path>"}, {{"--evict"}, "usage: --evict <path>"},
        {{"--identify", file}, "identifier: docs/q4 report.pdf" + ours},
        {{"--identify", folder + "/"},
         "identifier: NSFileProviderRootContainerItemIdentifier" + ours},
        {{"--identify", folder + "/nope"},
         "no identifier: " + folder + "/nope: No such file or directory"},
        {{"--evict", "docs/q4 report.pdf"}, "evicted q4 report.pdf"},  // relative to the folder
        {{"--evict", folder + "/docs/"}, "evicted docs"}, {{"--evict", other}, "evicted a.txt"},
        {{"--evict", outside},
         "not a file provider item: " + outside + " is not inside a synced folder"}};
    // clang-format on
    const QString previous = QDir::currentPath();
    QDir::setCurrent(folder);
    for (const auto& [arguments, said] : cases) EXPECT_EQ(lines(arguments).join('\n'), said);
    QDir::setCurrent(previous);
    EXPECT_EQ(provider.extension.evictionRequests(DOMAIN_ID),
              (QStringList{"docs/q4 report.pdf", "docs"}));
    EXPECT_EQ(provider.extension.evictionRequests("other.domain"), QStringList{"a.txt"});
    breakStateWrites();
    const auto failed = lines({"--evict", file});
    ASSERT_EQ(failed.size(), 1);
    EXPECT_TRUE(failed[0].startsWith("evict failed: could not lock the state folder"));
}

TEST_F(CommandModeTest, EvictWhenThePathsDomainIsGoneByTheTimeOfTheLookup) {
    provider.addDomain("other.domain", "Other");
    writeFile(folderOf("Other") + "/a.txt", "a");
    // The path resolves to other.domain; the domain list no longer has it.
    EXPECT_EQ(runBetweenAnswers({"--evict", folderOf("Other") + "/a.txt"},
                                [&] {
                                    ASSERT_FALSE(waitFor([&](auto done) {
                                        provider.service.remove({"other.domain", {}}, done);
                                    }));
                                }),
              QStringList{"no manager for domain other.domain"});
}

// Waits the whole 8 seconds of the probe once: the listing never returns.
TEST_F(CommandModeTest, ProbeReportsTheTimeWithTwoDecimalsOrThatNothingAnswered) {
    registerOurDomain();
    platform.clock.now = 100;
    provider.listing.onList = [this] { platform.clock.now = 100.3127; };
    EXPECT_EQ(lines({"--probe"}), QStringList{"extension responds (0.31s) — enabled"});
    provider.listing.onList = nullptr;
    provider.listing.hang = true;
    EXPECT_EQ(lines({"--probe"}),
              (QStringList{"no response within 8s — the extension is probably not",
                           "switched on. System Settings > General > Login Items &",
                           "Extensions > File Providers, and enable Vaskel."}));
    provider.listing.release();
}

TEST_F(CommandModeTest, ResyncWithoutAWritableCursorDoesNotRefresh) {
    registerOurDomain();
    const QString cursor = platform.container.dir + "/group.com.norva.vaskel/cursor.json";
    ASSERT_TRUE(QDir().mkpath(cursor + "/occupied"));
    const auto failed = lines({"--resync"});
    ASSERT_EQ(failed.size(), 1);
    EXPECT_TRUE(failed[0].startsWith("could not rewind cursor: " + cursor + ": "));
    EXPECT_TRUE(QFileInfo(cursor + "/occupied").isDir());
    EXPECT_EQ(provider.workingSetSignals(DOMAIN_ID), 0);
}

TEST_F(CommandModeTest, ATransferSeenOnceDecidesTheProgressVerdictThoughItFinishesLater) {
    registerOurDomain();
    ASSERT_FALSE(provider.extension.reportProgress(
        DOMAIN_ID, "downloading", {{"completedUnitCount", 1}, {"totalUnitCount", 4}}));
    QTimer::singleShot(PROGRESS_TICK_MS * 3 / 2, [&] {
        ASSERT_FALSE(
            provider.extension.reportProgress(DOMAIN_ID, "downloading", {{"finished", true}}));
    });
    const auto result = runInProcess({"--progress", "1.7"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.lines.last(), "the system is tracking our transfers");
}

TEST(ProgressPercentTest, NeverOverflows) {
    constexpr qint64 max = std::numeric_limits<qint64>::max();
    const std::tuple<qint64, qint64, int> cases[] = {{0, 0, 0},
                                                     {5, -1, 0},
                                                     {1, 3, 33},
                                                     {2, 3, 66},
                                                     {max, max, 100},
                                                     {-5, 10, -50},
                                                     {max, 1, std::numeric_limits<int>::max()}};
    for (const auto& [completed, total, percent] : cases)
        EXPECT_EQ(progressPercent(completed, total), percent) << completed << "/" << total;
    EXPECT_EQ(progressLine("down", ProgressSnapshot{max, max, false, true, false}),
              "  down 9223372036854775807/9223372036854775807 bytes (100%) pausable=y paused=n");
    EXPECT_EQ(progressLine("up", ProgressSnapshot{0, 0, false, false, true}),
              "  up 0/0 bytes (0%) pausable=n paused=y");
}

TEST(InstallLocation, ProblemByBundlePath) {
    const QString diskImage =
        "This copy is running from the downloaded disk image. Drag Vaskel into your Applications "
        "folder (replacing the old one), eject the disk image, then open Vaskel from Applications.";
    const QString translocated =
        "This copy is running from a temporary location, probably your Downloads folder. Move "
        "Vaskel into your Applications folder (replacing the old one), then open it from there.";
    // clang-format off
    const std::pair<const char*, std::optional<QString>> cases[] = {
        {"/Volumes/Vaskel/Vaskel.app", diskImage}, {"/Volumes/x/AppTranslocation/y", diskImage},
        {"/private/var/folders/AppTranslocation/abc/Vaskel.app", translocated},
        {"/volumes/lowercase", std::nullopt}, {"/Volumes", std::nullopt},
        {"/home/u/AppTranslocation", std::nullopt}};
    // clang-format on
    testing_support::FakePlatform platform;
    for (const auto& [path, problem] : cases) {
        platform.bundle.bundlePath = path;
        EXPECT_EQ(VaskelHost::installLocationProblem(), problem) << path;
    }
}

}  // namespace
