#pragma once

#include <QObject>
#include <QString>
#include <memory>
#include <optional>
#include <thread>

#include "platform/file_provider/file_provider.h"
#include "platform/main_thread.h"
#include "server/account.h"
#include "shared/rates.h"

class QAction;
class QMenu;
class QTimer;

namespace platform {
class StatusItem;
}

/// The tray agent: the status item with its icon, rate label, tooltip and menu; the start-up
/// connection check; the periodic account refresh and its notices; the bandwidth and pause
/// controls; and the menu's actions. One instance, owned by the AppDelegate, lives on the main
/// thread for the whole process.
///
/// Completions of the file-provider service and the network arrive on threads of their own and
/// are handed to the main thread before they touch any state; work handed over after the
/// controller is gone is dropped.
class MenuBarController final : public QObject {
    Q_OBJECT
public:
    MenuBarController();
    ~MenuBarController() override;

    /// How long an account status stays fresh for the menu, in seconds.
    static constexpr double accountMaxAge = 300;

    // Start-up and connection.

    /// Creates the status item and its menu, moves a key kept in the configuration file into
    /// the keychain, decides whether this computer is set up (checking the stored key against
    /// the server when the domain is missing), and starts the 60-second refresh and the
    /// 1-second tick. Called once. The keychain work runs off the main thread; the rest follows
    /// on the main thread when it is done (`refreshTimer()` is set from then on).
    void start();
    /// A non-empty "server" in the configuration and a stored account key; reads the disk on
    /// every use.
    bool configured() const;
    /// Looks the domain up again and brings `domainRegistered`, the manager and the item up to
    /// date.
    void findDomain();
    /// Registers the domain under the current account's name; on refusal explains it in an
    /// alert. Ends with a fresh lookup either way.
    void addDomainAction();

    // Account refresh and notices.

    /// Fetches the account status in the background and applies it on the main thread,
    /// announcing a full account or an update offer once per occasion.
    void refreshAccount();
    /// `refreshAccount`, then signals the domain's working set (or looks for the domain when
    /// none is known).
    void refreshNow();
    /// Posts the "account full" notification for `account`.
    void noteSpace(const Account& account);
    /// Posts the "update offered" notification for `update`.
    void noteUpdate(const ClientUpdate& update);

    // Status item.

    /// Shows the symbol `name` on the item; an unknown symbol leaves the text label "Vaskel".
    void setIcon(const QString& name, const QString& description);
    /// Redraws icon, title and tooltip from the statistics file, the configuration and the
    /// last account status.
    void updateStatusItem();
    /// The tooltip for `rates` and the current state, lines joined with "\n".
    QString tooltip(const Shared::Rates& rates) const;

    // Menu and bandwidth controls.

    /// Empties `menu` and builds it again from the current state.
    void menuNeedsUpdate(QMenu* menu);
    /// A submenu item titled `title` with the bandwidth presets for the configuration `key`,
    /// the current value checked. The submenu belongs to `parent`.
    QAction* limitMenu(const QString& title, const QString& key, QMenu* parent);
    /// Writes the (key, value) pair that a preset item carries; ignores anything else.
    void setLimit(const QAction* item);
    /// Flips "transfers_paused" in the configuration and redraws the item.
    void togglePause();
    /// "transfers_paused" of the configuration as a boolean; reads the disk on every use.
    bool transfersPaused() const;

    // Menu actions.

    void openFolder();
    void openPortal();
    void openOnline();
    /// Shows the setup window in the regular presentation, with callbacks back to this
    /// controller.
    void showSetup();
    /// Asks, then unregisters the domain; configuration, key and cursor stay.
    void removeDomainAction();
    /// Unregisters the domain without asking and forgets the change-feed position.
    void removeDomainSilently();
    /// Deletes the sync extension's change-feed cursor; any failure is ignored.
    void resetCursor();
    /// Turns starting at login on or off.
    void toggleLogin();
    void quit();
    /// Explains the offered update and, when confirmed, opens its download and quits.
    void openUpdate();

    // State, for the menu and for tests.

    platform::StatusItem* statusItem() const { return statusItem_.get(); }
    QMenu* menu() const { return menu_.get(); }
    bool domainRegistered() const { return domainRegistered_; }
    const std::optional<platform::FileProviderManager>& manager() const { return manager_; }
    const std::optional<Account>& account() const { return account_; }
    std::optional<double> accountFetchedAt() const { return accountFetchedAt_; }
    std::optional<double> lastRefresh() const { return lastRefresh_; }
    const QTimer* refreshTimer() const { return refreshTimer_; }
    const QTimer* tickTimer() const { return tickTimer_; }

    /// Period of the refresh timer, in seconds.
    double refreshInterval = 60;
    /// How long a desktop may take to bring up its tray before the user is told there is none,
    /// in seconds.
    double trayGrace = 10;

private:
    /// Start-up once the keychain has been asked whether this computer is set up.
    void finishStart(bool isConfigured);
    void ensureConnected();
    void showRegistrationAlert(const platform::FileProviderError& error);
    void applyAccount(const Account& account);
    /// Tells the user once how to reach the agent when the desktop shows no tray.
    void announceMissingTray();
    void openServerPage(bool files);
    /// The configuration's "server" when it is a string, else the empty string.
    static QString configuredServer();
    QString tooltip(const Shared::Rates& rates, bool paused) const;
    /// Applies a domain lookup on the main thread.
    void setDomain(std::optional<platform::FileProviderManager> manager);

    std::unique_ptr<platform::StatusItem> statusItem_;
    std::unique_ptr<QMenu> menu_;
    QTimer* refreshTimer_ = nullptr;
    QTimer* tickTimer_ = nullptr;
    std::optional<platform::FileProviderManager> manager_;
    bool domainRegistered_ = false;
    std::optional<double> lastRefresh_;
    std::optional<Account> account_;
    std::optional<double> accountFetchedAt_;
    std::thread keychainStart_;
    platform::MainThreadTarget mainThread_{this};
};
