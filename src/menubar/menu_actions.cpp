// What the menu's items and the setup window's callbacks do: open the folder or a web page,
// show setup, disconnect, start at login, quit.

#include <QApplication>
#include <QFile>
#include <QPointer>
#include <QUrl>

#include "domain/domain_identity.h"
#include "menubar/menu_bar_controller.h"
#include "platform/app_group_container.h"
#include "platform/desktop/alerts.h"
#include "platform/desktop/login_items.h"
#include "platform/desktop/presentation.h"
#include "platform/desktop/workspace.h"
#include "platform/log.h"
#include "platform/seam.h"
#include "server/server_address.h"
#include "setup/setup_presenter.h"
#include "shared/rates.h"

void MenuBarController::openFolder() {
    if (!manager_) {
        mlog.error(QStringLiteral("open folder: no domain registered"));
        return;
    }
    const platform::MainThreadTarget mainThread = mainThread_;
    manager_->getUserVisibleURL([mainThread](std::optional<QString> path,
                                             std::optional<platform::FileProviderError> error) {
        if (error) {
            mlog.error(QStringLiteral("open folder failed: %1").arg(error->localizedDescription()));
            return;
        }
        if (!path) return;
        mainThread.post([path = *path] {
            if (!platform::current<platform::Workspace>().openURL(QUrl::fromLocalFile(path))) {
                mlog.error(QStringLiteral("open folder: NSWorkspace refused %1").arg(path));
            }
        });
    });
}

void MenuBarController::openServerPage(bool files) {
    const QString server = configuredServer();
    if (server.isEmpty()) return;
    if (const auto url = files ? filesURL(server) : portalURL(server)) {
        platform::current<platform::Workspace>().openURL(*url);
    }
}

void MenuBarController::openPortal() {
    openServerPage(false);
}

void MenuBarController::openOnline() {
    openServerPage(true);
}

void MenuBarController::showSetup() {
    auto& presentation = platform::Presentation::shared();
    presentation.setActivationPolicy(platform::ActivationPolicy::regular);
    presentation.activate();
    const QPointer<MenuBarController> self(this);
    platform::current<SetupPresenter>().present({
        .onDismiss =
            [self] {
                if (self && self->configured()) {
                    platform::Presentation::shared().setActivationPolicy(
                        platform::ActivationPolicy::accessory);
                }
            },
        .onConnected =
            [self] {
                if (!self) return;
                self->resetCursor();
                self->addDomainAction();
            },
        .onSignedOut =
            [self] {
                if (self) self->removeDomainSilently();
            },
        .onOpenFolder =
            [self] {
                if (self) self->openFolder();
            },
    });
}

void MenuBarController::removeDomainSilently() {
    const platform::MainThreadTarget mainThread = mainThread_;
    platform::FileProviderManager::remove(
        makeDomain(), [this, mainThread](std::optional<platform::FileProviderError>) {
            mainThread.post([this] {
                resetCursor();
                findDomain();
            });
        });
}

void MenuBarController::removeDomainAction() {
    platform::Presentation::shared().activate();
    const int answer = platform::current<platform::Alerts>().runModal(
        {platform::Alert::Style::warning,
         QStringLiteral("Disconnect Vaskel?"),
         QStringLiteral("The Vaskel folder will be removed from this Mac. Nothing is deleted from "
                        "the server, and downloaded copies are discarded."),
         {QStringLiteral("Disconnect"), QStringLiteral("Cancel")}});
    if (answer != platform::ALERT_FIRST_BUTTON) return;
    const platform::MainThreadTarget mainThread = mainThread_;
    platform::FileProviderManager::remove(
        makeDomain(), [this, mainThread](std::optional<platform::FileProviderError>) {
            mainThread.post([this] { findDomain(); });
        });
}

void MenuBarController::resetCursor() {
    const auto container =
        platform::current<platform::AppGroupContainer>().path(QLatin1String(Shared::APP_GROUP));
    if (!container) return;
    QFile::remove(*container + QStringLiteral("/cursor.json"));
}

void MenuBarController::toggleLogin() {
    auto& items = platform::current<platform::LoginItems>();
    const auto failure = items.status() == platform::LoginItemStatus::enabled
                             ? items.unregisterApplication()
                             : items.registerApplication();
    if (failure) mlog.error(QStringLiteral("login item change failed: %1").arg(*failure));
}

void MenuBarController::quit() {
    QCoreApplication::quit();
}
