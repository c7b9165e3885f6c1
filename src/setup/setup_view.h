#pragma once

#include <QObject>
#include <QString>
#include <QUrl>
#include <functional>
#include <optional>

#include "platform/main_thread.h"
#include "server/account.h"

/// The state of the setup window and the flows that change it: signing in, checking an existing
/// sign-in, checking that the sync extension answers, and signing out. Every write to a state
/// cell emits `changed()`, from which the window redraws itself. State lives on the main thread
/// only; answers from the network and the sync service are handed over to it before they touch
/// anything, and are dropped once the view is gone.
///
/// The view never registers or removes the sync domain itself: it reports what happened through
/// its callbacks, and whoever opened the window acts on them. An empty callback is not called.
class SetupView final : public QObject {
    Q_OBJECT
public:
    SetupView(std::function<void()> onConnected, std::function<void()> onSignedOut,
              std::function<void()> onOpenFolder, std::function<void()> onClose,
              QObject* parent = nullptr);

    // State cells. The form's controls write `server`, `email`, `password` and `showAdvanced`;
    // the flows below write the rest.

    /// The server as typed in the advanced section or as configured; replaced by the server a
    /// sign-in answers with. Starts as DEFAULT_SERVER.
    const QString& server() const { return server_; }
    void setServer(const QString& server);
    const QString& email() const { return email_; }
    void setEmail(const QString& email);
    /// As typed; sent with the sign-in request and kept nowhere else.
    const QString& password() const { return password_; }
    void setPassword(const QString& password);
    bool showAdvanced() const { return showAdvanced_; }
    void setShowAdvanced(bool show);
    /// Where an account without a plan can choose one; set only by a sign-in refused for that.
    const std::optional<QUrl>& portalHint() const { return portalHint_; }
    void setPortalHint(std::optional<QUrl> portalHint);
    /// The signed-in account; none while signed out.
    const std::optional<Account>& account() const { return account_; }
    void setAccount(std::optional<Account> account);
    /// A sign-in or an account check is running.
    bool busy() const { return busy_; }
    void setBusy(bool busy);
    /// The last failure, as one line of text for the user.
    const std::optional<QString>& error() const { return error_; }
    void setError(std::optional<QString> error);
    /// The last extension check: none before one answered, then whether the extension answers.
    std::optional<bool> providerWorking() const { return providerWorking_; }
    void setProviderWorking(std::optional<bool> working);
    /// An extension check is running.
    bool checking() const { return checking_; }
    void setChecking(bool checking);

    /// Whether "Sign In" may run: not busy, an "@" somewhere in the e-mail and a password, as
    /// typed (no trimming, no further checks).
    bool canSignIn() const;

    /// Signs in with the form's server, e-mail and password. The account key is kept only once
    /// the account request with it has succeeded; then the server and the account's e-mail go
    /// into the configuration, the password is forgotten, `onConnected` runs and the extension
    /// is checked two seconds later. A failure leaves the form filled and sets `error`.
    void signIn();

    /// What the window does when it appears: takes the configured server, and when a key is
    /// stored too, checks it with an account request and shows the account (storing nothing).
    void loadExisting();

    /// Checks whether the sync extension answers (6 seconds at most) and keeps the answer in
    /// `providerWorking`. Checks may overlap; each answer is applied as it arrives.
    void recheck();

    /// Asks the user to confirm, then forgets the key (the server is told, best effort, when a
    /// server and a key are configured), deletes the keychain marker, empties `api_key`, clears
    /// the account and the password and runs `onSignedOut`. A cancel changes nothing.
    void signOut();

    /// The enable step's folder button.
    void openFolder() const;
    /// The footer's "Done" and "Skip for Now".
    void close() const;

Q_SIGNALS:
    /// A state cell was written.
    void changed();

private:
    template <class T>
    void write(T& cell, T value);
    void finishSignIn(const QString& server, const QString& key, const Account& account);

    QString server_;
    QString email_;
    QString password_;
    bool showAdvanced_ = false;
    std::optional<QUrl> portalHint_;
    std::optional<Account> account_;
    bool busy_ = false;
    std::optional<QString> error_;
    std::optional<bool> providerWorking_;
    bool checking_ = false;

    std::function<void()> onConnected_;
    std::function<void()> onSignedOut_;
    std::function<void()> onOpenFolder_;
    std::function<void()> onClose_;

    platform::MainThreadTarget mainThread_{this};
};
