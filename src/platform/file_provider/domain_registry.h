#pragma once

#include <QJsonObject>
#include <QList>
#include <QString>
#include <chrono>
#include <optional>

#include "platform/file_provider/file_provider.h"

// The registry file of the file-provider service and the per-domain state files beside it:
//
//   <state>/registry.json                 registered domains, in the order they were added
//   <state>/domains/<id>/signals.json      working-set signals (written here, read by the
//   extension) <state>/domains/<id>/evictions.json    eviction requests (written here, read by the
//   extension) <state>/domains/<id>/progress.json     transfer counts (written by the extension,
//   read here)
//
// The folder is 0700 and every file 0600, each replaced atomically. Writers of this process and
// of others serialise their read-modify-write cycles on <state>/.lock.
namespace platform::file_provider_state {

/// One registered domain and its user-visible folder.
struct RegisteredDomain {
    FileProviderDomain domain;
    QString folder;
};

/// Reads the registry. A missing registry is an empty list; one that cannot be read or parsed
/// is an error (and stays as it is).
std::optional<FileProviderError> loadRegistry(const QString& stateDirectory,
                                              QList<RegisteredDomain>& domains);

/// Replaces the registry with `domains`.
std::optional<FileProviderError> saveRegistry(const QString& stateDirectory,
                                              const QList<RegisteredDomain>& domains);

/// The folder of one domain's state files.
QString domainStateDirectory(const QString& stateDirectory, const QString& domainIdentifier);

/// Reads a JSON object file of a domain's state; an empty object when missing or unreadable.
QJsonObject readStateObject(const QString& path);

/// Replaces a JSON object file of a domain's state, creating its folder (0700) when needed.
std::optional<FileProviderError> writeStateObject(const QString& path, const QJsonObject& object);

/// How long a writer waits for another process to release the state folder's lock. Longer than
/// the command line's 20-second bound, so that a command gives up on its own terms first.
inline constexpr std::chrono::milliseconds STATE_LOCK_PATIENCE{30'000};

/// Holds the state folder's writer lock for its lifetime, waiting up to `patience` for it. The
/// state folder is created (0700) first; when that fails or the lock stays taken, `error()`
/// says why (stateNotWritable), so that one stuck process cannot stall the service for good.
class StateLock {
public:
    explicit StateLock(const QString& stateDirectory,
                       std::chrono::milliseconds patience = STATE_LOCK_PATIENCE);
    ~StateLock();
    StateLock(const StateLock&) = delete;
    StateLock& operator=(const StateLock&) = delete;

    const std::optional<FileProviderError>& error() const { return error_; }

private:
    int fd_ = -1;
    std::optional<FileProviderError> error_;
};

/// An error value with one detail pair per entry of `details`.
FileProviderError makeError(FileProviderError::Code code, const QString& description,
                            QList<QPair<QString, QString>> details = {});

}  // namespace platform::file_provider_state
