#pragma once

#include <QObject>
#include <QString>
#include <functional>

#include "app/command_output.h"
#include "platform/file_provider/file_provider.h"

/// How often --progress reads the transfers, in milliseconds.
inline constexpr int PROGRESS_TICK_MS = 500;

/// Watches the domain's download and upload progress for `seconds` on the main thread, printing
/// a line for each unfinished one every half second, then the verdict. Calls `finish` once with
/// 0 when an unfinished transfer was seen, 2 when none was, and 1 at once when the domain is not
/// registered. Stops when `context` is destroyed. Must be called on the main thread with its
/// event loop about to run.
void watchProgress(double seconds, const Output& out, std::function<void(int)> finish,
                   QObject* context);

/// Whole percent of `completed` out of `total`, rounded toward zero; 0 when `total` is below 1.
/// Computed without overflow and kept within the range of an int.
int progressPercent(qint64 completed, qint64 total);

/// The line for one unfinished progress: "  <label> <completed>/<total> bytes (<n>%)
/// pausable=<y|n> paused=<y|n>".
QString progressLine(const QString& label, const platform::ProgressSnapshot& snapshot);
