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
using setup_testing::label;
using setup_testing::shows;

namespace {

const QString SIGN_IN = QStringLiteral("Sign In");

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
        // Any sign-in these tests start fails at once instead of leaving the machine.
        view->setServer("http://127.0.0.1:" +
                        QString::number(testing_support::closedLoopbackPort()));
        widget.show();
        QApplication::setActiveWindow(&widget);
    }

    QLineEdit* field(const QString& accessibleName) {
        for (QLineEdit* candidate : widget.findChildren<QLineEdit*>()) {
            if (candidate->accessibleName() == accessibleName) return candidate;
        }
        return nullptr;
    }
    QAbstractButton* visibleButton(const QString& text) {
        QAbstractButton* found = button(widget, text);
        return found && found->isVisible() ? found : nullptr;
    }
    void click(const QString& text) {
        QAbstractButton* found = visibleButton(text);
        ASSERT_NE(found, nullptr) << text.toStdString();
        found->click();
    }
    void pressReturn(QWidget* target) {
        QKeyEvent press(QEvent::KeyPress, Qt::Key_Return, Qt::NoModifier);
        QApplication::sendEvent(target, &press);
    }
    QProgressBar* indicator(const QString& accessibleName) {
        for (QProgressBar* candidate : widget.findChildren<QProgressBar*>()) {
            if (candidate->accessibleName() == accessibleName) return candidate;
        }
        return nullptr;
    }
};

TEST_F(SetupViewWidgetTest, TheFormSignsInOnlyWhenItMayAndStaysEditableWhileBusy) {
    for (const char* text : {"Vaskel", "Sign in to connect this Mac", "Email", "Password",
                             "Create an account", "Forgot password?", "Advanced", "Sign In"}) {
        EXPECT_TRUE(shows(widget, text)) << text;
    }
    for (const char* text : {"Signed in", "Sign Out", "Done", "Skip for Now", "Hide advanced",
                             "Open your account page"}) {
        EXPECT_FALSE(shows(widget, text)) << text;
    }
    QLineEdit* email = field("Email");
    QLineEdit* password = field("Password");
    ASSERT_TRUE(email && password);
    EXPECT_EQ(password->echoMode(), QLineEdit::Password);
    EXPECT_EQ(password->placeholderText(), "Your Vaskel password");
    EXPECT_TRUE(email->hasFocus()) << "the form starts at the e-mail field";
    EXPECT_FALSE(visibleButton(SIGN_IN)->isEnabled());
    EXPECT_TRUE(static_cast<QPushButton*>(visibleButton(SIGN_IN))->isDefault());

    // Return does nothing until the form is complete.
    email->insert("ada@example.com");
    pressReturn(email);
    EXPECT_FALSE(view->busy());
    password->insert("pw");
    EXPECT_EQ(view->email(), "ada@example.com");
    EXPECT_EQ(view->password(), "pw");
    EXPECT_TRUE(visibleButton(SIGN_IN)->isEnabled());

    view->setBusy(true);
    EXPECT_FALSE(visibleButton(SIGN_IN)->isEnabled());
    EXPECT_TRUE(indicator("Working")->isVisible());
    EXPECT_TRUE(email->isEnabled() && !email->isReadOnly() && password->isEnabled());
    pressReturn(password);
    EXPECT_TRUE(view->error() == std::nullopt) << "no second sign-in while one runs";

    view->setBusy(false);
    EXPECT_FALSE(indicator("Working")->isVisible());
    pressReturn(password);
    EXPECT_TRUE(view->busy()) << "return in the password field signs in";
    ASSERT_TRUE(setup_testing::waitUntil([this] { return !view->busy(); }));
    ASSERT_TRUE(view->error());
    EXPECT_TRUE(shows(widget, *view->error())) << "the error line shows under the form";
    EXPECT_EQ(email->text(), "ada@example.com");
    EXPECT_EQ(password->text(), "pw");
}

TEST_F(SetupViewWidgetTest, RedrawsNeverDisturbTyping) {
    QLineEdit* email = field("Email");
    email->setFocus();
    email->insert("ada@exmple.com");
    email->setCursorPosition(6);
    email->insert("a");
    for (int i = 0; i < 3; ++i) {
        view->setBusy(i % 2 == 0);
        view->setError("x");
    }
    EXPECT_TRUE(email->hasFocus());
    EXPECT_EQ(email->cursorPosition(), 7);
    EXPECT_EQ(email->text(), "ada@example.com");
    view->setEmail("set@elsewhere.example");
    EXPECT_EQ(email->text(), "set@elsewhere.example") << "a write to the view shows in the field";
}

