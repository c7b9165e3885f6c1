#include <gtest/gtest.h>
#include <sys/stat.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <future>
#include <thread>

#include "platform/file_provider/local_file_provider_service.h"
#include "support/fake_file_provider.h"
#include "support/fake_platform.h"

using namespace platform;
using testing_support::FakeFileProvider;
using testing_support::FakePlatform;
using testing_support::waitFor;

namespace {

struct Identified {
    std::optional<QString> item;
    std::optional<QString> domain;
    std::optional<FileProviderError> error;
};

mode_t modeOf(const QString& path) {
    struct stat info {};
    if (::stat(QFile::encodeName(path).constData(), &info) != 0) return 0;
    return info.st_mode & 07777;
}

QByteArray contentsOf(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

void writeFile(const QString& path, const QByteArray& contents) {
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(contents);
}

class FileProviderServiceTest : public ::testing::Test {
protected:
    FakePlatform platform;
    QString stateDirectory = platform.root.path() + QStringLiteral("/state/fileprovider/app");
    FakeFileProvider provider{stateDirectory};
    LocalFileProviderService& service = provider.service;

    QString folderOf(const QString& name) {
        return platform.home.dir + QStringLiteral("/CloudStorage/Vaskel-") + name;
    }

    std::pair<QList<FileProviderDomain>, std::optional<FileProviderError>> domains() {
        std::promise<std::pair<QList<FileProviderDomain>, std::optional<FileProviderError>>> p;
        service.getDomains([&](auto list, auto error) { p.set_value({list, error}); });
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
        FileProviderDomain domain{id, name, false, false, true};
        return waitFor([&](ErrorCompletion done) { service.add(domain, done); });
    }
};

TEST_F(FileProviderServiceTest, RegistryPersistsAcrossServicesInOrderOfAdding) {
    ASSERT_FALSE(add(QStringLiteral("b.domain"), QStringLiteral("B")));
    ASSERT_FALSE(add(QStringLiteral("a.domain"), QStringLiteral("A")));
    // Adding again replaces in place and clears the disconnected flag.
    provider.setDisconnected(QStringLiteral("b.domain"), true);
    ASSERT_FALSE(add(QStringLiteral("b.domain"), QStringLiteral("B2")));

    LocalFileProviderService another(stateDirectory);
    std::promise<QList<FileProviderDomain>> p;
    another.getDomains([&](auto list, auto) { p.set_value(list); });
    const auto list = p.get_future().get();
    ASSERT_EQ(list.size(), 2);
    EXPECT_EQ(list[0], (FileProviderDomain{"b.domain", "B2", false, false, true}));
    EXPECT_EQ(list[1].identifier, QStringLiteral("a.domain"));

    EXPECT_EQ(modeOf(stateDirectory), 0700u);
    EXPECT_EQ(modeOf(provider.registryPath()), 0600u);
    EXPECT_EQ(modeOf(folderOf(QStringLiteral("B2"))), 0700u);
    EXPECT_TRUE(QFileInfo(folderOf(QStringLiteral("B"))).isDir()) << "old folder is kept";
}

TEST_F(FileProviderServiceTest, RemoveKeepsTheFolderAndRefusesUnknownDomains) {
    ASSERT_FALSE(add(QStringLiteral("d"), QStringLiteral("me@example.com")));
    writeFile(folderOf(QStringLiteral("me@example.com")) + QStringLiteral("/notes.txt"), "mine");

    const auto error = waitFor([&](ErrorCompletion done) {
        service.remove({QStringLiteral("d"), {}}, done);
    });
    EXPECT_FALSE(error);
    EXPECT_TRUE(domains().first.isEmpty());
    EXPECT_EQ(contentsOf(folderOf(QStringLiteral("me@example.com")) + QStringLiteral("/notes.txt")),
              "mine");

    const auto again = waitFor([&](ErrorCompletion done) {
        service.remove({QStringLiteral("d"), {}}, done);
    });
    ASSERT_TRUE(again);
    EXPECT_EQ(again->code, FileProviderError::noSuchDomain);
    EXPECT_EQ(again->localizedDescription(),
              QStringLiteral("no domain with identifier d is registered"));
    EXPECT_TRUE(again->fullDescription().startsWith(
        QStringLiteral("Error Domain=com.norva.vaskel.FileProviderError Code=3 \"no domain")));
}

TEST_F(FileProviderServiceTest, DamagedRegistryIsReportedByEveryCallAndNeverOverwritten) {
    const QList<QByteArray> damaged{"not json", "[]", "{\"domains\":{}}",
                                    "{\"domains\":[{\"displayName\":\"x\"}]}"};
    for (const QByteArray& contents : damaged) {
        SCOPED_TRACE(contents.constData());
        writeFile(provider.registryPath(), contents);
        const auto [list, error] = domains();
        EXPECT_TRUE(list.isEmpty());
        ASSERT_TRUE(error);
        EXPECT_EQ(error->code, FileProviderError::registryDamaged);
        EXPECT_TRUE(error->localizedDescription().contains(provider.registryPath()));

        const auto added = add(QStringLiteral("d"), QStringLiteral("D"));
        ASSERT_TRUE(added);
        EXPECT_EQ(added->code, FileProviderError::registryDamaged);
        EXPECT_TRUE(waitFor([&](ErrorCompletion done) { service.remove({"d", {}}, done); }));
        EXPECT_TRUE(waitFor([&](ErrorCompletion done) { service.signalWorkingSet("d", done); }));
        EXPECT_TRUE(identify(platform.home.dir).error);
        EXPECT_FALSE(service.isRegistered(QStringLiteral("d")));
        EXPECT_EQ(contentsOf(provider.registryPath()), contents);
    }
}

TEST_F(FileProviderServiceTest, UnwritableStateOrFolderFailsWithoutLosingAnything) {
    ASSERT_FALSE(add(QStringLiteral("d"), QStringLiteral("D")));
    const QByteArray before = contentsOf(provider.registryPath());
    ::chmod(QFile::encodeName(stateDirectory).constData(), 0500);
    if (QFile probe(stateDirectory + "/probe"); probe.open(QIODevice::WriteOnly)) {
        probe.remove();
        ::chmod(QFile::encodeName(stateDirectory).constData(), 0700);
        GTEST_SKIP() << "file modes do not bind this user";
    }
    const auto error = add(QStringLiteral("e"), QStringLiteral("E"));
    ::chmod(QFile::encodeName(stateDirectory).constData(), 0700);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, FileProviderError::stateNotWritable);
    EXPECT_EQ(contentsOf(provider.registryPath()), before);
}

TEST_F(FileProviderServiceTest, AStateFolderThatCannotBeCreatedFailsTheAdd) {
    writeFile(platform.root.path() + "/state/fileprovider", "a file where a folder belongs");
    const auto error = add(QStringLiteral("e"), QStringLiteral("E"));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, FileProviderError::stateNotWritable);
    EXPECT_EQ(contentsOf(platform.root.path() + "/state/fileprovider"),
              "a file where a folder belongs");
}

