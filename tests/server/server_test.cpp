#include <gtest/gtest.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "server/account.h"
#include "server/account_status.h"
#include "server/byte_count_format.h"
#include "server/client_header.h"
#include "server/server_address.h"
#include "server/sign_in.h"
#include "support/completion_probe.h"
#include "support/fake_platform.h"
#include "support/loopback_fixture.h"
#include "support/qt_printing.h"

namespace {

TEST(ServerAddress, Normalises) {
    const std::pair<QString, QString> cases[] = {
        {" \tcloud.example.com/\n", "https://cloud.example.com"},
        {"https://cloud.example.com///", "https://cloud.example.com"},
        {"http://127.0.0.1:8080/", "http://127.0.0.1:8080"},
        {"Cloud.Example.COM/base/?q=1", "https://Cloud.Example.COM/base/?q=1"},
        {" \r\n ", DEFAULT_SERVER},
    };
    for (const auto& [input, expected] : cases) EXPECT_EQ(normaliseServer(input), expected);
    EXPECT_EQ(normaliseServerKeepingEmpty(QStringLiteral("  ")), QStringLiteral("https:"));
}

TEST(ServerAddress, WebAddresses) {
    const QString files = QStringLiteral("https://cloud.example.com/vaskel/account/files#files");
    const std::pair<QString, QString> cases[] = {
        {{}, files},
        {"/a//b c/", files + "/a/b%20c"},
        {"x#y?z/%/ü", files + "/x%23y%3Fz/%25/%C3%BC"},
        {"it's:@(1)+;b=c", files + "/it's:@(1)+%3Bb=c"},
    };
    for (const auto& [path, expected] : cases) {
        EXPECT_EQ(filesURL("cloud.example.com", path).value_or(QUrl()).toString(QUrl::FullyEncoded),
                  expected);
    }
    EXPECT_EQ(filesURL("", "///")->toString(), DEFAULT_SERVER + "/vaskel/account/files#files");
    EXPECT_EQ(portalURL(QStringLiteral("http://127.0.0.1:9/"))->toString(QUrl::FullyEncoded),
              QStringLiteral("http://127.0.0.1:9/vaskel/account/"));
    for (const char* server : {"https://cloud example.com", "https://[::1", "https://x:99999"}) {
        EXPECT_FALSE(portalURL(QString::fromUtf8(server))) << server;
        EXPECT_FALSE(filesURL(QString::fromUtf8(server), QStringLiteral("a"))) << server;
    }
}

TEST(ClientHeader, FallsBackFieldByField) {
    using platform::BundleInfo;
    const std::pair<BundleInfo, QString> cases[] = {
        {{"2.3", "41", "vaskel", "Vaskel Host"}, "linux/2.3 (41); vaskel"},
        {{"2.3", "41", std::nullopt, "Vaskel Host"}, "linux/2.3 (41); Vaskel Host"},
        {{}, "linux/0 (0); Vaskel"},
    };
    for (const auto& [info, expected] : cases) EXPECT_EQ(clientHeaderFor(info), expected);
}

Account limited(std::int64_t used, std::int64_t quota, QString plan = {}, bool unlimited = false) {
    Account account;
    account.email = QStringLiteral("ada@example.com");
    account.usedBytes = used;
    account.quotaBytes = quota;
    account.unlimited = unlimited;
    account.planName = std::move(plan);
    return account;
}

QJsonValue json(const char* text) {
    return QJsonDocument::fromJson(QByteArray("[") + text + "]").array().at(0);
}

TEST(Account, LabelsAndNotices) {
    const QString full = "Vaskel is full \u2013 new files are waiting. Get more space\u2026";
    const QString almost = "Vaskel is almost full \u2013 get more space\u2026";
    const std::optional<QString> none;
    // clang-format off
    const std::tuple<Account, QString, std::optional<QString>> cases[] = {
        {limited(700'000'000, 0, {}, true), "700 MB used", none},
        {limited(4'100'000'000, 5'000'000'000, "Pro"), "Pro \u00b7 4.1 GB of 5 GB used (82%)", none},
        {limited(95, 100), "95 bytes of 100 bytes used (95%)", almost},
        {limited(94, 100), "94 bytes of 100 bytes used (94%)", none},
        {limited(100, 100), "100 bytes of 100 bytes used (100%)", full},
        {limited(250, 100), "250 bytes of 100 bytes used (100%)", full},
        {limited(5, 0), "5 bytes of 0 bytes used", none},
        {limited(1, 200), "1 byte of 200 bytes used (1%)", none},  // 0.5% rounds up
    };
    // clang-format on
    for (const auto& [account, glance, notice] : cases) {
        EXPECT_EQ(account.glanceLabel(), glance);
        EXPECT_EQ(std::pair(account.spaceNotice(), account.isFull()),
                  std::pair(notice, notice == full))
            << glance.toStdString();
    }
    EXPECT_DOUBLE_EQ(limited(250, 100).fraction(), 1.0);
    EXPECT_DOUBLE_EQ(limited(7, 0, {}, true).fraction(), 0.0);
    const auto payment = [](const char* status) {
        Account account;
        account.status = status;
        return account.paymentNotice();
    };
    EXPECT_EQ(payment("past_due"), "Payment failed \u2013 update your card\u2026");
    EXPECT_EQ(payment("suspended"), "Access paused \u2013 payment needed\u2026");
    EXPECT_EQ(payment("Past_Due"), std::nullopt);
}

TEST(Account, ParsesUpdateOffer) {
    // clang-format off
    const std::pair<const char*, std::optional<ClientUpdate>> cases[] = {
        {R"({"update_available":true,"latest":{"version":"2.4","build":"52","url":7}})", ClientUpdate{"2.4", 0, "", ""}},
        {R"({"update_available":true,"latest":{"version":""}})", std::nullopt},
        {R"({"update_available":"true","latest":{"version":"2.4"}})", std::nullopt},
        {R"({"update_available":true,"latest":["2.4"]})", std::nullopt},
    };
    // clang-format on
    for (const auto& [text, expected] : cases) EXPECT_EQ(parseUpdate(json(text)), expected) << text;
    EXPECT_EQ((ClientUpdate{"2.4", 52, "", ""}.label()), QStringLiteral("2.4 (52)"));
    EXPECT_EQ((ClientUpdate{"2.4", 0, "", ""}.label()), QStringLiteral("2.4"));
}

TEST(Account, ReadsFieldsOfAnyShape) {
    const auto parse = [](const char* text) { return parseAccount(json(text).toObject()); };
    Account full = limited(4'100'000'000, 5'000'000'000, "Pro");
    full.name = QStringLiteral("Ada");
    full.status = QStringLiteral("past_due");
    full.update = ClientUpdate{"2.4", 52, "https://x/dl", "Fixes"};
    EXPECT_EQ(parse(R"({"email":"ada@example.com","name":"Ada","used_bytes":4100000000,
        "quota_bytes":5e9,"unlimited":false,"plan_name":"Pro","status":"past_due",
        "client":{"update_available":true,"latest":{"version":"2.4","build":52,
        "url":"https://x/dl","notes":"Fixes"}}})"),
              full);
    // A non-boolean "unlimited" leaves it unlimited.
    EXPECT_EQ(parse(R"({"email":"ada@example.com","name":3,"used_bytes":1.9e3,"quota_bytes":1e30,
        "unlimited":"no","plan_name":["Pro"],"status":null,"client":[]})"),
              limited(1900, std::numeric_limits<std::int64_t>::max(), {}, true));
    EXPECT_EQ(parse(R"({"email":"e","used_bytes":9007199254740993})")->usedBytes, 9007199254740993);
    // Negative counts enter as 0, so no label derived from them can overflow.
    EXPECT_EQ(
        parse(
            R"({"email":"e","used_bytes":-9223372036854775808,"quota_bytes":5,"unlimited":false})")
            ->glanceLabel(),
        "0 bytes of 5 bytes used (0%)");
    EXPECT_EQ(parse(R"({"email":"e","used_bytes":-1e300,"quota_bytes":-5,"unlimited":false})")
                  ->glanceLabel(),
              "0 bytes of 0 bytes used");
    EXPECT_EQ(parse(R"({"email":42,"name":"Ada"})"), std::nullopt);
}

