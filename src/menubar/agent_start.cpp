// Start-up of the tray agent: the status item, the timers, the check whether this computer is
// set up and connected, and registering the sync domain.

#include <QMenu>
#include <QTimer>

#include "app/vaskel_host.h"
#include "domain/domain_identity.h"
#include "domain/registered_domain.h"
#include "menubar/menu_bar_controller.h"
#include "platform/desktop/alerts.h"
#include "platform/desktop/presentation.h"
#include "platform/desktop/status_item.h"
#include "platform/log.h"
#include "platform/seam.h"
#include "server/account_status.h"
#include "shared/config.h"
#include "shared/key_storage.h"

namespace {

void setPresentation(platform::ActivationPolicy policy) {
    platform::Presentation::shared().setActivationPolicy(policy);
}

}  // namespace

MenuBarController::MenuBarController() = default;

QString MenuBarController::configuredServer() {
    return Shared::configString(Shared::readConfig(), QStringLiteral("server")).value_or(QString());
}

MenuBarController::~MenuBarController() {
    if (keychainStart_.joinable()) keychainStart_.join();
}

bool MenuBarController::configured() const {
    const bool hasServer = !configuredServer().isEmpty();
    // The key is read even without a server, as every caller expects the same disk reads.
    const bool hasKey = Shared::storedKey().has_value();
    return hasServer && hasKey;
}

void MenuBarController::start() {
    mlog.info(QStringLiteral("Vaskel %1 starting").arg(QLatin1String(BUILD_STAMP)));

    statusItem_ = platform::current<platform::StatusBar>().makeStatusItem();
    if (statusItem_->hasButton()) {
        setIcon(QStringLiteral("cloud"), QStringLiteral("Vaskel"));
        mlog.info(QStringLiteral("status item created"));
    } else {
        mlog.error(QStringLiteral("status item has no button — menu bar may be full"));
        // The item remembers what it is given and shows it once a tray appears. A panel that
        // starts along with the session gets a moment before the user is told.
        setIcon(QStringLiteral("cloud"), QStringLiteral("Vaskel"));
        QTimer::singleShot(int(trayGrace * 1000), this, [this] {
            if (!statusItem_->hasButton()) announceMissingTray();
        });
    }

    menu_ = std::make_unique<QMenu>();
    connect(menu_.get(), &QMenu::aboutToShow, this, [this] { menuNeedsUpdate(menu_.get()); });
    statusItem_->setMenu(menu_.get());

    // A keychain that does not answer keeps its first caller waiting for the whole time-out
    // (later calls learn from that and fail at once). The first keychain work of the process
    // therefore runs off the main thread, so that the item shows and answers its panel at once.
    const platform::MainThreadTarget mainThread = mainThread_;
    keychainStart_ = std::thread([this, mainThread] {
        Shared::migrateKeyToKeychain();
        const bool isConfigured = configured();  // reads the disk and the keychain, no state
        mainThread.post([this, isConfigured] { finishStart(isConfigured); });
    });
}

void MenuBarController::finishStart(bool isConfigured) {
    if (isConfigured) {
        mlog.info(QStringLiteral("config present; checking whether it actually works"));
        ensureConnected();
    } else {
        mlog.info(QStringLiteral("not configured; showing setup as a normal app"));
        QTimer::singleShot(300, this, [this] { showSetup(); });
    }

    refreshAccount();

    refreshTimer_ = new QTimer(this);
    refreshTimer_->setInterval(int(refreshInterval * 1000));
    connect(refreshTimer_, &QTimer::timeout, this, [this] { refreshNow(); });
    refreshTimer_->start();

    tickTimer_ = new QTimer(this);
    tickTimer_->setInterval(1000);
    connect(tickTimer_, &QTimer::timeout, this, [this] { updateStatusItem(); });
    tickTimer_->start();
}

void MenuBarController::ensureConnected() {
    const platform::MainThreadTarget mainThread = mainThread_;
    findRegisteredDomain([this, mainThread](std::optional<RegisteredDomain> found) {
        if (found) {
            mainThread.post([this, manager = found->manager] {
                setDomain(manager);
                setPresentation(platform::ActivationPolicy::accessory);
                mlog.info(QStringLiteral("connected; running in the menu bar"));
                updateStatusItem();
                refreshNow();
            });
            return;
        }
        mainThread.post([this, mainThread] {
            const QString server = configuredServer();
            const QString key = Shared::storedKey().value_or(QString());
            mlog.info(QStringLiteral("config present but no domain; validating the key"));
            fetchAccount(server, key, [this, mainThread](Result<Account, SignInError> result) {
                mainThread.post([this, result] {
                    if (!result.ok()) {
                        mlog.info(QStringLiteral("stored key unusable (%1); showing setup")
                                      .arg(result.error().errorDescription()));
                        showSetup();
                        return;
                    }
                    const Account& account = result.value();
                    mlog.info(QStringLiteral("key works; connecting as %1").arg(account.email));
                    // The domain registered next takes its display name from this key.
                    Shared::setConfig(QStringLiteral("account_email"), account.email);
                    addDomainAction();
                    setPresentation(platform::ActivationPolicy::accessory);
                });
            });
        });
    });
}

void MenuBarController::findDomain() {
    const platform::MainThreadTarget mainThread = mainThread_;
    findRegisteredDomain([this, mainThread](std::optional<RegisteredDomain> found) {
        std::optional<platform::FileProviderManager> manager;
        if (found) manager = found->manager;
        mainThread.post([this, manager] {
            setDomain(manager);
            updateStatusItem();
        });
    });
}

void MenuBarController::setDomain(std::optional<platform::FileProviderManager> manager) {
    domainRegistered_ = manager.has_value();
    manager_ = std::move(manager);
}

void MenuBarController::addDomainAction() {
    const platform::FileProviderDomain domain = makeDomain();
    mlog.info(QStringLiteral("registering domain %1").arg(domain.displayName));
    const platform::MainThreadTarget mainThread = mainThread_;
    platform::FileProviderManager::add(
        domain, [this, mainThread](std::optional<platform::FileProviderError> error) {
            if (error) {
                mlog.error(QStringLiteral("domain registration FAILED: %1 (%2 %3)")
                               .arg(error->localizedDescription(),
                                    QLatin1String(platform::FileProviderError::DOMAIN))
                               .arg(int(error->code)));
                mainThread.post([this, error = *error] { showRegistrationAlert(error); });
            } else {
                mlog.info(QStringLiteral("domain registered"));
            }
            // The lookup is started from the main thread, after any alert has been answered.
            mainThread.post([this] { findDomain(); });
        });
}

void MenuBarController::showRegistrationAlert(const platform::FileProviderError& error) {
    platform::Presentation::shared().activate();
    platform::current<platform::Alerts>().runModal(
        {platform::Alert::Style::warning,
         QStringLiteral("Vaskel could not connect this Mac"),
         QStringLiteral("Signing in worked, but macOS refused to add the Vaskel folder.\n\n") +
             error.localizedDescription() +
             QStringLiteral("\n\nIf this persists, quit Vaskel and open it again."),
         {QStringLiteral("OK")}});
}
