#include "setup/setup_window_controller.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QLineEdit>
#include <QPointer>

#include "platform/desktop/presentation.h"
#include "setup/setup_presenter.h"
#include "setup/setup_test_support.h"
#include "setup/setup_view.h"
#include "setup/setup_view_widget.h"
#include "support/fake_platform.h"

using setup_testing::button;

namespace {

// The calls each `present` hands over, counted.
struct Calls {
    int dismissed = 0, connected = 0, signedOut = 0, openFolder = 0;
    void present() {
        SetupPresenter::real().present({[this] { ++dismissed; }, [this] { ++connected; },
                                        [this] { ++signedOut; }, [this] { ++openFolder; }});
    }
};

// The setup windows that exist, shown or not.
QList<SetupViewWidget*> windows() {
    QList<SetupViewWidget*> found;
    for (QWidget* widget : QApplication::topLevelWidgets())
        if (auto* window = qobject_cast<SetupViewWidget*>(widget)) found << window;
    return found;
}

TEST(SetupWindowController, OneWindowKeptByTheTitleBarCloseAndStartedOverAfterDone) {
    testing_support::FakePlatform platform;
    const auto shownLines = [&] { return platform.log.messages().count("setup window shown"); };
    Calls first, second;
    first.present();
    ASSERT_EQ(windows().size(), 1);
    QPointer<SetupViewWidget> window = windows()[0];
    EXPECT_TRUE(window->isVisible());
    EXPECT_EQ(window->windowTitle(), "Vaskel");
    EXPECT_EQ(window->size(), QSize(460, 320));
    EXPECT_EQ(window->minimumSize(), window->maximumSize()) << "not resizable";
    EXPECT_FALSE(window->windowFlags() & Qt::WindowMinimizeButtonHint);
    window->findChild<QLineEdit*>()->insert("half@typed");

    // The title-bar close hides the window; presenting again shows it as it was.
    window->close();
    const int activations = platform::Presentation::shared().activations();
    second.present();
    EXPECT_EQ(windows(), QList<SetupViewWidget*>{window});
    EXPECT_TRUE(window->isVisible());
    EXPECT_EQ(window->findChild<QLineEdit*>()->text(), "half@typed");
    EXPECT_GT(platform::Presentation::shared().activations(), activations);
    EXPECT_EQ(shownLines(), 1) << "logged once per created window";
    EXPECT_EQ(first.dismissed, 0);

    window->view().setAccount(setup_testing::accountFor("ada@example.com"));
    button(*window, "Done")->click();
    EXPECT_EQ(first.dismissed, 1);
    EXPECT_EQ(second.dismissed, 0) << "the second call's callbacks are never called";
    EXPECT_EQ(SetupWindowController::shared(), nullptr);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(window.isNull()) << "a closed window is not kept";

    // The next window starts over and reports to the callbacks it was created with; "Skip for
    // Now" closes it like "Done".
    second.present();
    ASSERT_EQ(windows().size(), 1);
    SetupView& fresh = windows()[0]->view();
    EXPECT_EQ(fresh.email(), "");
    EXPECT_EQ(shownLines(), 2);
    fresh.setAccount(setup_testing::accountFor("ada@example.com"));
    fresh.setProviderWorking(false);
    button(*windows()[0], "Open Vaskel Folder")->click();
    button(*windows()[0], "Skip for Now")->click();
    EXPECT_EQ(std::tuple(second.openFolder, second.dismissed), std::tuple(1, 1));
    EXPECT_EQ(first.openFolder + first.dismissed, 1);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

}  // namespace
