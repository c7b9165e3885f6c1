#pragma once

#include <chrono>

#include "app/command_output.h"

/// How long a one-shot command may take before the process ends without it.
inline constexpr std::chrono::milliseconds COMMAND_TIME_LIMIT{20'000};

/// Runs the command named by argv[1] (argc is at least 2) and gives the exit status. Prints plain
/// lines to standard output only; standard error stays empty.
int runCommandMode(int argc, char** argv);

/// Runs the command named by argv[1], printing to `out`. One-shot commands are waited for up to
/// `timeLimit` (their status is 0 either way, and `out` is closed when the wait ends); --watch
/// and --progress run an event loop on the calling thread, creating the application object
/// when there is none, until they finish. `argc` and `argv` must outlive the call.
int runCommand(int& argc, char** argv, const Output& out,
               std::chrono::milliseconds timeLimit = COMMAND_TIME_LIMIT);
