#include "platform/network_session.h"

#include <gtest/gtest.h>

#include <thread>

#include "support/completion_probe.h"
#include "support/loopback_fixture.h"

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
