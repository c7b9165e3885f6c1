#include "platform/files.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

namespace {

mode_t modeOf(const QString& path) {
    struct stat info {};
    return ::stat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_mode & 07777 : 0;
}

TEST(MakeDirectories, CreatesEveryMissingLevelWithTheModeAndKeepsExistingOnes) {
    QTemporaryDir root;
    QDir().mkpath(root.path() + "/kept");
    QFile::setPermissions(root.path() + "/kept",
                          QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner |
                              QFileDevice::ReadOther | QFileDevice::ExeOther);
    const mode_t before = modeOf(root.path() + "/kept");
    ::umask(0);
    EXPECT_EQ(platform::makeDirectories(root.path() + "/kept/a/b/c", 0700), std::nullopt);
    ::umask(022);
    EXPECT_EQ(modeOf(root.path() + "/kept"), before);
    for (const char* level : {"/kept/a", "/kept/a/b", "/kept/a/b/c"}) {
        EXPECT_EQ(modeOf(root.path() + level), 0700u) << level;
    }
    EXPECT_EQ(platform::makeDirectories(root.path() + "/kept/a", 0700), std::nullopt)
        << "existing is fine";
}

TEST(MakeDirectories, AFileInTheWayIsAnError) {
    QTemporaryDir root;
    QFile file(root.path() + "/file");
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    const auto error = platform::makeDirectories(root.path() + "/file/sub", 0700);
    ASSERT_TRUE(error);
    EXPECT_TRUE(error->contains("Not a directory")) << error->toStdString();
}

TEST(ReadSmallFile, RefusesWhatIsNotASmallRegularFile) {
    QTemporaryDir root;
    const QString path = root.path() + "/f";
    EXPECT_EQ(platform::readSmallFile(path), std::nullopt) << "missing";
    EXPECT_EQ(platform::readSmallFile(root.path()), std::nullopt) << "a directory";
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(QByteArray(100, 'x'));
    file.close();
    EXPECT_EQ(platform::readSmallFile(path, 100), QByteArray(100, 'x'));
    EXPECT_EQ(platform::readSmallFile(path, 99), std::nullopt) << "over the limit";
    EXPECT_EQ(platform::readSmallFile("/proc/self/status", 1 << 20).value_or("").isEmpty(), false)
        << "files whose size the kernel reports as 0 are read to their end";
}

TEST(WriteFileAtomically, ReplacesContentsAndMode) {
    QTemporaryDir root;
    const QString path = root.path() + "/state.json";
    ASSERT_EQ(platform::writeFileAtomically(path, "one", 0644), std::nullopt);
    EXPECT_EQ(modeOf(path), 0644u);
    ASSERT_EQ(platform::writeFileAtomically(path, "two", 0600), std::nullopt);
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), "two");
    EXPECT_EQ(modeOf(path), 0600u);
    EXPECT_EQ(QDir(root.path()).entryList(QDir::Files | QDir::Hidden), QStringList{"state.json"});
}

TEST(WriteFileAtomically, FailureLeavesTargetAndNoTemporaryFile) {
    QTemporaryDir root;
    // A non-empty directory cannot be replaced by a file: the rename fails after the write.
    const QString target = root.path() + "/target";
    QDir().mkpath(target + "/inside");
    const auto error = platform::writeFileAtomically(target, "data", 0600);
    ASSERT_TRUE(error);
    EXPECT_TRUE(error->startsWith(target + ": ")) << error->toStdString();
    EXPECT_TRUE(QFileInfo(target + "/inside").isDir());
    EXPECT_EQ(QDir(root.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden),
              QStringList{"target"});

    const auto noFolder = platform::writeFileAtomically(root.path() + "/missing/f", "data", 0600);
    ASSERT_TRUE(noFolder);
    EXPECT_TRUE(noFolder->contains("No such file or directory")) << noFolder->toStdString();
}

}  // namespace
