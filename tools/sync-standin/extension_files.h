#pragma once

#include <QJsonObject>
#include <QMap>
#include <QString>
#include <QStringList>
#include <functional>
#include <optional>

#include "platform/file_provider/domain_registry.h"

namespace standin {

/// A file that exists but cannot be used: what is wrong with it, for the log.
using Damage = std::optional<QString>;

/// The sync extension's side of the files it shares with vaskel: the domain registry and each
/// domain's state files in the file-provider state folder, and stats.json and cursor.json in the
/// app-group container. Every call goes to the disk. Read-modify-write cycles in the state
/// folder hold its lock, as vaskel's writers do. A file that exists but does not parse as a JSON
/// object is reported and left as it is: nothing here overwrites it.
class ExtensionFiles {
public:
    /// `container` may be empty when there is no app-group container; its files then fail.
    ExtensionFiles(QString stateDirectory, QString container);

    const QString& stateDirectory() const { return state_; }

    /// The registered domain `id`; none when it is not registered or the registry is damaged
    /// (then `damage` says why).
    std::optional<platform::file_provider_state::RegisteredDomain> domain(const QString& id,
                                                                          Damage* damage) const;
    /// Sets the domain's `disconnected` flag in the registry.
    Damage setDisconnected(const QString& id, bool disconnected);

    /// How often vaskel signalled the working set (0 before the first), and when last.
    qint64 workingSetSignals(const QString& id) const;
    double lastSignalTime(const QString& id) const;
    /// The pending eviction requests, oldest first.
    QStringList evictionRequests(const QString& id) const;
    /// Takes the pending eviction requests out of the file, as handled, and gives them.
    QStringList takeEvictionRequests(const QString& id, Damage* damage);

    /// Replaces one kind ("downloading" or "uploading") of the domain's progress.json.
    Damage reportProgress(const QString& id, const QString& kind, const QJsonObject& counts);
    /// Replaces both kinds at once (an empty object reports nothing at all).
    Damage writeProgress(const QString& id, const QJsonObject& progress);

    /// Writes the rate sample {"at", "down_bps", "up_bps"} to stats.json.
    Damage writeStats(double at, double downBytesPerSecond, double upBytesPerSecond);
    /// The change-feed cursor; none when cursor.json is missing or damaged.
    std::optional<qint64> changeCursor(Damage* damage) const;
    Damage writeChangeCursor(qint64 cursor);

    /// ~/.vaskel/config.json; empty when missing or damaged.
    static QJsonObject config(Damage* damage);

    /// The regular files below `folder` (relative path to size), hidden ones and those past the
    /// first `limit` left out.
    static QMap<QString, qint64> folderFiles(const QString& folder, int limit = 10000);

private:
    QString domainFile(const QString& id, const char* name) const;
    // Replaces `path` with what `change` makes of its object, unless the file is damaged.
    Damage update(const QString& path, bool locked,
                  const std::function<void(QJsonObject&)>& change);

    QString state_;
    QString container_;
};

}  // namespace standin
