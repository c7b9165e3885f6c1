#include "setup/setup_view.h"

#include <QFile>
#include <QPointer>
#include <QTimer>

#include "domain/provider_responds.h"
#include "platform/desktop/alerts.h"
#include "platform/desktop/presentation.h"
#include "platform/host_name.h"
#include "platform/seam.h"
#include "server/account_status.h"
#include "server/server_address.h"
#include "server/sign_in.h"
#include "shared/config.h"
#include "shared/key_storage.h"
#include "shared/keychain_store.h"

namespace {

// The device name the server records for a sign-in when the computer has no name of its own.
const QString FALLBACK_DEVICE_NAME = QStringLiteral("Mac");

// How long the extension may take to answer a check, in seconds.
constexpr double PROVIDER_CHECK_TIMEOUT = 6.0;

// The extension check after a sign-in waits this long, so that the agent has registered the
// domain by then.
constexpr int CHECK_AFTER_SIGN_IN_MS = 2000;

void call(const std::function<void()>& callback) {
    if (callback) callback();
}

}  // namespace

SetupView::SetupView(std::function<void()> onConnected, std::function<void()> onSignedOut,
                     std::function<void()> onOpenFolder, std::function<void()> onClose,
                     QObject* parent)
    : QObject(parent),
      server_(DEFAULT_SERVER),
      onConnected_(std::move(onConnected)),
      onSignedOut_(std::move(onSignedOut)),
      onOpenFolder_(std::move(onOpenFolder)),
      onClose_(std::move(onClose)) {}

template <class T>
void SetupView::write(T& cell, T value) {
    cell = std::move(value);
    Q_EMIT changed();
}

void SetupView::setServer(const QString& server) {
    write(server_, server);
}
void SetupView::setEmail(const QString& email) {
    write(email_, email);
}
void SetupView::setPassword(const QString& password) {
    write(password_, password);
}
void SetupView::setShowAdvanced(bool show) {
    write(showAdvanced_, show);
}
void SetupView::setPortalHint(std::optional<QUrl> portalHint) {
    write(portalHint_, std::move(portalHint));
}
void SetupView::setAccount(std::optional<Account> account) {
    write(account_, std::move(account));
}
void SetupView::setBusy(bool busy) {
    write(busy_, busy);
}
void SetupView::setError(std::optional<QString> error) {
    write(error_, std::move(error));
}
void SetupView::setProviderWorking(std::optional<bool> working) {
    write(providerWorking_, working);
}
void SetupView::setChecking(bool checking) {
    write(checking_, checking);
}

bool SetupView::canSignIn() const {
    return !busy_ && email_.contains(QLatin1Char('@')) && !password_.isEmpty();
}

void SetupView::signIn() {
    setBusy(true);
    setError(std::nullopt);
    setPortalHint(std::nullopt);
    const QString deviceName =
        platform::current<platform::HostName>().localizedName().value_or(FALLBACK_DEVICE_NAME);

    const platform::MainThreadTarget mainThread = mainThread_;
    loginWithPassword(server_, email_, password_, deviceName,
                      [this, mainThread](const Result<DeviceLogin, AuthError>& login) {
                          if (!login.ok()) {
                              mainThread.post([this, error = login.error()] {
                                  setBusy(false);
                                  setError(error.errorDescription());
                                  if (error.kind() == AuthError::Case::inactive) {
                                      setPortalHint(parseURL(error.text()));
                                  }
                              });
                              return;
                          }
                          // Still on the network thread: the issued key is checked before anything
                          // is kept.
                          fetchAccount(
                              login.value().server, login.value().apiKey,
                              [this, mainThread,
                               login = login.value()](const Result<Account, SignInError>& account) {
                                  mainThread.post([this, login, account] {
                                      setBusy(false);
                                      if (!account.ok()) {
                                          setError(account.error().errorDescription());
                                          return;
                                      }
                                      finishSignIn(login.server, login.apiKey, account.value());
                                  });
                              });
                      });
}

void SetupView::finishSignIn(const QString& server, const QString& key, const Account& account) {
    setServer(server);
    Shared::setConfig(QStringLiteral("server"), server);
    Shared::storeKey(key, account.email);
    Shared::setConfig(QStringLiteral("account_email"), account.email);
    setPassword(QString());
    setAccount(account);
    call(onConnected_);
    QTimer::singleShot(CHECK_AFTER_SIGN_IN_MS, this, [this] { recheck(); });
}

void SetupView::loadExisting() {
    const QString configured =
        Shared::configString(Shared::readConfig(), QStringLiteral("server")).value_or(QString());
    if (!configured.isEmpty()) setServer(configured);
    const std::optional<QString> key = Shared::storedKey();
    if (!key || key->isEmpty() || configured.isEmpty()) return;

    setBusy(true);
    const platform::MainThreadTarget mainThread = mainThread_;
    fetchAccount(server_, *key, [this, mainThread](const Result<Account, SignInError>& account) {
        mainThread.post([this, account] {
            setBusy(false);
            if (!account.ok()) {
                setError(account.error().errorDescription());
                return;
            }
            setAccount(account.value());
            recheck();
        });
    });
}

void SetupView::recheck() {
    setChecking(true);
    const platform::MainThreadTarget mainThread = mainThread_;
    providerResponds(PROVIDER_CHECK_TIMEOUT, [this, mainThread](bool working) {
        mainThread.post([this, working] {
            setChecking(false);
            setProviderWorking(working);
        });
    });
}

void SetupView::signOut() {
    platform::Presentation::shared().activate();
    const QPointer<SetupView> alive(this);
    const int answer = platform::current<platform::Alerts>().runModal(
        {platform::Alert::Style::warning,
         QStringLiteral("Sign out of Vaskel?"),
         QStringLiteral("The Vaskel folder will be removed from this Mac and the stored key "
                        "forgotten. Nothing is deleted from the server."),
         {QStringLiteral("Sign Out"), QStringLiteral("Cancel")}});
    // The alert runs its own event loop; the window may have gone away meanwhile.
    if (answer != platform::ALERT_FIRST_BUTTON || !alive) return;

    const std::optional<QString> server =
        Shared::configString(Shared::readConfig(), QStringLiteral("server"));
    const std::optional<QString> key = Shared::storedKey();
    if (key && !key->isEmpty() && server && !server->isEmpty()) {
        // Best effort: the local sign-out does not depend on the server hearing of it.
        logoutDevice(*server, *key, [](bool) {});
    }
    KeychainStore::deleteKey();
    QFile::remove(Shared::keychainMarkerPath());
    Shared::setConfig(QStringLiteral("api_key"), QString());
    setAccount(std::nullopt);
    setPassword(QString());
    call(onSignedOut_);
}

void SetupView::openFolder() const {
    call(onOpenFolder_);
}

void SetupView::close() const {
    call(onClose_);
}