TEST_F(SetupViewWidgetTest, AdvancedRevealsTheServerAndLinksFollowWhatIsTyped) {
    view->setServer(DEFAULT_SERVER);
    EXPECT_EQ(field("Server")->isVisible(), false);
    click("Advanced");
    EXPECT_TRUE(view->showAdvanced());
    EXPECT_TRUE(shows(widget, "Hide advanced"));
    EXPECT_TRUE(shows(widget, "Server"));
    QLineEdit* server = field("Server");
    EXPECT_TRUE(server->isVisible());
    EXPECT_EQ(server->text(), DEFAULT_SERVER);
    EXPECT_EQ(server->placeholderText(), DEFAULT_SERVER);

    server->clear();
    server->insert("files.example.org/");
    EXPECT_EQ(view->server(), "files.example.org/");
    click("Create an account");
    click("Forgot password?");
    view->setPortalHint(QUrl("https://pay.example/plans"));
    click("Open your account page");
    ASSERT_EQ(workspace.opened.size(), 3u);
    EXPECT_EQ(workspace.opened[0], QUrl("https://files.example.org/vaskel/account/signup"));
    EXPECT_EQ(workspace.opened[1], QUrl("https://files.example.org/vaskel/account/forgot"));
    EXPECT_EQ(workspace.opened[2], QUrl("https://pay.example/plans"));

    click("Hide advanced");
    EXPECT_FALSE(server->isVisible());
    EXPECT_TRUE(shows(widget, "Advanced"));
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
    for (QLineEdit* edit : widget.findChildren<QLineEdit*>()) {
        EXPECT_GE(edit->height(), edit->sizeHint().height())
            << edit->accessibleName().toStdString();
    }
    const QWidget* footerButton = visibleButton(SIGN_IN);
    EXPECT_LE(label(widget, *view->error())->mapTo(&widget, QPoint(0, 0)).y() +
                  label(widget, *view->error())->height(),
              footerButton->mapTo(&widget, QPoint(0, 0)).y());
}

