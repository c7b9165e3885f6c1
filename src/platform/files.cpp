#include "platform/files.h"

#include <fcntl.h>
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
    QByteArray temporary = QFile::encodeName(path) + ".XXXXXX";
    // mkstemp creates the file with mode 0600, so nobody else can read it while it fills.
    int fd = ::mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0) return describe(path, errno);

    auto fail = [&](int error) {
        ::close(fd);
        ::unlink(temporary.constData());
        return describe(path, error);
    };
    if (::fchmod(fd, mode) != 0) return fail(errno);
    if (!writeAll(fd, contents.constData(), size_t(contents.size()))) return fail(errno);
    if (::fsync(fd) != 0) return fail(errno);
    if (::close(fd) != 0) {
        int error = errno;
        ::unlink(temporary.constData());
        return describe(path, error);
    }
    if (::rename(temporary.constData(), QFile::encodeName(path).constData()) != 0) {
        int error = errno;
        ::unlink(temporary.constData());
        return describe(path, error);
    }
    // Make the rename itself durable. A failure here leaves a complete file in place.
    int dirFd =
        ::open(QFile::encodeName(directory).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dirFd >= 0) {
        ::fsync(dirFd);
        ::close(dirFd);
    }
    return std::nullopt;
}

}  // namespace platform
