#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>

// Plain file access for checking what the code under test left on disk.
namespace testing_support {

/// Writes `contents` to `path`, creating the missing folders; fails the test when it cannot.
inline void writeFile(const QString& path, const QByteArray& contents) {
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate)) << path.toStdString();
    ASSERT_EQ(file.write(contents), contents.size()) << path.toStdString();
}

/// The bytes at `path`, or "<missing>" when it cannot be read.
inline QByteArray readFile(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

/// The permission bits of `path`, 0 when it is absent.
inline mode_t fileMode(const QString& path) {
    struct stat info {};
    return ::stat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_mode & 07777 : 0;
}

}  // namespace testing_support
