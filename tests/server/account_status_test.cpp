#include "server/account_status.h"

#include <gtest/gtest.h>

#include "server/client_header.h"
#include "support/completion_probe.h"
#include "support/loopback_fixture.h"

namespace {

using testing_support::CompletionProbe;
using AccountResult = Result<Account, SignInError>;

AccountResult fetch(const QString& server) {
    CompletionProbe<AccountResult> probe;
    fetchAccount(server, QStringLiteral(" \tkey-1\r\n"), probe.callback());
    return probe.wait();
}

class AccountStatusTest : public testing_support::LoopbackTest {};

TEST_P(AccountStatusTest, InterpretsEachAnswerAndSendsTheTrimmedKey) {
    Account minimal;
    minimal.email = "ada@example.com";
    const std::string valid = R"({"email":"ada@example.com"})";
    const AccountResult bad = SignInError::malformed();
    const std::tuple<int, std::string, AccountResult> cases[] = {
        {200, valid, minimal},
        {200, R"({"name":"Ada"})", bad},
        {200, "<!doctype html><title>Sign in</title>", bad},
        {200, R"(["ada@example.com"])", bad},
        {200, std::string(100000, '{'), bad},
        {200, R"({"email":"a","pad":")" + std::string(1'100'000, 'x') + "\"}", bad},
        {401, "", SignInError::rejected()},
        {403, valid, SignInError::rejected()},
        {500, valid, bad},
    };
    for (const auto& [status, body, expected] : cases) {
        SCOPED_TRACE(std::to_string(status) + " " + body.substr(0, 80));
        server->script("GET", "/vaskel/api/me", {.status = status, .body = body});
        EXPECT_EQ(fetch(" " + server->origin() + "//\n"), expected);
    }
    const auto request = server->requests().back();
    EXPECT_EQ(request.header("X-API-Key"), "key-1");
    EXPECT_EQ(request.header("User-Agent"), "VaskelProvider/1.0");
    EXPECT_EQ(request.header("X-Vaskel-Client"), vaskelClientHeader().toStdString());
}

INSTANTIATE_TEST_SUITE_P(Transports, AccountStatusTest,
                         ::testing::Values(testing_support::Transport::http,
                                           testing_support::Transport::https),
                         testing_support::transportName);

TEST(AccountStatus, BadAddressesFailAtOnceAndRefusedConnectionsAreUnreachable) {
    for (const char* server : {"", "https://a b"}) {
        CompletionProbe<AccountResult> probe;
        fetchAccount(server, "k", probe.callback());
        ASSERT_TRUE(probe.arrived()) << server;
        EXPECT_EQ(probe.wait(), SignInError::badURL());
    }
    EXPECT_EQ(
        fetch(QStringLiteral("http://127.0.0.1:%1").arg(testing_support::closedLoopbackPort())),
        SignInError::unreachable("The server refused the connection."));
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