TEST_F(SetupViewWidgetTest, TheSummaryShowsTheAccountAsTheServerDescribesIt) {
    const auto account = [](QString name, bool unlimited, qint64 quota, QString plan,
                            QString status) {
        return Account{"ada@example.com", name, 1'200'000'000, quota, unlimited, plan, status, {}};
    };
    const struct {
        Account account;
        bool nameShown;
        std::optional<int> bar;  // none: no bar
        QString usage;
        std::optional<QString> payment;
    } cases[] = {
        {account("Ada", false, 5'000'000'000, "Pro", "active"), true, 240,
         "1.2 GB of 5 GB used · Pro plan", std::nullopt},
        {account("", true, 0, "", "past_due"), false, std::nullopt, "1.2 GB used",
         "Payment failed – update your card…"},
        {account("Ada", false, 0, "Free", "suspended"), true, 0,
         "1.2 GB of 0 bytes used · Free plan", "Access paused – payment needed…"},
    };
    view->setServer("https://files.example.org");
    for (const auto& row : cases) {
        SCOPED_TRACE(row.usage.toStdString());
        view->setAccount(row.account);
        for (const char* text : {"Signed in", "ada@example.com", "Browse files online…",
                                 "Manage account…", "Sign Out", "Done"}) {
            EXPECT_TRUE(shows(widget, text)) << text;
        }
        for (const char* text : {"Email", "Sign In", "Skip for Now", "One more step on this Mac"}) {
            EXPECT_FALSE(shows(widget, text)) << text;
        }
        EXPECT_EQ(shows(widget, "Ada"), row.nameShown);
        QProgressBar* bar = widget.findChild<QProgressBar*>();
        for (QProgressBar* candidate : widget.findChildren<QProgressBar*>()) {
            if (candidate->accessibleName() == "Storage used") bar = candidate;
        }
        EXPECT_EQ(bar->isVisible(), row.bar.has_value());
        if (row.bar) {
            EXPECT_EQ(bar->value(), *row.bar);
        }
        EXPECT_TRUE(shows(widget, row.usage));
        for (const char* notice :
             {"Payment failed – update your card…", "Access paused – payment needed…"}) {
            EXPECT_EQ(shows(widget, notice), row.payment == notice) << notice;
        }
        EXPECT_TRUE(static_cast<QPushButton*>(visibleButton("Done"))->isDefault());
    }
    workspace.opened.clear();
    click("Access paused – payment needed…");
    EXPECT_EQ(static_cast<LinkButton*>(button(widget, "Access paused – payment needed…"))->tone(),
              LinkButton::Tone::red);
    click("Browse files online…");
    click("Manage account…");
    ASSERT_EQ(workspace.opened.size(), 3u);
    EXPECT_EQ(workspace.opened[0], QUrl("https://files.example.org/vaskel/account/"));
    EXPECT_EQ(workspace.opened[1], QUrl("https://files.example.org/vaskel/account/files#files"));
    EXPECT_EQ(workspace.opened[2], QUrl("https://files.example.org/vaskel/account/"));

    click("Done");
    EXPECT_EQ(closed, 1);
}

TEST_F(SetupViewWidgetTest, TheEnableStepReplacesTheSummaryWhileTheExtensionDoesNotAnswer) {
    view->setAccount(setup_testing::accountFor("ada@example.com"));
    view->setError("Something went wrong.");
    EXPECT_TRUE(shows(widget, "Something went wrong.")) << "under the summary";
    view->setProviderWorking(false);
    for (const char* text : {"One more step on this Mac",
                             "Open your Vaskel folder and macOS will ask for permission to turn it "
                             "on. Click Enable when it does.",
                             "Open Vaskel Folder", "Check Again", "Or open System Settings",
                             "Sign Out", "Skip for Now", "Something went wrong."}) {
        EXPECT_TRUE(shows(widget, text)) << text;
    }
    EXPECT_FALSE(shows(widget, "Done"));
    EXPECT_FALSE(shows(widget, "Manage account…"));
    EXPECT_FALSE(static_cast<QPushButton*>(visibleButton("Skip for Now"))->isDefault());
    EXPECT_TRUE(static_cast<QPushButton*>(visibleButton("Open Vaskel Folder"))->isDefault());
    EXPECT_FALSE(indicator("Checking")->isVisible());

    view->setChecking(true);
    EXPECT_TRUE(shows(widget, "Checking…"));
    EXPECT_FALSE(visibleButton("Checking…")->isEnabled());
    EXPECT_TRUE(indicator("Checking")->isVisible());
    EXPECT_FALSE(indicator("Working")->isVisible()) << "the footer follows busy alone";
    pressReturn(&widget);
    EXPECT_EQ(openFolder, 1) << "Return opens the folder";
    click("Or open System Settings");
    EXPECT_EQ(settings.opened, 1);
    click("Skip for Now");
    EXPECT_EQ(closed, 1);

    view->setChecking(false);
    view->setProviderWorking(true);
    EXPECT_TRUE(shows(widget, "Done"));
    EXPECT_TRUE(shows(widget, "Manage account…"));
    EXPECT_FALSE(shows(widget, "One more step on this Mac"));
}

TEST_F(SetupViewWidgetTest, KeyboardReachesTheControlsInReadingOrderAndSymbolsHaveNames) {
    view->setEmail("a@b");
    view->setPassword("pw");
    view->setPortalHint(QUrl("https://pay.example"));
    click("Advanced");
    field("Email")->setFocus();
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
    ASSERT_NE(link, nullptr);
    EXPECT_EQ(link->role(), QAccessible::Button) << "links read as buttons";
    EXPECT_EQ(link->text(QAccessible::Name), "Hide advanced");
    for (SymbolLabel* symbol : widget.findChildren<SymbolLabel*>()) {
        EXPECT_FALSE(symbol->accessibleName().isEmpty()) << symbol->symbol().toStdString();
    }
    for (QProgressBar* bar : widget.findChildren<QProgressBar*>()) {
        EXPECT_FALSE(bar->accessibleName().isEmpty());
    }
}

TEST(SetupStyle, TextStaysReadableOnLightAndDarkThemes) {
    const auto contrastOf = [](const QColor& a, const QColor& b) {
        const auto lum = [](const QColor& c) {
            const auto ch = [](double v) {
                v /= 255;
                return v <= 0.03928 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
            };
            return 0.2126 * ch(c.red()) + 0.7152 * ch(c.green()) + 0.0722 * ch(c.blue());
        };
        const double x = lum(a), y = lum(b);
        return (std::max(x, y) + 0.05) / (std::min(x, y) + 0.05);
    };
    for (const QColor& window : {QColor(0xf0, 0xf0, 0xf0), QColor(0x2a, 0x2a, 0x2e)}) {
        QPalette palette(window);
        palette.setColor(QPalette::Link, QColor(0, 0, 0xff));  // the toolkit's default link blue
        palette.setColor(QPalette::Highlight, QColor(0x30, 0x8c, 0xc6));
        palette.setColor(QPalette::PlaceholderText, window);  // a theme with invisible placeholders
        for (const QColor& text : {setup_style::link(palette), setup_style::red(palette),
                                   setup_style::secondary(palette)}) {
            EXPECT_GE(contrastOf(text, window), 3.0)
                << window.name().toStdString() << " " << text.name().toStdString();
        }
    }
    const QFont base("Sans", 10);
    EXPECT_DOUBLE_EQ(setup_style::font(base, setup_style::FontRole::title2).pointSizeF(), 14);
    EXPECT_TRUE(setup_style::font(base, setup_style::FontRole::title2).bold());
    EXPECT_DOUBLE_EQ(setup_style::font(base, setup_style::FontRole::caption).pointSizeF(), 8.5);
}

}  // namespace
