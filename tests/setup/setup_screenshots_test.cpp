// Not a test of its own: the screenshots of the README, taken by scripts/screenshots, which sets
// VASKEL_SCREENSHOT_DIR and runs this under a virtual X server.

#include <gtest/gtest.h>

#include <QApplication>
#include <QDir>
#include <QStyle>
#include <QStyleFactory>

#include "setup/setup_view.h"
#include "setup/setup_view_widget.h"
#include "setup/setup_window_controller.h"
#include "support/event_loop_wait.h"
#include "support/fake_platform.h"

TEST(SetupScreenshots, SignedOutSignedInAndEnableStepInLightAndDarkThemes) {
    const QString folder = qEnvironmentVariable("VASKEL_SCREENSHOT_DIR");
    if (folder.isEmpty()) GTEST_SKIP() << "scripts/screenshots sets VASKEL_SCREENSHOT_DIR";
    testing_support::FakePlatform platform;
    QApplication::setStyle(QStyleFactory::create("Fusion"));
    for (const QString theme : {"", "dark-"}) {
        // A dark palette as dark desktop themes give one, derived from its button and window.
        if (!theme.isEmpty())
            QApplication::setPalette(QPalette(QColor(0x3a, 0x3a, 0x3f), QColor(0x2b, 0x2b, 0x2f)));
        SetupWindowController::present(nullptr, nullptr, nullptr, nullptr);
        auto& window = *static_cast<SetupViewWidget*>(SetupWindowController::shared()->window());
        const auto save = [&](const QString& name) {
            testing_support::runEventsUntil([] { return false; }, 150);  // let the window settle
            EXPECT_TRUE(window.grab().save(QDir(folder).filePath(theme + name)))
                << qPrintable(name);
        };
        // The demo account of vaskel-devserver.
        window.view().setEmail("demo@example.com");
        window.view().setPassword("demo");
        save("setup-signed-out.png");
        window.view().setAccount(Account{"demo@example.com",
                                         "Demo User",
                                         1'200'000'000,
                                         5'000'000'000,
                                         false,
                                         "Pro",
                                         "active",
                                         {}});
        window.view().setProviderWorking(true);
        save("setup-signed-in.png");
        window.view().setProviderWorking(false);
        if (!theme.isEmpty()) window.view().setError("Could not reach Vaskel. Connection refused");
        save("setup-enable-step.png");
        SetupWindowController::shared()->close();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    QApplication::setPalette(QApplication::style()->standardPalette());
}
