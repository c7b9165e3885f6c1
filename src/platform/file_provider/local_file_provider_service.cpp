#include "platform/file_provider/local_file_provider_service.h"

#include <sys/stat.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <limits>

#include "platform/clock.h"
#include "platform/file_provider/domain_registry.h"
#include "platform/files.h"
#include "platform/home_directory.h"
#include "platform/seam.h"

namespace platform {

using namespace file_provider_state;

namespace {

// Eviction requests kept for the extension; older ones are dropped first.
constexpr qsizetype MAX_EVICTION_REQUESTS = 1000;

QString key(const char* text) {
    return QString::fromLatin1(text);
}

std::optional<QString> lstatError(const QString& path) {
    struct stat info {};
    if (::lstat(QFile::encodeName(path).constData(), &info) == 0) return std::nullopt;
    return QString::fromLocal8Bit(std::strerror(errno));
}

FileProviderError notRegistered(const QString& identifier) {
    return makeError(FileProviderError::noSuchDomain,
                     QStringLiteral("no domain with identifier %1 is registered").arg(identifier),
                     {{key("domain"), identifier}});
}

// The registered entry with `identifier`, or an error.
std::optional<FileProviderError> findEntry(const QString& stateDirectory, const QString& identifier,
                                           RegisteredDomain& found) {
    QList<RegisteredDomain> domains;
    if (auto error = loadRegistry(stateDirectory, domains)) return error;
    for (const RegisteredDomain& registered : domains) {
        if (registered.domain.identifier == identifier) {
            found = registered;
            return std::nullopt;
        }
    }
    return notRegistered(identifier);
}

std::optional<FileProviderError> makeFolder(const QString& folder) {
    if (const auto failure = makeDirectories(folder, 0700)) {
        return makeError(FileProviderError::folderUnavailable,
                         QStringLiteral("the synced folder cannot be created: %1").arg(*failure),
                         {{key("path"), folder}});
    }
    return std::nullopt;
}

// `path` made absolute against the current directory, with symbolic links and "." or ".."
// resolved in the folders that lead to it. The last component is kept as it is, so a link inside
// a synced folder is an item of its own; none when those folders do not exist.
std::optional<QString> resolveLeadingFolders(const QString& path) {
    QString absolute = QDir::isAbsolutePath(path) ? path : QDir::currentPath() + '/' + path;
    while (absolute.size() > 1 && absolute.endsWith(QLatin1Char('/'))) absolute.chop(1);
    const qsizetype slash = absolute.lastIndexOf(QLatin1Char('/'));
    const QString last = absolute.mid(slash + 1);
    if (last.isEmpty() || last == QLatin1String(".") || last == QLatin1String("..")) {
        const QString canonical = QFileInfo(absolute).canonicalFilePath();
        if (canonical.isEmpty()) return std::nullopt;
        return canonical;
    }
    const QString parent = slash == 0 ? QStringLiteral("/") : absolute.left(slash);
    const QString canonicalParent = QFileInfo(parent).canonicalFilePath();
    if (canonicalParent.isEmpty()) return std::nullopt;
    return canonicalParent == QLatin1String("/") ? '/' + last : canonicalParent + '/' + last;
}

// The item identifier of a path below a folder, rejecting anything that could leave it.
std::optional<QString> itemPath(const QString& folder, const QString& itemIdentifier) {
    if (itemIdentifier == QLatin1String(ROOT_CONTAINER_ITEM_IDENTIFIER)) return folder;
    if (itemIdentifier.isEmpty() || itemIdentifier.startsWith(QLatin1Char('/'))) return {};
    for (const QString& part : itemIdentifier.split(QLatin1Char('/'))) {
        if (part.isEmpty() || part == QLatin1String(".") || part == QLatin1String("..")) return {};
    }
    return folder + '/' + itemIdentifier;
}

qint64 unitCount(const QJsonValue& value) {
    constexpr qint64 sentinel = std::numeric_limits<qint64>::min();
    const qint64 exact = value.toInteger(sentinel);
    if (exact != sentinel) return exact;
    const double number = value.toDouble(0);
    if (std::isnan(number)) return 0;
    if (number >= 9.2e18) return std::numeric_limits<qint64>::max();
    if (number <= -9.2e18) return std::numeric_limits<qint64>::min();
    return qint64(number);
}

class StateFileProgress final : public FileProviderProgress {
public:
    StateFileProgress(QString path, FileOperationKind kind) : path_(std::move(path)), kind_(kind) {}

