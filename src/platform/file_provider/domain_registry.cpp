#include "platform/file_provider/domain_registry.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QUrl>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <thread>

#include "platform/files.h"

namespace platform::file_provider_state {
namespace {

constexpr qint64 MAX_STATE_FILE_BYTES = 4 * 1024 * 1024;

QString registryPath(const QString& stateDirectory) {
    return stateDirectory + QStringLiteral("/registry.json");
}

QString systemReason(int error) {
    return QString::fromLocal8Bit(std::strerror(error));
}

FileProviderError damaged(const QString& path, const QString& reason) {
    return makeError(FileProviderError::registryDamaged,
                     QStringLiteral("the domain registry %1 is damaged (%2); it was left as it is")
                         .arg(path, reason),
                     {{QStringLiteral("path"), path}, {QStringLiteral("reason"), reason}});
}

QString parentOf(const QString& path) {
    return path.left(path.lastIndexOf(QLatin1Char('/')));
}

}  // namespace

FileProviderError makeError(FileProviderError::Code code, const QString& description,
                            QList<QPair<QString, QString>> details) {
    FileProviderError error;
    error.code = code;
    error.description = description;
    error.details = std::move(details);
    return error;
}

std::optional<FileProviderError> loadRegistry(const QString& stateDirectory,
                                              QList<RegisteredDomain>& domains) {
    domains.clear();
    const QString path = registryPath(stateDirectory);
    if (!pathExists(path)) return std::nullopt;
    errno = 0;
    const auto bytes = readSmallFile(path, MAX_STATE_FILE_BYTES);
    if (!bytes) {
        const int error = errno;
        return makeError(FileProviderError::registryDamaged,
                         QStringLiteral("the domain registry %1 cannot be read (%2)")
                             .arg(path, error ? systemReason(error)
                                              : QStringLiteral("not a regular file or too large")),
                         {{QStringLiteral("path"), path}});
    }
    QJsonParseError parseError{};
    const QJsonDocument document = QJsonDocument::fromJson(*bytes, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        return damaged(path, QStringLiteral("not JSON: %1").arg(parseError.errorString()));
    }
    if (!document.isObject()) return damaged(path, QStringLiteral("not a JSON object"));
    const QJsonValue list = document.object().value(QStringLiteral("domains"));
    if (!list.isArray()) return damaged(path, QStringLiteral("no list of domains"));
    for (const QJsonValue& value : list.toArray()) {
        const QJsonObject entry = value.toObject();
        const QJsonValue identifier = entry.value(QStringLiteral("identifier"));
        const QJsonValue folder = entry.value(QStringLiteral("folder"));
        if (!value.isObject() || !identifier.isString() || identifier.toString().isEmpty() ||
            !folder.isString() || !folder.toString().startsWith(QLatin1Char('/'))) {
            return damaged(path, QStringLiteral("a domain without identifier or folder"));
        }
        RegisteredDomain registered;
        registered.domain.identifier = identifier.toString();
        registered.domain.displayName = entry.value(QStringLiteral("displayName")).toString();
        registered.domain.isHidden = entry.value(QStringLiteral("hidden")).toBool();
        registered.domain.isDisconnected = entry.value(QStringLiteral("disconnected")).toBool();
        registered.domain.supportsSyncingTrash =
            entry.value(QStringLiteral("supportsSyncingTrash")).toBool();
        registered.folder = folder.toString();
        domains.append(registered);
    }
    return std::nullopt;
}

std::optional<FileProviderError> saveRegistry(const QString& stateDirectory,
                                              const QList<RegisteredDomain>& domains) {
    QJsonArray list;
    for (const RegisteredDomain& registered : domains) {
        list.append(QJsonObject{
            {QStringLiteral("identifier"), registered.domain.identifier},
            {QStringLiteral("displayName"), registered.domain.displayName},
            {QStringLiteral("hidden"), registered.domain.isHidden},
            {QStringLiteral("disconnected"), registered.domain.isDisconnected},
            {QStringLiteral("supportsSyncingTrash"), registered.domain.supportsSyncingTrash},
            {QStringLiteral("folder"), registered.folder},
        });
    }
    const QJsonObject root{{QStringLiteral("domains"), list}};
    const QString path = registryPath(stateDirectory);
    if (const auto failure =
            writeFileAtomically(path, QJsonDocument(root).toJson(QJsonDocument::Indented), 0600)) {
        return makeError(FileProviderError::stateNotWritable,
                         QStringLiteral("could not save the domain registry: %1").arg(*failure),
                         {{QStringLiteral("path"), path}});
    }
    return std::nullopt;
}

QString domainStateDirectory(const QString& stateDirectory, const QString& domainIdentifier) {
    // One folder name per identifier, whatever characters it holds.
    QString name = QString::fromLatin1(QUrl::toPercentEncoding(domainIdentifier));
    if (name == QLatin1String(".") || name == QLatin1String("..")) {
        name.replace(QLatin1Char('.'), QStringLiteral("%2E"));
    }
    return stateDirectory + QStringLiteral("/domains/") + name;
}

QJsonObject readStateObject(const QString& path) {
    const auto bytes = readSmallFile(path, MAX_STATE_FILE_BYTES);
    if (!bytes) return {};
    return QJsonDocument::fromJson(*bytes).object();
}

std::optional<FileProviderError> writeStateObject(const QString& path, const QJsonObject& object) {
    auto failure = makeDirectories(parentOf(path), 0700);
    if (!failure) {
        failure =
            writeFileAtomically(path, QJsonDocument(object).toJson(QJsonDocument::Compact), 0600);
    }
    if (failure) {
        return makeError(FileProviderError::stateNotWritable,
                         QStringLiteral("could not save the domain's state: %1").arg(*failure),
                         {{QStringLiteral("path"), path}});
    }
    return std::nullopt;
}

StateLock::StateLock(const QString& stateDirectory, std::chrono::milliseconds patience) {
    if (const auto failure = makeDirectories(stateDirectory, 0700)) {
        error_ = makeError(FileProviderError::stateNotWritable,
                           QStringLiteral("could not create the state folder: %1").arg(*failure),
                           {{QStringLiteral("path"), stateDirectory}});
        return;
    }
    const QByteArray lockPath = QFile::encodeName(stateDirectory + QStringLiteral("/.lock"));
    fd_ = ::open(lockPath.constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd_ < 0) {
        error_ = makeError(FileProviderError::stateNotWritable,
                           QStringLiteral("could not lock the state folder: %1: %2")
                               .arg(QFile::decodeName(lockPath), systemReason(errno)),
                           {{QStringLiteral("path"), stateDirectory}});
        return;
    }
    // flock has no time-out: poll, starting fast because the usual holder keeps the lock for a
    // single small write.
    const auto giveUp = std::chrono::steady_clock::now() + patience;
    auto pause = std::chrono::milliseconds(1);
    while (::flock(fd_, LOCK_EX | LOCK_NB) != 0) {
        const int failure = errno;
        if (failure == EINTR) continue;
        QString reason = systemReason(failure);
        if (failure == EWOULDBLOCK) {
            if (std::chrono::steady_clock::now() < giveUp) {
                std::this_thread::sleep_for(pause);
                pause = std::min(pause * 2, std::chrono::milliseconds(100));
                continue;
            }
            reason = QStringLiteral("still held by another process after %1 s")
                         .arg(double(patience.count()) / 1000.0);
        }
        error_ = makeError(FileProviderError::stateNotWritable,
                           QStringLiteral("could not lock the state folder: %1: %2")
                               .arg(QFile::decodeName(lockPath), reason),
                           {{QStringLiteral("path"), stateDirectory}});
        ::close(fd_);
        fd_ = -1;
        break;
    }
}

StateLock::~StateLock() {
    if (fd_ >= 0) ::close(fd_);  // closing releases the lock
}

}  // namespace platform::file_provider_state
