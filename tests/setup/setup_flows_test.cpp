#include "setup/setup_view.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QJsonDocument>

#include "platform/desktop/presentation.h"
#include "platform/network_session.h"
#include "server/server_address.h"
#include "setup/setup_test_support.h"
#include "shared/config.h"
#include "shared/key_storage.h"
#include "shared/keychain_store.h"
#include "support/fake_file_provider.h"
#include "support/fake_platform.h"
#include "support/loopback_fixture.h"
#include "support/test_files.h"

using namespace std::chrono_literals;
using setup_testing::waitUntil;
using testing_support::ScriptedReply;
using testing_support::writeFile;

namespace {

const QString TYPED = QStringLiteral("  ada@example.com");
const QString PASSWORD = QStringLiteral("correct horse");
// The account answer spells the address differently from what was typed: that one is stored.
const std::string ACCOUNT =
    R"({"email":"Ada@Example.com","used_bytes":12,"quota_bytes":50,"unlimited":false})";
const std::string LOGIN = R"({"api_key":"key-1","user":{"email":"ada@example.com"}})";
const QString NO_PLAN =
    "This account has no active plan yet. Choose a plan on the Vaskel "
    "website, then sign in again.";
const QString NOT_UNDERSTOOD = "The server responded, but not in a way this app understands.";
const QString KEY_REFUSED = "The server did not accept that key. Check it was copied in full.";

class SetupFlowsTest : public testing_support::LoopbackTest {
protected:
    testing_support::FakePlatform platform;
    testing_support::FakeFileProvider provider{platform.root.path() + "/state"};
    setup_testing::FakeAlerts alerts;
    setup_testing::FakeHostName hostName;
    int connected = 0;
    int signedOut = 0;
    bool checkingWhenConnected = false;
    std::unique_ptr<SetupView> view = makeView();

