// The status item: which symbol it shows, the rate beside it and its tooltip, redrawn every
// second from the statistics file, the configuration and the last account status.

#include <QDateTime>
#include <QLocale>
#include <QStringList>

#include "menubar/menu_bar_controller.h"
#include "menubar/status_texts.h"
#include "platform/desktop/status_item.h"
#include "platform/log.h"

namespace {

struct IconState {
    QString symbol;
    QString description;
    QString title;
};

}  // namespace

QString rateLine(const Shared::Rates& rates) {
    return QStringLiteral("↓ ") + formatRate(rates.down) + QStringLiteral("   ↑ ") +
           formatRate(rates.up);
}

bool transferring(const Shared::Rates& rates) {
    return rates.fresh && (rates.down > 0 || rates.up > 0);
}

QString shortTime(double secondsSince1970) {
    const QDateTime when = QDateTime::fromMSecsSinceEpoch(qint64(secondsSince1970 * 1000));
    return QLocale::system().toString(when.time(), QLocale::ShortFormat);
}

void MenuBarController::setIcon(const QString& name, const QString& description) {
    if (!statusItem_) return;
    if (statusItem_->setSymbol(name, description)) return;
    mlog.error(QStringLiteral("symbol %1 unavailable; using a text label").arg(name));
    statusItem_->clearImage();
    statusItem_->setTitle(QStringLiteral("Vaskel"));
}

void MenuBarController::updateStatusItem() {
    const Shared::Rates rates = Shared::readRates();
    // Without a tray the item still takes every update, so that it shows the current state the
    // moment a tray appears.
    if (!statusItem_) return;

    // One read of the configuration serves the icon and the tooltip alike.
    const bool paused = transfersPaused();
    const bool notices = domainRegistered_ && account_;
    IconState state;
    if (paused) {
        state = {QStringLiteral("pause.circle"), QStringLiteral("Transfers paused"), {}};
    } else if (transferring(rates)) {
        state = {QStringLiteral("arrow.up.arrow.down.circle"), QStringLiteral("Transferring"),
                 QStringLiteral(" ") + formatRate(std::max(rates.down, rates.up))};
    } else if (notices && !account_->unlimited && account_->fraction() >= 0.95) {
        state = {
            QStringLiteral("exclamationmark.icloud"), QStringLiteral("Vaskel almost full"), {}};
    } else if (notices && account_->paymentNotice()) {
        state = {
            QStringLiteral("exclamationmark.icloud"), QStringLiteral("Vaskel payment needed"), {}};
    } else if (notices && account_->update) {
        state = {QStringLiteral("exclamationmark.icloud"),
                 QStringLiteral("Vaskel update available"),
                 {}};
    } else if (domainRegistered_) {
        state = {QStringLiteral("cloud"), QStringLiteral("Vaskel"), {}};
    } else {
        state = {QStringLiteral("icloud.slash"), QStringLiteral("Vaskel"), {}};
    }

    setIcon(state.symbol, state.description);
    // A symbol that could not be shown left the text label in place of the title.
    if (statusItem_->symbol() == state.symbol) statusItem_->setTitle(state.title);
    statusItem_->setToolTip(tooltip(rates, paused));
}

QString MenuBarController::tooltip(const Shared::Rates& rates) const {
    return tooltip(rates, transfersPaused());
}

QString MenuBarController::tooltip(const Shared::Rates& rates, bool paused) const {
    QStringList lines{QStringLiteral("Vaskel")};
    if (!domainRegistered_) {
        lines << QStringLiteral("Not connected");
    } else if (paused) {
        lines << QStringLiteral("Transfers paused");
    } else if (transferring(rates)) {
        lines << rateLine(rates);
    } else {
        lines << QStringLiteral("Idle");
    }
    if (account_) {
        lines << account_->glanceLabel();
        if (const auto notice = account_->paymentNotice()) lines << *notice;
        if (account_->update) {
            lines << QStringLiteral("Update available: Vaskel ") + account_->update->version;
        }
    }
    if (lastRefresh_) lines << QStringLiteral("Last checked ") + shortTime(*lastRefresh_);
    return lines.join(QLatin1Char('\n'));
}
