#pragma once

#include <sys/types.h>

#include <QByteArray>
#include <QString>

// Plain file access for checking what the code under test left on disk.
namespace testing_support {

/// Writes `contents` to `path`, creating the missing folders; fails the test when it cannot.
void writeFile(const QString& path, const QByteArray& contents);

/// The bytes at `path`, or "<missing>" when it cannot be read.
QByteArray readFile(const QString& path);

/// The permission bits of `path`, 0 when it is absent.
mode_t fileMode(const QString& path);

}  // namespace testing_support
