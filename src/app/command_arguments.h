#pragma once

#include <QString>
#include <optional>

/// The default duration of --progress, in seconds.
inline constexpr double DEFAULT_PROGRESS_SECONDS = 20;
/// The default refresh interval of --watch, in seconds.
inline constexpr double DEFAULT_WATCH_INTERVAL = 60;
/// The longest duration or interval the commands accept; larger values, infinity included, are
/// taken as this (24 days, the longest a timer can run).
inline constexpr double MAX_COMMAND_SECONDS = 24.0 * 24 * 3600;
/// The shortest --watch interval; shorter positive intervals are taken as this, so that the
/// command never keeps the processor busy.
inline constexpr double MIN_WATCH_INTERVAL = 0.1;

/// A number of seconds as typed: a decimal, scientific or hexadecimal floating-point text with an
/// optional sign ("2.9", "1e3", "0x1p3", "inf"), read without regard to the locale; none when the
/// whole text is not one number.
std::optional<double> parseSeconds(const QString& text);

/// The duration of --progress: `text` when it parses; not-a-number gives the default, and values
/// beyond ±`MAX_COMMAND_SECONDS` are clamped. A negative duration is announced as it is and its
/// verdict comes at once.
double progressSeconds(const QString& text);

/// The interval of --watch: `text` when it parses; not-a-number, zero and negative values give
/// the default, others are clamped to [`MIN_WATCH_INTERVAL`, `MAX_COMMAND_SECONDS`].
double watchInterval(const QString& text);

/// Whole seconds of an accepted duration, the fraction dropped.
qint64 wholeSeconds(double seconds);
