#include <QApplication>
#include <QTimer>

#include "app/desktop/install_location_check.h"
#include "menubar/app_delegate.h"
#include "platform/desktop/presentation.h"
#include "platform/desktop/single_instance.h"

// Application mode, loaded at run time by the executable so that the command-line tool never
// loads the widget libraries.
extern "C" __attribute__((visibility("default"))) int vaskel_run_application(int argc,
                                                                             char** argv) {
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Vaskel"));
    QApplication::setOrganizationName(QStringLiteral("norva"));
    QApplication::setDesktopFileName(QStringLiteral("vaskel"));
    // The agent lives in the tray: closing its last window does not end it.
    QApplication::setQuitOnLastWindowClosed(false);

    if (refuseBadInstallLocation()) return 0;

    // Kept for the whole process; the controller it owns is the tray agent.
    static AppDelegate* delegate = nullptr;
    // A second start brings the running agent's setup window forward instead of adding a
    // second tray item.
    if (!platform::becomePrimaryInstance([] {
            if (delegate) delegate->controller->showSetup();
        })) {
        return 0;
    }
    delegate = new AppDelegate;
    platform::Presentation::shared().setActivationPolicy(platform::ActivationPolicy::regular);
    QTimer::singleShot(0, &application, [] { delegate->applicationDidFinishLaunching(); });
    return QApplication::exec();
}
