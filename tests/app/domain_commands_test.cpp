#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>

#include "app/domain_commands.h"
#include "platform/file_provider/file_provider.h"
#include "shared/config.h"
#include "support/command_fixture.h"

using namespace platform;
using testing_support::CommandFixture;
using testing_support::runInProcess;

namespace {

const QString NOT_REGISTERED = QString::fromUtf8(NOT_REGISTERED_LINE);

using DomainCommandsTest = CommandFixture;

// Forwards to the real service but gives a chosen answer for the domain's folder.
class FolderAnswerService final : public FileProviderService {
public:
    FolderAnswerService(FileProviderService& inner, std::optional<FileProviderError> error)
        : inner_(inner), error_(std::move(error)) {}
    void getDomains(DomainsCompletion c) override { inner_.getDomains(c); }
    void add(const FileProviderDomain& d, ErrorCompletion c) override { inner_.add(d, c); }
    void remove(const FileProviderDomain& d, ErrorCompletion c) override { inner_.remove(d, c); }
    bool isRegistered(const QString& id) override { return inner_.isRegistered(id); }
    void reconnect(const QString& id, ErrorCompletion c) override { inner_.reconnect(id, c); }
    void signalWorkingSet(const QString& id, ErrorCompletion c) override {
        inner_.signalWorkingSet(id, c);
    }
    void userVisibleURL(const QString&, URLCompletion c) override { c(std::nullopt, error_); }
    void identifierForUserVisibleFile(const QString& p, IdentifierCompletion c) override {
        inner_.identifierForUserVisibleFile(p, c);
    }
    void evictItem(const QString& id, const QString& item, ErrorCompletion c) override {
        inner_.evictItem(id, item, c);
    }
    std::shared_ptr<FileProviderProgress> globalProgress(const QString& id,
                                                         FileOperationKind k) override {
        return inner_.globalProgress(id, k);
    }

private:
    FileProviderService& inner_;
    std::optional<FileProviderError> error_;
};

TEST_F(DomainCommandsTest, ListPrintsEachDomainOrWhyNot) {
    EXPECT_EQ(runInProcess({"--list"}).lines, QStringList{"no domains registered"});

    provider.addDomain("other.domain", "Other");
    ASSERT_EQ(runInProcess({"--add"}).status, 0);
    provider.setDisconnected("other.domain", true);
    const auto listed = runInProcess({"anything"});
    EXPECT_EQ(listed.status, 0);
    EXPECT_EQ(
        listed.lines,
        (QStringList{"other.domain  \"Other\"  hidden=false  disconnected=true  syncsTrash=false",
                     "com.norva.vaskel.domain  \"Vaskel\"  hidden=false  disconnected=false  "
                     "syncsTrash=true"}));

    writeFile(provider.registryPath(), "{broken");
    const auto damaged = runInProcess({"-V"});
    ASSERT_EQ(damaged.lines.size(), 1);
    EXPECT_TRUE(damaged.lines[0].startsWith("error: the domain registry " +
                                            provider.registryPath() + " is damaged"));
    EXPECT_EQ(readFile(provider.registryPath()), "{broken");
}

TEST_F(DomainCommandsTest, AddUsesTheAccountNameAndShowsTheFolder) {
    EXPECT_EQ(runInProcess({"--add"}).lines,
              (QStringList{"domain added: Vaskel", "visible at: " + folderOf("Vaskel")}));

    writeFile(Shared::configPath(), R"({"account_email": "me@example.com"})");
    EXPECT_EQ(
        runInProcess({"--add", "ignored"}).lines,
        (QStringList{"domain added: me@example.com", "visible at: " + folderOf("me@example.com")}));
    EXPECT_EQ(runInProcess({"--list"}).lines,
              QStringList{"com.norva.vaskel.domain  \"me@example.com\"  hidden=false  "
                          "disconnected=false  syncsTrash=true"});
}

TEST_F(DomainCommandsTest, AddReportsAFailureWithItsFullDescription) {
    writeFile(folderOf("Vaskel"), "a file in the folder's place");
    const auto result = runInProcess({"--add"});
    ASSERT_EQ(result.lines.size(), 2);
    EXPECT_TRUE(result.lines[0].startsWith("add failed: the synced folder cannot be created: "));
    EXPECT_TRUE(result.lines[1].startsWith(
        "  Error Domain=com.norva.vaskel.FileProviderError Code=5 \"the synced folder"));
    EXPECT_EQ(readFile(folderOf("Vaskel")), "a file in the folder's place");
}

TEST_F(DomainCommandsTest, AddWithoutAFolderAnswer) {
    FileProviderError error;
    error.description = "not yet";
    {
        FolderAnswerService service(provider.service, error);
        StandIn<FileProviderService> standIn(service);
        EXPECT_EQ(runInProcess({"--add"}).lines,
                  (QStringList{"domain added: Vaskel", "visible URL unavailable: not yet"}));
    }
    FolderAnswerService silent(provider.service, std::nullopt);
    StandIn<FileProviderService> standIn(silent);
    EXPECT_EQ(runInProcess({"--add"}).lines, QStringList{"domain added: Vaskel"});
}

TEST_F(DomainCommandsTest, RemoveLetsTheServiceDecideAndKeepsFiles) {
    EXPECT_EQ(runInProcess({"--remove"}).lines,
              QStringList{"remove failed: no domain with identifier com.norva.vaskel.domain is "
                          "registered"});
    registerOurDomain();
    writeFile(folderOf("Vaskel") + "/keep.txt", "keep");
    EXPECT_EQ(runInProcess({"--remove"}).lines, QStringList{"domain removed"});
    EXPECT_EQ(runInProcess({"--list"}).lines, QStringList{"no domains registered"});
    EXPECT_EQ(readFile(folderOf("Vaskel") + "/keep.txt"), "keep");
}

TEST_F(DomainCommandsTest, ReconnectAndRefresh) {
    for (const char* option : {"--reconnect", "--refresh"}) {
        EXPECT_EQ(runInProcess({option}).lines, QStringList{NOT_REGISTERED}) << option;
    }
    provider.addDomain("other.domain", "Not ours");
    EXPECT_EQ(runInProcess({"--refresh"}).lines, QStringList{NOT_REGISTERED});

    registerOurDomain();
    provider.setDisconnected(DOMAIN_ID, true);
    EXPECT_EQ(runInProcess({"--reconnect"}).lines, QStringList{"reconnected"});
    EXPECT_EQ(runInProcess({"--list"}).lines.last(),
              "com.norva.vaskel.domain  \"Vaskel\"  hidden=false  disconnected=false  "
              "syncsTrash=false");
    EXPECT_EQ(runInProcess({"--refresh"}).lines, QStringList{"refresh signalled"});
    EXPECT_EQ(provider.workingSetSignals(DOMAIN_ID), 1);

    provider.setDisconnected(DOMAIN_ID, true);
    breakStateWrites();
    const auto reconnect = runInProcess({"--reconnect"});
    ASSERT_EQ(reconnect.lines.size(), 2);
    EXPECT_TRUE(reconnect.lines[0].startsWith("reconnect failed: could not lock the state folder"));
    EXPECT_TRUE(
        reconnect.lines[1].startsWith("  Error Domain=com.norva.vaskel.FileProviderError Code=2"));
    const auto refresh = runInProcess({"--refresh"});
    ASSERT_EQ(refresh.lines.size(), 1);
    EXPECT_TRUE(refresh.lines[0].startsWith("refresh failed: could not lock the state folder"));
}

TEST_F(DomainCommandsTest, WatchWithoutADomainEndsWithStatusOne) {
    const auto result = runInProcess({"--watch", "5"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.lines, QStringList{NOT_REGISTERED});
}

// Runs watchDomain until the extension has seen `signals` signals, then stops it.
QStringList watchUntil(testing_support::FakeFileProvider& provider, double interval,
                       qint64 signals) {
    const Output out = CommandOutput::capture();
    QEventLoop loop;
    auto* context = new QObject;
    int finished = -1;
    watchDomain(
        interval, out, [&](int status) { finished = status; }, context);
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        if (provider.workingSetSignals(DOMAIN_ID) >= signals || out->lines().size() > 2)
            loop.quit();
    });
    poll.start(10);
    QTimer::singleShot(std::chrono::seconds(30), &loop, [&] {
        ADD_FAILURE() << "the watch did not get that far";
        loop.quit();
    });
    loop.exec();
    delete context;
    EXPECT_EQ(finished, -1) << "the watch never ends by itself";
    return out->lines();
}

TEST_F(DomainCommandsTest, WatchSignalsAtOnceAndThenOnEveryInterval) {
    registerOurDomain();
    EXPECT_EQ(watchUntil(provider, 0.1, 3),
              QStringList{"watching: refreshing every 0s — ctrl-C to stop"});
    EXPECT_GE(provider.workingSetSignals(DOMAIN_ID), 3);

    breakStateWrites();
    const QStringList lines = watchUntil(provider, 0.1, 1000);
    ASSERT_GE(lines.size(), 3);
    EXPECT_TRUE(lines.contains("watching: refreshing every 0s — ctrl-C to stop"));
    for (const QString& line : lines) {
        if (!line.startsWith("watching")) {
            EXPECT_TRUE(line.startsWith("refresh failed: could not lock the state folder"));
        }
    }
}

}  // namespace