TEST_F(FileProviderServiceTest, AFileWhereTheFolderBelongsFailsTheAdd) {
    writeFile(folderOf(QStringLiteral("F")), "a file, not a folder");
    const auto error = add(QStringLiteral("f"), QStringLiteral("F"));
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, FileProviderError::folderUnavailable);
    EXPECT_TRUE(domains().first.isEmpty());
    EXPECT_EQ(contentsOf(folderOf(QStringLiteral("F"))), "a file, not a folder");
}

TEST_F(FileProviderServiceTest, DisplayNamesWithSlashesStayInsideCloudStorage) {
    ASSERT_FALSE(add(QStringLiteral("d"), QStringLiteral("../../etc/x")));
    EXPECT_TRUE(QFileInfo(folderOf(QStringLiteral("..-..-etc-x"))).isDir());
}

TEST_F(FileProviderServiceTest, CompletionsArriveOnTheServiceThread) {
    const auto caller = std::this_thread::get_id();
    std::promise<std::thread::id> first, second;
    service.getDomains([&](auto, auto) { first.set_value(std::this_thread::get_id()); });
    service.signalWorkingSet("none", [&](auto) { second.set_value(std::this_thread::get_id()); });
    const auto a = first.get_future().get();
    EXPECT_NE(a, caller);
    EXPECT_EQ(second.get_future().get(), a);
}

TEST_F(FileProviderServiceTest, SignalsReconnectAndEvictionsAreRecordedForTheExtension) {
    ASSERT_FALSE(add(QStringLiteral("d"), QStringLiteral("D")));
    platform.clock.now = 1000;
    EXPECT_FALSE(waitFor([&](ErrorCompletion done) { service.signalWorkingSet("d", done); }));
    platform.clock.now = 2000;
    EXPECT_FALSE(waitFor([&](ErrorCompletion done) { service.signalWorkingSet("d", done); }));
    EXPECT_EQ(provider.workingSetSignals("d"), 2);
    EXPECT_EQ(provider.lastSignalTime("d"), 2000);

    provider.setDisconnected("d", true);
    EXPECT_TRUE(domains().first[0].isDisconnected);
    EXPECT_FALSE(waitFor([&](ErrorCompletion done) { service.reconnect("d", done); }));
    EXPECT_FALSE(domains().first[0].isDisconnected);
    EXPECT_TRUE(waitFor([&](ErrorCompletion done) { service.reconnect("other", done); }));

    writeFile(folderOf("D") + "/docs/report.pdf", "pdf");
    EXPECT_FALSE(
        waitFor([&](ErrorCompletion done) { service.evictItem("d", "docs/report.pdf", done); }));
    EXPECT_FALSE(waitFor([&](ErrorCompletion done) {
        service.evictItem("d", ROOT_CONTAINER_ITEM_IDENTIFIER, done);
    }));
    for (const char* bad : {"docs/missing.pdf", "../D/docs/report.pdf", "/etc/passwd", ""}) {
        const auto error =
            waitFor([&](ErrorCompletion done) { service.evictItem("d", bad, done); });
        ASSERT_TRUE(error) << bad;
        EXPECT_EQ(error->code, FileProviderError::noSuchItem);
    }
    EXPECT_EQ(provider.evictionRequests("d"),
              (QStringList{"docs/report.pdf", ROOT_CONTAINER_ITEM_IDENTIFIER}));
    EXPECT_EQ(contentsOf(folderOf("D") + "/docs/report.pdf"), "pdf") << "eviction deletes nothing";
}

