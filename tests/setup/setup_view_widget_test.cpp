#include "setup/setup_view_widget.h"

#include <gtest/gtest.h>

#include <QAccessible>
#include <QApplication>
#include <QKeyEvent>
#include <QLayout>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>

#include "server/server_address.h"
#include "setup/link_button.h"
#include "setup/setup_style.h"
#include "setup/setup_test_support.h"
#include "setup/setup_view.h"
#include "setup/symbol_label.h"
#include "support/fake_file_provider.h"
#include "support/fake_platform.h"
#include "support/loopback_server.h"
#include "support/qt_printing.h"

using setup_testing::button;
using setup_testing::shows;

namespace {

class SetupViewWidgetTest : public ::testing::Test {
protected:
    testing_support::FakePlatform platform;
    setup_testing::FakeWorkspace workspace;
    testing_support::FakeSettingsApplication settings;
    platform::StandIn<platform::SettingsApplication> settingsStandIn{settings};
    int openFolder = 0;
    int closed = 0;
    SetupView* view = new SetupView(
        nullptr, nullptr, [this] { ++openFolder; }, [this] { ++closed; });
    SetupViewWidget widget{view};

    void SetUp() override {
        // A sign-in started here fails at once instead of leaving the machine.
        view->setServer("http://127.0.0.1:" +
                        QString::number(testing_support::closedLoopbackPort()));
        widget.show();
        QApplication::setActiveWindow(&widget);
    }

