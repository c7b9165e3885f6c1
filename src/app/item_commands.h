#pragma once

#include <QString>

#include "app/command_output.h"

// --identify and --evict: one file or folder of a synced folder, named by its path.

/// Prints the item identifier and domain identifier of `path`, or why there is none.
void identifyPath(const QString& path, const Output& out, Completion completion);

/// Asks the extension of the path's own domain to drop the local copy of the item's content.
void evictPath(const QString& path, const Output& out, Completion completion);

/// The last component of `path` as a file location: "report.pdf" for "a/b/report.pdf/".
QString lastPathComponent(const QString& path);
