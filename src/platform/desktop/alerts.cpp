#include "platform/desktop/alerts.h"

#include <QMessageBox>
#include <QPushButton>

namespace platform {
namespace {

QMessageBox::Icon iconFor(Alert::Style style) {
    switch (style) {
        case Alert::Style::informational:
            return QMessageBox::Information;
        case Alert::Style::critical:
            return QMessageBox::Critical;
        case Alert::Style::warning:
            break;
    }
    return QMessageBox::Warning;
}

class MessageBoxAlerts final : public Alerts {
public:
    int runModal(const Alert& alert) override {
        QMessageBox box;
        box.setIcon(iconFor(alert.style));
        box.setWindowTitle(QStringLiteral("Vaskel"));
        box.setText(alert.messageText);
        // The message is the headline, the informative text explains it, as desktop alerts read.
        box.setStyleSheet(QStringLiteral("QLabel#qt_msgbox_label { font-weight: bold; }"));
        box.setInformativeText(alert.informativeText);
        QList<QPushButton*> buttons;
        const QStringList titles =
            alert.buttons.isEmpty() ? QStringList{QStringLiteral("OK")} : alert.buttons;
        for (qsizetype i = 0; i < titles.size(); ++i) {
            // The first button is the default, as on every desktop; the rest follow in order.
            buttons.append(box.addButton(
                titles[i], i == 0 ? QMessageBox::AcceptRole : QMessageBox::RejectRole));
        }
        box.setDefaultButton(buttons.first());
        box.setEscapeButton(buttons.last());
        box.exec();
        const qsizetype chosen = buttons.indexOf(qobject_cast<QPushButton*>(box.clickedButton()));
        return ALERT_FIRST_BUTTON + int(chosen < 0 ? buttons.size() - 1 : chosen);
    }
};

}  // namespace

Alerts& Alerts::real() {
    static MessageBoxAlerts alerts;
    return alerts;
}

}  // namespace platform