TEST_F(FileProviderServiceTest, UserVisibleURLRecreatesAMissingFolder) {
    ASSERT_FALSE(add(QStringLiteral("d"), QStringLiteral("D")));
    QDir(folderOf("D")).removeRecursively();
    std::promise<std::optional<QString>> p;
    service.userVisibleURL("d", [&](auto url, auto) { p.set_value(url); });
    EXPECT_EQ(p.get_future().get(), folderOf("D"));
    EXPECT_TRUE(QFileInfo(folderOf("D")).isDir());
}

TEST_F(FileProviderServiceTest, IdentifiesPathsInsideRegisteredFolders) {
    ASSERT_FALSE(add(QStringLiteral("d"), QStringLiteral("D")));
    const QString folder = folderOf("D");
    writeFile(folder + "/with space/a file.txt", "x");
    writeFile(platform.root.path() + "/outside/file.txt", "x");
    QFile::link(folder, platform.root.path() + "/link-to-folder");
    QFile::link(platform.root.path() + "/outside/file.txt", folder + "/link-out");

    const QString previous = QDir::currentPath();
    QDir::setCurrent(folder + "/with space");
    struct Case {
        QString path;
        std::optional<QString> item;
    };
    const std::vector<Case> cases{
        {folder, QString(ROOT_CONTAINER_ITEM_IDENTIFIER)},
        {folder + "/", QString(ROOT_CONTAINER_ITEM_IDENTIFIER)},
        {folder + "/with space/a file.txt", QStringLiteral("with space/a file.txt")},
        {QStringLiteral("a file.txt"), QStringLiteral("with space/a file.txt")},
        {QStringLiteral(".."), QString(ROOT_CONTAINER_ITEM_IDENTIFIER)},
        {platform.root.path() + "/link-to-folder/with space", QStringLiteral("with space")},
        {folder + "/link-out", QStringLiteral("link-out")},
        {platform.root.path() + "/outside/file.txt", std::nullopt},
        {folder + "/missing.txt", std::nullopt},
        {platform.root.path() + "/no/such/dir/x", std::nullopt},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path.toStdString());
        const Identified result = identify(c.path);
        EXPECT_EQ(result.item, c.item);
        if (c.item) {
            EXPECT_EQ(result.domain, QStringLiteral("d"));
        } else {
            ASSERT_TRUE(result.error);
            EXPECT_TRUE(result.error->localizedDescription().startsWith(c.path));
        }
    }
    QDir::setCurrent(previous);
    EXPECT_EQ(identify(platform.root.path() + "/outside/file.txt").error->code,
              FileProviderError::notInDomain);
    EXPECT_EQ(identify(folder + "/missing.txt").error->code, FileProviderError::noSuchItem);
}

TEST_F(FileProviderServiceTest, GlobalProgressReadsWhatTheExtensionReports) {
    ASSERT_FALSE(add(QStringLiteral("d"), QStringLiteral("D")));
    const auto down = service.globalProgress("d", FileOperationKind::downloading);
    const auto up = service.globalProgress("d", FileOperationKind::uploading);
    EXPECT_TRUE(down->snapshot().isFinished) << "nothing reported";

    provider.reportProgress(
        "d", FileOperationKind::downloading,
        {{"completedUnitCount", 5}, {"totalUnitCount", 10}, {"pausable", true}});
    provider.reportProgress("d", FileOperationKind::uploading,
                            {{"completedUnitCount", 0}, {"totalUnitCount", 0}});
    ProgressSnapshot d = down->snapshot();
    EXPECT_FALSE(d.isFinished);
    EXPECT_EQ(d.completedUnitCount, 5);
    EXPECT_EQ(d.totalUnitCount, 10);
    EXPECT_TRUE(d.isPausable);
    EXPECT_FALSE(d.isPaused);
    EXPECT_FALSE(up->snapshot().isFinished) << "0 of 0 is not finished";

    provider.reportProgress(
        "d", FileOperationKind::downloading,
        {{"completedUnitCount", 1e300}, {"totalUnitCount", 10}, {"finished", true}});
    d = down->snapshot();
    EXPECT_TRUE(d.isFinished);
    EXPECT_EQ(d.completedUnitCount, std::numeric_limits<qint64>::max());
}

}  // namespace
