// The menu, built afresh each time it opens, and the bandwidth and pause controls, which do
// nothing but write the configuration file the sync extension re-reads.

#include <QAction>
#include <QJsonArray>
#include <QMenu>

#include "app/vaskel_host.h"
#include "menubar/menu_bar_controller.h"
#include "menubar/status_texts.h"
#include "platform/application_bundle.h"
#include "platform/clock.h"
#include "platform/desktop/login_items.h"
#include "platform/desktop/menu_attention.h"
#include "platform/seam.h"
#include "shared/bandwidth_presets.h"
#include "shared/config.h"

namespace {

const QString PAUSE_KEY = QStringLiteral("transfers_paused");

QAction* addInfo(QMenu* menu, const QString& text) {
    QAction* item = menu->addAction(text);
    item->setEnabled(false);
    return item;
}

QString statusLine(bool configured, bool registered, bool paused, const Shared::Rates& rates) {
    if (!configured) return QStringLiteral("Not set up");
    if (!registered) return QStringLiteral("Not connected");
    if (paused) return QStringLiteral("Transfers paused");
    if (transferring(rates)) return rateLine(rates);
    return QStringLiteral("Up to date");
}

QString versionLine() {
    const platform::BundleInfo info = platform::current<platform::ApplicationBundle>().info();
    return QStringLiteral("Vaskel %1 (%2)")
        .arg(info.shortVersion.value_or(QStringLiteral("?")),
             info.build.value_or(QStringLiteral("?")));
}

}  // namespace

bool MenuBarController::transfersPaused() const {
    return Shared::configBool(Shared::readConfig(), PAUSE_KEY).value_or(false);
}

void MenuBarController::menuNeedsUpdate(QMenu* menu) {
    // Submenus are children of the menu; clear() removes only the actions.
    qDeleteAll(menu->findChildren<QMenu*>(Qt::FindDirectChildrenOnly));
    menu->clear();
    menu->setToolTipsVisible(true);
    const Shared::Rates rates = Shared::readRates();
    const auto add = [this, menu](const QString& title, void (MenuBarController::*action)(),
                                  const QKeySequence& key = {}) {
        QAction* item = menu->addAction(title);
        connect(item, &QAction::triggered, this, action);
        item->setShortcut(key);
        return item;
    };

    addInfo(menu, statusLine(configured(), domainRegistered_, transfersPaused(), rates));
    if (lastRefresh_) addInfo(menu, QStringLiteral("Last checked ") + shortTime(*lastRefresh_));
    if (configured()) {
        if (account_) {
            addInfo(menu, account_->glanceLabel());
            if (const auto notice = account_->spaceNotice()) {
                platform::markAttention(add(*notice, &MenuBarController::openPortal));
            }
            if (const auto notice = account_->paymentNotice()) {
                platform::markAttention(add(*notice, &MenuBarController::openPortal));
            }
            if (const auto& update = account_->update) {
                QAction* item = add(QStringLiteral("Update available: Vaskel ") + update->version +
                                        QStringLiteral(" – Download…"),
                                    &MenuBarController::openUpdate);
                item->setToolTip(update->notes);
                platform::markAttention(item);
            }
        }
        const double age =
            platform::current<platform::Clock>().secondsSince1970() - accountFetchedAt_.value_or(0);
        // The menu shows what it has; a fresh status reaches the icon now and the menu next time.
        if (!accountFetchedAt_ || age > accountMaxAge) refreshAccount();
    }
    menu->addSeparator();
    menu->addAction(
        limitMenu(QStringLiteral("Download Limit"), QStringLiteral("max_download_kbps"), menu));
    menu->addAction(
        limitMenu(QStringLiteral("Upload Limit"), QStringLiteral("max_upload_kbps"), menu));
    add(transfersPaused() ? QStringLiteral("Resume Transfers") : QStringLiteral("Pause Transfers"),
        &MenuBarController::togglePause);
    menu->addSeparator();
    add(QStringLiteral("Check for Changes Now"), &MenuBarController::refreshNow,
        QKeySequence(Qt::CTRL | Qt::Key_R));
    add(QStringLiteral("Open Vaskel Folder"), &MenuBarController::openFolder,
        QKeySequence(Qt::CTRL | Qt::Key_O));
    if (configured()) add(QStringLiteral("Browse Files Online"), &MenuBarController::openOnline);
    menu->addSeparator();
    add(configured() ? QStringLiteral("Account…") : QStringLiteral("Set Up Vaskel…"),
        &MenuBarController::showSetup, QKeySequence(Qt::CTRL | Qt::Key_Comma));
    if (domainRegistered_) {
        add(QStringLiteral("Disconnect Vaskel"), &MenuBarController::removeDomainAction);
    } else if (configured()) {
        add(QStringLiteral("Connect Vaskel"), &MenuBarController::addDomainAction);
    }
    QAction* login = add(QStringLiteral("Open at Login"), &MenuBarController::toggleLogin);
    login->setCheckable(true);
    login->setChecked(platform::current<platform::LoginItems>().status() ==
                      platform::LoginItemStatus::enabled);
    menu->addSeparator();
    addInfo(menu, versionLine())->setToolTip(QStringLiteral("Build ") + QLatin1String(BUILD_STAMP));
    add(QStringLiteral("Quit Vaskel"), &MenuBarController::quit,
        QKeySequence(Qt::CTRL | Qt::Key_Q));
}

QAction* MenuBarController::limitMenu(const QString& title, const QString& key, QMenu* parent) {
    auto* submenu = new QMenu(title, parent);
    const qint64 current = Shared::configInteger(Shared::readConfig(), key).value_or(0);
    for (const BandwidthPreset& preset : BANDWIDTH_PRESETS) {
        QAction* item = submenu->addAction(
            QString::fromUtf8(preset.title.data(), qsizetype(preset.title.size())));
        item->setData(QVariantList{key, preset.value});
        item->setCheckable(true);
        item->setChecked(preset.value == current);
        connect(item, &QAction::triggered, this, [this, item] { setLimit(item); });
    }
    return submenu->menuAction();
}

void MenuBarController::setLimit(const QAction* item) {
    if (!item) return;
    const QVariantList pair = item->data().toList();
    if (pair.size() < 2 || pair.first().typeId() != QMetaType::QString) return;
    bool isInteger = false;
    const qint64 value = pair.last().toLongLong(&isInteger);
    if (!isInteger) return;
    Shared::setConfig(pair.first().toString(), QJsonValue(value));
}

void MenuBarController::togglePause() {
    Shared::setConfig(PAUSE_KEY, !transfersPaused());
    updateStatusItem();
}
