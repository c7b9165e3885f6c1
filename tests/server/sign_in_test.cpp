#include "server/sign_in.h"

#include <gtest/gtest.h>

#include <QJsonDocument>
#include <QJsonObject>

#include "server/client_header.h"
#include "support/completion_probe.h"
#include "support/fake_platform.h"
#include "support/loopback_fixture.h"
#include "support/raw_loopback_server.h"

namespace {

using namespace std::chrono_literals;
using testing_support::CompletionProbe;
using LoginResult = Result<DeviceLogin, AuthError>;

class SignInTest : public testing_support::LoopbackTest {
protected:
    LoginResult answer(int status, const QString& body) {
        server->script("POST", "/vaskel/api/auth/login",
                       {.status = status, .body = body.toStdString()});
        CompletionProbe<LoginResult> probe;
        loginWithPassword(server->origin() + "/", "  ada@example.com\n", " pass word ",
                          "ada's laptop", probe.callback());
        return probe.wait();
    }
    bool signOut(int status) {
        server->script("POST", "/vaskel/api/auth/logout", {.status = status});
        CompletionProbe<bool> probe;
        logoutDevice(server->origin(), QStringLiteral("key-1"), probe.callback());
        return probe.wait();
    }
};

TEST_P(SignInTest, InterpretsEachAnswer) {
    const QString origin = server->origin();
    const QString user = R"("user":{"email":"ada@example.com","name":"Ada"})";
    const std::tuple<int, QString, LoginResult> cases[] = {
        {200, R"({"api_key":"k1",)" + user + "}",
         DeviceLogin{"k1", origin, "ada@example.com", "Ada"}},
        {200, R"({"api_key":"k1","server":" other.example.com//",)" + user + "}",
         DeviceLogin{"k1", "https://other.example.com", "ada@example.com", "Ada"}},
        {200, R"({"api_key":"k1","server":7,"user":{"email":"e","name":["Ada"]}})",
         DeviceLogin{"k1", origin, "e", ""}},
        {200, R"({"api_key":"k1"})", AuthError::malformed(200)},
        {200, R"({"api_key":1,)" + user + "}", AuthError::malformed(200)},
        {200, R"({"api_key":"k1","user":{"email":null}})", AuthError::malformed(200)},
        {403, R"({"code":"unverified"})", AuthError::unverified()},
        {403, R"({"code":"inactive"})", AuthError::inactive(origin + "/vaskel/account/")},
        {403, R"({"code":"inactive","portal":"https://pay.example/x y"})",
         AuthError::inactive("https://pay.example/x y")},
        {403, "", AuthError::badCredentials()},
        {429, "", AuthError::tooMany()},
        {401, R"({"code":"unverified"})", AuthError::malformed(401)},
        {400, "", AuthError::malformed(400)},
        {407, "", AuthError::malformed(407)},
        {418, "", AuthError::malformed(418)},
        {302, "", AuthError::malformed(302)},
    };
    for (const auto& [status, body, expected] : cases) {
        SCOPED_TRACE(QString::number(status).toStdString() + " " + body.toStdString());
        EXPECT_EQ(answer(status, body), expected);
    }
}

TEST_P(SignInTest, SendsCredentialsOnceLogsNothingAndSignsOutOnlyOn200) {
    testing_support::CaptureLog log;
    platform::StandIn<platform::LogSink> capture(log);
    answer(429, "");
    for (const auto& [status, confirmed] : {std::pair{200, true}, {204, false}}) {
        EXPECT_EQ(signOut(status), confirmed) << status;
    }
    EXPECT_TRUE(log.lines().empty());
    const auto requests = server->requests();
    ASSERT_EQ(requests.size(), 3u);
    const std::string client = vaskelClientHeader().toStdString();
    for (const auto& request : {requests[0], requests[2]}) {
        EXPECT_EQ(request.header("User-Agent"), "Vaskel " + client);
        EXPECT_EQ(request.header("X-Vaskel-Client"), client);
    }
    EXPECT_EQ(requests[0].header("Content-Type"), "application/json");
    EXPECT_FALSE(requests[0].header("X-API-Key"));
    EXPECT_EQ(QJsonDocument::fromJson(QByteArray::fromStdString(requests[0].body)).object(),
              (QJsonObject{{"email", "ada@example.com"},
                           {"password", " pass word "},
                           {"device_name", "ada's laptop"}}));
    EXPECT_EQ(requests[0].body.find('\n'), std::string::npos);  // compact
    EXPECT_EQ(requests[2].header("X-API-Key"), "key-1");
    EXPECT_TRUE(requests[2].body.empty());
}

INSTANTIATE_TEST_SUITE_P(Transports, SignInTest,
                         ::testing::Values(testing_support::Transport::http,
                                           testing_support::Transport::https),
                         testing_support::transportName);

TEST(SignIn, BadAddressesFailAtOnceAndRefusedConnectionsAreUnreachable) {
    for (const char* server : {"https://", "https://exa mple.com"}) {
        CompletionProbe<LoginResult> login;
        loginWithPassword(server, "e", "p", "d", login.callback());
        ASSERT_TRUE(login.arrived()) << server;
        EXPECT_EQ(login.wait(), AuthError::badURL());
    }
    CompletionProbe<bool> logout;
    logoutDevice("https://exa mple.com", "k", logout.callback());
    ASSERT_TRUE(logout.arrived());
    EXPECT_FALSE(logout.wait());

    CompletionProbe<LoginResult> login;
    loginWithPassword(
        QStringLiteral("http://127.0.0.1:%1").arg(testing_support::closedLoopbackPort()), "e", "p",
        "d", login.callback());
    EXPECT_EQ(login.wait(), AuthError::unreachable("The server refused the connection."));
}

TEST(SignIn, SignInAndSignOutGoOutOnceAndCutAnswersAreUnreachable) {
    using testing_support::RawAnswer;
    const AuthError lost = AuthError::unreachable("The network connection was lost.");
    const std::tuple<const char*, RawAnswer, LoginResult, bool> cases[] = {
        {"closed before answering", {}, lost, false},
        {"not HTTP", {{"220 mail.example.com ESMTP\r\n"}}, AuthError::malformed(0), false},
        {"reset in a 200",
         {{"HTTP/1.1 200 OK\r\nContent-Length: 90\r\n\r\n{\"api_key\":\"k\","},
          0ms,
          RawAnswer::End::reset},
         lost,
         false},
    };
    for (const auto& [name, answer, login, logout] : cases) {
        SCOPED_TRACE(name);
        testing_support::RawLoopbackServer server(answer);
        CompletionProbe<LoginResult> signIn;
        loginWithPassword(server.origin(), "e", "password", "d", signIn.callback());
        EXPECT_EQ(signIn.wait(), login);
        CompletionProbe<bool> signOut;
        logoutDevice(server.origin(), "k", signOut.callback());
        EXPECT_EQ(signOut.wait(), logout);
        EXPECT_EQ(server.requests().size(), 2u) << "one sign-in and one sign-out, each sent once";
    }
}

TEST(SignIn, ErrorTexts) {
    const std::pair<AuthError, const char*> cases[] = {
        {AuthError::inactive("https://x"),
         "This account has no active plan yet. Choose a plan on the Vaskel website, then sign in "
         "again."},
        {AuthError::unreachable("The request timed out."),
         "Could not reach Vaskel. The request timed out."},
        {AuthError::malformed(401), "Vaskel responded unexpectedly (HTTP 401)."},
        {AuthError::badURL(), "That does not look like a valid server address."},
        {AuthError::badCredentials(), "Email or password is incorrect."},
        {AuthError::unverified(),
         "Confirm your email address first. Check your inbox for the link, then sign in again."},
        {AuthError::tooMany(), "Too many attempts. Wait a few minutes and try again."},
    };
    for (const auto& [error, text] : cases) EXPECT_EQ(error.errorDescription(), text);
    EXPECT_NE(AuthError::malformed(401), AuthError::malformed(500));
    EXPECT_NE(AuthError::inactive("a"), AuthError::inactive("b"));
}

}  // namespace
