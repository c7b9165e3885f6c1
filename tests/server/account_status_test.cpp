#include "server/account_status.h"

#include <gtest/gtest.h>

#include "platform/network_session.h"
#include "server/client_header.h"
#include "support/completion_probe.h"
#include "support/loopback_fixture.h"

namespace {

using namespace std::chrono_literals;
using testing_support::CompletionProbe;
using testing_support::ScriptedReply;
using testing_support::Transport;
using AccountResult = Result<Account, SignInError>;

class AccountStatusTest : public testing_support::LoopbackTest {
protected:
    AccountResult answer(ScriptedReply reply, const QString& key = QStringLiteral("key-1")) {
        server->script("GET", "/vaskel/api/me", std::move(reply));
        CompletionProbe<AccountResult> probe;
        fetchAccount(" " + server->origin() + "//\n", key, probe.callback());
        AccountResult result = probe.wait();
        platform::NetworkSession::shared().reset();
        EXPECT_EQ(probe.calls(), 1);
        EXPECT_NE(probe.thread(), QThread::currentThread());
        return result;
    }
};

TEST_P(AccountStatusTest, InterpretsEachAnswer) {
    Account full;
    full.email = "ada@example.com";
    full.name = "Ada";
    full.usedBytes = 4'100'000'000;
    full.quotaBytes = 5'000'000'000;
    full.unlimited = false;
    full.planName = "Pro";
    full.status = "past_due";
    full.update = ClientUpdate{"2.4", 52, "https://x/dl", "Fixes"};
    Account minimal;
    minimal.email = "ada@example.com";
    Account oddNumbers = minimal;
    oddNumbers.usedBytes = -5;

    struct Case {
        int status;
        std::string body;
        AccountResult expected;
    };
    const Case cases[] = {
        {200, R"({"email":"ada@example.com","name":"Ada","used_bytes":4100000000,
                  "quota_bytes":5e9,"unlimited":false,"plan_name":"Pro","status":"past_due",
                  "client":{"update_available":true,"latest":{"version":"2.4","build":52,
                  "url":"https://x/dl","notes":"Fixes"}}})",
         full},
        {200, R"({"email":"ada@example.com"})", minimal},
        {200, R"({"email":"ada@example.com","used_bytes":-5,"quota_bytes":"100","client":[]})",
         oddNumbers},
        {200, R"({"name":"Ada"})", SignInError::malformed()},
        {200, R"({"email":42})", SignInError::malformed()},
        {200, "", SignInError::malformed()},
        {200, "<!doctype html><title>Sign in</title>", SignInError::malformed()},
        {200, R"(["ada@example.com"])", SignInError::malformed()},
        {200, R"({"email":"ada@example.com")", SignInError::malformed()},
        {200, std::string(100000, '{'), SignInError::malformed()},
        {200, R"({"email":"a","pad":")" + std::string(1'100'000, 'x') + "\"}",
         SignInError::malformed()},
        {401, "", SignInError::rejected()},
        {403, R"({"email":"ada@example.com"})", SignInError::rejected()},
        {500, R"({"email":"ada@example.com"})", SignInError::malformed()},
        {400, "", SignInError::malformed()},
        {407, "", SignInError::malformed()},
        {301, "", SignInError::malformed()},
        {204, "", SignInError::malformed()},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.body.substr(0, 80));
        EXPECT_EQ(answer({.status = c.status, .body = c.body}), c.expected);
    }
}

TEST_P(AccountStatusTest, SendsTheTrimmedKeyAndClientIdentity) {
    answer({.status = 401}, QStringLiteral(" \tkey-1\r\n"));
    const auto requests = server->requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].method, "GET");
    EXPECT_EQ(requests[0].path, "/vaskel/api/me");
    EXPECT_EQ(requests[0].header("X-API-Key"), "key-1");
    EXPECT_EQ(requests[0].header("User-Agent"), "VaskelProvider/1.0");
    EXPECT_EQ(requests[0].header("X-Vaskel-Client"), vaskelClientHeader().toStdString());
    EXPECT_FALSE(requests[0].header("Content-Type"));
}

INSTANTIATE_TEST_SUITE_P(Transports, AccountStatusTest,
                         ::testing::Values(Transport::http, Transport::https),
                         testing_support::transportName);

TEST(AccountStatus, AddressesWithoutHostFailAtOnceOnTheCallingThread) {
    for (const char* server : {"", "  \n", "https://", "https://a b"}) {
        CompletionProbe<AccountResult> probe;
        fetchAccount(server, "k", probe.callback());
        ASSERT_TRUE(probe.arrived()) << server;
        EXPECT_EQ(probe.thread(), QThread::currentThread());
        EXPECT_EQ(probe.wait(), SignInError::badURL());
    }
}

TEST(AccountStatus, RefusedConnectionIsUnreachable) {
    CompletionProbe<AccountResult> probe;
    fetchAccount(QStringLiteral("http://127.0.0.1:%1").arg(testing_support::closedLoopbackPort()),
                 "k", probe.callback());
    EXPECT_EQ(probe.wait(), SignInError::unreachable("The server refused the connection."));
}

TEST(AccountStatus, ErrorTexts) {
    const std::pair<SignInError, const char*> cases[] = {
        {SignInError::unreachable("The request timed out."),
         "Could not reach the server. The request timed out."},
        {SignInError::badURL(), "That does not look like a valid server address."},
        {SignInError::rejected(),
         "The server did not accept that key. Check it was copied in full."},
        {SignInError::malformed(), "The server responded, but not in a way this app understands."},
    };
    for (const auto& [error, text] : cases) EXPECT_EQ(error.errorDescription(), text);
    EXPECT_NE(SignInError::unreachable("a"), SignInError::unreachable("b"));
}

}  // namespace
