#pragma once

#include <sys/types.h>
#include <QByteArray>
#include <QString>
#include <optional>

// Small POSIX file helpers with the guarantees the configuration and state files need.
namespace platform {

/// True when something (file, directory, device) exists at `path`, following symbolic links.
bool pathExists(const QString& path);

/// Reads a whole regular file of at most `maxBytes`. None when the file is missing, unreadable,
/// not a regular file or larger than `maxBytes`.
std::optional<QByteArray> readSmallFile(const QString& path, qint64 maxBytes = 4 * 1024 * 1024);

/// Creates `path` and any missing parents, each new directory with `mode`. Existing directories
/// keep their mode. Returns an error description, or none on success.
std::optional<QString> makeDirectories(const QString& path, mode_t mode);

/// Replaces the file at `path` with `contents` so that a reader sees either the old or the new
/// file, never a part of one, and the new file survives a crash: a temporary file created with
/// `mode` in the same directory (so the contents are never more readable than `mode`), written,
/// synced, renamed over `path`, then the directory synced. On any failure `path` is untouched, the
/// temporary file is removed, and the error is described ("<path>: <reason>"). Temporary files
/// that earlier writers of `path` left behind when they died before the rename are removed; those
/// of writers still at work are left alone.
std::optional<QString> writeFileAtomically(const QString& path, const QByteArray& contents,
                                           mode_t mode);

}  // namespace platform
