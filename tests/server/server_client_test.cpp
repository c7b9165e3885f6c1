#include <gtest/gtest.h>

#include "server/account_status.h"
#include "server/client_header.h"
#include "server/sign_in.h"
#include "support/completion_probe.h"
#include "support/fake_platform.h"
#include "support/loopback_fixture.h"

namespace {

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
