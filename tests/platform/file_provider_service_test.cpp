#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <QJsonObject>
#include <thread>

#include "support/command_fixture.h"

using namespace platform;
using namespace testing_support;

namespace {

constexpr qint64 MAX = std::numeric_limits<qint64>::max();
constexpr auto DAMAGED = FileProviderError::registryDamaged;

int code(const std::optional<FileProviderError>& error) {
    return error ? error->code : -1;
}

class FileProviderServiceTest : public CommandFixture {
protected:
    LocalFileProviderService& service = provider.service;
    QString state = service.stateDirectory();

    std::pair<QList<FileProviderDomain>, std::optional<FileProviderError>> domains() {
        std::promise<std::pair<QList<FileProviderDomain>, std::optional<FileProviderError>>> p;
        service.getDomains([&, caller = std::this_thread::get_id()](auto list, auto error) {
            EXPECT_NE(std::this_thread::get_id(), caller) << "answers on the service's thread";
            p.set_value({list, error});
        });
        return p.get_future().get();
    }
    std::optional<FileProviderError> add(const QString& id, const QString& name) {
        return waitFor([&](auto done) { service.add({id, name, false, false, true}, done); });
    }
    std::optional<FileProviderError> remove(const QString& id) {
        return waitFor([&](auto done) { service.remove({id, {}}, done); });
    }
    std::optional<FileProviderError> signal(const QString& id) {
        return waitFor([&](auto done) { service.signalWorkingSet(id, done); });
    }
};

TEST_F(FileProviderServiceTest, RegistryPersistsPrivatelyAndRemovingKeepsTheFolder) {
    ASSERT_FALSE(add("b.domain", "B"));
    ASSERT_FALSE(add("a.domain", "A"));
    // Adding again replaces in place and clears the disconnected flag.
    ASSERT_FALSE(provider.extension.setDisconnected("b.domain", true));
    ASSERT_FALSE(add("b.domain", "B2"));
    EXPECT_EQ(domains().first, (QList<FileProviderDomain>{{"b.domain", "B2", false, false, true},
                                                          {"a.domain", "A", false, false, true}}));
    EXPECT_EQ(
        std::tuple(fileMode(state), fileMode(provider.registryPath()), fileMode(folderOf("B2"))),
        std::tuple(0700u, 0600u, 0700u));
    EXPECT_TRUE(QFileInfo(folderOf("B")).isDir()) << "old folder is kept";

    writeFile(folderOf("A") + "/notes.txt", "mine");
    EXPECT_FALSE(remove("a.domain"));
    EXPECT_EQ(domains().first.size(), 1);
    EXPECT_EQ(readFile(folderOf("A") + "/notes.txt"), "mine");
    EXPECT_EQ(code(remove("a.domain")), FileProviderError::noSuchDomain);
}

TEST_F(FileProviderServiceTest, DamagedOrUnusableStateFailsWithoutLosingAnything) {
    for (const QByteArray contents : {"not json", "[]", R"({"domains":[{"displayName":"x"}]})"}) {
        writeFile(provider.registryPath(), contents);
        const auto [list, error] = domains();
        EXPECT_TRUE(error && error->localizedDescription().contains(provider.registryPath()));
        EXPECT_EQ(std::tuple(list.size(), code(error), code(add("d", "D")), code(signal("d")) != -1,
                             service.isRegistered("d"), readFile(provider.registryPath())),
                  std::tuple(0, DAMAGED, DAMAGED, true, false, contents));
    }
    QDir(state).removeRecursively();
    writeFile(state, "a file where a folder belongs");
    EXPECT_EQ(code(add("e", "E")), FileProviderError::stateNotWritable);
    EXPECT_EQ(readFile(state), "a file where a folder belongs");
    QFile::remove(state);

    ASSERT_FALSE(add("d", "../../etc/x"));
    EXPECT_TRUE(QFileInfo(folderOf("..-..-etc-x")).isDir()) << "slashes stay inside CloudStorage";

    // A writer gives up on a lock another process keeps.
    const int holder = ::open(QFile::encodeName(state + "/.lock").constData(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(::flock(holder, LOCK_EX), 0);
    const file_provider_state::StateLock waiting(state, std::chrono::milliseconds(50));
    EXPECT_EQ(code(waiting.error()), FileProviderError::stateNotWritable);
    EXPECT_TRUE(waiting.error()
                    .value_or(FileProviderError{})
                    .localizedDescription()
                    .endsWith("still held by another process after 0.05 s"));
    ::close(holder);
    EXPECT_FALSE(file_provider_state::StateLock(state).error()) << "free again";
}

TEST_F(FileProviderServiceTest, SignalsAndEvictionsAreRecordedForTheExtension) {
    ASSERT_FALSE(add("d", "D"));
    platform.clock.now = 1000;
    EXPECT_FALSE(signal("d"));
    platform.clock.now = 2000;
    EXPECT_FALSE(signal("d"));
    EXPECT_EQ(std::pair(provider.workingSetSignals("d"), provider.extension.lastSignalTime("d")),
              std::pair(qint64(2), 2000.0));
    EXPECT_TRUE(waitFor([&](auto done) { service.reconnect("other", done); }));

    writeFile(folderOf("D") + "/docs/report.pdf", "pdf");
    const auto evict = [&](const QString& item) {
        return waitFor([&](auto done) { service.evictItem("d", item, done); });
    };
    EXPECT_FALSE(evict(ROOT_CONTAINER_ITEM_IDENTIFIER));
    for (const char* bad : {"docs/missing.pdf", "../D/docs/report.pdf", "/etc/passwd", ""})
        EXPECT_EQ(code(evict(bad)), FileProviderError::noSuchItem) << bad;
    EXPECT_EQ(provider.extension.evictionRequests("d"),
              QStringList{ROOT_CONTAINER_ITEM_IDENTIFIER});
    EXPECT_EQ(readFile(folderOf("D") + "/docs/report.pdf"), "pdf") << "eviction deletes nothing";

    QDir(folderOf("D")).removeRecursively();
    std::promise<std::optional<QString>> url;
    service.userVisibleURL("d", [&](auto folder, auto) { url.set_value(folder); });
    EXPECT_EQ(url.get_future().get(), folderOf("D"));
    EXPECT_TRUE(QFileInfo(folderOf("D")).isDir()) << "asking for the folder recreates it";
}

TEST_F(FileProviderServiceTest, GlobalProgressReadsWhatTheExtensionReports) {
    ASSERT_FALSE(add("d", "D"));
    const auto down = service.globalProgress("d", FileOperationKind::downloading);
    EXPECT_TRUE(down->snapshot().isFinished) << "nothing reported";
    // counts as left by the extension; completed and finished as read
    const std::tuple<QJsonObject, qint64, bool> cases[] = {
        {{{"completedUnitCount", 0}, {"totalUnitCount", 0}}, 0, false},  // 0 of 0 is not done
        {{{"completedUnitCount", 10}, {"totalUnitCount", 10}}, 10, true},
        {{{"completedUnitCount", 1e300}, {"totalUnitCount", 10}, {"finished", false}}, MAX, false},
    };
    for (const auto& [counts, completed, finished] : cases) {
        ASSERT_FALSE(provider.extension.reportProgress("d", "downloading", counts));
        EXPECT_EQ(std::pair(down->snapshot().completedUnitCount, down->snapshot().isFinished),
                  std::pair(completed, finished));
    }
    EXPECT_TRUE(service.globalProgress("d", FileOperationKind::uploading)->snapshot().isFinished);
}

}  // namespace
