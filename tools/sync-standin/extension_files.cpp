#include "extension_files.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>

#include "platform/files.h"
#include "shared/config.h"

namespace standin {

using namespace platform::file_provider_state;

namespace {

struct Loaded {
    QJsonObject object;
    Damage damage;
};

// A missing file is an empty object; one that is there but unusable is damage.
Loaded load(const QString& path) {
    if (!platform::pathExists(path)) return {};
    const auto bytes = platform::readSmallFile(path);
    if (!bytes) return {{}, path + QStringLiteral(": cannot be read")};
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(*bytes, &error);
    if (error.error != QJsonParseError::NoError) {
        return {{}, QStringLiteral("%1: not JSON (%2)").arg(path, error.errorString())};
    }
    if (!document.isObject()) return {{}, path + QStringLiteral(": not a JSON object")};
    return {document.object(), std::nullopt};
}

QJsonObject entry(const QJsonObject& object, const char* name) {
    return object.value(QLatin1String(name)).toObject();
}

}  // namespace

ExtensionFiles::ExtensionFiles(QString stateDirectory, QString container)
    : state_(std::move(stateDirectory)), container_(std::move(container)) {}

QString ExtensionFiles::domainFile(const QString& id, const char* name) const {
    return domainStateDirectory(state_, id) + QLatin1Char('/') + QLatin1String(name);
}

std::optional<RegisteredDomain> ExtensionFiles::domain(const QString& id, Damage* damage) const {
    QList<RegisteredDomain> domains;
    if (const auto error = loadRegistry(state_, domains)) {
        if (damage) *damage = error->description;
        return std::nullopt;
    }
    for (const RegisteredDomain& registered : domains) {
        if (registered.domain.identifier == id) return registered;
    }
    return std::nullopt;
}

Damage ExtensionFiles::setDisconnected(const QString& id, bool disconnected) {
    const StateLock lock(state_);
    if (lock.error()) return lock.error()->description;
    QList<RegisteredDomain> domains;
    if (const auto error = loadRegistry(state_, domains)) return error->description;
    const auto found = std::find_if(domains.begin(), domains.end(), [&](const auto& registered) {
        return registered.domain.identifier == id;
    });
    if (found == domains.end()) return QStringLiteral("the domain %1 is not registered").arg(id);
    found->domain.isDisconnected = disconnected;
    if (const auto error = saveRegistry(state_, domains)) return error->description;
    return std::nullopt;
}

qint64 ExtensionFiles::workingSetSignals(const QString& id) const {
    return entry(load(domainFile(id, "signals.json")).object, "workingSet")
        .value(QStringLiteral("count"))
        .toInteger();
}

double ExtensionFiles::lastSignalTime(const QString& id) const {
    return entry(load(domainFile(id, "signals.json")).object, "workingSet")
        .value(QStringLiteral("signalledAt"))
        .toDouble();
}

QStringList ExtensionFiles::evictionRequests(const QString& id) const {
    QStringList items;
    const QJsonArray requests =
        load(domainFile(id, "evictions.json")).object.value(QStringLiteral("requests")).toArray();
    for (const QJsonValue& request : requests) {
        items << request.toObject().value(QStringLiteral("identifier")).toString();
    }
    return items;
}

QStringList ExtensionFiles::takeEvictionRequests(const QString& id, Damage* damage) {
    const QString path = domainFile(id, "evictions.json");
    if (!platform::pathExists(path)) return {};
    QStringList taken;
    const Damage failure = update(path, true, [&](QJsonObject& evictions) {
        for (const QJsonValue& request : evictions.value(QStringLiteral("requests")).toArray()) {
            taken << request.toObject().value(QStringLiteral("identifier")).toString();
        }
        evictions[QStringLiteral("requests")] = QJsonArray();
    });
    if (failure && damage) *damage = failure;
    return failure ? QStringList() : taken;
}

Damage ExtensionFiles::reportProgress(const QString& id, const QString& kind,
                                      const QJsonObject& counts) {
    return update(domainFile(id, "progress.json"), true,
                  [&](QJsonObject& progress) { progress[kind] = counts; });
}

Damage ExtensionFiles::writeProgress(const QString& id, const QJsonObject& progress) {
    return update(domainFile(id, "progress.json"), true,
                  [&](QJsonObject& current) { current = progress; });
}

Damage ExtensionFiles::writeStats(double at, double downBytesPerSecond, double upBytesPerSecond) {
    if (container_.isEmpty()) return QStringLiteral("no app group container");
    return update(container_ + QStringLiteral("/stats.json"), false, [&](QJsonObject& stats) {
        stats = {{QStringLiteral("at"), at},
                 {QStringLiteral("down_bps"), downBytesPerSecond},
                 {QStringLiteral("up_bps"), upBytesPerSecond}};
    });
}

std::optional<qint64> ExtensionFiles::changeCursor(Damage* damage) const {
    if (container_.isEmpty()) return std::nullopt;
    const Loaded loaded = load(container_ + QStringLiteral("/cursor.json"));
    if (loaded.damage && damage) *damage = loaded.damage;
    const QJsonValue cursor = loaded.object.value(QStringLiteral("changeCursor"));
    if (!cursor.isDouble()) return std::nullopt;
    return cursor.toInteger(qint64(cursor.toDouble()));
}

Damage ExtensionFiles::writeChangeCursor(qint64 cursor) {
    if (container_.isEmpty()) return QStringLiteral("no app group container");
    return update(container_ + QStringLiteral("/cursor.json"), false,
                  [&](QJsonObject& file) { file[QStringLiteral("changeCursor")] = cursor; });
}

QJsonObject ExtensionFiles::config(Damage* damage) {
    const Loaded loaded = load(Shared::configPath());
    if (loaded.damage && damage) *damage = loaded.damage;
    return loaded.object;
}

QMap<QString, qint64> ExtensionFiles::folderFiles(const QString& folder, int limit) {
    QMap<QString, qint64> files;
    const QDir base(folder);
    QDirIterator found(folder, QDir::Files | QDir::NoSymLinks, QDirIterator::Subdirectories);
    while (found.hasNext() && files.size() < limit) {
        const QFileInfo file = found.nextFileInfo();
        files.insert(base.relativeFilePath(file.filePath()), file.size());
    }
    return files;
}

Damage ExtensionFiles::update(const QString& path, bool locked,
                              const std::function<void(QJsonObject&)>& change) {
    std::optional<StateLock> lock;
    if (locked) {
        lock.emplace(state_);
        if (lock->error()) return lock->error()->description;
    }
    Loaded loaded = load(path);
    if (loaded.damage) return loaded.damage;
    change(loaded.object);
    if (locked) {
        if (const auto error = writeStateObject(path, loaded.object)) return error->description;
        return std::nullopt;
    }
    return platform::writeFileAtomically(
        path, QJsonDocument(loaded.object).toJson(QJsonDocument::Compact), 0600);
}

}  // namespace standin
