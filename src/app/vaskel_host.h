#pragma once

#include <QString>
#include <optional>

/// The build's date-and-time stamp, shown by --version and logged at start-up.
inline constexpr const char* BUILD_STAMP = "20261007-080416";

/// The process entry: decides between application mode and command mode.
namespace VaskelHost {

/// Runs the program. With one element in the argument vector or none it is the tray application;
/// with more it runs the command named by argv[1] and ends. Returns the process exit status.
int main(int argc, char** argv);

/// Why this copy must not run, or none: a copy running from a mounted disk image or from a
/// location the system chose for a downloaded copy (tested in that order on the bundle path).
std::optional<QString> installLocationProblem();

}  // namespace VaskelHost
