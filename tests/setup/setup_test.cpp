#include "setup/setup_view_widget.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QJsonDocument>
#include <QtWidgets>

#include "platform/desktop/presentation.h"
#include "platform/host_name.h"
#include "server/server_address.h"
#include "setup/link_button.h"
#include "setup/setup_view.h"
#include "setup/setup_window_controller.h"
#include "shared/config.h"
#include "shared/key_storage.h"
#include "shared/keychain_store.h"
#include "support/event_loop_wait.h"
#include "support/fake_desktop.h"
#include "support/fake_file_provider.h"
#include "support/fake_platform.h"
#include "support/loopback_fixture.h"
#include "support/test_files.h"

using testing_support::runEventsUntil;
using testing_support::ScriptedReply;
using testing_support::writeFile;

namespace {

// clang-format off
const QString UNPAID = "Payment failed – update your card…";
const QString NO_PLAN = "This account has no active plan yet. Choose a plan on the Vaskel website, then sign in again.";
const QString ENABLE_TEXT = "Open your Vaskel folder and macOS will ask for permission to turn it on. Click Enable when it does.";
const Account UNPAID_ACCOUNT{"demo@example.com", "", 1'200'000'000, 0, true, "", "past_due", {}};
// The demo account of vaskel-devserver, as the README's screenshots show it.
const Account DEMO{"demo@example.com", "Demo User", 1'200'000'000, 5'000'000'000, false, "Pro", "active", {}};
// clang-format on

// The button under `root` whose text is `text`; none when there is none.
QAbstractButton* button(const QWidget& root, const QString& text) {
    for (QAbstractButton* candidate : root.findChildren<QAbstractButton*>())
        if (candidate->text() == text) return candidate;
    return nullptr;
}

class SetupViewWidgetTest : public ::testing::Test {
protected:
    testing_support::FakePlatform platform;
    testing_support::FakeDesktop desktop;
    testing_support::FakeSettingsApplication settings;
    platform::StandIn<platform::SettingsApplication> settingsStandIn{settings};
    int openFolder = 0;
    SetupView* view = new SetupView(
        nullptr, nullptr, [this] { ++openFolder; }, nullptr);
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
    static void press(QWidget* target, Qt::Key key = Qt::Key_Return) {
        QKeyEvent event(QEvent::KeyPress, key, Qt::NoModifier);
        QApplication::sendEvent(target, &event);
    }
};

// Every state also fits the fixed window without squashing a field.
TEST_F(SetupViewWidgetTest, EachStateShowsItsSectionsAndDefaultButtonAndFits) {
    // clang-format off
    const QStringList form{"Vaskel", "Sign in to connect this Mac", "Email", "Password", "Create an account", "Forgot password?"};
    const QStringList summary{"Vaskel", "Signed in", "Account", "demo@example.com", "Browse files online…", "Manage account…", "Sign Out", "[Done]", "Error", NO_PLAN};
    const QStringList unpaidSummary = summary + QStringList{"1.2 GB used", UNPAID};
    const QStringList enableStep{"Vaskel", "Signed in", "Folder", "One more step on this Mac", ENABLE_TEXT, "[Open Vaskel Folder]",
                                 "Or open System Settings", "Sign Out", "Skip for Now", "Error", NO_PLAN};
    // Each row changes the state that the row before left.
    const std::pair<std::function<void()>, QStringList> rows[] = {
        {[] {}, form + QStringList{"Advanced", "[Sign In] (disabled)"}},
        {[this] { view->setPortalHint(QUrl("https://x")); view->setEmail("a@b"); },
         form + QStringList{"Advanced", "Open your account page", "[Sign In] (disabled)"}},
        {[this] { view->setPassword("pw"); view->setShowAdvanced(true); view->setError(NO_PLAN); view->setBusy(true); },
         form + QStringList{"Hide advanced", "Server", "Open your account page", "Working", "Error", NO_PLAN, "[Sign In] (disabled)"}},
        {[&] { view->setBusy(false); view->setAccount(DEMO); },
         summary + QStringList{"Demo User", "Storage used 240", "1.2 GB of 5 GB used · Pro plan"}},
        {[&] { view->setAccount(UNPAID_ACCOUNT); }, unpaidSummary},
        {[this] { view->setProviderWorking(false); }, enableStep + QStringList{"Check Again"}},
        {[this] { view->setChecking(true); }, enableStep + QStringList{"Checking… (disabled)", "Checking"}},
        {[this] { view->setChecking(false); view->setProviderWorking(true); }, unpaidSummary},
    };
    // clang-format on
    for (auto [change, expected] : rows) {
        change();
        expected.sort();
        EXPECT_EQ(shown(), expected);
        widget.layout()->activate();
        for (QLineEdit* field : fields)
            EXPECT_GE(field->height(), field->isVisible() ? field->sizeHint().height() : 0);
    }
}

TEST_F(SetupViewWidgetTest, TypingReturnAndRedrawsFollowTheFormAndLinksAndButtonsRunTheirActions) {
    auto [email, password, server] = std::tuple(fields[0], fields[1], fields[2]);
    EXPECT_TRUE(email->hasFocus());
    EXPECT_EQ(std::tuple(password->echoMode(), password->placeholderText()),
              std::tuple(QLineEdit::Password, "Your Vaskel password"));

    email->insert("adaexample.com");
    password->insert("pw");
    press(email);
    EXPECT_FALSE(view->busy()) << "Return does nothing until the e-mail has an @";
    email->setCursorPosition(3);
    email->insert("@");
    view->setBusy(true);
    EXPECT_TRUE(email->isEnabled() && !email->isReadOnly() && password->isEnabled());
    press(password);
    EXPECT_EQ(view->error(), std::nullopt) << "no second sign-in while one runs";
    view->setBusy(false);
    // The redraws left the typing alone.
    EXPECT_TRUE(email->hasFocus());
    EXPECT_EQ(std::tuple(email->cursorPosition(), view->email(), view->password()),
              std::tuple(4, "ada@example.com", "pw"));

    press(password);
    EXPECT_TRUE(view->busy()) << "Return in the password field signs in";

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
    for (const QString& link : QStringList{UNPAID, "Browse files online…", "Manage account…"})
        click(link);
    const QString portal = "https://files.example.org/vaskel/account/";
    // clang-format off
    EXPECT_EQ(desktop.workspace.opened, std::vector<QUrl>({QUrl(portal + "signup"), QUrl(portal + "forgot"),
        QUrl("https://pay.example/plans"), QUrl(portal), QUrl(portal + "files#files"), QUrl(portal)}));
    // clang-format on

    view->setProviderWorking(false);
    view->setChecking(true);
    press(&widget);
    EXPECT_EQ(openFolder, 1) << "Return opens the folder, also while checking";
    click("Or open System Settings");
    EXPECT_EQ(settings.opened, 1);
}

TEST(SetupWindowController, OneWindowKeptByTheTitleBarCloseAndStartedOverAfterDone) {
    testing_support::FakePlatform platform;
    // The calls each `present` hands over, counted: dismissed, connected, signed out, open folder.
    std::array<int, 4> first{}, second{};
    const auto present = [](std::array<int, 4>& calls) {
        SetupPresenter::real().present(
            {[&] { ++calls[0]; }, [&] { ++calls[1]; }, [&] { ++calls[2]; }, [&] { ++calls[3]; }});
        return QPointer(static_cast<SetupViewWidget*>(SetupWindowController::shared()->window()));
    };
    const auto shownLines = [&] { return platform.log.messages().count("setup window shown"); };
    QPointer<SetupViewWidget> window = present(first);
    EXPECT_EQ(std::tuple(window->isVisible(), window->windowTitle(), window->size()),
              std::tuple(true, "Vaskel", QSize(460, 320)));
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

// clang-format off
const QString TYPED = QStringLiteral("  ada@example.com"), PASSWORD = QStringLiteral("correct horse");
// The account answer spells the address differently from what was typed: that one is stored.
const std::string ACCOUNT = R"({"email":"Ada@Example.com","used_bytes":12,"quota_bytes":50,"unlimited":false})";
const std::string LOGIN = R"({"api_key":"key-1","user":{"email":"ada@example.com"}})";
const QString KEY_REFUSED = "The server did not accept that key. Check it was copied in full.";
// clang-format on

struct FakeHostName final : platform::HostName {
    std::optional<QString> name = QStringLiteral("Test Laptop");
    std::optional<QString> localizedName() const override { return name; }
};

class SetupFlowsTest : public testing_support::LoopbackTest {
protected:
    testing_support::FakePlatform platform;
    testing_support::FakeFileProvider provider{platform.root.path() + "/state"};
    testing_support::FakeDesktop desktop;
    FakeHostName hostName;
    platform::StandIn<platform::HostName> hostNameStandIn{hostName};
    int connected = 0, signedOut = 0;
    std::unique_ptr<SetupView> view = makeView();

    std::unique_ptr<SetupView> makeView() {
        return std::make_unique<SetupView>([this] { ++connected; }, [this] { ++signedOut; },
                                           nullptr, nullptr);
    }
    void TearDown() override {
        view.reset();
        LoopbackTest::TearDown();
        for (const QString& line : platform.log.messages())
            EXPECT_FALSE(line.contains(PASSWORD) || line.contains("key-1")) << line.toStdString();
    }
    // Starts a sign-in with the typed e-mail and password at `address` (the loopback server when
    // none is given), which answers with `login` and `me`.
    void startSignIn(ScriptedReply login, ScriptedReply me, QString address = {}) {
        server->script("POST", "/vaskel/api/auth/login", std::move(login));
        server->script("GET", "/vaskel/api/me", std::move(me));
        view->setServer(address.isNull() ? server->origin() + "/" : address);
        view->setEmail(TYPED);
        view->setPassword(PASSWORD);
        view->signIn();
    }
    void finish() {
        ASSERT_TRUE(runEventsUntil([this] { return !view->busy(); }, 10'000));
    }
    static QByteArray configFile() { return testing_support::readFile(Shared::configPath()); }
};

TEST_P(SetupFlowsTest, SignInStoresTheAnsweredServerKeyAndEmailThenChecksTheExtension) {
    startSignIn({.body = LOGIN}, {.body = ACCOUNT});
    finish();
    EXPECT_EQ(std::tuple(view->account().has_value(), view->error(), view->server(), view->email(),
                         view->password(), connected),
              std::tuple(true, std::nullopt, server->origin(), TYPED, "", 1));
    // clang-format off
    EXPECT_EQ(Shared::readConfig(), QJsonObject({{"server", server->origin()}, {"account_email", "Ada@Example.com"}, {"api_key", ""}}));
    EXPECT_EQ(QJsonDocument::fromJson(QByteArray::fromStdString(server->requests()[0].body)),
              QJsonDocument::fromJson(R"({"email": "ada@example.com", "password": "correct horse", "device_name": "Test Laptop"})"));
    // clang-format on
    ASSERT_EQ(platform.keychain.items().size(), 1u);
    EXPECT_EQ(std::tuple(platform.keychain.items()[0].account, Shared::storedKey()),
              std::tuple("Ada@Example.com", "key-1"));

    // Two seconds later the extension is checked; with no domain registered it does not answer.
    EXPECT_FALSE(view->checking());
    ASSERT_TRUE(runEventsUntil([this] { return view->providerWorking().has_value(); }));
    EXPECT_EQ(std::tuple(view->providerWorking(), connected), std::tuple(false, 1));
}

TEST_P(SetupFlowsTest, AFailedSignInShowsOneLineKeepsTheFormAndStoresNothing) {
    hostName.name = std::nullopt;
    // The answers to the sign-in and the account request, the server address (the loopback
    // server when none); then the error and the portal hint.
    // clang-format off
    const std::string inactive = R"({"code":"inactive","portal":")";
    const std::tuple<ScriptedReply, ScriptedReply, QString, QString, std::optional<QUrl>> cases[] = {
        {{.status = 403, .body = "{}"}, {}, {}, "Email or password is incorrect.", {}},
        {{.body = LOGIN}, {.status = 401}, {}, KEY_REFUSED, {}},
        {{.status = 403, .body = inactive + "http://a b\"}"}, {}, {}, NO_PLAN, {}},
        {{.status = 403, .body = inactive + "https://pay.example/plans\"}"}, {}, {}, NO_PLAN, QUrl("https://pay.example/plans")},
    };
    // clang-format on
    const QByteArray config = R"({"server":"https://kept.example"})";
    writeFile(Shared::configPath(), config);
    for (const auto& [login, me, address, error, portalHint] : cases) {
        startSignIn(login, me, address);
        finish();
        EXPECT_EQ(
            std::tuple(view->error(), view->portalHint(), view->account(), view->email(),
                       view->password(), configFile(), platform.keychain.items().size(), connected),
            std::tuple(error, portalHint, std::nullopt, TYPED, PASSWORD, config, 0u, 0));
    }
    const QByteArray firstRequest = QByteArray::fromStdString(server->requests()[0].body);
    EXPECT_EQ(QJsonDocument::fromJson(firstRequest)["device_name"], "Mac") << "a nameless computer";

    // The next attempt clears the last failure (the inactive one) as it starts.
    view->signIn();
    EXPECT_EQ(std::tuple(view->error(), view->portalHint()),
              std::tuple(std::nullopt, std::nullopt));
}

TEST_P(SetupFlowsTest, OnAppearChecksAStoredSignInWithoutStoringOrReportingIt) {
    const QString origin = server->origin();
    const QByteArray configured = R"({"server":")" + origin.toUtf8() + R"("})";
    // Configuration, stored key, answer of the account request; then whether a request went
    // out, the server shown, and the error.
    // clang-format off
    const std::tuple<QByteArray, bool, int, bool, QString, std::optional<QString>> cases[] = {
        {configured, true, 200, true, origin, std::nullopt},
        {configured, true, 401, true, origin, KEY_REFUSED},
        {configured, false, 200, false, origin, std::nullopt},
        {R"({"server":""})", true, 200, false, DEFAULT_SERVER, std::nullopt},
    };
    // clang-format on
    for (const auto& [config, key, status, requested, shownServer, error] : cases) {
        KeychainStore::deleteKey();
        if (key) KeychainStore::saveKey("key-1", "Ada@Example.com");
        writeFile(Shared::configPath(), config);
        server->clearRequests();
        server->script("GET", "/vaskel/api/me", {.status = status, .body = ACCOUNT});
        view = makeView();

        view->loadExisting();
        finish();
        const bool signedIn = requested && !error;
        EXPECT_EQ(std::tuple(view->account().has_value(), view->server(), view->error(),
                             server->requests().size(), configFile(), connected),
                  std::tuple(signedIn, shownServer, error, requested ? 1u : 0u, config, 0));
        // A shown account starts an extension check.
        EXPECT_TRUE(
            runEventsUntil([&] { return view->providerWorking().has_value() == signedIn; }));
    }
}

TEST_P(SetupFlowsTest, SignOutAsksThenForgetsTheKeyAndTellsTheServerWhenItCan) {
    server->script("POST", "/vaskel/api/auth/logout", {.status = 200});
    enum class Key { keychain, file, none };
    // Whether the user confirms, and where the key is kept.
    const std::pair<bool, Key> cases[] = {
        {false, Key::keychain}, {true, Key::keychain}, {true, Key::file}, {true, Key::none}};
    for (const auto& [confirmed, key] : cases) {
        KeychainStore::deleteKey();
        if (key == Key::keychain) KeychainStore::saveKey("key-1", "a@b");
        QJsonObject config{{"account_email", "a@b"},
                           {"server", server->origin()},
                           {"api_key", key == Key::file ? "key-1" : ""}};
        writeFile(Shared::configPath(), QJsonDocument(config).toJson());
        writeFile(Shared::keychainMarkerPath(), "");
        server->clearRequests();
        signedOut = 0;
        desktop.alerts.answers = {platform::ALERT_FIRST_BUTTON + (confirmed ? 0 : 1)};
        view->setAccount(Account{"a@b", {}, 0, 0, true, {}, {}, {}});
        view->setPassword(PASSWORD);
        const int activations = platform::Presentation::shared().activations();

        view->signOut();
        if (confirmed) config["api_key"] = "";
        // Whether the account, the password, the key and the marker are still there; then the
        // callback, the configuration and the window brought to the front.
        EXPECT_EQ(std::tuple(view->account().has_value(), !view->password().isEmpty(),
                             Shared::storedKey().has_value(),
                             QFile::exists(Shared::keychainMarkerPath()), signedOut,
                             Shared::readConfig(), platform::Presentation::shared().activations()),
                  std::tuple(!confirmed, !confirmed, !confirmed, !confirmed, int(confirmed), config,
                             activations + 1));
        const size_t told = confirmed && key != Key::none ? 1 : 0;
        runEventsUntil([&] { return server->requests().size() == told; });
        runEventsUntil([] { return false; }, 50);
        ASSERT_EQ(server->requests().size(), told);
        if (told) {
            EXPECT_EQ(server->requests()[0].header("X-API-Key"), "key-1");
        }
    }
    const platform::Alert alert = desktop.alerts.shown.at(0);
    // clang-format off
    EXPECT_EQ(std::tuple(desktop.alerts.shown.size(), alert.style, alert.messageText, alert.buttons, alert.informativeText),
              std::tuple(4u, platform::Alert::Style::warning, "Sign out of Vaskel?", QStringList{"Sign Out", "Cancel"},
                         "The Vaskel folder will be removed from this Mac and the stored key forgotten. Nothing is deleted from the server."));
    // clang-format on
}

INSTANTIATE_TEST_SUITE_P(Loopback, SetupFlowsTest,
                         ::testing::Values(testing_support::Transport::http),
                         testing_support::transportName);

}  // namespace