TEST(ByteCountFormat, DecimalUnitsWithUnitPrecision) {
    constexpr auto most = std::numeric_limits<std::int64_t>::max();
    const std::pair<std::int64_t, const char*> cases[] = {
        {0, "0 bytes"},          {1, "1 byte"},
        {1499, "1 KB"},          {1500, "2 KB"},
        {999'500, "1 MB"},  // rounds up into the next unit
        {1'250'000, "1.3 MB"},   {1'234'567'890, "1.23 GB"},
        {5'000'000'000, "5 GB"}, {999'995'000'000, "1 TB"},
        {most, "9.22 EB"},       {-1, "-1 byte"},
        {-most - 1, "-9.22 EB"},
    };
    for (const auto& [bytes, expected] : cases)
        EXPECT_EQ(formatByteCount(bytes), QString::fromUtf8(expected)) << bytes;
}

using testing_support::ScriptedReply;
using LoginResult = Result<DeviceLogin, AuthError>;
using AccountResult = Result<Account, SignInError>;

// What `call` hands its completion; `wait` bounds the wait.
template <class T>
T answer(const std::function<void(std::function<void(T)>)>& call,
         std::chrono::seconds wait = std::chrono::seconds(30)) {
    testing_support::CompletionProbe<T> probe;
    call(probe.callback());
    return probe.wait(wait);
}

AccountResult fetch(const QString& server, std::chrono::seconds wait = std::chrono::seconds(30)) {
    return answer<AccountResult>([&](auto done) { fetchAccount(server, " \tkey-1\r\n", done); },
                                 wait);
}

// A request in one line: method, path, the headers that matter ("-" when absent) and body.
std::string seen(const testing_support::RecordedRequest& request) {
    std::string line = request.method + " " + request.path;
    for (const char* name : {"User-Agent", "X-Vaskel-Client", "Content-Type", "X-API-Key"})
        line += " | " + request.header(name).value_or("-");
    return line + " | " + request.body;
}

class ServerClientTest : public testing_support::LoopbackTest {
protected:
    LoginResult signIn(ScriptedReply reply) {
        server->script("POST", "/vaskel/api/auth/login", std::move(reply));
        return answer<LoginResult>([&](auto done) {
            loginWithPassword(server->origin() + "/", "  ada@example.com\n", " pass word ",
                              "ada's laptop", done);
        });
    }
    bool signOut(ScriptedReply reply) {
        server->script("POST", "/vaskel/api/auth/logout", std::move(reply));
        return answer<bool>([&](auto done) { logoutDevice(server->origin(), "key-1", done); });
    }
};

TEST_P(ServerClientTest, SignInInterpretsEachAnswer) {
    const QString origin = server->origin();
    const std::string user = R"("user":{"email":"ada@example.com","name":"Ada"})";
    // clang-format off
    const std::pair<ScriptedReply, LoginResult> cases[] = {
        {{.body = R"({"api_key":"k1",)" + user + "}"}, DeviceLogin{"k1", origin, "ada@example.com", "Ada"}},
        {{.body = R"({"api_key":"k1","server":" other.example.com//",)" + user + "}"},
         DeviceLogin{"k1", "https://other.example.com", "ada@example.com", "Ada"}},
        {{.body = R"({"api_key":"k1","server":7,"user":{"email":"e","name":["Ada"]}})"}, DeviceLogin{"k1", origin, "e", ""}},
        {{.body = R"({"api_key":"k1"})"}, AuthError::malformed(200)},
        {{.body = R"({"api_key":1,)" + user + "}"}, AuthError::malformed(200)},
        {{.body = R"({"api_key":"k1","user":{"email":null}})"}, AuthError::malformed(200)},
        {{.status = 403, .body = R"({"code":"unverified"})"}, AuthError::unverified()},
        {{.status = 403, .body = R"({"code":"inactive"})"}, AuthError::inactive(origin + "/vaskel/account/")},
        {{.status = 403, .body = R"({"code":"inactive","portal":"https://pay.example/x y"})"},
         AuthError::inactive("https://pay.example/x y")},
        {{.status = 403}, AuthError::badCredentials()},
        {{.status = 429}, AuthError::tooMany()},
        {{.status = 401, .body = R"({"code":"unverified"})"}, AuthError::malformed(401)},
        {{.status = 302}, AuthError::malformed(302)},
        {ScriptedReply::bytes({"220 mail.example.com ESMTP\r\n"}), AuthError::malformed(0)},
        {ScriptedReply::bytes({}), AuthError::unreachable("The network connection was lost.")},
    };
    // clang-format on
    for (const auto& [reply, expected] : cases)
        EXPECT_EQ(signIn(reply), expected) << reply.status << " " << reply.body;
}

TEST_P(ServerClientTest, SignInSendsCredentialsLogsNothingAndSignsOutOnlyOn200) {
    testing_support::CaptureLog log;
    platform::StandIn<platform::LogSink> capture(log);
    signIn({.status = 429});
    EXPECT_TRUE(signOut({}));
    EXPECT_FALSE(signOut({.status = 204}) || signOut(ScriptedReply::bytes({})));
    EXPECT_TRUE(log.lines().empty());
    const auto requests = server->requests();
    ASSERT_EQ(requests.size(), 4u);
    const std::string client = vaskelClientHeader().toStdString(), agent = "Vaskel " + client;
    EXPECT_EQ(
        seen(requests[0]),
        "POST /vaskel/api/auth/login | " + agent + " | " + client + " | application/json | - | " +
            R"({"device_name":"ada's laptop","email":"ada@example.com","password":" pass word "})");
    EXPECT_EQ(seen(requests[1]),
              "POST /vaskel/api/auth/logout | " + agent + " | " + client + " | - | key-1 | ");
}

TEST_P(ServerClientTest, AccountStatusInterpretsEachAnswerAndSendsTheTrimmedKey) {
    Account minimal;
    minimal.email = "ada@example.com";
    const std::string valid = R"({"email":"ada@example.com"})";
    const AccountResult bad = SignInError::malformed();
    const std::tuple<int, std::string, AccountResult> cases[] = {
        {200, valid, minimal},
        {200, R"({"name":"Ada"})", bad},
        {200, "<!doctype html><title>Sign in</title>", bad},
        {200, std::string(100000, '{'), bad},
        {200, R"({"email":"a","pad":")" + std::string(1'100'000, 'x') + "\"}", bad},
        {401, "", SignInError::rejected()},
        {403, valid, SignInError::rejected()},
        {500, valid, bad},
    };
    for (const auto& [status, body, expected] : cases) {
        server->script("GET", "/vaskel/api/me", {.status = status, .body = body});
        EXPECT_EQ(fetch(" " + server->origin() + "//\n"), expected) << status << body.substr(0, 80);
    }
    EXPECT_EQ(seen(server->requests().back()), "GET /vaskel/api/me | VaskelProvider/1.0 | " +
                                                   vaskelClientHeader().toStdString() +
                                                   " | - | key-1 | ");
}

INSTANTIATE_TEST_SUITE_P(Transports, ServerClientTest,
                         ::testing::Values(testing_support::Transport::http,
                                           testing_support::Transport::https),
                         testing_support::transportName);

TEST(ServerClient, BadAddressesFailAtOnceAndRefusedConnectionsAreUnreachable) {
    const auto now = std::chrono::seconds(0);
    for (const char* server : {"https://", "https://exa mple.com"}) {
        const auto login = [&](auto done) { loginWithPassword(server, "e", "p", "d", done); };
        EXPECT_EQ(answer<LoginResult>(login, now), AuthError::badURL()) << server;
    }
    for (const char* server : {"", "https://a b"})
        EXPECT_EQ(fetch(server, now), SignInError::badURL()) << server;
    EXPECT_FALSE(
        answer<bool>([](auto done) { logoutDevice("https://exa mple.com", "k", done); }, now));
    EXPECT_EQ(
        fetch(QStringLiteral("http://127.0.0.1:%1").arg(testing_support::closedLoopbackPort())),
        SignInError::unreachable("The server refused the connection."));
}

TEST(ServerClient, ErrorTexts) {
    // clang-format off
    const std::pair<QString, const char*> cases[] = {
        {AuthError::inactive("https://x").errorDescription(),
         "This account has no active plan yet. Choose a plan on the Vaskel website, then sign in again."},
        {AuthError::unreachable("The request timed out.").errorDescription(), "Could not reach Vaskel. The request timed out."},
        {AuthError::malformed(401).errorDescription(), "Vaskel responded unexpectedly (HTTP 401)."},
        {AuthError::badURL().errorDescription(), "That does not look like a valid server address."},
        {AuthError::badCredentials().errorDescription(), "Email or password is incorrect."},
        {AuthError::unverified().errorDescription(),
         "Confirm your email address first. Check your inbox for the link, then sign in again."},
        {AuthError::tooMany().errorDescription(), "Too many attempts. Wait a few minutes and try again."},
        {SignInError::unreachable("The request timed out.").errorDescription(),
         "Could not reach the server. The request timed out."},
        {SignInError::badURL().errorDescription(), "That does not look like a valid server address."},
        {SignInError::rejected().errorDescription(), "The server did not accept that key. Check it was copied in full."},
        {SignInError::malformed().errorDescription(), "The server responded, but not in a way this app understands."},
    };
    // clang-format on
    for (const auto& [text, expected] : cases) EXPECT_EQ(text, expected);
    EXPECT_NE(AuthError::malformed(401), AuthError::malformed(500));
    EXPECT_NE(AuthError::inactive("a"), AuthError::inactive("b"));
    EXPECT_NE(SignInError::unreachable("a"), SignInError::unreachable("b"));
}

}  // namespace
