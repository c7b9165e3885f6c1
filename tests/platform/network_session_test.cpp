#include "platform/network_session.h"

#include <gtest/gtest.h>

#include <thread>

#include "support/completion_probe.h"
#include "support/loopback_fixture.h"
#include "support/raw_loopback_server.h"

namespace {

using namespace std::chrono_literals;
using platform::HttpRequest;
using platform::HttpResponse;
using platform::NetworkSession;
using testing_support::CompletionProbe;
using testing_support::Transport;

HttpRequest get(const QString& url) {
    HttpRequest request;
    request.method = "GET";
    request.url = QUrl(url);
    request.timeout = 20s;
    return request;
}

HttpResponse fetch(HttpRequest request) {
    CompletionProbe<HttpResponse> probe;
    NetworkSession::shared().send(std::move(request), probe.callback());
    HttpResponse response = probe.wait();
    EXPECT_TRUE(probe.thread() != QThread::currentThread());
    return response;
}

class NetworkSessionTest : public testing_support::LoopbackTest {
protected:
    HttpRequest to(const char* path) { return get(server->origin() + QLatin1String(path)); }
};

TEST_P(NetworkSessionTest, TransportFailuresHaveReadableDescriptions) {
    NetworkSession::shared().setTimeoutCap(300ms);
    const std::pair<testing_support::ScriptedReply, QString> cases[] = {
        {{.body = "{}", .delay = 5s}, "The request timed out."},
        {{.body = std::string(4000, 'x'), .dropMidBody = true}, "The network connection was lost."},
    };
    for (const auto& [reply, expected] : cases) {
        server->script("GET", "/x", reply);
        const HttpResponse response = fetch(to("/x"));
        EXPECT_EQ(response.transportError, expected);
        EXPECT_FALSE(response.isHttp);
        EXPECT_TRUE(response.body.isEmpty());
    }
    const QString closed = QStringLiteral("http://127.0.0.1:%1/x");
    EXPECT_EQ(fetch(get(closed.arg(testing_support::closedLoopbackPort()))).transportError,
              QStringLiteral("The server refused the connection."));
    EXPECT_EQ(fetch(get(QStringLiteral("file:///etc/passwd"))).transportError,
              QStringLiteral("The server address uses a protocol that is not supported."));
}

TEST_P(NetworkSessionTest, SendsAsAskedAndAnswersAsSentWithoutRedirectsOrCookies) {
    server->script("GET", "/x",
                   {.status = 302,
                    .body = "moved",
                    .headers = {{"Location", "/y"}, {"Set-Cookie", "session=abc; Path=/"}}});
    server->script("GET", "/y", {.body = "{\"followed\":true}"});
    for (int i = 0; i < 2; ++i) {
        HttpRequest request = to("/x");
        request.headers = {{"X-API-Key", "key\r\nX-Injected: 1"}};
        const HttpResponse response = fetch(std::move(request));
        EXPECT_FALSE(response.transportError);
        EXPECT_EQ(response.status, 302);
        EXPECT_EQ(response.body, "moved");
    }
    const auto requests = server->requests();
    ASSERT_EQ(requests.size(), 2u);  // the redirect was not followed
    EXPECT_FALSE(requests[1].header("Cookie"));
    EXPECT_EQ(requests[0].header("X-API-Key"), "keyX-Injected: 1");
    EXPECT_FALSE(requests[0].header("X-Injected"));
}

TEST_P(NetworkSessionTest, RefusesBodiesOverTheLimit) {
    server->script("GET", "/huge", {.body = std::string(NetworkSession::MAX_BODY_BYTES + 1, 'a')});
    server->script("GET", "/exact", {.body = std::string(NetworkSession::MAX_BODY_BYTES, 'a')});
    const HttpResponse refused = fetch(to("/huge"));
    EXPECT_TRUE(refused.bodyRefused);
    EXPECT_TRUE(refused.body.isEmpty());
    EXPECT_EQ(refused.status, 200);
    const HttpResponse accepted = fetch(to("/exact"));
    EXPECT_FALSE(accepted.bodyRefused);
    EXPECT_EQ(accepted.body.size(), NetworkSession::MAX_BODY_BYTES);
}

TEST_P(NetworkSessionTest, ServesManyThreadsAndCompletesEachRequestOnce) {
    server->script("GET", "/x", {.body = "{}"});
    constexpr int THREADS = 4, EACH = 8;
    std::vector<CompletionProbe<HttpResponse>> probes(THREADS * EACH);
    std::vector<std::thread> threads;
    for (int t = 0; t < THREADS; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < EACH; ++i)
                NetworkSession::shared().send(to("/x"), probes[t * EACH + i].callback());
        });
    }
    for (auto& thread : threads) thread.join();
    for (auto& probe : probes) EXPECT_EQ(probe.wait().status, 200);
    NetworkSession::shared().reset();  // anything still queued has run by now
    for (auto& probe : probes) {
        EXPECT_EQ(probe.calls(), 1);
        EXPECT_EQ(probe.thread(), probes[0].thread());
    }
}

