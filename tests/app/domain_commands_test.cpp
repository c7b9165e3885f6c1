#include <QCoreApplication>
#include <future>

#include "app/domain_commands.h"
#include "support/command_fixture.h"

using namespace platform;
using testing_support::runInProcess;
using testing_support::writeFile;

namespace {

const QString NOT_REGISTERED = QString::fromUtf8(NOT_REGISTERED_LINE);
const QString LOCK_FAILURE = "failed: could not lock the state folder";

QString listed(const char* id, const char* name, bool disconnected, bool trash) {
    return QStringLiteral("%1  \"%2\"  hidden=false  disconnected=%3  syncsTrash=%4")
        .arg(id, name, disconnected ? "true" : "false", trash ? "true" : "false");
}

using DomainCommandsTest = testing_support::CommandFixture;

TEST_F(DomainCommandsTest, ListAndRemoveBesideAnotherDomain) {
    EXPECT_EQ(runInProcess({"--remove"}).lines,
              QStringList{"remove failed: no domain with identifier com.norva.vaskel.domain is "
                          "registered"});
    provider.addDomain("other.domain", "Other");
    ASSERT_FALSE(provider.extension.setDisconnected("other.domain", true));
    registerOurDomain();
    const QString other = listed("other.domain", "Other", true, false);
    EXPECT_EQ(runInProcess({"anything"}).lines,
              (QStringList{other, listed("com.norva.vaskel.domain", "Vaskel", false, false)}));
    EXPECT_EQ(runInProcess({"--remove"}).lines, QStringList{"domain removed"});
    EXPECT_EQ(runInProcess({"--list"}).lines, QStringList{other});

    writeFile(provider.registryPath(), "{broken");
    EXPECT_EQ(runInProcess({"--refresh"}).lines, QStringList{NOT_REGISTERED})
        << "a failed listing reads as no domain";
}

TEST_F(DomainCommandsTest, AddFailuresShowTheFullDescriptionOrWhyThereIsNoFolder) {
    writeFile(folderOf("Vaskel"), "a file in the folder's place");
    const auto failed = runInProcess({"--add"});
    ASSERT_EQ(failed.lines.size(), 2);
    EXPECT_TRUE(failed.lines[0].startsWith("add failed: the synced folder cannot be created: "));
    EXPECT_TRUE(failed.lines[1].startsWith(
        "  Error Domain=com.norva.vaskel.FileProviderError Code=5 \"the synced folder"));

    // The folder goes missing between the add and the question where it is.
    QFile::remove(folderOf("Vaskel"));
    testing_support::HeldService held(provider.service);
    StandIn<FileProviderService> standIn(held);
    auto run = std::async(std::launch::async, [] { return runInProcess({"--add"}); });
    while (held.held() == 0) std::this_thread::yield();
    held.releaseAll();
    while (held.held() == 0) std::this_thread::yield();
    QDir(folderOf("Vaskel")).removeRecursively();
    writeFile(folderOf("Vaskel"), "x");
    held.releaseAll();
    const QStringList lines = run.get().lines;
    ASSERT_EQ(lines.size(), 2);
    EXPECT_EQ(lines[0], "domain added: Vaskel");
    EXPECT_TRUE(
        lines[1].startsWith("visible URL unavailable: the synced folder cannot be created"));
}

TEST_F(DomainCommandsTest, ReconnectAndRefreshNeedOurDomainAndShowFailures) {
    provider.addDomain("other.domain", "Not ours");
    for (const char* option : {"--reconnect", "--refresh"}) {
        EXPECT_EQ(runInProcess({option}).lines, QStringList{NOT_REGISTERED}) << option;
    }
    registerOurDomain();
    ASSERT_FALSE(provider.extension.setDisconnected(DOMAIN_ID, true));
    breakStateWrites();
    const auto reconnect = runInProcess({"--reconnect"}).lines;
    ASSERT_EQ(reconnect.size(), 2);
    EXPECT_TRUE(reconnect[0].startsWith("reconnect " + LOCK_FAILURE));
    EXPECT_TRUE(
        reconnect[1].startsWith("  Error Domain=com.norva.vaskel.FileProviderError Code=2"));
}

TEST_F(DomainCommandsTest, WatchSignalsAtOnceAndOnEveryIntervalAndPrintsOnlyFailures) {
    registerOurDomain();
    const Output out = CommandOutput::capture();
    QObject context;  // the watch's timer goes with it
    int finished = -1;
    watchDomain(
        0.1, out, [&](int status) { finished = status; }, &context);
    const auto waitUntil = [](const std::function<bool()>& done) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (!done() && std::chrono::steady_clock::now() < deadline)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 10);
    };
    waitUntil([&] { return provider.workingSetSignals(DOMAIN_ID) >= 3; });
    const QString watching = "watching: refreshing every 0s — ctrl-C to stop";
    EXPECT_EQ(out->lines(), QStringList{watching});
    EXPECT_GE(provider.workingSetSignals(DOMAIN_ID), 3);

    breakStateWrites();
    waitUntil([&] { return out->lines().size() >= 3; });
    const QStringList lines = out->lines();
    ASSERT_GE(lines.size(), 3);
    EXPECT_EQ(lines[0], watching);
    for (const QString& line : lines.mid(1)) {
        EXPECT_TRUE(line.startsWith("refresh " + LOCK_FAILURE)) << line.toStdString();
    }
    EXPECT_EQ(finished, -1) << "the watch never ends by itself";
}

}  // namespace
