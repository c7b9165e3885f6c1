#include "server/sign_in.h"

#include <gtest/gtest.h>

#include <QJsonDocument>
#include <QJsonObject>

#include "platform/network_session.h"
#include "server/client_header.h"
#include "support/completion_probe.h"
#include "support/fake_platform.h"
#include "support/loopback_fixture.h"

namespace {

using namespace std::chrono_literals;
using testing_support::CompletionProbe;
using testing_support::ScriptedReply;
using testing_support::Transport;
using LoginResult = Result<DeviceLogin, AuthError>;

class SignInTest : public testing_support::LoopbackTest {
protected:
    LoginResult signIn(const QString& serverText, const QString& email = "  ada@example.com\n") {
        CompletionProbe<LoginResult> probe;
        loginWithPassword(serverText, email, QStringLiteral(" pass word "),
                          QStringLiteral("ada's laptop"), probe.callback());
        LoginResult result = probe.wait();
        platform::NetworkSession::shared().reset();
        EXPECT_EQ(probe.calls(), 1);
        EXPECT_NE(probe.thread(), QThread::currentThread());
        return result;
    }
    LoginResult answer(ScriptedReply reply) {
        server->script("POST", "/vaskel/api/auth/login", std::move(reply));
        return signIn(server->origin() + "/");
    }
    bool signOut(ScriptedReply reply) {
        server->script("POST", "/vaskel/api/auth/logout", std::move(reply));
        CompletionProbe<bool> probe;
        logoutDevice(server->origin(), QStringLiteral("key-1"), probe.callback());
        return probe.wait();
    }
};

TEST_P(SignInTest, InterpretsEachAnswer) {
    const QString origin = server->origin();
    const QString user = R"("user":{"email":"ada@example.com","name":"Ada"})";
    struct Case {
        int status;
        QString body;
        LoginResult expected;
    };
    const Case cases[] = {
        {200, R"({"api_key":"k1",)" + user + "}",
         DeviceLogin{"k1", origin, "ada@example.com", "Ada"}},
        {200, R"({"api_key":"k1","server":" other.example.com//",)" + user + "}",
         DeviceLogin{"k1", "https://other.example.com", "ada@example.com", "Ada"}},
        {200, R"({"api_key":"k1","server":7,"user":{"email":"e","name":["Ada"]}})",
         DeviceLogin{"k1", origin, "e", ""}},
        {200, R"({"api_key":"k1"})", AuthError::malformed(200)},
        {200, R"({"api_key":1,)" + user + "}", AuthError::malformed(200)},
        {200, R"({"api_key":"k1","user":{"email":null}})", AuthError::malformed(200)},
        {200, R"({"api_key":"k1","user":"ada@example.com"})", AuthError::malformed(200)},
        {200, "<html><body>Welcome</body></html>", AuthError::malformed(200)},
        {200, R"([{"api_key":"k1"}])", AuthError::malformed(200)},
        {200, QString(100000, '[') + QString(100000, ']'), AuthError::malformed(200)},
        {200, R"({"api_key":"k1",)" + user + ",\"pad\":\"" + QString(2'000'000, 'x') + "\"}",
         AuthError::malformed(200)},
        {403, R"({"code":"unverified"})", AuthError::unverified()},
        {403, R"({"code":"inactive"})", AuthError::inactive(origin + "/vaskel/account/")},
        {403, R"({"code":"inactive","portal":7})",
         AuthError::inactive(origin + "/vaskel/account/")},
        {403, R"({"code":"inactive","portal":"https://pay.example/x y"})",
         AuthError::inactive("https://pay.example/x y")},
        {403, "", AuthError::badCredentials()},
        {403, R"({"code":["unverified"]})", AuthError::badCredentials()},
        {403, R"({"code":"Inactive"})", AuthError::badCredentials()},
        {429, "", AuthError::tooMany()},
        {401, R"({"code":"unverified"})", AuthError::malformed(401)},
        {400, "", AuthError::malformed(400)},
        {407, "", AuthError::malformed(407)},
        {418, "", AuthError::malformed(418)},
        {302, "", AuthError::malformed(302)},
        {500, "oops", AuthError::malformed(500)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.body.left(80).toStdString());
        EXPECT_EQ(answer({.status = c.status, .body = c.body.toStdString()}), c.expected);
    }
}

TEST_P(SignInTest, SendsCredentialsOnceWithClientIdentityAndLogsNothing) {
    testing_support::CaptureLog log;
    platform::StandIn<platform::LogSink> capture(log);
    answer({.status = 429});
    answer({.body = R"({"api_key":"k1","user":{"email":"e"}})"});
    EXPECT_TRUE(log.lines().empty());
    const auto requests = server->requests();
    ASSERT_EQ(requests.size(), 2u);
    const auto& request = requests[0];
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.path, "/vaskel/api/auth/login");
    EXPECT_EQ(request.header("Content-Type"), "application/json");
    EXPECT_EQ(request.header("User-Agent"), "Vaskel " + vaskelClientHeader().toStdString());
    EXPECT_EQ(request.header("X-Vaskel-Client"), vaskelClientHeader().toStdString());
    EXPECT_FALSE(request.header("X-API-Key"));
    EXPECT_FALSE(request.header("Cookie"));
    const QJsonObject body =
        QJsonDocument::fromJson(QByteArray::fromStdString(request.body)).object();
    EXPECT_EQ(body, (QJsonObject{{"email", "ada@example.com"},
                                 {"password", " pass word "},
                                 {"device_name", "ada's laptop"}}));
    EXPECT_EQ(request.body.find('\n'), std::string::npos);  // compact
}

