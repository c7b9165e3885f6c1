#include "platform/files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QFile>
#include <cerrno>
#include <cstring>

namespace platform {
namespace {

QString describe(const QString& path, int error) {
    return QStringLiteral("%1: %2").arg(path, QString::fromLocal8Bit(std::strerror(error)));
}

// Writes all of `data`, retrying short writes and interruptions.
bool writeAll(int fd, const char* data, size_t size) {
    while (size > 0) {
        ssize_t n = ::write(fd, data, size);
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        data += n;
        size -= size_t(n);
    }
    return true;
}

QString directoryOf(const QString& path) {
    int slash = path.lastIndexOf(QLatin1Char('/'));
    if (slash < 0) return QStringLiteral(".");
    if (slash == 0) return QStringLiteral("/");
    return path.left(slash);
}

// Temporary files of `writeFileAtomically` are hidden and carry a tag that nothing else uses:
// ".<name>.vaskel-tmp-" followed by mkstemp's six characters.
QByteArray temporaryPrefix(const QString& path) {
    const int slash = path.lastIndexOf(QLatin1Char('/'));
    return '.' + QFile::encodeName(path.mid(slash + 1)) + ".vaskel-tmp-";
}

bool lockExclusively(int fd) {
    while (::flock(fd, LOCK_EX) != 0) {
        if (errno != EINTR) return false;
    }
    return true;
}

// Removes the temporary files that writers of the same file left when they died before renaming
// (a kill, a crash, a power cut): each holds a whole copy of the contents, which for the
// configuration includes the account key. A writer holds a lock on its temporary file until the
// rename, and the kernel drops the lock with the process, so a file that can be locked has no
// writer any more. Failures are ignored: the next writer tries again.
void removeAbandonedTemporaries(const QByteArray& directory, const QByteArray& prefix) {
    DIR* listing = ::opendir(directory.constData());
    if (!listing) return;
    const int directoryFd = ::dirfd(listing);
    const size_t nameLength = size_t(prefix.size()) + 6;
    while (const dirent* entry = ::readdir(listing)) {
        if (std::strlen(entry->d_name) != nameLength ||
            std::strncmp(entry->d_name, prefix.constData(), size_t(prefix.size())) != 0) {
            continue;
        }
        const int fd = ::openat(directoryFd, entry->d_name,
                                O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
        if (fd < 0) continue;
        struct stat info {};
        if (::fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_uid == ::geteuid() &&
            ::flock(fd, LOCK_EX | LOCK_NB) == 0) {
            ::unlinkat(directoryFd, entry->d_name, 0);
        }
        ::close(fd);
    }
    ::closedir(listing);
}

}  // namespace

bool pathExists(const QString& path) {
    struct stat info {};
    return ::stat(QFile::encodeName(path).constData(), &info) == 0;
}

std::optional<QByteArray> readSmallFile(const QString& path, qint64 maxBytes) {
    // Without O_NONBLOCK, opening a FIFO would wait for a writer that may never come; regular
    // files ignore the flag.
    int fd =
        ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) return std::nullopt;
    std::optional<QByteArray> result;
    struct stat info {};
    if (::fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_size <= maxBytes) {
        QByteArray bytes;
        bytes.resize(qsizetype(info.st_size));
        qsizetype have = 0;
        bool ok = true;
        // The file may grow or shrink between fstat and read: read until end of file. One byte
        // past the limit tells a file that grew too large from one that just fits.
        for (;;) {
            if (have == bytes.size()) {
                if (have > maxBytes) {
                    ok = false;
                    break;
                }
                bytes.resize(std::min<qsizetype>(maxBytes + 1, bytes.size() * 2 + 4096));
            }
            ssize_t n = ::read(fd, bytes.data() + have, size_t(bytes.size() - have));
            if (n < 0 && errno == EINTR) continue;
            if (n < 0) {
                ok = false;
                break;
            }
            if (n == 0) break;
            have += n;
        }
        if (ok) {
            bytes.truncate(have);
            result = std::move(bytes);
        }
    }
    ::close(fd);
    return result;
}

std::optional<QString> makeDirectories(const QString& path, mode_t mode) {
    if (path.isEmpty()) return QStringLiteral("no directory given");
    QByteArray native = QFile::encodeName(path);
    // Walk down from the root, creating each missing component.
    for (qsizetype i = 1; i <= native.size(); ++i) {
        if (i != native.size() && native[i] != '/') continue;
        QByteArray prefix = native.left(i);
        if (prefix.endsWith('/')) continue;
        if (::mkdir(prefix.constData(), mode) == 0) {
            // mkdir applies the umask; the mode asked for is the mode wanted.
            ::chmod(prefix.constData(), mode);
            continue;
        }
        if (errno != EEXIST) return describe(QFile::decodeName(prefix), errno);
        struct stat info {};
        if (::stat(prefix.constData(), &info) != 0)
            return describe(QFile::decodeName(prefix), errno);
        if (!S_ISDIR(info.st_mode)) return describe(QFile::decodeName(prefix), ENOTDIR);
    }
    return std::nullopt;
}

std::optional<QString> writeFileAtomically(const QString& path, const QByteArray& contents,
                                           mode_t mode) {
    const QString directory = directoryOf(path);
    const QByteArray nativeDirectory = QFile::encodeName(directory);
    const QByteArray prefix = temporaryPrefix(path);
    const QByteArray native = QFile::encodeName(path);

    // The temporary file stays locked until it has been renamed, so the next writer can tell a
    // write in progress from one whose process died. A cleaner that got hold of the fresh file
    // before the lock did has removed it: make another.
    QByteArray temporary;
    int fd = -1;
    for (int attempt = 0; fd < 0 && attempt < 3; ++attempt) {
        temporary = nativeDirectory + '/' + prefix + "XXXXXX";
        // mkstemp creates the file with mode 0600, so nobody else can read it while it fills.
        fd = ::mkostemp(temporary.data(), O_CLOEXEC);
        if (fd < 0) return describe(path, errno);
        // Where the file system has no locks, nothing is ever taken for abandoned either.
        lockExclusively(fd);
        struct stat info {};
        if (::fstat(fd, &info) != 0 || info.st_nlink > 0) break;
        ::close(fd);
        fd = -1;
    }
    if (fd < 0) return describe(path, EAGAIN);
    removeAbandonedTemporaries(nativeDirectory, prefix);

    auto fail = [&](int error) {
        ::unlink(temporary.constData());
        ::close(fd);
        return describe(path, error);
    };
    if (::fchmod(fd, mode) != 0) return fail(errno);
    if (!writeAll(fd, contents.constData(), size_t(contents.size()))) return fail(errno);
    if (::fsync(fd) != 0) return fail(errno);
    // Renamed while still locked: once unlocked, the name is the real file's.
    if (::rename(temporary.constData(), native.constData()) != 0) return fail(errno);
    ::close(fd);  // the contents are on disk already; nothing is lost when closing fails
    // Make the rename itself durable. A failure here leaves a complete file in place.
    int dirFd = ::open(nativeDirectory.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dirFd >= 0) {
        ::fsync(dirFd);
        ::close(dirFd);
    }
    return std::nullopt;
}

}  // namespace platform
