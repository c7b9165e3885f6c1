#pragma once

#include <QString>
#include <functional>
#include <optional>

namespace platform {

/// Looks up an environment variable; empty when unset.
using EnvironmentLookup = std::function<QString(const char* name)>;

/// The process environment.
QString processEnvironment(const char* name);

/// Whether windows can be opened, and on which display.
struct GraphicalSession {
    /// None when a display is usable; otherwise a one-line explanation for the user.
    std::optional<QString> problem;
    /// The X display is not usable but a Wayland one is: Qt must be told (see preferWayland).
    bool waylandOnly = false;
};

/// Finds out whether a window can be opened, without letting the toolkit abort when none can.
/// A display is usable when a Qt platform is chosen through QT_QPA_PLATFORM, when an X display
/// accepts a connection from us (authorised through the process's XAUTHORITY, local or remote),
/// or when a Wayland socket accepts one. Each display is tried once.
GraphicalSession findGraphicalSession(const EnvironmentLookup& environment);

/// Asks Qt to use Wayland, which it otherwise tries only after X11.
void preferWayland();

}  // namespace platform
