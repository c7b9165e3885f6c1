#include "setup/setup_view.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QJsonDocument>

#include "platform/desktop/presentation.h"
#include "platform/host_name.h"
#include "server/server_address.h"
#include "shared/config.h"
#include "shared/key_storage.h"
#include "shared/keychain_store.h"
#include "support/event_loop_wait.h"
#include "support/fake_desktop.h"
#include "support/fake_file_provider.h"
#include "support/fake_platform.h"
#include "support/loopback_fixture.h"
#include "support/test_files.h"

using namespace std::chrono_literals;
using testing_support::runEventsUntil;
using testing_support::ScriptedReply;
using testing_support::writeFile;

namespace {

const QString TYPED = QStringLiteral("  ada@example.com");
const QString PASSWORD = QStringLiteral("correct horse");
// The account answer spells the address differently from what was typed: that one is stored.
const std::string ACCOUNT =
    R"({"email":"Ada@Example.com","used_bytes":12,"quota_bytes":50,"unlimited":false})";
const std::string LOGIN = R"({"api_key":"key-1","user":{"email":"ada@example.com"}})";
const QString KEY_REFUSED = "The server did not accept that key. Check it was copied in full.";

struct FakeHostName final : platform::HostName {
    std::optional<QString> name = QStringLiteral("Test Laptop");
    std::optional<QString> localizedName() const override { return name; }
};

class SetupFlowsTest : public testing_support::LoopbackTest {
protected:
    testing_support::FakePlatform platform;
    testing_support::FakeFileProvider provider{platform.root.path() + "/state"};
    testing_support::FakeAlerts alerts;
    platform::StandIn<platform::Alerts> alertsStandIn{alerts};
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
        EXPECT_TRUE(view->busy()) << "answers reach the state through the event loop";
    }
    void finish() {
        ASSERT_TRUE(runEventsUntil([this] { return !view->busy(); }, 10'000));
    }
    static QByteArray configFile() { return testing_support::readFile(Shared::configPath()); }
};

TEST(SetupView, CanSignInNeedsAnAtAPasswordAndNoRunningRequest) {
    // E-mail and password as typed, whether a request runs; whether "Sign In" may run.
    const std::tuple<QString, QString, bool, bool> cases[] = {{"@", " ", false, true},
                                                              {"a.b", "pw", false, false},
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
    startSignIn({.body = LOGIN}, {.body = ACCOUNT});
    finish();
    ASSERT_TRUE(view->account());
    EXPECT_EQ(std::tuple(view->error(), view->server(), view->email(), view->password(), connected),
              std::tuple(std::nullopt, server->origin(), TYPED, "", 1));
    EXPECT_EQ(Shared::readConfig(), QJsonObject({{"server", server->origin()},
                                                 {"account_email", "Ada@Example.com"},
                                                 {"api_key", ""}}));
    ASSERT_EQ(platform.keychain.items().size(), 1u);
    EXPECT_EQ(std::tuple(platform.keychain.items()[0].account, Shared::storedKey()),
              std::tuple("Ada@Example.com", "key-1"));
    EXPECT_EQ(QJsonDocument::fromJson(QByteArray::fromStdString(server->requests()[0].body)),
              QJsonDocument(QJsonObject({{"email", "ada@example.com"},
                                         {"password", PASSWORD},
                                         {"device_name", "Test Laptop"}})));

    // Two seconds later the extension is checked; with no domain registered it does not answer.
    EXPECT_FALSE(view->checking());
    ASSERT_TRUE(runEventsUntil([this] { return view->providerWorking().has_value(); }));
    EXPECT_EQ(std::tuple(view->providerWorking(), connected), std::tuple(false, 1));
}

TEST_P(SetupFlowsTest, AFailedSignInShowsOneLineKeepsTheFormAndStoresNothing) {
    hostName.name = std::nullopt;
    const QString noPlan =
        "This account has no active plan yet. Choose a plan on the Vaskel "
        "website, then sign in again.";
    const std::string inactive = R"({"code":"inactive","portal":")";
    // The answers to the sign-in and the account request, the server address (the loopback
    // server when none); then the error and the portal hint.
    // clang-format off
    const std::tuple<ScriptedReply, ScriptedReply, QString, QString, std::optional<QUrl>> cases[] = {
        {{.status = 403, .body = "{}"}, {}, {}, "Email or password is incorrect.", {}},
        {{.body = LOGIN}, {.status = 401}, {}, KEY_REFUSED, {}},
        {{}, {}, "https://", "That does not look like a valid server address.", {}},
        {{.status = 403, .body = inactive + "http://a b\"}"}, {}, {}, noPlan, {}},
        {{.status = 403, .body = inactive + "https://pay.example/plans\"}"}, {}, {}, noPlan, QUrl("https://pay.example/plans")},
    };
    // clang-format on
    const QByteArray config = R"({"server":"https://kept.example"})";
    writeFile(Shared::configPath(), config);
    for (const auto& [login, me, address, error, portalHint] : cases) {
        startSignIn(login, me, address);
        finish();
        EXPECT_EQ(std::tuple(view->error(), view->portalHint(), view->account(), view->email(),
                             view->password(), configFile(), platform.keychain.items().size()),
                  std::tuple(error, portalHint, std::nullopt, TYPED, PASSWORD, config, 0u));
    }
    EXPECT_EQ(connected, 0);
    const QByteArray firstRequest = QByteArray::fromStdString(server->requests()[0].body);
    EXPECT_EQ(QJsonDocument::fromJson(firstRequest)["device_name"], "Mac") << "a nameless computer";

    // The next attempt clears the last failure (the inactive one) as it starts.
    view->signIn();
    EXPECT_EQ(std::tuple(view->error(), view->portalHint()),
              std::tuple(std::nullopt, std::nullopt));
}

TEST_P(SetupFlowsTest, AViewGoneDuringASignInStoresNothingAndCallsNothing) {
    startSignIn({.body = LOGIN, .delay = 300ms}, {.body = ACCOUNT});
    view.reset();
    ASSERT_TRUE(runEventsUntil([this] { return server->requests().size() == 2; }));
    runEventsUntil([] { return false; }, 200);
    EXPECT_EQ(std::tuple(connected, platform.keychain.items().size(),
                         QFile::exists(Shared::configPath())),
              std::tuple(0, 0u, false));
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
        SCOPED_TRACE(config.toStdString() + (key ? " with a key" : ""));
        KeychainStore::deleteKey();
        if (key) KeychainStore::saveKey("key-1", "Ada@Example.com");
        writeFile(Shared::configPath(), config);
        server->clearRequests();
        server->script("GET", "/vaskel/api/me", {.status = status, .body = ACCOUNT});
        view = makeView();

        view->loadExisting();
        EXPECT_EQ(view->busy(), requested);
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
        SCOPED_TRACE(std::to_string(confirmed) + " " + std::to_string(int(key)));
        KeychainStore::deleteKey();
        if (key == Key::keychain) KeychainStore::saveKey("key-1", "a@b");
        QJsonObject config{{"account_email", "a@b"},
                           {"api_key", key == Key::file ? "key-1" : ""},
                           {"server", server->origin()}};
        writeFile(Shared::configPath(), QJsonDocument(config).toJson());
        writeFile(Shared::keychainMarkerPath(), "");
        server->clearRequests();
        signedOut = 0;
        alerts.answers = {platform::ALERT_FIRST_BUTTON + (confirmed ? 0 : 1)};
        view->setAccount(Account{.email = "a@b"});
        view->setPassword(PASSWORD);
        view->setError("kept");
        view->setProviderWorking(true);
        const int activations = platform::Presentation::shared().activations();

        view->signOut();
        if (confirmed) config["api_key"] = "";
        // Whether the account, the password, the key and the marker are still there.
        EXPECT_EQ(std::tuple(view->account().has_value(), !view->password().isEmpty(),
                             Shared::storedKey().has_value(),
                             QFile::exists(Shared::keychainMarkerPath())),
                  std::tuple(!confirmed, !confirmed, !confirmed, !confirmed));
        EXPECT_EQ(std::tuple(signedOut, view->error(), view->providerWorking(),
                             Shared::readConfig(), platform::Presentation::shared().activations()),
                  std::tuple(confirmed ? 1 : 0, "kept", true, config, activations + 1));

        const size_t told = confirmed && key != Key::none ? 1 : 0;
        runEventsUntil([&] { return server->requests().size() == told; });
        runEventsUntil([] { return false; }, 50);
        ASSERT_EQ(server->requests().size(), told);
        if (told) EXPECT_EQ(server->requests()[0].header("X-API-Key"), "key-1");
    }
    ASSERT_EQ(alerts.shown.size(), 4u);
    const platform::Alert& alert = alerts.shown[0];
    EXPECT_EQ(std::tuple(alert.style, alert.messageText, alert.buttons, alert.informativeText),
              std::tuple(platform::Alert::Style::warning, "Sign out of Vaskel?",
                         QStringList{"Sign Out", "Cancel"},
                         "The Vaskel folder will be removed from this Mac and the stored key "
                         "forgotten. Nothing is deleted from the server."));
}

INSTANTIATE_TEST_SUITE_P(Loopback, SetupFlowsTest,
                         ::testing::Values(testing_support::Transport::http),
                         testing_support::transportName);

}  // namespace