    std::unique_ptr<SetupView> makeView() {
        return std::make_unique<SetupView>(
            [this] {
                ++connected;
                checkingWhenConnected = view->checking();
            },
            [this] { ++signedOut; }, nullptr, nullptr);
    }
    void TearDown() override {
        view.reset();
        LoopbackTest::TearDown();
        for (const QString& line : platform.log.messages())
            EXPECT_FALSE(line.contains(PASSWORD) || line.contains("key-1")) << line.toStdString();
    }
    void signIn(ScriptedReply login, ScriptedReply me = {.body = ACCOUNT}) {
        server->script("POST", "/vaskel/api/auth/login", std::move(login));
        server->script("GET", "/vaskel/api/me", std::move(me));
        view->setServer(server->origin() + "/");
        view->setEmail(TYPED);
        view->setPassword(PASSWORD);
        view->signIn();
        ASSERT_TRUE(waitUntil([this] { return !view->busy(); }));
    }
    QJsonObject loginBody() {
        for (const auto& request : server->requests())
            if (request.path == "/vaskel/api/auth/login")
                return QJsonDocument::fromJson(QByteArray::fromStdString(request.body)).object();
        return {};
    }
    static QByteArray configFile() { return testing_support::readFile(Shared::configPath()); }
};

TEST(SetupView, CanSignInNeedsAnAtAPasswordAndNoRunningRequest) {
    const std::tuple<QString, QString, bool, bool> cases[] = {
        {"ada@example.com", "pw", false, true},
        {"@", " ", false, true},
        {"ada.example.com", "pw", false, false},
        {"a@b", "", false, false},
        {"a@b", "pw", true, false}};
    for (const auto& [email, password, busy, expected] : cases) {
        SetupView view(nullptr, nullptr, nullptr, nullptr);
        view.setEmail(email);
        view.setPassword(password);
        view.setBusy(busy);
        EXPECT_EQ(view.canSignIn(), expected) << email.toStdString() << " " << busy;
    }
}

TEST_P(SetupFlowsTest, SignInStoresTheAnsweredServerKeyAndEmailThenChecksTheExtension) {
    signIn({.body = LOGIN});
    ASSERT_TRUE(view->account());
    EXPECT_EQ(view->error(), std::nullopt);
    EXPECT_EQ(view->server(), server->origin());
    EXPECT_EQ(view->password(), "");
    EXPECT_EQ(view->email(), TYPED);
    const QJsonObject config = Shared::readConfig();
    EXPECT_EQ(config.value("server").toString(), server->origin());
    EXPECT_EQ(config.value("account_email").toString(), "Ada@Example.com");
    ASSERT_EQ(platform.keychain.items().size(), 1u);
    EXPECT_EQ(platform.keychain.items()[0].account, "Ada@Example.com");
    EXPECT_EQ(Shared::storedKey(), "key-1");
    EXPECT_EQ(connected, 1);
    EXPECT_FALSE(checkingWhenConnected);
    EXPECT_EQ(loginBody(), QJsonObject({{"email", "ada@example.com"},
                                        {"password", PASSWORD},
                                        {"device_name", "Test Laptop"}}));

    // Two seconds later the extension is checked; with no domain registered it does not answer.
    EXPECT_FALSE(view->checking());
    ASSERT_TRUE(waitUntil([this] { return view->providerWorking().has_value(); }, 5s));
    EXPECT_EQ(view->providerWorking(), false);
    EXPECT_EQ(connected, 1);
}

TEST_P(SetupFlowsTest, AFailedSignInShowsOneLineKeepsTheFormAndStoresNothing) {
    const QString unexpected = "Vaskel responded unexpectedly (HTTP ";
    const std::tuple<ScriptedReply, ScriptedReply, QString, std::optional<QUrl>> cases[] = {
        {{.status = 403, .body = "{}"}, {}, "Email or password is incorrect.", std::nullopt},
        {{.status = 403, .body = R"({"code":"unverified"})"},
         {},
         "Confirm your email address first. Check your inbox for the link, then sign in again.",
         std::nullopt},
        {{.status = 429}, {}, "Too many attempts. Wait a few minutes and try again.", std::nullopt},
        {{.status = 500}, {}, unexpected + "500).", std::nullopt},
        {{.body = "<html>"}, {}, unexpected + "200).", std::nullopt},
        {{.status = 403, .body = R"({"code":"inactive","portal":"http://a b"})"},
         {},
         NO_PLAN,
         std::nullopt},
        {{.body = LOGIN}, {.status = 401}, KEY_REFUSED, std::nullopt},
        {{.body = LOGIN}, {.status = 500}, NOT_UNDERSTOOD, std::nullopt},
        {{.body = LOGIN}, {.body = R"({"name":"no email"})"}, NOT_UNDERSTOOD, std::nullopt},
        {{.status = 403, .body = R"({"code":"inactive","portal":"https://pay.example/plans"})"},
         {},
         NO_PLAN,
         QUrl("https://pay.example/plans")},
    };
    writeFile(Shared::configPath(), R"({"server":"https://kept.example"})");
    const QByteArray before = configFile();
    for (const auto& [login, me, error, portalHint] : cases) {
        SCOPED_TRACE(error.toStdString());
        signIn(login, me);
        EXPECT_EQ(view->error(), error);
        EXPECT_EQ(view->portalHint(), portalHint);
        EXPECT_EQ(view->account(), std::nullopt);
        EXPECT_EQ(view->email(), TYPED);
        EXPECT_EQ(view->password(), PASSWORD);
        EXPECT_EQ(configFile(), before);
        EXPECT_TRUE(platform.keychain.items().empty());
    }
    EXPECT_EQ(connected, 0);

    // The next attempt clears the last failure (the inactive one) as it starts.
    view->signIn();
    EXPECT_EQ(view->error(), std::nullopt);
    EXPECT_EQ(view->portalHint(), std::nullopt);
}

TEST_P(SetupFlowsTest, UnreachableSlowAndAddresslessServersFailWithTheirTexts) {
    hostName.name = std::nullopt;
    platform::NetworkSession::shared().setTimeoutCap(300ms);
    server->script("POST", "/vaskel/api/auth/login", {.body = LOGIN, .delay = 3s});
    const QString closed = QString::number(testing_support::closedLoopbackPort());
    const std::pair<QString, QString> cases[] = {
        {"http://127.0.0.1:" + closed, "Could not reach Vaskel. "},
        {server->origin(), "Could not reach Vaskel. "},
        {"https://", "That does not look like a valid server address."},
    };
    view->setEmail(TYPED);
    view->setPassword(PASSWORD);
    for (const auto& [address, error] : cases) {
        view->setServer(address);
        view->signIn();
        EXPECT_TRUE(view->busy()) << "answers reach the state through the event loop";
        ASSERT_TRUE(waitUntil([this] { return !view->busy(); }));
        ASSERT_TRUE(view->error());
        EXPECT_TRUE(view->error()->startsWith(error)) << view->error()->toStdString();
    }
    EXPECT_EQ(loginBody().value("device_name"), "Mac") << "a computer without a name";
    EXPECT_TRUE(platform.keychain.items().empty());
    EXPECT_FALSE(QFile::exists(Shared::configPath()));
}

TEST_P(SetupFlowsTest, AViewGoneDuringASignInStoresNothingAndCallsNothing) {
    server->script("POST", "/vaskel/api/auth/login", {.body = LOGIN, .delay = 300ms});
    server->script("GET", "/vaskel/api/me", {.body = ACCOUNT});
    view->setServer(server->origin());
    view->setEmail(TYPED);
    view->setPassword(PASSWORD);
    view->signIn();
    view.reset();
    ASSERT_TRUE(waitUntil([this] { return server->requests().size() == 2; }));
    setup_testing::spin(200ms);
    EXPECT_EQ(connected, 0);
    EXPECT_TRUE(platform.keychain.items().empty());
    EXPECT_FALSE(QFile::exists(Shared::configPath()));
}

TEST_P(SetupFlowsTest, OnAppearChecksAStoredSignInWithoutStoringOrReportingIt) {
    const QString origin = server->origin();
    const QByteArray configured = R"({"server":")" + origin.toUtf8() + R"("})";
    // Configuration, stored key, answer of the account request; then whether a request went
    // out, the server shown, and the error.
    const std::tuple<QByteArray, bool, int, bool, QString, std::optional<QString>> cases[] = {
        {configured, true, 200, true, origin, std::nullopt},
        {configured, true, 401, true, origin, KEY_REFUSED},
        {configured, false, 200, false, origin, std::nullopt},
        {R"({"server":""})", true, 200, false, DEFAULT_SERVER, std::nullopt},
    };
    for (const auto& [config, key, status, requested, shownServer, error] : cases) {
        SCOPED_TRACE(config.toStdString() + (key ? " with a key" : ""));
        KeychainStore::deleteKey();
        if (key) KeychainStore::saveKey("key-1", "Ada@Example.com");
        writeFile(Shared::configPath(), config);
        server->clearRequests();
        server->script("GET", "/vaskel/api/me", {.status = status, .body = ACCOUNT});
        view = makeView();

        view->loadExisting();
        EXPECT_EQ(view->busy(), requested);
        ASSERT_TRUE(waitUntil([this] { return !view->busy(); }));
        const bool signedIn = requested && !error;
        EXPECT_EQ(view->account().has_value(), signedIn);
        EXPECT_EQ(view->server(), shownServer);
        EXPECT_EQ(view->error(), error);
        EXPECT_EQ(server->requests().size(), requested ? 1u : 0u);
        // A shown account starts an extension check.
        EXPECT_TRUE(waitUntil([&] { return view->providerWorking().has_value() == signedIn; }));
        EXPECT_EQ(configFile(), config);
        EXPECT_EQ(connected, 0);
    }
}

TEST_P(SetupFlowsTest, SignOutAsksThenForgetsTheKeyAndTellsTheServerWhenItCan) {
    server->script("POST", "/vaskel/api/auth/logout", {.status = 200});
    enum class Key { keychain, file, none };
    // The alert's answer and where the key is kept; then whether the sign-out went ahead.
    const std::tuple<int, Key, bool> cases[] = {
        {platform::ALERT_FIRST_BUTTON + 1, Key::keychain, false},
        {platform::ALERT_FIRST_BUTTON, Key::keychain, true},
        {platform::ALERT_FIRST_BUTTON, Key::file, true},
        {platform::ALERT_FIRST_BUTTON, Key::none, true},
    };
    for (const auto& [answer, key, confirmed] : cases) {
        SCOPED_TRACE(std::to_string(answer) + " " + std::to_string(int(key)));
        KeychainStore::deleteKey();
        if (key == Key::keychain) KeychainStore::saveKey("key-1", "a@b");
        QJsonObject config{{"account_email", "a@b"},
                           {"api_key", key == Key::file ? "key-1" : ""},
                           {"server", server->origin()}};
        writeFile(Shared::configPath(), QJsonDocument(config).toJson());
        writeFile(Shared::keychainMarkerPath(), "");
        server->clearRequests();
        signedOut = 0;
        alerts.shown.clear();
        alerts.answer = answer;
        view->setAccount(setup_testing::accountFor("a@b"));
        view->setPassword(PASSWORD);
        view->setError("kept");
        view->setProviderWorking(true);
        const int activations = platform::Presentation::shared().activations();

        view->signOut();
        ASSERT_EQ(alerts.shown.size(), 1u);
        EXPECT_EQ(alerts.shown[0].style, platform::Alert::Style::warning);
        EXPECT_EQ(alerts.shown[0].messageText, "Sign out of Vaskel?");
        EXPECT_EQ(alerts.shown[0].informativeText,
                  "The Vaskel folder will be removed from this Mac and the stored key forgotten. "
                  "Nothing is deleted from the server.");
        EXPECT_EQ(alerts.shown[0].buttons, QStringList({"Sign Out", "Cancel"}));
        EXPECT_EQ(platform::Presentation::shared().activations(), activations + 1);
        EXPECT_EQ(view->account().has_value(), !confirmed);
        EXPECT_EQ(view->password().isEmpty(), confirmed);
        EXPECT_EQ(signedOut, confirmed ? 1 : 0);
        EXPECT_EQ(Shared::storedKey().has_value(), !confirmed);
        EXPECT_EQ(QFile::exists(Shared::keychainMarkerPath()), !confirmed);
        EXPECT_EQ(view->error(), "kept");
        EXPECT_EQ(view->providerWorking(), true);
        if (confirmed) config["api_key"] = "";
        EXPECT_EQ(Shared::readConfig(), config);

        const bool told = confirmed && key != Key::none;
        if (told) {
            ASSERT_TRUE(waitUntil([this] { return !server->requests().empty(); }));
            EXPECT_EQ(server->requests()[0].header("X-API-Key"), "key-1");
        }
        setup_testing::spin(50ms);
        EXPECT_EQ(server->requests().size(), told ? 1u : 0u);
    }
}

INSTANTIATE_TEST_SUITE_P(Loopback, SetupFlowsTest,
                         ::testing::Values(testing_support::Transport::http),
                         testing_support::transportName);

}  // namespace