TEST_P(NetworkSessionTest, ResetCompletesRequestsInFlight) {
    server->script("GET", "/x", {.body = "{}", .delay = 30s});
    CompletionProbe<HttpResponse> probe;
    NetworkSession::shared().send(to("/x"), probe.callback());
    while (server->requests().empty()) std::this_thread::sleep_for(5ms);
    NetworkSession::shared().reset();
    EXPECT_EQ(probe.wait(0ms).transportError, QStringLiteral("The request was cancelled."));
    EXPECT_EQ(probe.calls(), 1);
}

INSTANTIATE_TEST_SUITE_P(Transports, NetworkSessionTest,
                         ::testing::Values(Transport::http, Transport::https),
                         testing_support::transportName);

TEST(NetworkSessionAnswers, RequestGoesOutOnceAndOnlyWholeAnswersCount) {
    using testing_support::RawAnswer;
    using End = RawAnswer::End;
    const std::string head = "HTTP/1.1 200 OK\r\nContent-Length: 40\r\n\r\n";
    const std::string chunked = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
    struct Case {
        const char* name;
        RawAnswer answer;
        std::optional<QString> error;  // else an answer: HTTP status (0: not HTTP) and body
        int status = 0;
        QByteArray body{};
    };
    const QString lost = QStringLiteral("The network connection was lost.");
    const Case cases[] = {
        {"closed before answering", {{}, 0ms, End::close}, lost},
        {"reset before answering", {{}, 0ms, End::reset}, lost},
        {"not HTTP", {{"SSH-2.0-OpenSSH_9.2\r\n"}, 0ms, End::hold}, std::nullopt, 0},
        {"reset in the head", {{"HTTP/1.1 200 OK\r\nContent-"}, 0ms, End::reset}, lost},
        {"reset in the body", {{head + R"({"api_key":"k")"}, 0ms, End::reset}, lost},
        {"closed in the body", {{head + R"({"api_key":"k")"}, 0ms, End::close}, lost},
        {"closed between chunks", {{chunked + "5\r\nhello\r\n"}, 0ms, End::close}, lost},
        {"whole chunked body",
         {{chunked + "5\r\nhello\r\n1;x=y\r\n!\r\n0\r\n\r\n"}, 0ms, End::hold},
         std::nullopt,
         200,
         "hello!"},
        {"body up to the end",
         {{"HTTP/1.0 201 Created\r\n\r\n", "done"}, 20ms, End::close},
         std::nullopt,
         201,
         "done"},
        {"interim answer first",
         {{"HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 204 No Content\r\n\r\n"}, 0ms, End::hold},
         std::nullopt,
         204},
        {"lengths that disagree",
         {{"HTTP/1.1 200 OK\r\nContent-Length: 2\r\nContent-Length: 3\r\n\r\nabc"}, 0ms, End::hold},
         "The server's answer could not be read."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        testing_support::RawLoopbackServer server(c.answer);
        HttpRequest request = get(server.origin() + "/vaskel/api/auth/login");
        request.method = "POST";
        request.body = "{\"password\":\"p\"}";
        const HttpResponse response = fetch(std::move(request));
        EXPECT_EQ(response.transportError, c.error);
        if (!c.error) {
            EXPECT_EQ(response.isHttp, c.status != 0);
            EXPECT_EQ(response.status, c.status);
            EXPECT_EQ(response.body, c.body);
        }
        EXPECT_EQ(server.requests().size(), 1u) << "the request went out more than once";
    }
}

TEST(NetworkSessionAnswers, TimeOutBoundsTheWholeRequestHoweverSlowTheAnswer) {
    // A byte every 50 ms never leaves the connection idle for long, but takes 2 s in all.
    std::vector<std::string> pieces{"HTTP/1.1 200 OK\r\nContent-Length: 40\r\n\r\n"};
    for (int i = 0; i < 40; ++i) pieces.emplace_back("x");
    testing_support::RawLoopbackServer server(
        {pieces, 50ms, testing_support::RawAnswer::End::hold});
    HttpRequest request = get(server.origin() + "/vaskel/api/me");
    request.timeout = 500ms;
    EXPECT_EQ(fetch(std::move(request)).transportError, QStringLiteral("The request timed out."));
}

// Sends one request, shuts the session down mid-flight, sends another, and exits 0 when each
// completed once with the right text.
[[noreturn]] void shutDownAndReport() {
    testing_support::LoopbackServer server;
    server.script("GET", "/x", {.body = "{}", .delay = 30s});
    CompletionProbe<HttpResponse> inFlight, later;
    NetworkSession::shared().send(get(server.origin() + "/x"), inFlight.callback());
    while (server.requests().empty()) std::this_thread::sleep_for(5ms);
    NetworkSession::shared().shutdown();
    NetworkSession::shared().send(get(server.origin() + "/x"), later.callback());
    const bool once =
        inFlight.calls() == 1 && later.calls() == 1 && later.thread() == QThread::currentThread();
    const bool texts = inFlight.wait(0ms).transportError == "The request was cancelled." &&
                       later.wait(0ms).transportError == "The program is shutting down.";
    std::_Exit(once && texts ? 0 : 1);
}

// Shutting down is for good, so it runs in a child process of its own.
TEST(NetworkSessionShutdown, CompletesEveryRequestOnceAndLaterOnesAtOnce) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(shutDownAndReport(), ::testing::ExitedWithCode(0), "");
}

TEST(NetworkSessionTls, RefusesCertificatesItCannotTrust) {
    struct Case {
        testing_support::CertificateOptions options;
        bool trusted;
        QString expected;
    };
    const Case cases[] = {
        {{}, false, "The server's certificate is not trusted."},
        {{.validFrom = -48h, .validUntil = -24h}, true, "The server's certificate has expired."},
        {{.ipAddresses = {"10.1.2.3"}, .dnsNames = {"elsewhere.example"}},
         true,
         "The server's certificate is for a different host."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.expected.toStdString());
        const auto certificate = testing_support::TestCertificate::generate(c.options);
        if (c.trusted)
            NetworkSession::shared().setExtraTrustedCertificates({certificate.qtCertificate()});
        testing_support::LoopbackServer server(Transport::https, &certificate);
        server.script("GET", "/x", {.body = "{}"});
        EXPECT_EQ(fetch(get(server.origin() + QStringLiteral("/x"))).transportError, c.expected);
        NetworkSession::shared().reset();
        NetworkSession::shared().setExtraTrustedCertificates({});
        server.stop();
        EXPECT_TRUE(server.requests().empty());
    }
}

}  // namespace
