// Installing an offered update: explain the steps, open the download, quit so that the user can
// replace the program.

#include <QCoreApplication>
#include <QStringList>
#include <QTimer>

#include "menubar/menu_bar_controller.h"
#include "platform/desktop/alerts.h"
#include "platform/desktop/presentation.h"
#include "platform/desktop/workspace.h"
#include "platform/log.h"
#include "platform/seam.h"
#include "server/server_address.h"

void MenuBarController::openUpdate() {
    if (!account_ || !account_->update) return;
    const ClientUpdate update = *account_->update;
    const auto url = parseURL(update.url);
    if (!url) return;

    auto& presentation = platform::Presentation::shared();
    presentation.setActivationPolicy(platform::ActivationPolicy::regular);
    presentation.activate();

    QStringList lines;
    if (!update.notes.isEmpty()) lines << update.notes << QString();
    lines << QStringLiteral("To install it:")
          << QStringLiteral(
                 "1. Click Quit Vaskel & Download. Vaskel quits and the installer downloads in "
                 "your browser.")
          << QStringLiteral("2. Open the downloaded Vaskel disk image.")
          << QStringLiteral("3. Drag Vaskel into the Applications folder and choose Replace.")
          << QStringLiteral("4. Eject the disk image, then open Vaskel from Applications.")
          << QString() << QStringLiteral("Your sign-in and files are kept.");
    const int answer = platform::current<platform::Alerts>().runModal(
        {platform::Alert::Style::informational,
         QStringLiteral("Vaskel ") + update.version + QStringLiteral(" is available"),
         lines.join(QLatin1Char('\n')),
         {QStringLiteral("Quit Vaskel & Download"), QStringLiteral("Later")}});

    if (configured()) presentation.setActivationPolicy(platform::ActivationPolicy::accessory);
    if (answer != platform::ALERT_FIRST_BUTTON) return;

    mlog.info(QStringLiteral("update: quitting to install %1").arg(update.label()));
    platform::current<platform::Workspace>().openURL(*url);
    QTimer::singleShot(500, qApp, [] { QCoreApplication::quit(); });
}
