#include <QApplication>
#include <cstdio>

#include "app/desktop/install_location_check.h"
#include "platform/desktop/presentation.h"

// Application mode, loaded at run time by the executable so that the command-line tool never
// loads the widget libraries.
extern "C" __attribute__((visibility("default"))) int vaskel_run_application(int argc,
                                                                             char** argv) {
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Vaskel"));
    QApplication::setOrganizationName(QStringLiteral("norva"));
    QApplication::setQuitOnLastWindowClosed(false);

    if (refuseBadInstallLocation()) return 0;

    platform::Presentation::shared().setActivationPolicy(platform::ActivationPolicy::regular);
    // The tray agent takes over here once it is part of the build.
    std::fprintf(stderr,
                 "vaskel: this build has no tray agent yet; use the command-line options "
                 "(vaskel --version)\n");
    return 1;
}
