#include "app/command_arguments.h"

#include <charconv>
#include <cmath>
#include <string>

std::optional<double> parseSeconds(const QString& text) {
    std::string bytes = text.toStdString();
    if (!bytes.empty() && bytes.front() == '+') bytes.erase(0, 1);
    if (bytes.empty()) return std::nullopt;
    double value = 0;
    const char* end = bytes.data() + bytes.size();
    const auto [stop, error] = std::from_chars(bytes.data(), end, value);
    if (stop != end) return std::nullopt;
    if (error == std::errc::result_out_of_range) {
        // Too large or too small for a double: the nearest is infinity or zero.
        const bool negative = bytes.front() == '-';
        const auto exponent = bytes.find_first_of("eE");
        const bool underflow = exponent != std::string::npos && exponent + 1 < bytes.size() &&
                               bytes[exponent + 1] == '-';
        if (underflow) return negative ? -0.0 : 0.0;
        return negative ? -INFINITY : INFINITY;
    }
    if (error != std::errc()) return std::nullopt;
    return value;
}

double progressSeconds(const QString& text) {
    const auto value = parseSeconds(text);
    if (!value || std::isnan(*value)) return DEFAULT_PROGRESS_SECONDS;
    return std::clamp(*value, 0.0, MAX_COMMAND_SECONDS);
}

double watchInterval(const QString& text) {
    const auto value = parseSeconds(text);
    if (!value || std::isnan(*value) || *value <= 0) return DEFAULT_WATCH_INTERVAL;
    return std::clamp(*value, MIN_WATCH_INTERVAL, MAX_COMMAND_SECONDS);
}

qint64 wholeSeconds(double seconds) {
    return qint64(std::trunc(seconds));
}
