#include "app/command_arguments.h"

#include <locale.h>
#include <stdlib.h>

#include <algorithm>
#include <cctype>
#include <cmath>

std::optional<double> parseSeconds(const QString& text) {
    const QByteArray bytes = text.toUtf8();
    // strtod would skip leading white space; a number typed with it is not a number here.
    if (bytes.isEmpty() || std::isspace(static_cast<unsigned char>(bytes.front())))
        return std::nullopt;
    // Decimal, scientific and hexadecimal forms, "inf" and "nan", with the point whatever the
    // user's locale. Out of range gives infinity or (nearly) zero, as it should.
    static const locale_t cLocale = ::newlocale(LC_ALL_MASK, "C", nullptr);
    char* end = nullptr;
    const double value = ::strtod_l(bytes.constData(), &end, cLocale);
    // The whole text must be the number; this also refuses an embedded NUL.
    if (end != bytes.constData() + bytes.size()) return std::nullopt;
    return value;
}

double progressSeconds(const QString& text) {
    const auto value = parseSeconds(text);
    if (!value || std::isnan(*value)) return DEFAULT_PROGRESS_SECONDS;
    return std::clamp(*value, -MAX_COMMAND_SECONDS, MAX_COMMAND_SECONDS);
}

double watchInterval(const QString& text) {
    const auto value = parseSeconds(text);
    if (!value || std::isnan(*value) || *value <= 0) return DEFAULT_WATCH_INTERVAL;
    return std::clamp(*value, MIN_WATCH_INTERVAL, MAX_COMMAND_SECONDS);
}

qint64 wholeSeconds(double seconds) {
    return qint64(std::trunc(seconds));
}
