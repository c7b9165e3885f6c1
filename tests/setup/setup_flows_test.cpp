#include "setup/setup_view.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

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
using testing_support::readFile;
using testing_support::ScriptedReply;
using testing_support::writeFile;

namespace {

const QString TYPED_EMAIL = QStringLiteral("  ada@example.com");
const QString PASSWORD = QStringLiteral("correct horse");
// The account answer names the address differently from what was typed: that one is stored.
const std::string ACCOUNT_BODY =
    R"({"email":"Ada@Example.com","name":"Ada Lovelace","used_bytes":1200000000,)"
    R"("quota_bytes":5000000000,"unlimited":false,"plan_name":"Pro","status":"active"})";
const std::string LOGIN_BODY =
    R"({"api_key":"key-1","user":{"email":"ada@example.com","name":"Ada Lovelace"}})";

class SetupFlowsTest : public testing_support::LoopbackTest {
protected:
    testing_support::FakePlatform platform;
    testing_support::FakeFileProvider provider{platform.root.path() + "/state"};
    setup_testing::FakeAlerts alerts;
    setup_testing::FakeHostName hostName;
    int connected = 0;
    int signedOut = 0;
    bool checkingWhenConnected = false;
    std::unique_ptr<SetupView> view;

    void SetUp() override {
        LoopbackTest::SetUp();
        view = std::make_unique<SetupView>(
            [this] {
                ++connected;
                checkingWhenConnected = view->checking();
            },
            [this] { ++signedOut; }, nullptr, nullptr);
    }

    void TearDown() override {
        view.reset();
        LoopbackTest::TearDown();
        for (const QString& line : platform.log.messages()) {
            EXPECT_FALSE(line.contains(PASSWORD) || line.contains("key-1")) << line.toStdString();
        }
    }

