#pragma once

#include <QString>
#include <QStringList>
#include <functional>
#include <optional>

namespace platform {

/// The desktop's settings application, where the user manages what runs in the session.
class SettingsApplication {
public:
    virtual ~SettingsApplication() = default;

    /// Starts the settings application of the current desktop, detached, when one is known and
    /// installed; does nothing otherwise. Nothing is reported either way.
    virtual void open() = 0;

    static SettingsApplication& real();
};

/// The command that opens the settings application of the desktops named in `currentDesktop`
/// (the XDG_CURRENT_DESKTOP list, ":"-separated, tested in order), or none when no named desktop
/// has one that `findExecutable` finds (it gives the full path of a program name, or empty).
std::optional<QStringList> settingsCommand(
    const QString& currentDesktop, const std::function<QString(const QString&)>& findExecutable);

}  // namespace platform
