#include "server/byte_count_format.h"

#include <array>

namespace {

struct Unit {
    const char* name;
    int exponent;  // the unit is 10^exponent bytes
    int decimals;
};

constexpr std::array<Unit, 6> UNITS{
    {{"KB", 3, 0}, {"MB", 6, 1}, {"GB", 9, 2}, {"TB", 12, 2}, {"PB", 15, 2}, {"EB", 18, 2}}};

std::uint64_t powerOfTen(int exponent) {
    std::uint64_t value = 1;
    while (exponent-- > 0) value *= 10;
    return value;
}

/// `magnitude` divided by `divisor`, rounded half up, in integers (no floating-point error).
std::uint64_t roundedQuotient(std::uint64_t magnitude, std::uint64_t divisor) {
    const std::uint64_t quotient = magnitude / divisor;
    const std::uint64_t remainder = magnitude % divisor;
    return remainder >= divisor - remainder ? quotient + 1 : quotient;
}

}  // namespace

QString formatByteCount(std::int64_t bytes) {
    const bool negative = bytes < 0;
    const std::uint64_t magnitude =
        negative ? std::uint64_t(0) - std::uint64_t(bytes) : std::uint64_t(bytes);
    const QString sign = negative ? QStringLiteral("-") : QString();

    if (magnitude < 1000) {
        return sign + QString::number(magnitude) +
               (magnitude == 1 ? QStringLiteral(" byte") : QStringLiteral(" bytes"));
    }

    // The smallest unit whose rounded value stays below 1000, or the largest unit.
    std::size_t index = 0;
    std::uint64_t scaled = 0;
    for (;; ++index) {
        const Unit& unit = UNITS[index];
        scaled = roundedQuotient(magnitude, powerOfTen(unit.exponent - unit.decimals));
        if (index + 1 == UNITS.size() || scaled < 1000 * powerOfTen(unit.decimals)) break;
    }

    const Unit& unit = UNITS[index];
    const std::uint64_t denominator = powerOfTen(unit.decimals);
    QString text = QString::number(scaled / denominator);
    if (unit.decimals > 0) {
        QString fraction =
            QString::number(scaled % denominator).rightJustified(unit.decimals, QLatin1Char('0'));
        while (fraction.endsWith(QLatin1Char('0'))) fraction.chop(1);
        if (!fraction.isEmpty()) text += QLatin1Char('.') + fraction;
    }
    return sign + text + QLatin1Char(' ') + QLatin1String(unit.name);
}
