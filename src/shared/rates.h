#pragma once

#include <QString>
#include <optional>

// Transfer rates: the sync extension leaves a sample of its current rates in stats.json in the
// app-group container; this program only reads it.
namespace Shared {

/// The application group shared with the sync extension.
inline constexpr const char* APP_GROUP = "group.com.norva.vaskel";

/// One transfer-rate sample, in bytes per second. A sample that is not fresh has both rates 0.
struct Rates {
    double down = 0;
    double up = 0;
    bool fresh = false;

    bool operator==(const Rates&) const = default;
};

/// The path of stats.json in the app-group container; none when the container is not available.
std::optional<QString> statsURL();

/// Reads the current sample. It is fresh when its "at" stamp is less than 4 seconds old (a stamp
/// in the future counts as fresh). Any problem with the file (missing, unreadable, 1 MiB or more,
/// not a JSON object) gives zero rates, not fresh; a rate that is not a JSON number reads as 0.
/// Nothing is logged.
Rates readRates();

}  // namespace Shared

/// A rate in bytes per second for display: "1.5 MB/s" (from 1048576), "12 KB/s" (from 1024),
/// "800 B/s"; always with "." as the decimal point.
QString formatRate(double bytesPerSecond);
