#pragma once

#include <QString>
#include <variant>

namespace platform {

/// The entry point that the desktop module exports for application mode.
using ApplicationEntry = int (*)(int argc, char** argv);

/// The name under which the desktop module exports its entry point.
inline constexpr const char* APPLICATION_ENTRY_SYMBOL = "vaskel_run_application";

/// Loads the desktop module (the tray agent and windows) from the executable's directory, or
/// from ../lib/vaskel beside it when installed, and gives its entry point or a description of
/// why it could not be loaded. The module stays loaded for the life of the process.
std::variant<ApplicationEntry, QString> loadDesktopModule();

}  // namespace platform
