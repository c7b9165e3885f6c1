// The periodic account refresh, the working-set signal and the notices the user gets once per
// occasion: a full account, an offered update, and a desktop without a tray.

#include "menubar/menu_bar_controller.h"
#include "platform/clock.h"
#include "platform/desktop/notification_center.h"
#include "platform/log.h"
#include "platform/seam.h"
#include "platform/user_defaults.h"
#include "server/account_status.h"
#include "shared/key_storage.h"

namespace {

const QString NOTIFIED_UPDATE = QStringLiteral("notifiedUpdate");
const QString NOTIFIED_FULL = QStringLiteral("notifiedFull");

double now() {
    return platform::current<platform::Clock>().secondsSince1970();
}

// Shows `request` when the notification server lets us; a refused request is logged with
// `failure` in front of the reason.
void post(platform::NotificationRequest request, QString failure) {
    auto& center = platform::current<platform::NotificationCenter>();
    center.requestAuthorization(
        [&center, request = std::move(request), failure = std::move(failure)](bool granted) {
            if (!granted) return;
            center.add(request, [failure](std::optional<QString> error) {
                if (error) mlog.error(failure.arg(*error));
            });
        });
}

}  // namespace

void MenuBarController::refreshAccount() {
    if (!configured()) {
        account_.reset();
        return;
    }
    const QString server = configuredServer();
    const auto key = Shared::storedKey();
    if (!key || server.isEmpty()) return;
    const platform::MainThreadTarget mainThread = mainThread_;
    fetchAccount(server, *key, [this, mainThread](Result<Account, SignInError> result) {
        mainThread.post([this, result] {
            if (!result.ok()) {
                mlog.info(QStringLiteral("account refresh failed: %1")
                              .arg(result.error().errorDescription()));
                return;
            }
            applyAccount(result.value());
        });
    });
}

void MenuBarController::applyAccount(const Account& account) {
    account_ = account;
    accountFetchedAt_ = now();
    updateStatusItem();

    auto& defaults = platform::current<platform::UserDefaults>();
    if (account.update) {
        const QString label = account.update->label();
        if (defaults.string(NOTIFIED_UPDATE) != label) {
            // The marker is written first: a refused notification is not asked for again.
            defaults.setString(NOTIFIED_UPDATE, label);
            mlog.info(QStringLiteral("update available: %1").arg(label));
            noteUpdate(*account.update);
        }
    }
    if (account.isFull()) {
        if (!defaults.boolean(NOTIFIED_FULL)) {
            defaults.setBoolean(NOTIFIED_FULL, true);
            mlog.info(QStringLiteral("account is full: %1").arg(account.usageLabel()));
            noteSpace(account);
        }
    } else {
        defaults.remove(NOTIFIED_FULL);
    }
}

void MenuBarController::noteSpace(const Account& account) {
    post({QStringLiteral("vaskel-full"), QStringLiteral("Vaskel is full"),
          account.usageLabel() +
              QStringLiteral(". New files are waiting on this Mac and will upload once there is "
                             "room. Open the Vaskel menu to get more space.")},
         QStringLiteral("full notification failed: %1"));
}

void MenuBarController::noteUpdate(const ClientUpdate& update) {
    post({QStringLiteral("vaskel-update-") + update.label(),
          QStringLiteral("Vaskel ") + update.version + QStringLiteral(" is available"),
          update.notes.isEmpty()
              ? QStringLiteral("Choose Download from the Vaskel menu to install it.")
              : update.notes},
         QStringLiteral("update notification failed: %1"));
}

void MenuBarController::announceMissingTray() {
    post({QStringLiteral("vaskel-no-tray"), QStringLiteral("Vaskel is running"),
          QStringLiteral("Your desktop has no system tray, so the Vaskel icon cannot be shown. It "
                         "appears as soon as a tray does (on GNOME, add the AppIndicator "
                         "extension). Open Vaskel again to see its window.")},
         QStringLiteral("tray notification failed: %1"));
}

void MenuBarController::refreshNow() {
    refreshAccount();
    if (!manager_) {
        // A domain registered meanwhile (by the command line, say) is picked up for next time.
        findDomain();
        return;
    }
    const platform::MainThreadTarget mainThread = mainThread_;
    manager_->signalWorkingSetEnumerator([this, mainThread](
                                             std::optional<platform::FileProviderError> error) {
        mainThread.post([this, error] {
            if (error) {
                mlog.error(QStringLiteral("refresh failed: %1").arg(error->localizedDescription()));
            } else {
                lastRefresh_ = now();
            }
            updateStatusItem();
        });
    });
}
