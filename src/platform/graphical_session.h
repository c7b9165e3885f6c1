#pragma once

#include <QString>
#include <functional>
#include <optional>

namespace platform {

/// Looks up an environment variable; empty when unset.
using EnvironmentLookup = std::function<QString(const char* name)>;

/// The process environment.
QString processEnvironment(const char* name);

/// Tells whether a window can be opened, without letting the toolkit abort when none can.
/// Gives none when a display is usable: a Qt platform chosen through QT_QPA_PLATFORM, an X
/// display that accepts a connection from us (authorised through the process's XAUTHORITY,
/// local or remote), or a Wayland socket that accepts one. Otherwise gives a one-line
/// explanation for the user.
std::optional<QString> graphicalSessionProblem(const EnvironmentLookup& environment);

/// When only a Wayland display is reachable, asks Qt to use it (Qt tries X11 first otherwise).
/// Leaves an explicit QT_QPA_PLATFORM alone.
void preferReachableDisplay();

}  // namespace platform