    ProgressSnapshot snapshot() const override {
        const QJsonObject all = readStateObject(path_);
        const QJsonValue entry = all.value(
            kind_ == FileOperationKind::downloading ? key("downloading") : key("uploading"));
        ProgressSnapshot snapshot;
        if (!entry.isObject()) return snapshot;
        const QJsonObject counts = entry.toObject();
        snapshot.completedUnitCount = unitCount(counts.value(key("completedUnitCount")));
        snapshot.totalUnitCount = unitCount(counts.value(key("totalUnitCount")));
        const QJsonValue finished = counts.value(key("finished"));
        snapshot.isFinished = finished.isBool()
                                  ? finished.toBool()
                                  : snapshot.totalUnitCount > 0 &&
                                        snapshot.completedUnitCount >= snapshot.totalUnitCount;
        snapshot.isPausable = counts.value(key("pausable")).toBool();
        snapshot.isPaused = counts.value(key("paused")).toBool();
        return snapshot;
    }

private:
    QString path_;
    FileOperationKind kind_;
};

}  // namespace

LocalFileProviderService::LocalFileProviderService(QString stateDirectory)
    : stateDirectory_(std::move(stateDirectory)) {}

LocalFileProviderService::~LocalFileProviderService() = default;

QString LocalFileProviderService::defaultStateDirectory() {
    QString stateHome = qEnvironmentVariable("XDG_STATE_HOME");
    if (!stateHome.startsWith(QLatin1Char('/'))) {
        stateHome = current<HomeDirectory>().path() + QStringLiteral("/.local/state");
    }
    return stateHome + QStringLiteral("/fileprovider/com.norva.vaskel");
}

QString LocalFileProviderService::userVisibleFolder(const QString& displayName) {
    QString name = displayName;
    name.replace(QLatin1Char('/'), QLatin1Char('-'));
    name.replace(QChar(0), QLatin1Char('-'));
    return current<HomeDirectory>().path() + QStringLiteral("/CloudStorage/Vaskel-") + name;
}

void LocalFileProviderService::getDomains(DomainsCompletion completion) {
    callbacks_.submit([this, completion = std::move(completion)] {
        QList<RegisteredDomain> registered;
        const auto error = loadRegistry(stateDirectory_, registered);
        QList<FileProviderDomain> domains;
        for (const RegisteredDomain& entry : registered) domains.append(entry.domain);
        completion(domains, error);
    });
}

void LocalFileProviderService::add(const FileProviderDomain& domain, ErrorCompletion completion) {
    // The folder belongs to the home directory of the moment of the request.
    const QString folder = userVisibleFolder(domain.displayName);
    callbacks_.submit([this, domain, folder, completion = std::move(completion)] {
        if (domain.identifier.isEmpty()) {
            completion(makeError(FileProviderError::invalidDomain,
                                 QStringLiteral("a domain needs an identifier")));
            return;
        }
        StateLock lock(stateDirectory_);
        if (lock.error()) return completion(lock.error());
        QList<RegisteredDomain> domains;
        if (auto error = loadRegistry(stateDirectory_, domains)) return completion(error);
        if (auto error = makeFolder(folder)) return completion(error);
        RegisteredDomain entry{domain, folder};
        entry.domain.isHidden = false;
        entry.domain.isDisconnected = false;
        bool replaced = false;
        for (RegisteredDomain& existing : domains) {
            if (existing.domain.identifier == domain.identifier) {
                existing = entry;
                replaced = true;
                break;
            }
        }
        if (!replaced) domains.append(entry);
        completion(saveRegistry(stateDirectory_, domains));
    });
}

void LocalFileProviderService::remove(const FileProviderDomain& domain,
                                      ErrorCompletion completion) {
    callbacks_.submit([this, identifier = domain.identifier, completion = std::move(completion)] {
        StateLock lock(stateDirectory_);
        if (lock.error()) return completion(lock.error());
        QList<RegisteredDomain> domains;
        if (auto error = loadRegistry(stateDirectory_, domains)) return completion(error);
        const qsizetype before = domains.size();
        domains.removeIf(
            [&](const RegisteredDomain& entry) { return entry.domain.identifier == identifier; });
        if (domains.size() == before) return completion(notRegistered(identifier));
        // Only the registration goes; the folder and everything in it stay with the user.
        completion(saveRegistry(stateDirectory_, domains));
    });
}

bool LocalFileProviderService::isRegistered(const QString& domainIdentifier) {
    RegisteredDomain found;
    return !findEntry(stateDirectory_, domainIdentifier, found);
}

void LocalFileProviderService::reconnect(const QString& domainIdentifier,
                                         ErrorCompletion completion) {
    callbacks_.submit([this, domainIdentifier, completion = std::move(completion)] {
        StateLock lock(stateDirectory_);
        if (lock.error()) return completion(lock.error());
        QList<RegisteredDomain> domains;
        if (auto error = loadRegistry(stateDirectory_, domains)) return completion(error);
        for (RegisteredDomain& entry : domains) {
            if (entry.domain.identifier != domainIdentifier) continue;
            if (!entry.domain.isDisconnected) return completion(std::nullopt);
            entry.domain.isDisconnected = false;
            return completion(saveRegistry(stateDirectory_, domains));
        }
        completion(notRegistered(domainIdentifier));
    });
}

void LocalFileProviderService::signalWorkingSet(const QString& domainIdentifier,
                                                ErrorCompletion completion) {
    const double now = current<Clock>().secondsSince1970();
    callbacks_.submit([this, domainIdentifier, now, completion = std::move(completion)] {
        StateLock lock(stateDirectory_);
        if (lock.error()) return completion(lock.error());
        RegisteredDomain entry;
        if (auto error = findEntry(stateDirectory_, domainIdentifier, entry)) {
            return completion(error);
        }
        const QString path = domainStateDirectory(stateDirectory_, domainIdentifier) +
                             QStringLiteral("/signals.json");
        QJsonObject signals = readStateObject(path);
        // The file is shared with the extension and may hold anything: a count read from it is
        // taken as at least 0 and at most one below the largest, so that counting on never
        // overflows.
        const qint64 previous = std::clamp<qint64>(
            signals.value(key("workingSet")).toObject().value(key("count")).toInteger(), 0,
            std::numeric_limits<qint64>::max() - 1);
        signals[key("workingSet")] =
            QJsonObject{{key("count"), previous + 1}, {key("signalledAt"), now}};
        completion(writeStateObject(path, signals));
    });
}

void LocalFileProviderService::userVisibleURL(const QString& domainIdentifier,
                                              URLCompletion completion) {
    callbacks_.submit([this, domainIdentifier, completion = std::move(completion)] {
        RegisteredDomain entry;
        if (auto error = findEntry(stateDirectory_, domainIdentifier, entry)) {
            return completion(std::nullopt, error);
        }
        if (auto error = makeFolder(entry.folder)) return completion(std::nullopt, error);
        completion(entry.folder, std::nullopt);
    });
}

void LocalFileProviderService::identifierForUserVisibleFile(const QString& path,
                                                            IdentifierCompletion completion) {
    // Relative paths count from the current directory at the time of the request.
    const std::optional<QString> resolved = resolveLeadingFolders(path);
    callbacks_.submit([this, path, resolved, completion = std::move(completion)] {
        const auto missing = [&](const QString& reason) {
            completion(
                std::nullopt, std::nullopt,
                makeError(FileProviderError::noSuchItem, QStringLiteral("%1: %2").arg(path, reason),
                          {{key("path"), path}}));
        };
        if (!resolved) return missing(QString::fromLocal8Bit(std::strerror(ENOENT)));
        if (const auto reason = lstatError(*resolved)) return missing(*reason);
        QList<RegisteredDomain> domains;
        if (auto error = loadRegistry(stateDirectory_, domains)) {
            return completion(std::nullopt, std::nullopt, error);
        }
        for (const RegisteredDomain& entry : domains) {
            const QString folder = QFileInfo(entry.folder).canonicalFilePath();
            if (folder.isEmpty()) continue;
            if (*resolved == folder) {
                return completion(QString::fromLatin1(ROOT_CONTAINER_ITEM_IDENTIFIER),
                                  entry.domain.identifier, std::nullopt);
            }
            const QString prefix = folder == QLatin1String("/") ? folder : folder + '/';
            if (resolved->startsWith(prefix)) {
                return completion(resolved->mid(prefix.size()), entry.domain.identifier,
                                  std::nullopt);
            }
        }
        completion(std::nullopt, std::nullopt,
                   makeError(FileProviderError::notInDomain,
                             QStringLiteral("%1 is not inside a synced folder").arg(path),
                             {{key("path"), path}}));
    });
}

void LocalFileProviderService::evictItem(const QString& domainIdentifier,
                                         const QString& itemIdentifier,
                                         ErrorCompletion completion) {
    const double now = current<Clock>().secondsSince1970();
    callbacks_.submit([this, domainIdentifier, itemIdentifier, now,
                       completion = std::move(completion)] {
        StateLock lock(stateDirectory_);
        if (lock.error()) return completion(lock.error());
        RegisteredDomain entry;
        if (auto error = findEntry(stateDirectory_, domainIdentifier, entry)) {
            return completion(error);
        }
        const auto itemLocation = itemPath(entry.folder, itemIdentifier);
        const auto reason = itemLocation ? lstatError(*itemLocation)
                                         : std::optional(QStringLiteral("not an item identifier"));
        if (reason) {
            return completion(
                makeError(FileProviderError::noSuchItem,
                          QStringLiteral("no item %1 in domain %2: %3")
                              .arg(itemIdentifier, domainIdentifier, *reason),
                          {{key("domain"), domainIdentifier}, {key("item"), itemIdentifier}}));
        }
        // The extension drops the local copy; this side only asks for it.
        const QString path = domainStateDirectory(stateDirectory_, domainIdentifier) +
                             QStringLiteral("/evictions.json");
        QJsonObject evictions = readStateObject(path);
        QJsonArray requests = evictions.value(key("requests")).toArray();
        requests.append(
            QJsonObject{{key("identifier"), itemIdentifier}, {key("requestedAt"), now}});
        while (requests.size() > MAX_EVICTION_REQUESTS) requests.removeFirst();
        evictions[key("requests")] = requests;
        completion(writeStateObject(path, evictions));
    });
}

std::shared_ptr<FileProviderProgress> LocalFileProviderService::globalProgress(
    const QString& domainIdentifier, FileOperationKind kind) {
    return std::make_shared<StateFileProgress>(
        domainStateDirectory(stateDirectory_, domainIdentifier) + QStringLiteral("/progress.json"),
        kind);
}

FileProviderService& FileProviderService::real() {
    // Never destroyed: a request still running when the process ends must not be joined.
    static auto* service =
        new LocalFileProviderService(LocalFileProviderService::defaultStateDirectory());
    return *service;
}

}  // namespace platform
