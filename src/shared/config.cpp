#include "shared/config.h"

#include <QJsonDocument>
#include <cmath>
#include <limits>

#include "platform/files.h"
#include "platform/home_directory.h"
#include "platform/log.h"
#include "platform/seam.h"

namespace Shared {
namespace {

QString parentDirectory(const QString& path) {
    return path.left(path.lastIndexOf(QLatin1Char('/')));
}

}  // namespace

QString home() {
    return platform::current<platform::HomeDirectory>().path();
}

QString configPath() {
    return home() + QStringLiteral("/.vaskel/config.json");
}

QJsonObject readConfig() {
    const std::optional<QByteArray> bytes = platform::readSmallFile(configPath());
    if (!bytes) return {};
    const QJsonDocument document = QJsonDocument::fromJson(*bytes);
    return document.isObject() ? document.object() : QJsonObject{};
}

void setConfig(const QString& key, const QJsonValue& value) {
    const QString path = configPath();
    const bool exists = platform::pathExists(path);
    QJsonObject config = readConfig();
    if (exists && config.isEmpty()) {
        mlog.error(QStringLiteral("config exists but could not be parsed; not overwriting"));
        return;
    }
    if (!exists) {
        // A failure shows up as the write failure below.
        (void)platform::makeDirectories(parentDirectory(path), 0700);
    }
    config.insert(key, value);
    const QByteArray bytes = QJsonDocument(config).toJson(QJsonDocument::Indented);
    if (const auto error = platform::writeFileAtomically(path, bytes, 0600)) {
        mlog.error(QStringLiteral("could not write config: %1").arg(*error));
        return;
    }
    mlog.info(QStringLiteral("set %1").arg(key));
}

std::optional<QString> configString(const QJsonObject& config, const QString& key) {
    const QJsonValue value = config.value(key);
    if (!value.isString()) return std::nullopt;
    return value.toString();
}

std::optional<bool> configBool(const QJsonObject& config, const QString& key) {
    const QJsonValue value = config.value(key);
    if (value.isBool()) return value.toBool();
    if (value.isDouble()) return value.toDouble() != 0.0;
    return std::nullopt;
}

std::optional<qint64> configInteger(const QJsonObject& config, const QString& key) {
    const QJsonValue value = config.value(key);
    if (value.isBool()) return value.toBool() ? 1 : 0;
    if (!value.isDouble()) return std::nullopt;
    // Integers that JSON wrote as integers keep all their digits.
    const QVariant variant = value.toVariant();
    if (variant.typeId() == QMetaType::LongLong) return variant.toLongLong();
    const double number = std::trunc(value.toDouble());
    constexpr double limit = 9223372036854775807.0;  // 2^63, the first double past qint64
    if (!std::isfinite(number)) return std::nullopt;
    if (number >= limit) return std::numeric_limits<qint64>::max();
    if (number < -limit) return std::numeric_limits<qint64>::min();
    return qint64(number);
}

}  // namespace Shared