    void script(ScriptedReply login, ScriptedReply me) {
        server->script("POST", "/vaskel/api/auth/login", std::move(login));
        server->script("GET", "/vaskel/api/me", std::move(me));
    }
    void fillForm() {
        view->setServer(server->origin() + "/");
        view->setEmail(TYPED_EMAIL);
        view->setPassword(PASSWORD);
    }
    void signInAndWait() {
        view->signIn();
        ASSERT_TRUE(waitUntil([this] { return !view->busy(); }));
    }
    QByteArray configFile() { return readFile(Shared::configPath()); }
    QJsonObject lastLoginBody() {
        for (const auto& request : server->requests()) {
            if (request.path == "/vaskel/api/auth/login") {
                return QJsonDocument::fromJson(QByteArray::fromStdString(request.body)).object();
            }
        }
        return {};
    }
};

TEST(SetupView, CanSignInNeedsAnAtAPasswordAndNoRunningRequest) {
    const struct {
        QString email;
        QString password;
        bool busy;
        bool expected;
    } cases[] = {
        {"ada@example.com", "pw", false, true},  {"@", " ", false, true},
        {"ada.example.com", "pw", false, false}, {"ada@example.com", "", false, false},
        {"ada@example.com", "pw", true, false},  {"", "", false, false},
    };
    for (const auto& row : cases) {
        SetupView view(nullptr, nullptr, nullptr, nullptr);
        view.setEmail(row.email);
        view.setPassword(row.password);
        view.setBusy(row.busy);
        EXPECT_EQ(view.canSignIn(), row.expected)
            << row.email.toStdString() << " / " << row.password.toStdString() << " / " << row.busy;
    }
    SetupView fresh(nullptr, nullptr, nullptr, nullptr);
    EXPECT_EQ(fresh.server(), DEFAULT_SERVER);
    EXPECT_FALSE(fresh.account() || fresh.error() || fresh.portalHint() ||
                 fresh.providerWorking() || fresh.busy() || fresh.checking());
}

TEST_P(SetupFlowsTest, SignInStoresTheAnsweredServerKeyAndEmailThenChecksTheExtension) {
    script({.body = LOGIN_BODY}, {.body = ACCOUNT_BODY});
    fillForm();
    int changes = 0;
    QObject::connect(view.get(), &SetupView::changed, [&changes] { ++changes; });
    view->signIn();
    EXPECT_TRUE(view->busy());
    EXPECT_FALSE(view->canSignIn());
    EXPECT_GE(changes, 1);
    ASSERT_TRUE(waitUntil([this] { return view->account().has_value(); }));

    EXPECT_FALSE(view->busy());
    EXPECT_EQ(view->error(), std::nullopt);
    EXPECT_EQ(view->account()->email, "Ada@Example.com");
    EXPECT_EQ(view->server(), server->origin());
    EXPECT_EQ(view->password(), "");
    EXPECT_EQ(view->email(), TYPED_EMAIL);
    const QJsonObject config = Shared::readConfig();
    EXPECT_EQ(config.value("server").toString(), server->origin());
    EXPECT_EQ(config.value("account_email").toString(), "Ada@Example.com");
    EXPECT_EQ(Shared::storedKey(), "key-1");
    ASSERT_EQ(platform.keychain.items().size(), 1u);
    EXPECT_EQ(platform.keychain.items()[0].account, "Ada@Example.com");
    EXPECT_EQ(connected, 1);
    EXPECT_FALSE(checkingWhenConnected) << "the extension check starts after onConnected";

    const QJsonObject body = lastLoginBody();
    EXPECT_EQ(body.value("device_name").toString(), "Test Laptop");
    EXPECT_EQ(body.value("email").toString(), "ada@example.com");
    EXPECT_EQ(body.value("password").toString(), PASSWORD);

    // Two seconds later the extension is checked; no domain is registered, so it does not answer.
    EXPECT_FALSE(view->checking());
    ASSERT_TRUE(waitUntil([this] { return view->providerWorking().has_value(); }, 5s));
    EXPECT_EQ(view->providerWorking(), false);
    EXPECT_FALSE(view->checking());
    EXPECT_EQ(connected, 1);
}

TEST_P(SetupFlowsTest, AFailedSignInShowsOneLineKeepsTheFormAndStoresNothing) {
    const QString unexpected = "Vaskel responded unexpectedly (HTTP ";
    const struct {
        const char* name;
        ScriptedReply login;
        ScriptedReply me;
        QString error;
        std::optional<QString> portalHint;
    } cases[] = {
        {"wrong password",
         {.status = 403, .body = "{}"},
         {},
         "Email or password is incorrect.",
         std::nullopt},
        {"unverified",
         {.status = 403, .body = R"({"code":"unverified"})"},
         {},
         "Confirm your email address first. Check your inbox for the link, then sign in again.",
         std::nullopt},
        {"too many",
         {.status = 429},
         {},
         "Too many attempts. Wait a few minutes and try again.",
         std::nullopt},
        {"server error", {.status = 500}, {}, unexpected + "500).", std::nullopt},
        {"not JSON", {.body = "<html>hello</html>"}, {}, unexpected + "200).", std::nullopt},
        {"inactive, portal not a URL",
         {.status = 403, .body = R"({"code":"inactive","portal":"http://a b"})"},
         {},
         "This account has no active plan yet. Choose a plan on the Vaskel website, then sign in "
         "again.",
         std::nullopt},
        {"key rejected by the account check",
         {.body = LOGIN_BODY},
         {.status = 401},
         "The server did not accept that key. Check it was copied in full.",
         std::nullopt},
        {"account check fails",
         {.body = LOGIN_BODY},
         {.status = 500},
         "The server responded, but not in a way this app understands.",
         std::nullopt},
        {"account check answers garbage",
         {.body = LOGIN_BODY},
         {.body = R"({"name":"no email"})"},
         "The server responded, but not in a way this app understands.",
         std::nullopt},
        {"inactive",
         {.status = 403, .body = R"({"code":"inactive","portal":"https://pay.example/plans"})"},
         {},
         "This account has no active plan yet. Choose a plan on the Vaskel website, then sign in "
         "again.",
         "https://pay.example/plans"},
    };
    writeFile(Shared::configPath(), R"({"server":"https://kept.example"})");
    const QByteArray before = configFile();
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        script(row.login, row.me);
        fillForm();
        signInAndWait();
        EXPECT_EQ(view->error(), row.error);
        EXPECT_EQ(view->portalHint(),
                  row.portalHint ? std::optional(QUrl(*row.portalHint)) : std::nullopt);
        EXPECT_EQ(view->account(), std::nullopt);
        EXPECT_EQ(view->email(), TYPED_EMAIL);
        EXPECT_EQ(view->password(), PASSWORD);
        EXPECT_EQ(configFile(), before);
        EXPECT_TRUE(platform.keychain.items().empty());
        EXPECT_EQ(connected, 0);
    }

    // The next attempt clears the previous failure (the inactive one, last above) as it starts.
    ASSERT_TRUE(view->portalHint());
    script({.body = LOGIN_BODY}, {.body = ACCOUNT_BODY});
    view->signIn();
    EXPECT_EQ(view->error(), std::nullopt);
    EXPECT_EQ(view->portalHint(), std::nullopt);
    ASSERT_TRUE(waitUntil([this] { return view->account().has_value(); }));
    EXPECT_EQ(connected, 1);
}

TEST_P(SetupFlowsTest, UnreachableSlowAndAddresslessServersFailWithTheirTexts) {
    hostName.name = std::nullopt;
    view->setEmail(TYPED_EMAIL);
    view->setPassword(PASSWORD);

    view->setServer("http://127.0.0.1:" + QString::number(testing_support::closedLoopbackPort()));
    signInAndWait();
    ASSERT_TRUE(view->error());
    EXPECT_TRUE(view->error()->startsWith("Could not reach Vaskel. "))
        << view->error()->toStdString();

    platform::NetworkSession::shared().setTimeoutCap(300ms);
    server->script("POST", "/vaskel/api/auth/login", {.body = LOGIN_BODY, .delay = 3s});
    view->setServer(server->origin());
    signInAndWait();
    ASSERT_TRUE(view->error());
    EXPECT_TRUE(view->error()->startsWith("Could not reach Vaskel. "))
        << view->error()->toStdString();
    EXPECT_EQ(lastLoginBody().value("device_name").toString(), "Mac")
        << "a computer without a name signs in as the fallback name";

    view->setServer("https://");
    view->signIn();
    EXPECT_TRUE(view->busy()) << "the answer reaches the state through the event loop";
    ASSERT_TRUE(waitUntil([this] { return !view->busy(); }));
    EXPECT_EQ(view->error(), "That does not look like a valid server address.");
    EXPECT_TRUE(platform.keychain.items().empty());
    EXPECT_FALSE(QFile::exists(Shared::configPath()));
}

TEST_P(SetupFlowsTest, AViewGoneDuringASignInStoresNothingAndCallsNothing) {
    script({.body = LOGIN_BODY, .delay = 300ms}, {.body = ACCOUNT_BODY});
    fillForm();
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
    const QByteArray withServer = R"({"server":")" + origin.toUtf8() + R"("})";
    const struct {
        const char* name;
        QByteArray config;
        std::optional<QString> key;
        int meStatus;
        bool requested;
        bool signedIn;
        QString serverCell;
        std::optional<QString> error;
    } cases[] = {
        {"server and key", withServer, "key-1", 200, true, true, origin, std::nullopt},
        {"key without a server", "{}", "key-1", 200, false, false, DEFAULT_SERVER, std::nullopt},
        {"key with an empty server", R"({"server":""})", "key-1", 200, false, false, DEFAULT_SERVER,
         std::nullopt},
        {"server without a key", withServer, std::nullopt, 200, false, false, origin, std::nullopt},
        {"key rejected", withServer, "key-1", 401, true, false, origin,
         "The server did not accept that key. Check it was copied in full."},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        KeychainStore::deleteKey();
        if (row.key) {
            KeychainStore::saveKey(*row.key, "Ada@Example.com");
        }
        writeFile(Shared::configPath(), row.config);
        const QByteArray before = configFile();
        server->clearRequests();
        server->script("GET", "/vaskel/api/me", {.status = row.meStatus, .body = ACCOUNT_BODY});
        view = std::make_unique<SetupView>([this] { ++connected; }, nullptr, nullptr, nullptr);

        view->loadExisting();
        EXPECT_EQ(view->busy(), row.requested);
        ASSERT_TRUE(waitUntil([this] { return !view->busy(); }));
        EXPECT_EQ(view->account().has_value(), row.signedIn);
        EXPECT_EQ(view->server(), row.serverCell);
        EXPECT_EQ(view->error(), row.error);
        EXPECT_EQ(view->email(), "");
        EXPECT_EQ(server->requests().size(), row.requested ? 1u : 0u);
        if (row.signedIn) {
            EXPECT_EQ(server->requests()[0].header("X-API-Key"), "key-1");
            // A shown account starts an extension check (no domain: it does not answer).
            ASSERT_TRUE(waitUntil([this] { return view->providerWorking().has_value(); }));
            EXPECT_FALSE(view->checking());
        }
        EXPECT_EQ(view->providerWorking().has_value(), row.signedIn);
        EXPECT_EQ(configFile(), before);
        EXPECT_EQ(connected, 0);
    }
}

TEST_P(SetupFlowsTest, SignOutAsksThenForgetsTheKeyAndTellsTheServerWhenItCan) {
    const QString origin = server->origin();
    server->script("POST", "/vaskel/api/auth/logout", {.status = 200});
    const struct {
        const char* name;
        int answer;
        bool storedKey;
        bool confirmed;
    } cases[] = {
        {"cancelled", platform::ALERT_FIRST_BUTTON + 1, true, false},
        {"confirmed with a key", platform::ALERT_FIRST_BUTTON, true, true},
        {"confirmed without a key", platform::ALERT_FIRST_BUTTON, false, true},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        KeychainStore::deleteKey();
        if (row.storedKey) {
            KeychainStore::saveKey("key-1", "Ada@Example.com");
        }
        writeFile(Shared::configPath(),
                  R"({"account_email":"Ada@Example.com","api_key":"","server":")" +
                      origin.toUtf8() + R"("})");
        writeFile(Shared::keychainMarkerPath(), "");
        const QByteArray before = configFile();
        server->clearRequests();
        signedOut = 0;
        alerts.shown.clear();
        alerts.answer = row.answer;
        view->setAccount(setup_testing::accountFor("Ada@Example.com"));
        view->setEmail("typed@example.com");
        view->setPassword(PASSWORD);
        view->setError("earlier failure");
        view->setProviderWorking(true);
        const int activations = platform::Presentation::shared().activations();

        view->signOut();
        ASSERT_EQ(alerts.shown.size(), 1u);
        const platform::Alert& alert = alerts.shown[0];
        EXPECT_EQ(alert.style, platform::Alert::Style::warning);
        EXPECT_EQ(alert.messageText, "Sign out of Vaskel?");
        EXPECT_EQ(alert.informativeText,
                  "The Vaskel folder will be removed from this Mac and the stored key forgotten. "
                  "Nothing is deleted from the server.");
        EXPECT_EQ(alert.buttons, QStringList({"Sign Out", "Cancel"}));
        EXPECT_EQ(platform::Presentation::shared().activations(), activations + 1);

        EXPECT_EQ(view->account().has_value(), !row.confirmed);
        EXPECT_EQ(view->password(), row.confirmed ? "" : PASSWORD);
        EXPECT_EQ(signedOut, row.confirmed ? 1 : 0);
        EXPECT_EQ(Shared::storedKey().has_value(), row.storedKey && !row.confirmed);
        EXPECT_EQ(QFile::exists(Shared::keychainMarkerPath()), !row.confirmed);
        // Kept either way: what was typed, the last error and extension state, server and e-mail.
        EXPECT_EQ(view->email(), "typed@example.com");
        EXPECT_EQ(view->error(), "earlier failure");
        EXPECT_EQ(view->providerWorking(), true);
        const QJsonObject config = Shared::readConfig();
        EXPECT_EQ(config.value("server").toString(), origin);
        EXPECT_EQ(config.value("account_email").toString(), "Ada@Example.com");
        EXPECT_EQ(config.value("api_key"), QJsonValue(""));
        if (!row.confirmed) {
            EXPECT_EQ(configFile(), before);
        }

        const bool told = row.confirmed && row.storedKey;
        if (told) {
            ASSERT_TRUE(waitUntil([this] { return !server->requests().empty(); }));
        }
        setup_testing::spin(50ms);
        const auto requests = server->requests();
        ASSERT_EQ(requests.size(), told ? 1u : 0u);
        if (told) {
            EXPECT_EQ(requests[0].path, "/vaskel/api/auth/logout");
            EXPECT_EQ(requests[0].header("X-API-Key"), "key-1");
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Loopback, SetupFlowsTest,
                         ::testing::Values(testing_support::Transport::http),
                         testing_support::transportName);

}  // namespace
