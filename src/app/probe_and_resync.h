#pragma once

#include "app/command_output.h"

// --probe and --resync: whether the sync extension answers, and a rewind of its change feed.

/// How long --probe waits for the extension, in seconds.
inline constexpr double PROBE_TIMEOUT_SECONDS = 8;

/// The cursor file's content after a rewind: exactly {"changeCursor":1}.
QByteArray rewoundCursor();

/// Tells whether the extension lists its folder within 8 seconds, with the time it took, or
/// where to switch it on.
void probeProvider(const Output& out, Completion completion);

/// Replaces the extension's change-feed cursor (cursor.json in the app-group container) with
/// the rewound one, then asks for a refresh as --refresh does.
void resyncMetadata(const Output& out, Completion completion);