TEST_P(SignInTest, SignOutIsConfirmedOnlyByStatus200) {
    const std::pair<int, bool> cases[] = {{200, true}, {204, false}, {401, false}, {500, false}};
    for (const auto& [status, confirmed] : cases) {
        EXPECT_EQ(signOut({.status = status}), confirmed) << status;
    }
    const auto request = server->requests().back();
    EXPECT_EQ(request.path, "/vaskel/api/auth/logout");
    EXPECT_EQ(request.header("X-API-Key"), "key-1");
    EXPECT_EQ(request.header("User-Agent"), "Vaskel " + vaskelClientHeader().toStdString());
    EXPECT_EQ(request.header("X-Vaskel-Client"), vaskelClientHeader().toStdString());
    EXPECT_FALSE(request.header("Content-Type"));
    EXPECT_TRUE(request.body.empty());
}

INSTANTIATE_TEST_SUITE_P(Transports, SignInTest,
                         ::testing::Values(Transport::http, Transport::https),
                         testing_support::transportName);

TEST(SignIn, AddressesWithoutHostFailAtOnceOnTheCallingThread) {
    for (const char* server : {"https://", "http:///vaskel", "https://exa mple.com"}) {
        CompletionProbe<LoginResult> probe;
        loginWithPassword(server, "e", "p", "d", probe.callback());
        ASSERT_TRUE(probe.arrived()) << server;
        EXPECT_EQ(probe.thread(), QThread::currentThread());
        EXPECT_EQ(probe.wait(), AuthError::badURL());
    }
    CompletionProbe<bool> probe;
    logoutDevice("https://exa mple.com", "k", probe.callback());
    ASSERT_TRUE(probe.arrived());
    EXPECT_FALSE(probe.wait());
}

TEST(SignIn, RefusedConnectionIsUnreachable) {
    const QString server =
        QStringLiteral("http://127.0.0.1:%1").arg(testing_support::closedLoopbackPort());
    CompletionProbe<LoginResult> login;
    loginWithPassword(server, "e", "p", "d", login.callback());
    EXPECT_EQ(login.wait(), AuthError::unreachable("The server refused the connection."));
    CompletionProbe<bool> logout;
    logoutDevice(server, "k", logout.callback());
    EXPECT_FALSE(logout.wait());
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
    EXPECT_EQ(AuthError::unreachable("a"), AuthError::unreachable("a"));
}

}  // namespace
