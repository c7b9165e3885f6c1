#include "platform/files.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QTemporaryDir>
#include <thread>

#include "support/qt_printing.h"
#include "support/test_files.h"

using testing_support::fileMode;

namespace {

// The names in `folder`, hidden ones included.
QStringList entries(const QString& folder) {
    return QDir(folder).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden,
                                  QDir::Name);
}

TEST(MakeDirectories, CreatesEveryMissingLevelWithTheModeAndKeepsExistingOnes) {
    QTemporaryDir root;
    const QString kept = root.path() + "/kept";
    QDir().mkpath(kept);
    ::chmod(QFile::encodeName(kept).constData(), 0755);
    ::umask(0);
    EXPECT_EQ(platform::makeDirectories(kept + "/a/b", 0700), std::nullopt);
    ::umask(022);
    EXPECT_EQ((std::vector{fileMode(kept), fileMode(kept + "/a"), fileMode(kept + "/a/b")}),
              (std::vector<mode_t>{0755, 0700, 0700}));
    EXPECT_EQ(platform::makeDirectories(kept + "/a", 0700), std::nullopt);
    testing_support::writeFile(root.path() + "/file", "x");
    EXPECT_EQ(platform::makeDirectories(root.path() + "/file/sub", 0700),
              root.path() + "/file: Not a directory");
}

TEST(ReadSmallFile, RefusesWhatIsNotASmallRegularFile) {
    QTemporaryDir root;
    const QString path = root.path() + "/f";
    ASSERT_EQ(::mkfifo(QFile::encodeName(root.path() + "/fifo").constData(), 0600), 0);
    for (const QString& refused : {path, root.path() + "/fifo"})  // a FIFO, at once
        EXPECT_EQ(platform::readSmallFile(refused), std::nullopt) << refused.toStdString();
    testing_support::writeFile(path, QByteArray(100, 'x'));
    EXPECT_EQ(platform::readSmallFile(path, 100), QByteArray(100, 'x'));
    EXPECT_EQ(platform::readSmallFile(path, 99), std::nullopt) << "over the limit";
    EXPECT_FALSE(platform::readSmallFile("/proc/self/status", 1 << 20).value_or("").isEmpty())
        << "files whose size the kernel reports as 0 are read to their end";
}

TEST(WriteFileAtomically, ReplacesContentsAndModeOrLeavesEverythingAsItWas) {
    QTemporaryDir root;
    const QString path = root.path() + "/state.json";
    ASSERT_EQ(platform::writeFileAtomically(path, "one", 0644), std::nullopt);
    EXPECT_EQ(fileMode(path), 0644u);
    ASSERT_EQ(platform::writeFileAtomically(path, "two", 0600), std::nullopt);
    EXPECT_EQ(platform::readSmallFile(path), "two");
    EXPECT_EQ(fileMode(path), 0600u);

    // A non-empty directory cannot be replaced by a file: the rename fails after the write.
    const QString target = root.path() + "/target";
    QDir().mkpath(target + "/inside");
    const auto error = platform::writeFileAtomically(target, "data", 0600);
    EXPECT_TRUE(error.value_or("").startsWith(target + ": ")) << error.value_or("").toStdString();
    EXPECT_TRUE(QFileInfo(target + "/inside").isDir());
    EXPECT_EQ(entries(root.path()), (QStringList{"state.json", "target"}));
    EXPECT_TRUE(platform::writeFileAtomically(root.path() + "/missing/f", "data", 0600));
}

TEST(WriteFileAtomically, TemporariesOfKilledWritersDoNotPileUp) {
    QTemporaryDir root;
    const QString path = root.path() + "/config.json";
    for (const char* unrelated : {"/config.json.backup", "/.config.json.swp", "/other.json"})
        testing_support::writeFile(root.path() + unrelated, "keep");
    // Writers killed at random points, most of them between creating and renaming their
    // temporary file: the writes are large and synced, so that window is most of a write.
    const QByteArray contents(1 << 20, 'k');
    for (int kill = 0; kill < 20; ++kill) {
        const pid_t writer = ::fork();
        ASSERT_GE(writer, 0);
        if (writer == 0) {
            for (;;) platform::writeFileAtomically(path, contents, 0600);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5 + kill % 7 * 3));
        ::kill(writer, SIGKILL);
        ::waitpid(writer, nullptr, 0);
    }
    ASSERT_EQ(platform::writeFileAtomically(path, "{}", 0600), std::nullopt);
    EXPECT_EQ(platform::readSmallFile(path), "{}");
    EXPECT_EQ(entries(root.path()),
              (QStringList{".config.json.swp", "config.json", "config.json.backup", "other.json"}));
}

}  // namespace
