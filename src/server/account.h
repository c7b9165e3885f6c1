#pragma once

#include <QString>
#include <cstdint>
#include <optional>

/// A newer client that the server offers.
struct ClientUpdate {
    QString version;         // never empty
    std::int64_t build = 0;  // 0 when unknown
    QString url;             // where to download it; may be empty
    QString notes;           // release notes; may be empty

    /// "2.4 (52)", or the version alone when the build is unknown.
    QString label() const;

    bool operator==(const ClientUpdate&) const = default;
};

/// The signed-in account as the server reports it.
struct Account {
    QString email;
    QString name;
    std::int64_t usedBytes = 0;
    std::int64_t quotaBytes = 0;
    bool unlimited = true;  // only an explicit false from the server limits the account
    QString planName;
    QString status;  // billing state, e.g. "past_due" or "suspended"
    std::optional<ClientUpdate> update;

    /// "1.2 GB used", or "1.2 GB of 5 GB used" for a limited account.
    QString usageLabel() const;
    /// The usage with the percentage when a quota is set and the plan in front when known:
    /// "Pro · 4.1 GB of 5 GB used (82%)".
    QString glanceLabel() const;
    /// Share of the quota in use, at most 1; 0 when no quota is set.
    double fraction() const;
    /// A quota is set and used up.
    bool isFull() const;
    /// The full or almost-full notice (from 95%), when a quota is set.
    std::optional<QString> spaceNotice() const;
    /// The notice for a failed or missing payment.
    std::optional<QString> paymentNotice() const;

    bool operator==(const Account&) const = default;

private:
    bool hasQuota() const { return !unlimited && quotaBytes >= 1; }
};

/// Why the account status could not be had. Two values are equal when case and carried value
/// are.
class SignInError {
public:
    enum class Case { unreachable, badURL, rejected, malformed };

    /// The server could not be reached; `description` says why.
    static SignInError unreachable(const QString& description) {
        return {Case::unreachable, description};
    }
    static SignInError badURL() { return {Case::badURL, {}}; }
    /// The server refused the account key (HTTP 401 or 403).
    static SignInError rejected() { return {Case::rejected, {}}; }
    static SignInError malformed() { return {Case::malformed, {}}; }

    Case kind() const { return case_; }
    /// The description of `unreachable`; else empty.
    const QString& text() const { return text_; }

    /// The sentence shown to the user.
    QString errorDescription() const;

    bool operator==(const SignInError&) const = default;

private:
    SignInError(Case kind, QString text) : case_(kind), text_(std::move(text)) {}
    Case case_;
    QString text_;
};
