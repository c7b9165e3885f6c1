#pragma once

#include <QString>
#include <functional>

#include "server/result.h"

/// The result of a password sign-in: this device's account key and whom it belongs to.
struct DeviceLogin {
    QString apiKey;  // the account key issued for this device
    QString server;  // the origin to use from now on, normalised
    QString email;   // the account's e-mail address
    QString name;    // the account holder's name; empty when the server gave none

    bool operator==(const DeviceLogin&) const = default;
};

/// Why a sign-in failed. Two values are equal when case and carried value are.
class AuthError {
public:
    enum class Case {
        inactive,
        unreachable,
        malformed,
        badURL,
        badCredentials,
        unverified,
        tooMany
    };

    /// The account has no plan yet; `portal` is where one can be chosen.
    static AuthError inactive(const QString& portal) { return {Case::inactive, portal, 0}; }
    /// The server could not be reached; `description` says why.
    static AuthError unreachable(const QString& description) {
        return {Case::unreachable, description, 0};
    }
    /// The server answered with HTTP `status` in a way that means nothing here.
    static AuthError malformed(int status) { return {Case::malformed, {}, status}; }
    static AuthError badURL() { return {Case::badURL, {}, 0}; }
    static AuthError badCredentials() { return {Case::badCredentials, {}, 0}; }
    static AuthError unverified() { return {Case::unverified, {}, 0}; }
    static AuthError tooMany() { return {Case::tooMany, {}, 0}; }

    Case kind() const { return case_; }
    /// The portal address of `inactive`, the description of `unreachable`; else empty.
    const QString& text() const { return text_; }
    /// The HTTP status of `malformed`; else 0.
    int status() const { return status_; }

    /// The sentence shown to the user.
    QString errorDescription() const;

    bool operator==(const AuthError&) const = default;

private:
    AuthError(Case kind, QString text, int status)
        : case_(kind), text_(std::move(text)), status_(status) {}
    Case case_;
    QString text_;
    int status_;
};

/// Signs in with e-mail address and password and asks for an account key for this device.
/// Returns at once. The completion runs exactly once: on the network session's thread, or, for
/// a server text that forms no address with a host, with `badURL` on the calling thread before
/// this returns. The password is sent once and kept nowhere.
void loginWithPassword(const QString& server, const QString& email, const QString& password,
                       const QString& deviceName,
                       std::function<void(Result<DeviceLogin, AuthError>)> completion);

/// Asks the server to revoke this device's account key. The completion runs exactly once with
/// true when the server confirmed (HTTP 200): on the network session's thread, or with false on
/// the calling thread when the server text forms no URL.
void logoutDevice(const QString& server, const QString& key, std::function<void(bool)> completion);
