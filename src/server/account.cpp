#include "server/account.h"

#include <cmath>

#include "server/byte_count_format.h"

QString ClientUpdate::label() const {
    if (build >= 1) return version + QStringLiteral(" (%1)").arg(build);
    return version;
}

QString Account::usageLabel() const {
    QString label = formatByteCount(usedBytes);
    if (!unlimited) label += QLatin1String(" of ") + formatByteCount(quotaBytes);
    return label + QLatin1String(" used");
}

double Account::fraction() const {
    if (!hasQuota()) return 0.0;
    return std::min(1.0, double(usedBytes) / double(quotaBytes));
}

bool Account::isFull() const {
    return hasQuota() && usedBytes >= quotaBytes;
}

std::optional<QString> Account::spaceNotice() const {
    if (!hasQuota()) return std::nullopt;
    if (usedBytes >= quotaBytes) {
        return QStringLiteral("Vaskel is full \u2013 new files are waiting. Get more space\u2026");
    }
    if (double(usedBytes) / double(quotaBytes) >= 0.95) {
        return QStringLiteral("Vaskel is almost full \u2013 get more space\u2026");
    }
    return std::nullopt;
}

std::optional<QString> Account::paymentNotice() const {
    if (status == QLatin1String("past_due")) {
        return QStringLiteral("Payment failed \u2013 update your card\u2026");
    }
    if (status == QLatin1String("suspended")) {
        return QStringLiteral("Access paused \u2013 payment needed\u2026");
    }
    return std::nullopt;
}

QString Account::glanceLabel() const {
    QString label = usageLabel();
    if (hasQuota()) {
        // std::round rounds halves away from zero.
        const auto percent = static_cast<long long>(std::round(fraction() * 100.0));
        label += QStringLiteral(" (%1%)").arg(percent);
    }
    if (!planName.isEmpty()) label = planName + QStringLiteral(" \u00b7 ") + label;
    return label;
}

QString SignInError::errorDescription() const {
    switch (case_) {
        case Case::unreachable:
            return QStringLiteral("Could not reach the server. ") + text_;
        case Case::badURL:
            return QStringLiteral("That does not look like a valid server address.");
        case Case::rejected:
            return QStringLiteral(
                "The server did not accept that key. Check it was copied in full.");
        case Case::malformed:
            return QStringLiteral("The server responded, but not in a way this app understands.");
    }
    return {};
}
