#pragma once

#include <QString>
#include <optional>

namespace platform {

/// Whether the application starts with the desktop session.
enum class LoginItemStatus { notRegistered, enabled };

/// The session's list of programs started at login: an XDG autostart entry
/// `<XDG config home>/autostart/vaskel.desktop`. Enabled when the entry exists and is not hidden.
class LoginItems {
public:
    virtual ~LoginItems() = default;

    virtual LoginItemStatus status() const = 0;
    /// Writes the entry; a readable error when it cannot be written.
    virtual std::optional<QString> registerApplication() = 0;
    /// Removes the entry; a readable error when it cannot be removed.
    virtual std::optional<QString> unregisterApplication() = 0;

    static LoginItems& real();
};

}  // namespace platform
