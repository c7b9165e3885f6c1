#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

namespace platform {

/// The name this computer goes by, as the user sees it.
class HostName {
public:
    virtual ~HostName() = default;

    /// The pretty host name (PRETTY_HOSTNAME in /etc/machine-info, "Ada's Laptop"), else the
    /// static host name (/etc/hostname), else none. Read on every call.
    virtual std::optional<QString> localizedName() const = 0;

    static HostName& real();
};

/// The value of PRETTY_HOSTNAME in the text of a machine-info file (shell-style assignments:
/// quotes and backslash escapes as the shell reads them, "#" or ";" starting a comment line, the
/// last assignment winning); none when it is absent or blank.
std::optional<QString> prettyHostName(const QByteArray& machineInfo);

/// The host name in the text of a hostname file: its first line that is neither blank nor a
/// comment, trimmed; none when there is none.
std::optional<QString> staticHostName(const QByteArray& hostnameFile);

/// The pretty host name from `machineInfoPath`, else the static one from `hostnamePath`, else
/// none; an unreadable file counts as one without a name.
std::optional<QString> localizedHostName(const QString& machineInfoPath,
                                         const QString& hostnamePath);

}  // namespace platform
