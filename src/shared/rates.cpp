#include "shared/rates.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <array>
#include <charconv>

#include "platform/app_group_container.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/seam.h"

namespace Shared {
namespace {

constexpr double FRESH_FOR_SECONDS = 4.0;

// stats.json holds a handful of numbers and is read every second; a file of a mebibyte or more
// is not a sample, and reading it that often would cost more than the rates are worth.
constexpr qint64 MAX_STATS_BYTES = 1024 * 1024;

double numberOrZero(const QJsonObject& object, const QString& key) {
    const QJsonValue value = object.value(key);
    return value.isDouble() ? value.toDouble() : 0.0;
}

}  // namespace

std::optional<QString> statsURL() {
    const auto container =
        platform::current<platform::AppGroupContainer>().path(QLatin1String(APP_GROUP));
    if (!container) return std::nullopt;
    return *container + QStringLiteral("/stats.json");
}

Rates readRates() {
    const auto path = statsURL();
    if (!path) return {};
    const auto bytes = platform::readSmallFile(*path, MAX_STATS_BYTES);
    if (!bytes) return {};
    const QJsonDocument document = QJsonDocument::fromJson(*bytes);
    if (!document.isObject()) return {};
    const QJsonObject sample = document.object();
    const double at = numberOrZero(sample, QStringLiteral("at"));
    const double age = platform::current<platform::Clock>().secondsSince1970() - at;
    if (!(age < FRESH_FOR_SECONDS)) return {};  // also catches not-a-number
    // Rates are passed on as the writer gave them, negative ones included: formatRate shows
    // whatever number it gets.
    return {numberOrZero(sample, QStringLiteral("down_bps")),
            numberOrZero(sample, QStringLiteral("up_bps")), true};
}

}  // namespace Shared

namespace {

// printf's "%.Nf" without the locale: the display always uses "." as the decimal point.
QString fixed(double value, int decimals) {
    std::array<char, 400> buffer{};
    const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value,
                                      std::chars_format::fixed, decimals);
    if (result.ec != std::errc{}) return QStringLiteral("0");
    return QString::fromLatin1(buffer.data(), result.ptr - buffer.data());
}

}  // namespace

QString formatRate(double r) {
    if (r >= 1048576) return fixed(r / 1048576, 1) + QStringLiteral(" MB/s");
    if (r >= 1024) return fixed(r / 1024, 0) + QStringLiteral(" KB/s");
    return fixed(r, 0) + QStringLiteral(" B/s");
}
