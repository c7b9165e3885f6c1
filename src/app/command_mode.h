#pragma once

/// Runs the command named by argv[1] (argc is at least 2) and gives the exit status. Prints plain
/// lines to standard output only; standard error stays empty.
int runCommandMode(int argc, char** argv);
