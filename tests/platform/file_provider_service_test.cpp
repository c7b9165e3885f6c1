#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <future>
#include <limits>
#include <thread>

#include "platform/file_provider/domain_registry.h"
#include "platform/file_provider/local_file_provider_service.h"
#include "support/fake_file_provider.h"
#include "support/fake_platform.h"
#include "support/test_files.h"

using namespace platform;
using testing_support::waitFor;

using testing_support::fileMode;
using testing_support::readFile;
using testing_support::writeFile;

namespace {

struct Identified {
    std::optional<QString> item, domain;
    std::optional<FileProviderError> error;
};

class FileProviderServiceTest : public ::testing::Test {
protected:
    testing_support::FakePlatform platform;
    QString stateDirectory = platform.root.path() + QStringLiteral("/state/fileprovider/app");
    testing_support::FakeFileProvider provider{stateDirectory};
    LocalFileProviderService& service = provider.service;

    QString folderOf(const QString& name) {
        return platform.home.dir + QStringLiteral("/CloudStorage/Vaskel-") + name;
    }
    std::pair<QList<FileProviderDomain>, std::optional<FileProviderError>> domains() {
        std::promise<std::pair<QList<FileProviderDomain>, std::optional<FileProviderError>>> p;
        service.getDomains([&, caller = std::this_thread::get_id()](auto list, auto error) {
            EXPECT_NE(std::this_thread::get_id(), caller) << "answers on the service's thread";
            p.set_value({list, error});
        });
        return p.get_future().get();
    }
    Identified identify(const QString& path) {
        std::promise<Identified> p;
        service.identifierForUserVisibleFile(path, [&](auto item, auto domain, auto error) {
            p.set_value({item, domain, error});
        });
        return p.get_future().get();
    }
    std::optional<FileProviderError> add(const QString& id, const QString& name) {
        return waitFor([&](ErrorCompletion done) {
            service.add({id, name, false, false, true}, done);
        });
    }
    std::optional<FileProviderError> remove(const QString& id) {
        return waitFor([&](ErrorCompletion done) { service.remove({id, {}}, done); });
    }
    std::optional<FileProviderError> signal(const QString& id) {
        return waitFor([&](ErrorCompletion done) { service.signalWorkingSet(id, done); });
    }
};

TEST_F(FileProviderServiceTest, RegistryPersistsPrivatelyAndRemovingKeepsTheFolder) {
    ASSERT_FALSE(add("b.domain", "B"));
    ASSERT_FALSE(add("a.domain", "A"));
    // Adding again replaces in place and clears the disconnected flag.
    ASSERT_FALSE(provider.extension.setDisconnected("b.domain", true));
    ASSERT_FALSE(add("b.domain", "B2"));

    const auto list = domains().first;
    ASSERT_EQ(list.size(), 2);
    EXPECT_EQ(list[0], (FileProviderDomain{"b.domain", "B2", false, false, true}));
    EXPECT_EQ(list[1].identifier, "a.domain");
    EXPECT_EQ(fileMode(stateDirectory), 0700u);
    EXPECT_EQ(fileMode(provider.registryPath()), 0600u);
    EXPECT_EQ(fileMode(folderOf("B2")), 0700u);
    EXPECT_TRUE(QFileInfo(folderOf("B")).isDir()) << "old folder is kept";

    writeFile(folderOf("A") + "/notes.txt", "mine");
    EXPECT_FALSE(remove("a.domain"));
    EXPECT_EQ(domains().first.size(), 1);
    EXPECT_EQ(readFile(folderOf("A") + "/notes.txt"), "mine");
    EXPECT_EQ(remove("a.domain")->code, FileProviderError::noSuchDomain);
}

TEST_F(FileProviderServiceTest, DamagedRegistryIsReportedByEveryCallAndNeverOverwritten) {
    for (const QByteArray contents :
         {"not json", "[]", "{\"domains\":[{\"displayName\":\"x\"}]}"}) {
        SCOPED_TRACE(contents.constData());
        writeFile(provider.registryPath(), contents);
        const auto [list, error] = domains();
        EXPECT_TRUE(list.isEmpty());
        ASSERT_TRUE(error);
        EXPECT_EQ(error->code, FileProviderError::registryDamaged);
        EXPECT_TRUE(error->localizedDescription().contains(provider.registryPath()));
        EXPECT_EQ(add("d", "D")->code, FileProviderError::registryDamaged);
        EXPECT_TRUE(signal("d"));
        EXPECT_FALSE(service.isRegistered("d"));
        EXPECT_EQ(readFile(provider.registryPath()), contents);
    }
}

TEST_F(FileProviderServiceTest, UnusableStateOrFolderFailsWithoutLosingAnything) {
    const QString blocker = platform.root.path() + "/state/fileprovider";
    writeFile(blocker, "a file where a folder belongs");
    EXPECT_EQ(add("e", "E")->code, FileProviderError::stateNotWritable);
    EXPECT_EQ(readFile(blocker), "a file where a folder belongs");
    QFile::remove(blocker);

    writeFile(folderOf("F"), "a file, not a folder");
    EXPECT_EQ(add("f", "F")->code, FileProviderError::folderUnavailable);
    EXPECT_TRUE(domains().first.isEmpty());
    EXPECT_EQ(readFile(folderOf("F")), "a file, not a folder");

    ASSERT_FALSE(add("d", "../../etc/x"));
    EXPECT_TRUE(QFileInfo(folderOf("..-..-etc-x")).isDir()) << "slashes stay inside CloudStorage";
}

TEST_F(FileProviderServiceTest, AWriterGivesUpOnALockAnotherProcessKeeps) {
    ASSERT_FALSE(add("d", "D"));
    const QString lockPath = stateDirectory + "/.lock";
    const int holder = ::open(QFile::encodeName(lockPath).constData(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(::flock(holder, LOCK_EX), 0);
    {
        const file_provider_state::StateLock waiting(stateDirectory, std::chrono::milliseconds(50));
        ASSERT_TRUE(waiting.error());
        EXPECT_EQ(waiting.error()->code, FileProviderError::stateNotWritable);
        EXPECT_TRUE(waiting.error()->localizedDescription().endsWith(
            "still held by another process after 0.05 s"));
    }
    ::close(holder);
    EXPECT_FALSE(file_provider_state::StateLock(stateDirectory).error()) << "free again";
}

TEST_F(FileProviderServiceTest, SignalsReconnectAndEvictionsAreRecordedForTheExtension) {
    ASSERT_FALSE(add("d", "D"));
    for (const double now : {1000.0, 2000.0}) {
        platform.clock.now = now;
        EXPECT_FALSE(signal("d"));
    }
    EXPECT_EQ(provider.workingSetSignals("d"), 2);
    EXPECT_EQ(provider.extension.lastSignalTime("d"), 2000);
    // Whatever count the file holds, the next signal counts on without overflowing.
    const QString signalsPath =
        file_provider_state::domainStateDirectory(stateDirectory, "d") + "/signals.json";
    for (const auto& [stored, expected] :
         {std::pair{std::numeric_limits<qint64>::max(), std::numeric_limits<qint64>::max()},
          {-7, 1}}) {
        writeFile(
            signalsPath,
            QJsonDocument(QJsonObject{{"workingSet", QJsonObject{{"count", stored}}}}).toJson());
        EXPECT_FALSE(signal("d"));
        EXPECT_EQ(provider.workingSetSignals("d"), expected) << stored;
    }

    EXPECT_TRUE(waitFor([&](ErrorCompletion done) { service.reconnect("other", done); }));

    writeFile(folderOf("D") + "/docs/report.pdf", "pdf");
    const auto evict = [&](const QString& item) {
        return waitFor([&](ErrorCompletion done) { service.evictItem("d", item, done); });
    };
    EXPECT_FALSE(evict("docs/report.pdf"));
    EXPECT_FALSE(evict(ROOT_CONTAINER_ITEM_IDENTIFIER));
    for (const char* bad : {"docs/missing.pdf", "../D/docs/report.pdf", "/etc/passwd", ""}) {
        const auto error = evict(bad);
        ASSERT_TRUE(error) << bad;
        EXPECT_EQ(error->code, FileProviderError::noSuchItem);
    }
    EXPECT_EQ(provider.extension.evictionRequests("d"),
              (QStringList{"docs/report.pdf", ROOT_CONTAINER_ITEM_IDENTIFIER}));
    EXPECT_EQ(readFile(folderOf("D") + "/docs/report.pdf"), "pdf") << "eviction deletes nothing";

    QDir(folderOf("D")).removeRecursively();
    std::promise<std::optional<QString>> url;
    service.userVisibleURL("d", [&](auto folder, auto) { url.set_value(folder); });
    EXPECT_EQ(url.get_future().get(), folderOf("D"));
    EXPECT_TRUE(QFileInfo(folderOf("D")).isDir()) << "asking for the folder recreates it";
}

TEST_F(FileProviderServiceTest, IdentifiesPathsInsideRegisteredFolders) {
    ASSERT_FALSE(add("d", "D"));
    const QString folder = folderOf("D"), root = platform.root.path();
    ASSERT_TRUE(QDir().mkpath(folder + "/with space"));
    writeFile(root + "/outside/file.txt", "x");
    QFile::link(folder, root + "/link-to-folder");
    QFile::link(root + "/outside/file.txt", folder + "/link-out");

    const QString previous = QDir::currentPath();
    QDir::setCurrent(folder + "/with space");
    const QString top = ROOT_CONTAINER_ITEM_IDENTIFIER;
    const std::pair<QString, std::optional<QString>> cases[] = {
        {folder, top},
        {folder + "/", top},
        {"..", top},
        {root + "/link-to-folder/with space", "with space"},
        {folder + "/link-out", "link-out"},
        {root + "/outside/file.txt", std::nullopt},
        {root + "/no/such/dir/x", std::nullopt},
    };
    for (const auto& [path, item] : cases) {
        SCOPED_TRACE(path.toStdString());
        const Identified result = identify(path);
        EXPECT_EQ(result.item, item);
        if (item) {
            EXPECT_EQ(result.domain, "d");
        } else {
            ASSERT_TRUE(result.error);
            EXPECT_TRUE(result.error->localizedDescription().startsWith(path));
        }
    }
    QDir::setCurrent(previous);
}

TEST_F(FileProviderServiceTest, GlobalProgressReadsWhatTheExtensionReports) {
    ASSERT_FALSE(add("d", "D"));
    const auto down = service.globalProgress("d", FileOperationKind::downloading);
    EXPECT_TRUE(down->snapshot().isFinished) << "nothing reported";
    // counts as left by the extension; completed and finished as read
    const std::tuple<QJsonObject, qint64, bool> cases[] = {
        {{{"completedUnitCount", 0}, {"totalUnitCount", 0}}, 0, false},  // 0 of 0 is not done
        {{{"completedUnitCount", 10}, {"totalUnitCount", 10}}, 10, true},
        {{{"completedUnitCount", 1e300}, {"totalUnitCount", 10}, {"finished", false}},
         std::numeric_limits<qint64>::max(),
         false},  // the extension's word counts
    };
    for (const auto& [counts, completed, finished] : cases) {
        ASSERT_FALSE(provider.extension.reportProgress("d", "downloading", counts));
        EXPECT_EQ(down->snapshot().completedUnitCount, completed);
        EXPECT_EQ(down->snapshot().isFinished, finished) << completed;
    }
    EXPECT_TRUE(service.globalProgress("d", FileOperationKind::uploading)->snapshot().isFinished);
}

}  // namespace
