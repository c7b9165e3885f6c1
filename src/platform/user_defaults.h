#pragma once

#include <QString>
#include <optional>

namespace platform {

/// The application's own small settings that outlive the process (never the configuration file
/// shared with the sync extension). The real store is QSettings, organisation "norva",
/// application "vaskel". Main thread only.
class UserDefaults {
public:
    virtual ~UserDefaults() = default;

    /// The string under `key`; none when absent or not a string.
    virtual std::optional<QString> string(const QString& key) const = 0;
    /// The boolean under `key`; false when absent or not a boolean.
    virtual bool boolean(const QString& key) const = 0;
    virtual void setString(const QString& key, const QString& value) = 0;
    virtual void setBoolean(const QString& key, bool value) = 0;
    virtual void remove(const QString& key) = 0;

    static UserDefaults& real();
};

}  // namespace platform
