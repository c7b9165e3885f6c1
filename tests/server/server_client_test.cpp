#include "server/sign_in.h"

#include <gtest/gtest.h>

#include <QJsonDocument>
#include <QJsonObject>

#include "server/client_header.h"
#include "support/completion_probe.h"
#include "support/fake_platform.h"
#include "support/loopback_fixture.h"

namespace {

using testing_support::CompletionProbe;
using testing_support::ScriptedReply;
using LoginResult = Result<DeviceLogin, AuthError>;

class SignInTest : public testing_support::LoopbackTest {
protected:
    LoginResult signIn(ScriptedReply reply) {
        server->script("POST", "/vaskel/api/auth/login", std::move(reply));
        CompletionProbe<LoginResult> probe;
        loginWithPassword(server->origin() + "/", "  ada@example.com\n", " pass word ",
                          "ada's laptop", probe.callback());
        return probe.wait();
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
    const std::string user = R"("user":{"email":"ada@example.com","name":"Ada"})";
    const std::pair<ScriptedReply, LoginResult> cases[] = {
        {{.body = R"({"api_key":"k1",)" + user + "}"},
         DeviceLogin{"k1", origin, "ada@example.com", "Ada"}},
        {{.body = R"({"api_key":"k1","server":" other.example.com//",)" + user + "}"},
         DeviceLogin{"k1", "https://other.example.com", "ada@example.com", "Ada"}},
        {{.body = R"({"api_key":"k1","server":7,"user":{"email":"e","name":["Ada"]}})"},
         DeviceLogin{"k1", origin, "e", ""}},
        {{.body = R"({"api_key":"k1"})"}, AuthError::malformed(200)},
        {{.body = R"({"api_key":1,)" + user + "}"}, AuthError::malformed(200)},
        {{.body = R"({"api_key":"k1","user":{"email":null}})"}, AuthError::malformed(200)},
        {{.status = 403, .body = R"({"code":"unverified"})"}, AuthError::unverified()},
        {{.status = 403, .body = R"({"code":"inactive"})"},
         AuthError::inactive(origin + "/vaskel/account/")},
        {{.status = 403, .body = R"({"code":"inactive","portal":"https://pay.example/x y"})"},
         AuthError::inactive("https://pay.example/x y")},
        {{.status = 403}, AuthError::badCredentials()},
        {{.status = 429}, AuthError::tooMany()},
        {{.status = 401, .body = R"({"code":"unverified"})"}, AuthError::malformed(401)},
        {{.status = 302}, AuthError::malformed(302)},
        {ScriptedReply::bytes({"220 mail.example.com ESMTP\r\n"}), AuthError::malformed(0)},
        {ScriptedReply::bytes({}), AuthError::unreachable("The network connection was lost.")},
    };
    for (const auto& [reply, expected] : cases) {
        SCOPED_TRACE(std::to_string(reply.status) + " " + reply.body);
        EXPECT_EQ(signIn(reply), expected);
    }
}

TEST_P(SignInTest, SendsCredentialsLogsNothingAndSignsOutOnlyOn200) {
    testing_support::CaptureLog log;
    platform::StandIn<platform::LogSink> capture(log);
    signIn({.status = 429});
    const std::pair<ScriptedReply, bool> signOuts[] = {
        {{}, true}, {{.status = 204}, false}, {ScriptedReply::bytes({}), false}};
    for (const auto& [reply, confirmed] : signOuts) EXPECT_EQ(signOut(reply), confirmed);
    EXPECT_TRUE(log.lines().empty());
    const auto requests = server->requests();
    ASSERT_EQ(requests.size(), 4u);
    const std::string client = vaskelClientHeader().toStdString();
    for (const auto& request : {requests[0], requests[1]}) {
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
    EXPECT_EQ(requests[1].header("X-API-Key"), "key-1");
    EXPECT_TRUE(requests[1].body.empty());
}

INSTANTIATE_TEST_SUITE_P(Transports, SignInTest,
                         ::testing::Values(testing_support::Transport::http,
                                           testing_support::Transport::https),
                         testing_support::transportName);

TEST(SignIn, BadAddressesFailAtOnce) {
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
