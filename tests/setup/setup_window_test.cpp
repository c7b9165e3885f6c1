#include "setup/setup_view_widget.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QDir>
#include <QKeyEvent>
#include <QLabel>
#include <QLayout>
#include <QLineEdit>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QStyle>
#include <QStyleFactory>

#include "platform/desktop/presentation.h"
#include "server/server_address.h"
#include "setup/link_button.h"
#include "setup/setup_presenter.h"
#include "setup/setup_style.h"
#include "setup/setup_view.h"
#include "setup/setup_window_controller.h"
#include "support/event_loop_wait.h"
#include "support/fake_desktop.h"
#include "support/fake_file_provider.h"
#include "support/fake_platform.h"
#include "support/loopback_server.h"
#include "support/qt_printing.h"

namespace {

const QString UNPAID = "Payment failed – update your card…";
const QString NO_PLAN =
    "This account has no active plan yet. Choose a plan on the Vaskel website, then sign in again.";
const QString ENABLE_TEXT =
    "Open your Vaskel folder and macOS will ask for permission to turn it on. Click Enable when "
    "it does.";

const Account UNPAID_ACCOUNT{"a@b.c", "", 1'200'000'000, 0, true, "", "past_due", {}};

// The button under `root` whose text is `text`; none when there is none.
QAbstractButton* button(const QWidget& root, const QString& text) {
    for (QAbstractButton* candidate : root.findChildren<QAbstractButton*>())
        if (candidate->text() == text) return candidate;
    return nullptr;
}

class SetupViewWidgetTest : public ::testing::Test {
protected:
    testing_support::FakePlatform platform;
    testing_support::FakeWorkspace workspace;
    platform::StandIn<platform::Workspace> workspaceStandIn{workspace};
    testing_support::FakeSettingsApplication settings;
    platform::StandIn<platform::SettingsApplication> settingsStandIn{settings};
    int openFolder = 0;
    int closed = 0;
    SetupView* view = new SetupView(
        nullptr, nullptr, [this] { ++openFolder; }, [this] { ++closed; });
    SetupViewWidget widget{view};
    // Email, password and server.
    QList<QLineEdit*> fields = widget.findChildren<QLineEdit*>();

    void SetUp() override {
        // A sign-in started here fails at once instead of leaving the machine.
        view->setServer("http://127.0.0.1:" +
                        QString::number(testing_support::closedLoopbackPort()));
        widget.setFixedSize(460, 320);
        widget.show();
        QApplication::setActiveWindow(&widget);
    }
    // What shows, sorted: the texts of labels and buttons, the accessible names of the rest (with
    // a storage bar's value); the default button in brackets, disabled controls marked.
    QStringList shown() {
        QStringList texts;
        for (QWidget* candidate : widget.findChildren<QWidget*>()) {
            const auto* label = qobject_cast<QLabel*>(candidate);
            const auto* asButton = qobject_cast<QAbstractButton*>(candidate);
            const auto* bar = qobject_cast<QProgressBar*>(candidate);
            QString text = label && !label->text().isEmpty() ? label->text()
                           : asButton                        ? asButton->text()
                                                             : candidate->accessibleName();
            if (bar && bar->maximum() > 0) text += " " + QString::number(bar->value());
            if (auto* push = qobject_cast<QPushButton*>(candidate); push && push->isDefault())
                text = "[" + text + "]";
            if (!candidate->isEnabled()) text += " (disabled)";
            if (candidate->isVisibleTo(&widget) && !text.isEmpty()) texts << text;
        }
        texts.sort();
        texts.removeDuplicates();
        return texts;
    }
    void click(const QString& text) {
        QAbstractButton* found = button(widget, text);
        ASSERT_TRUE(found && found->isVisible()) << text.toStdString();
        found->click();
    }
    static void pressReturn(QWidget* target) {
        QKeyEvent press(QEvent::KeyPress, Qt::Key_Return, Qt::NoModifier);
        QApplication::sendEvent(target, &press);
    }
};

// Every state also fits the fixed window without squashing a field or pushing the error line
// under the footer.
TEST_F(SetupViewWidgetTest, EachStateShowsItsSectionsAndDefaultButtonAndFits) {
    const Account full{"a@b.c", "Ada", 1'200'000'000, 5'000'000'000, false, "Pro", "active", {}};
    // clang-format off
    const QStringList form{"Vaskel", "Sign in to connect this Mac", "Email", "Password",
                           "Create an account", "Forgot password?"};
    const QStringList summary{"Vaskel", "Signed in", "Account", "a@b.c", "Browse files online…",
                              "Manage account…", "Sign Out", "[Done]", "Error", NO_PLAN};
    const QStringList unpaidSummary = summary + QStringList{"1.2 GB used", UNPAID};
    const QStringList enableStep{"Vaskel", "Signed in", "Folder", "One more step on this Mac",
        ENABLE_TEXT, "[Open Vaskel Folder]", "Or open System Settings", "Sign Out", "Skip for Now",
        "Error", NO_PLAN};
    // Each row changes the state that the row before left.
    const std::pair<std::function<void()>, QStringList> rows[] = {
        {[] {}, form + QStringList{"Advanced", "[Sign In] (disabled)"}},
        {[this] { view->setPortalHint(QUrl("https://x")); view->setEmail("a@b"); },
         form + QStringList{"Advanced", "Open your account page", "[Sign In] (disabled)"}},
        {[this] { view->setPassword("pw"); view->setShowAdvanced(true);
                  view->setError(NO_PLAN); view->setBusy(true); },
         form + QStringList{"Hide advanced", "Server", "Open your account page", "Working", "Error",
                            NO_PLAN, "[Sign In] (disabled)"}},
        {[&] { view->setBusy(false); view->setAccount(full); },
         summary + QStringList{"Ada", "Storage used 240", "1.2 GB of 5 GB used · Pro plan"}},
        {[&] { view->setAccount(UNPAID_ACCOUNT); }, unpaidSummary},
        {[this] { view->setProviderWorking(false); }, enableStep + QStringList{"Check Again"}},
        {[this] { view->setChecking(true); },
         enableStep + QStringList{"Checking… (disabled)", "Checking"}},
        {[this] { view->setChecking(false); view->setProviderWorking(true); }, unpaidSummary},
    };
    // clang-format on
    for (auto [change, expected] : rows) {
        change();
        expected.sort();
        EXPECT_EQ(shown(), expected);
        widget.layout()->activate();
        for (QLineEdit* field : fields) {
            EXPECT_GE(field->height(), field->isVisible() ? field->sizeHint().height() : 0);
        }
        const QLabel* error = widget.findChildren<QLabel*>().last();  // the last one made
        const QWidget* footer = button(widget, view->account() ? "Sign Out" : "Sign In");
        EXPECT_LE(error->mapTo(&widget, QPoint(0, error->height())).y(),
                  footer->mapTo(&widget, QPoint(0, 0)).y());
    }
}

TEST_F(SetupViewWidgetTest, TypingReturnRedrawsAndTabFollowTheForm) {
    auto [email, password] = std::pair(fields[0], fields[1]);
    EXPECT_TRUE(email->hasFocus());
    EXPECT_EQ(std::tuple(password->echoMode(), password->placeholderText()),
              std::tuple(QLineEdit::Password, "Your Vaskel password"));

    email->insert("adaexample.com");
    password->insert("pw");
    pressReturn(email);
    EXPECT_FALSE(view->busy()) << "Return does nothing until the e-mail has an @";
    email->setCursorPosition(3);
    email->insert("@");
    view->setBusy(true);
    EXPECT_TRUE(email->isEnabled() && !email->isReadOnly() && password->isEnabled());
    pressReturn(password);
    EXPECT_EQ(view->error(), std::nullopt) << "no second sign-in while one runs";
    view->setBusy(false);
    // The redraws left the typing alone.
    EXPECT_TRUE(email->hasFocus());
    EXPECT_EQ(std::tuple(email->cursorPosition(), view->email(), view->password()),
              std::tuple(4, "ada@example.com", "pw"));
    view->setEmail("set@elsewhere.example");
    EXPECT_EQ(email->text(), "set@elsewhere.example");

    view->setPortalHint(QUrl("https://pay.example"));
    click("Advanced");
    QStringList order;
    for (QWidget* focused = email; order.size() < 9; focused = QApplication::focusWidget()) {
        const auto* asButton = qobject_cast<QAbstractButton*>(focused);
        order << (asButton ? asButton->text() : focused->accessibleName());
        QKeyEvent tab(QEvent::KeyPress, Qt::Key_Tab, Qt::NoModifier);
        QApplication::sendEvent(focused, &tab);
    }
    EXPECT_EQ(order, QStringList({"Email", "Password", "Create an account", "Forgot password?",
                                  "Hide advanced", "Server", "Open your account page", "Sign In",
                                  "Email"}));
    pressReturn(password);
    EXPECT_TRUE(view->busy()) << "Return in the password field signs in";
}

TEST_F(SetupViewWidgetTest, LinksOpenPagesOfTheTypedServerAndButtonsRunTheirActions) {
    QLineEdit* server = fields[2];
    view->setServer(DEFAULT_SERVER);
    click("Advanced");
    EXPECT_EQ(server->text(), DEFAULT_SERVER);
    server->selectAll();
    server->insert("files.example.org/");
    view->setPortalHint(QUrl("https://pay.example/plans"));
    for (const char* link : {"Create an account", "Forgot password?", "Open your account page"})
        click(link);
    click("Hide advanced");
    EXPECT_FALSE(server->isVisible());

    view->setAccount(UNPAID_ACCOUNT);
    EXPECT_EQ(static_cast<LinkButton*>(button(widget, UNPAID))->tone(), LinkButton::Tone::red);
    for (const QString& link :
         {UNPAID, QString("Browse files online…"), QString("Manage account…")})
        click(link);
    EXPECT_EQ(workspace.opened, std::vector<QUrl>({
                                    QUrl("https://files.example.org/vaskel/account/signup"),
                                    QUrl("https://files.example.org/vaskel/account/forgot"),
                                    QUrl("https://pay.example/plans"),
                                    QUrl("https://files.example.org/vaskel/account/"),
                                    QUrl("https://files.example.org/vaskel/account/files#files"),
                                    QUrl("https://files.example.org/vaskel/account/"),
                                }));

    view->setProviderWorking(false);
    view->setChecking(true);
    pressReturn(&widget);
    EXPECT_EQ(openFolder, 1) << "Return opens the folder, also while checking";
    click("Or open System Settings");
    EXPECT_EQ(settings.opened, 1);
    click("Skip for Now");
    view->setProviderWorking(true);
    click("Done");
    EXPECT_EQ(closed, 2);
}

TEST(SetupStyle, LinksAndWarningsStayReadableOnDarkThemes) {
    for (const QColor& window : {QColor(0xf0, 0xf0, 0xf0), QColor(0x2a, 0x2a, 0x2e)}) {
        QPalette palette(window);
        palette.setColor(QPalette::Link, QColor(0, 0, 0xff));  // the toolkit's default link blue
        palette.setColor(QPalette::Highlight, QColor(0x30, 0x8c, 0xc6));
        palette.setColor(QPalette::PlaceholderText, window);  // a theme with invisible placeholders
        const bool dark = window.lightness() < 128;
        for (const QColor& text : {setup_style::link(palette), setup_style::red(palette),
                                   setup_style::secondary(palette)}) {
            // Lighter than a dark background, darker than a light one, by a clear margin.
            const int difference = text.lightness() - window.lightness();
            EXPECT_GE(dark ? difference : -difference, 70) << text.name().toStdString();
        }
    }
}

TEST(SetupWindowController, OneWindowKeptByTheTitleBarCloseAndStartedOverAfterDone) {
    testing_support::FakePlatform platform;
    // The calls each `present` hands over, counted: dismissed, connected, signed out, open folder.
    std::array<int, 4> first{}, second{};
    const auto present = [](std::array<int, 4>& calls) {
        SetupPresenter::real().present(
            {[&] { ++calls[0]; }, [&] { ++calls[1]; }, [&] { ++calls[2]; }, [&] { ++calls[3]; }});
        const auto all = QApplication::topLevelWidgets();
        EXPECT_EQ(std::count_if(all.begin(), all.end(),
                                [](QWidget* w) { return qobject_cast<SetupViewWidget*>(w); }),
                  1);
        return QPointer(static_cast<SetupViewWidget*>(SetupWindowController::shared()->window()));
    };
    const auto shownLines = [&] { return platform.log.messages().count("setup window shown"); };
    QPointer<SetupViewWidget> window = present(first);
    EXPECT_EQ(std::tuple(window->isVisible(), window->windowTitle(), window->size(),
                         window->maximumSize(),
                         bool(window->windowFlags() & Qt::WindowMinimizeButtonHint)),
              std::tuple(true, "Vaskel", QSize(460, 320), QSize(460, 320), false));
    window->findChild<QLineEdit*>()->insert("half@typed");

    // The title-bar close hides the window; presenting again shows it as it was.
    window->close();
    const int activations = platform::Presentation::shared().activations();
    EXPECT_EQ(present(second), window);
    EXPECT_EQ(std::tuple(window->isVisible(), window->findChild<QLineEdit*>()->text(), shownLines(),
                         first[0]),
              std::tuple(true, "half@typed", 1, 0));
    EXPECT_GT(platform::Presentation::shared().activations(), activations);

    window->view().setAccount(UNPAID_ACCOUNT);
    button(*window, "Done")->click();
    EXPECT_EQ(std::tuple(first[0], second[0], SetupWindowController::shared()),
              std::tuple(1, 0, nullptr));
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(window.isNull()) << "a closed window is not kept";

    // The next window starts over and reports to the callbacks it was created with; "Skip for
    // Now" closes it like "Done".
    window = present(second);
    EXPECT_EQ(std::tuple(window->view().email(), shownLines()), std::tuple("", 2));
    window->view().setAccount(UNPAID_ACCOUNT);
    window->view().setProviderWorking(false);
    button(*window, "Open Vaskel Folder")->click();
    button(*window, "Skip for Now")->click();
    EXPECT_EQ(std::tuple(first, second[3], second[0]), std::tuple(std::array{1, 0, 0, 0}, 1, 1));
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

// Not a test of its own: the screenshots of the README, taken by scripts/screenshots, which sets
// VASKEL_SCREENSHOT_DIR and runs this under a virtual X server.
TEST(SetupScreenshots, SignedOutSignedInAndEnableStepInLightAndDarkThemes) {
    const QString folder = qEnvironmentVariable("VASKEL_SCREENSHOT_DIR");
    if (folder.isEmpty()) GTEST_SKIP() << "scripts/screenshots sets VASKEL_SCREENSHOT_DIR";
    testing_support::FakePlatform platform;
    QApplication::setStyle(QStyleFactory::create("Fusion"));
    // A dark palette as dark desktop themes give one, with their darker field background.
    QPalette dark(QColor(0x3a, 0x3a, 0x3f), QColor(0x2b, 0x2b, 0x2f));
    dark.setColor(QPalette::Base, QColor(0x1e, 0x1e, 0x22));
    for (const QString theme : {"", "dark-"}) {
        if (!theme.isEmpty()) QApplication::setPalette(dark);
        SetupWindowController::present(nullptr, nullptr, nullptr, nullptr);
        auto& window = *static_cast<SetupViewWidget*>(SetupWindowController::shared()->window());
        SetupView& view = window.view();
        const auto save = [&](const QString& name) {
            testing_support::runEventsUntil([] { return false; }, 150);  // let the window settle
            EXPECT_TRUE(window.grab().save(QDir(folder).filePath(theme + name)));
        };
        view.setEmail("demo@example.com");  // the demo account of vaskel-devserver
        view.setPassword("demo");
        save("setup-signed-out.png");
        view.setAccount(Account{"demo@example.com",
                                "Demo User",
                                1'200'000'000,
                                5'000'000'000,
                                false,
                                "Pro",
                                "active",
                                {}});
        view.setProviderWorking(true);
        save("setup-signed-in.png");
        view.setProviderWorking(false);
        if (!theme.isEmpty()) view.setError("Could not reach Vaskel. Connection refused");
        save("setup-enable-step.png");
        SetupWindowController::shared()->close();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    QApplication::setPalette(QApplication::style()->standardPalette());
}

}  // namespace