    template <class W>
    W* named(const QString& accessibleName) {
        for (W* candidate : widget.findChildren<W*>())
            if (candidate->accessibleName() == accessibleName) return candidate;
        return nullptr;
    }
    QPushButton* pushButton(const QString& text) {
        return setup_testing::withText<QPushButton>(widget, text);
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
    void expectShown(std::initializer_list<const char*> shown,
                     std::initializer_list<const char*> hidden) {
        for (const char* text : shown) EXPECT_TRUE(shows(widget, text)) << text;
        for (const char* text : hidden) EXPECT_FALSE(shows(widget, text)) << text;
    }
};

TEST_F(SetupViewWidgetTest, TheFormSignsInOnlyWhenItMayAndStaysEditableWhileBusy) {
    expectShown({"Vaskel", "Sign in to connect this Mac", "Email", "Password", "Create an account",
                 "Forgot password?", "Advanced", "Sign In"},
                {"Signed in", "Sign Out", "Done", "Skip for Now", "Open your account page"});
    auto* email = named<QLineEdit>("Email");
    auto* password = named<QLineEdit>("Password");
    EXPECT_EQ(password->echoMode(), QLineEdit::Password);
    EXPECT_EQ(password->placeholderText(), "Your Vaskel password");
    EXPECT_TRUE(email->hasFocus());
    QPushButton* signIn = pushButton("Sign In");
    EXPECT_FALSE(signIn->isEnabled());
    EXPECT_TRUE(signIn->isDefault());

    email->insert("ada@example.com");
    pressReturn(email);
    EXPECT_FALSE(view->busy()) << "Return does nothing until the form is complete";
    password->insert("pw");
    EXPECT_EQ(view->email(), "ada@example.com");
    EXPECT_EQ(view->password(), "pw");
    EXPECT_TRUE(signIn->isEnabled());

    view->setBusy(true);
    EXPECT_FALSE(signIn->isEnabled());
    EXPECT_TRUE(named<QProgressBar>("Working")->isVisible());
    EXPECT_TRUE(email->isEnabled() && !email->isReadOnly() && password->isEnabled());
    pressReturn(password);
    EXPECT_EQ(view->error(), std::nullopt) << "no second sign-in while one runs";

    view->setBusy(false);
    EXPECT_FALSE(named<QProgressBar>("Working")->isVisible());
    pressReturn(password);
    EXPECT_TRUE(view->busy()) << "Return in the password field signs in";
    ASSERT_TRUE(setup_testing::waitUntil([this] { return !view->busy(); }));
    ASSERT_TRUE(view->error());
    EXPECT_TRUE(shows(widget, *view->error()));
    EXPECT_EQ(password->text(), "pw");
}

TEST_F(SetupViewWidgetTest, RedrawsNeverDisturbTyping) {
    auto* email = named<QLineEdit>("Email");
    email->insert("ada@exmple.com");
    email->setCursorPosition(6);
    email->insert("a");
    view->setBusy(true);
    view->setError("x");
    view->setBusy(false);
    EXPECT_TRUE(email->hasFocus());
    EXPECT_EQ(email->cursorPosition(), 7);
    EXPECT_EQ(email->text(), "ada@example.com");
    view->setEmail("set@elsewhere.example");
    EXPECT_EQ(email->text(), "set@elsewhere.example");
}

TEST_F(SetupViewWidgetTest, AdvancedRevealsTheServerAndLinksFollowWhatIsTyped) {
    view->setServer(DEFAULT_SERVER);
    auto* server = named<QLineEdit>("Server");
    EXPECT_FALSE(server->isVisible());
    click("Advanced");
    expectShown({"Hide advanced", "Server"}, {"Advanced"});
    EXPECT_TRUE(server->isVisible());
    EXPECT_EQ(server->text(), DEFAULT_SERVER);

    server->clear();
    server->insert("files.example.org/");
    click("Create an account");
    click("Forgot password?");
    view->setPortalHint(QUrl("https://pay.example/plans"));
    click("Open your account page");
    EXPECT_EQ(workspace.opened, std::vector<QUrl>({
                                    QUrl("https://files.example.org/vaskel/account/signup"),
                                    QUrl("https://files.example.org/vaskel/account/forgot"),
                                    QUrl("https://pay.example/plans"),
                                }));
    click("Hide advanced");
    EXPECT_FALSE(server->isVisible());
}

TEST_F(SetupViewWidgetTest, ACrowdedFormStillFitsTheFixedWindowWithoutSquashingFields) {
    widget.setFixedSize(460, 320);
    view->setShowAdvanced(true);
    view->setPortalHint(QUrl("https://pay.example"));
    view->setError(
        "This account has no active plan yet. Choose a plan on the Vaskel website, then "
        "sign in again.");
    view->setBusy(true);
    widget.layout()->activate();
    for (QLineEdit* edit : widget.findChildren<QLineEdit*>())
        EXPECT_GE(edit->height(), edit->sizeHint().height())
            << edit->accessibleName().toStdString();
    const QWidget* error = setup_testing::withText<QLabel>(widget, *view->error());
    EXPECT_LE(error->mapTo(&widget, QPoint(0, error->height())).y(),
              pushButton("Sign In")->mapTo(&widget, QPoint(0, 0)).y());
}

TEST_F(SetupViewWidgetTest, TheSummaryShowsTheAccountAsTheServerDescribesIt) {
    const QString paymentFailed = "Payment failed – update your card…";
    const QString paused = "Access paused – payment needed…";
    // Account; whether the name shows, the bar's value (none: no bar), usage line, notice.
    const std::tuple<Account, bool, std::optional<int>, QString, QString> cases[] = {
        {{"a@b.c", "Ada", 1'200'000'000, 5'000'000'000, false, "Pro", "active", {}},
         true,
         240,
         "1.2 GB of 5 GB used · Pro plan",
         ""},
        {{"a@b.c", "", 1'200'000'000, 0, true, "", "past_due", {}},
         false,
         std::nullopt,
         "1.2 GB used",
         paymentFailed},
        {{"a@b.c", "Ada", 5, 0, false, "", "suspended", {}},
         true,
         0,
         "5 bytes of 0 bytes used",
         paused},
    };
    view->setServer("https://files.example.org");
    for (const auto& [account, nameShown, bar, usage, notice] : cases) {
        SCOPED_TRACE(usage.toStdString());
        view->setAccount(account);
        expectShown(
            {"Signed in", "a@b.c", "Browse files online…", "Manage account…", "Sign Out", "Done"},
            {"Email", "Sign In", "Skip for Now", "One more step on this Mac"});
        EXPECT_EQ(shows(widget, "Ada"), nameShown);
        auto* usageBar = named<QProgressBar>("Storage used");
        EXPECT_EQ(usageBar->isVisible(), bar.has_value());
        EXPECT_EQ(usageBar->value(), bar.value_or(usageBar->value()));
        EXPECT_TRUE(shows(widget, usage));
        EXPECT_EQ(shows(widget, paymentFailed), notice == paymentFailed);
        EXPECT_EQ(shows(widget, paused), notice == paused);
        EXPECT_TRUE(pushButton("Done")->isDefault());
    }
    workspace.opened.clear();
    click(paused);
    EXPECT_EQ(static_cast<LinkButton*>(button(widget, paused))->tone(), LinkButton::Tone::red);
    click("Browse files online…");
    click("Manage account…");
    EXPECT_EQ(workspace.opened, std::vector<QUrl>({
                                    QUrl("https://files.example.org/vaskel/account/"),
                                    QUrl("https://files.example.org/vaskel/account/files#files"),
                                    QUrl("https://files.example.org/vaskel/account/"),
                                }));
    click("Done");
    EXPECT_EQ(closed, 1);
}

TEST_F(SetupViewWidgetTest, TheEnableStepReplacesTheSummaryWhileTheExtensionDoesNotAnswer) {
    view->setAccount(setup_testing::accountFor("ada@example.com"));
    view->setError("Something went wrong.");
    EXPECT_TRUE(shows(widget, "Something went wrong.")) << "under the summary";
    view->setProviderWorking(false);
    expectShown({"One more step on this Mac",
                 "Open your Vaskel folder and macOS will ask for permission to turn it on. Click "
                 "Enable when it does.",
                 "Open Vaskel Folder", "Check Again", "Or open System Settings", "Sign Out",
                 "Skip for Now", "Something went wrong."},
                {"Done", "Manage account…"});
    EXPECT_FALSE(pushButton("Skip for Now")->isDefault());
    EXPECT_TRUE(pushButton("Open Vaskel Folder")->isDefault());

    view->setChecking(true);
    EXPECT_FALSE(pushButton("Checking…")->isEnabled());
    EXPECT_TRUE(named<QProgressBar>("Checking")->isVisible());
    EXPECT_FALSE(named<QProgressBar>("Working")->isVisible()) << "the footer follows busy alone";
    pressReturn(&widget);
    EXPECT_EQ(openFolder, 1) << "Return opens the folder, also while checking";
    click("Or open System Settings");
    EXPECT_EQ(settings.opened, 1);
    click("Skip for Now");
    EXPECT_EQ(closed, 1);

    view->setChecking(false);
    view->setProviderWorking(true);
    expectShown({"Done", "Manage account…"}, {"One more step on this Mac", "Check Again"});
}

TEST_F(SetupViewWidgetTest, KeyboardReachesTheControlsInReadingOrderAndSymbolsHaveNames) {
    view->setEmail("a@b");
    view->setPassword("pw");
    view->setPortalHint(QUrl("https://pay.example"));
    click("Advanced");
    named<QLineEdit>("Email")->setFocus();
    QStringList order;
    for (int i = 0; i < 9; ++i) {
        QWidget* focused = QApplication::focusWidget();
        ASSERT_NE(focused, nullptr);
        const auto* asButton = qobject_cast<QAbstractButton*>(focused);
        order << (asButton ? asButton->text() : focused->accessibleName());
        QKeyEvent tab(QEvent::KeyPress, Qt::Key_Tab, Qt::NoModifier);
        QApplication::sendEvent(focused, &tab);
    }
    EXPECT_EQ(order, QStringList({"Email", "Password", "Create an account", "Forgot password?",
                                  "Hide advanced", "Server", "Open your account page", "Sign In",
                                  "Email"}));

    QAccessibleInterface* link =
        QAccessible::queryAccessibleInterface(button(widget, "Hide advanced"));
    EXPECT_EQ(link->role(), QAccessible::Button);
    EXPECT_EQ(link->text(QAccessible::Name), "Hide advanced");
    for (SymbolLabel* symbol : widget.findChildren<SymbolLabel*>())
        EXPECT_FALSE(symbol->accessibleName().isEmpty()) << symbol->symbol().toStdString();
    for (QProgressBar* bar : widget.findChildren<QProgressBar*>())
        EXPECT_FALSE(bar->accessibleName().isEmpty());
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
    const QFont base("Sans", 10);
    EXPECT_DOUBLE_EQ(setup_style::font(base, setup_style::FontRole::title2).pointSizeF(), 14);
    EXPECT_TRUE(setup_style::font(base, setup_style::FontRole::title2).bold());
}

}  // namespace
