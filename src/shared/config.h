#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <optional>

// The configuration file ~/.vaskel/config.json: the program's one settings store and the control
// channel to the sync extension, which re-reads it within a second of a change. Nothing is cached;
// every read goes to the disk.
namespace Shared {

/// The user's home directory (user database entry of the real user id, else HOME), looked up on
/// every use.
QString home();

/// `home()` + "/.vaskel/config.json".
QString configPath();

/// The configuration dictionary; empty when the file is missing, unreadable, not JSON or not an
/// object at the top. Never fails.
QJsonObject readConfig();

/// Sets one key and rewrites the whole file atomically (pretty-printed, sorted keys, mode 0600,
/// directory created 0700). Refuses to overwrite a file that exists but yields no entries.
/// Failures go to the log, which names the key, never the value.
void setConfig(const QString& key, const QJsonValue& value);

// Readers of single keys with the file's type rules: a value of the wrong type counts as missing.

/// A JSON string.
std::optional<QString> configString(const QJsonObject& config, const QString& key);

/// A JSON boolean, or a number (0 is false, anything else true).
std::optional<bool> configBool(const QJsonObject& config, const QString& key);

/// A JSON number truncated toward zero and clamped to 64 bits, or a boolean (1 or 0).
std::optional<qint64> configInteger(const QJsonObject& config, const QString& key);

}  // namespace Shared
