// Not a test of its own: the screenshots of the README, taken by scripts/screenshots, which sets
// VASKEL_SCREENSHOT_DIR and runs this under a virtual X server. The window goes through the real
// flows against a loopback server answering like vaskel-devserver's demo account.

#include <gtest/gtest.h>

#include <QApplication>
#include <QDir>
#include <QLineEdit>
#include <QPalette>
#include <QStyle>
#include <QStyleFactory>

#include "platform/network_session.h"
#include "setup/setup_test_support.h"
#include "setup/setup_view.h"
#include "setup/setup_view_widget.h"
#include "setup/setup_window_controller.h"
#include "support/fake_file_provider.h"
#include "support/fake_platform.h"
#include "support/loopback_server.h"

using namespace std::chrono_literals;
using setup_testing::waitUntil;

namespace {

// A dark palette as dark desktop themes give one.
QPalette darkPalette() {
    QPalette palette;
    const QColor window(0x2b, 0x2b, 0x2f);
    const QColor base(0x1e, 0x1e, 0x22);
    const QColor text(0xe6, 0xe6, 0xe6);
    palette.setColor(QPalette::Window, window);
    palette.setColor(QPalette::WindowText, text);
    palette.setColor(QPalette::Base, base);
    palette.setColor(QPalette::AlternateBase, window);
    palette.setColor(QPalette::Text, text);
    palette.setColor(QPalette::Button, QColor(0x3a, 0x3a, 0x3f));
    palette.setColor(QPalette::ButtonText, text);
    palette.setColor(QPalette::Highlight, QColor(0x35, 0x84, 0xe4));
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::PlaceholderText, QColor(0x8e, 0x8e, 0x93));
    palette.setColor(QPalette::Disabled, QPalette::ButtonText, QColor(0x80, 0x80, 0x80));
    palette.setColor(QPalette::Disabled, QPalette::WindowText, QColor(0x80, 0x80, 0x80));
    return palette;
}

class SetupScreenshots : public ::testing::Test {
protected:
    QString folder = qEnvironmentVariable("VASKEL_SCREENSHOT_DIR");
    testing_support::FakePlatform platform;
    testing_support::FakeFileProvider provider{platform.root.path() + "/state"};
    setup_testing::FakeHostName hostName;
    std::unique_ptr<testing_support::LoopbackServer> server;

    void SetUp() override {
        if (folder.isEmpty()) GTEST_SKIP() << "scripts/screenshots sets VASKEL_SCREENSHOT_DIR";
        server = std::make_unique<testing_support::LoopbackServer>();
        server->script("POST", "/vaskel/api/auth/login",
                       {.body = R"({"api_key":"demo-key","user":{"email":"demo@example.com",)"
                                R"("name":"Demo User"}})"});
        server->script("GET", "/vaskel/api/me",
                       {.body = R"({"email":"demo@example.com","name":"Demo User",)"
                                R"("used_bytes":1200000000,"quota_bytes":5000000000,)"
                                R"("unlimited":false,"plan_name":"Pro","status":"active"})"});
        QApplication::setStyle(QStyleFactory::create("Fusion"));
    }

    void TearDown() override {
        if (SetupWindowController* live = SetupWindowController::shared()) live->close();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        if (server) {
            platform::NetworkSession::shared().reset();
            server->stop();
        }
        QApplication::setPalette(QApplication::style()->standardPalette());
    }

    SetupViewWidget& window() {
        return *static_cast<SetupViewWidget*>(SetupWindowController::shared()->window());
    }

    void save(const std::string& name) {
        setup_testing::spin(150ms);  // let the window settle on the display
        const QString path = QDir(folder).filePath(QString::fromStdString(name));
        ASSERT_TRUE(window().grab().save(path)) << path.toStdString();
    }

    // Presents the window, types the demo account's credentials and signs in.
    void signIn() {
        SetupWindowController::present(nullptr, nullptr, nullptr, nullptr);
        SetupView& view = window().view();
        view.setServer(server->origin());
        const QList<QLineEdit*> fields = window().findChildren<QLineEdit*>();
        fields[0]->insert("demo@example.com");
        fields[1]->insert("demo");
        save(screenshotPrefix + "setup-signed-out.png");
        view.signIn();
        ASSERT_TRUE(waitUntil([&view] { return view.account().has_value(); }));
    }

    // Put in front of the signed-out screenshot's name.
    std::string screenshotPrefix;
};

TEST_F(SetupScreenshots, SignedOutSignedInAndEnableStep) {
    // A registered domain whose folder lists: the extension answers and the summary stays.
    provider.addDomain("com.norva.vaskel.domain", "demo@example.com");
    signIn();
    SetupView& view = window().view();
    ASSERT_TRUE(waitUntil([&view] { return view.providerWorking().has_value(); }, 5s));
    save("setup-signed-in.png");

    view.setProviderWorking(false);
    save("setup-enable-step.png");
}

TEST_F(SetupScreenshots, DarkTheme) {
    QApplication::setPalette(darkPalette());
    screenshotPrefix = "dark-";
    signIn();
    SetupView& view = window().view();
    save("dark-setup-signed-in.png");
    view.setProviderWorking(false);
    view.setError("Could not reach Vaskel. Connection refused");
    save("dark-setup-enable-step.png");
}

}  // namespace
