#include "platform/network_session.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "support/completion_probe.h"
#include "support/loopback_fixture.h"

namespace {

using namespace std::chrono_literals;
using platform::HttpRequest;
using platform::HttpResponse;
using platform::NetworkSession;
using testing_support::CompletionProbe;
using testing_support::LoopbackServer;
using testing_support::ScriptedReply;
using testing_support::TestCertificate;
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
    QString url(const char* path = "/x") const { return server->origin() + QLatin1String(path); }
};

TEST_P(NetworkSessionTest, TransportFailuresHaveReadableDescriptions) {
    NetworkSession::shared().setTimeoutCap(300ms);
    struct Case {
        const char* name;
        ScriptedReply reply;
        QString expected;
    };
    const Case cases[] = {
        {"slow", {.body = "{}", .delay = 5s}, "The request timed out."},
        {"cut",
         {.body = std::string(4000, 'x'), .dropMidBody = true},
         "The network connection was lost."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        server->script("GET", "/x", c.reply);
        const HttpResponse response = fetch(get(url()));
        EXPECT_EQ(response.transportError, c.expected);
        EXPECT_FALSE(response.isHttp);
        EXPECT_TRUE(response.body.isEmpty());
    }
    const QString scheme = server->origin().section(QLatin1Char(':'), 0, 0);
    const HttpResponse refused = fetch(get(QStringLiteral("%1://127.0.0.1:%2/x")
                                               .arg(scheme)
                                               .arg(testing_support::closedLoopbackPort())));
    EXPECT_EQ(refused.transportError, QStringLiteral("The server refused the connection."));
}

TEST_P(NetworkSessionTest, AnswersAsSentWithoutRedirectsOrCookies) {
    server->script("GET", "/x",
                   {.status = 302,
                    .body = "moved",
                    .headers = {{"Location", "/y"}, {"Set-Cookie", "session=abc; Path=/"}}});
    server->script("GET", "/y", {.body = "{\"followed\":true}"});
    for (int i = 0; i < 2; ++i) {
        const HttpResponse response = fetch(get(url()));
        EXPECT_FALSE(response.transportError);
        EXPECT_TRUE(response.isHttp);
        EXPECT_EQ(response.status, 302);
        EXPECT_EQ(response.body, "moved");
    }
    const auto requests = server->requests();
    ASSERT_EQ(requests.size(), 2u);  // the redirect was not followed
    EXPECT_FALSE(requests[1].header("Cookie"));
}

TEST_P(NetworkSessionTest, RefusesBodiesOverTheLimit) {
    const std::string huge(NetworkSession::MAX_BODY_BYTES + 1, 'a');
    const std::string exact(NetworkSession::MAX_BODY_BYTES, 'a');
    server->script("GET", "/huge", {.body = huge});
    server->script("GET", "/exact", {.body = exact});
    const HttpResponse refused = fetch(get(url("/huge")));
    EXPECT_TRUE(refused.bodyRefused);
    EXPECT_TRUE(refused.body.isEmpty());
    EXPECT_EQ(refused.status, 200);
    const HttpResponse accepted = fetch(get(url("/exact")));
    EXPECT_FALSE(accepted.bodyRefused);
    EXPECT_EQ(accepted.body.size(), qsizetype(exact.size()));
}

TEST_P(NetworkSessionTest, HeaderValuesCannotSplitTheRequest) {
    server->script("GET", "/x", {.body = "{}"});
    HttpRequest request = get(url());
    request.headers = {{"X-API-Key", "key\r\nX-Injected: 1"}};
    fetch(std::move(request));
    const auto recorded = server->requests().at(0);
    EXPECT_EQ(recorded.header("X-API-Key"), "keyX-Injected: 1");
    EXPECT_FALSE(recorded.header("X-Injected"));
}

TEST_P(NetworkSessionTest, ServesManyThreadsAndCompletesEachRequestOnce) {
    server->script("GET", "/x", {.body = "{}"});
    constexpr int THREADS = 6, EACH = 8;
    std::vector<std::unique_ptr<CompletionProbe<HttpResponse>>> probes;
    for (int i = 0; i < THREADS * EACH; ++i)
        probes.push_back(std::make_unique<CompletionProbe<HttpResponse>>());
    std::vector<std::thread> threads;
    for (int t = 0; t < THREADS; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < EACH; ++i) {
                NetworkSession::shared().send(get(url()), probes[t * EACH + i]->callback());
            }
        });
    }
    for (auto& thread : threads) thread.join();
    for (auto& probe : probes) EXPECT_EQ(probe->wait().status, 200);
    NetworkSession::shared().reset();  // anything still queued has run by now
    for (auto& probe : probes) {
        EXPECT_EQ(probe->calls(), 1);
        EXPECT_EQ(probe->thread(), probes[0]->thread());
    }
}

TEST_P(NetworkSessionTest, ResetCompletesRequestsInFlight) {
    server->script("GET", "/x", {.body = "{}", .delay = 30s});
    CompletionProbe<HttpResponse> probe;
    NetworkSession::shared().send(get(url()), probe.callback());
    while (server->requests().empty()) std::this_thread::sleep_for(5ms);
    NetworkSession::shared().reset();
    EXPECT_EQ(probe.wait(0ms).transportError, QStringLiteral("The request was cancelled."));
    EXPECT_EQ(probe.calls(), 1);
}

INSTANTIATE_TEST_SUITE_P(Transports, NetworkSessionTest,
                         ::testing::Values(Transport::http, Transport::https),
                         testing_support::transportName);

TEST(NetworkSessionTls, RefusesCertificatesItCannotTrust) {
    struct Case {
        const char* name;
        testing_support::CertificateOptions options;
        bool trusted;
        QString expected;
    };
    const Case cases[] = {
        {"unknown issuer", {}, false, "The server's certificate is not trusted."},
        {"expired",
         {.validFrom = -48h, .validUntil = -24h},
         true,
         "The server's certificate has expired."},
        {"other host",
         {.ipAddresses = {"10.1.2.3"}, .dnsNames = {"elsewhere.example"}},
         true,
         "The server's certificate is for a different host."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const TestCertificate certificate = TestCertificate::generate(c.options);
        if (c.trusted)
            NetworkSession::shared().setExtraTrustedCertificates({certificate.qtCertificate()});
        LoopbackServer server(Transport::https, &certificate);
        server.script("GET", "/x", {.body = "{}"});
        const HttpResponse response = fetch(get(server.origin() + QStringLiteral("/x")));
        EXPECT_EQ(response.transportError, c.expected);
        NetworkSession::shared().reset();
        NetworkSession::shared().setExtraTrustedCertificates({});
        server.stop();
        EXPECT_TRUE(server.requests().empty());
    }
}

TEST(NetworkSessionTls, OnlyHttpAndHttpsAreSpoken) {
    const HttpResponse response = fetch(get(QStringLiteral("file:///etc/passwd")));
    EXPECT_EQ(response.transportError,
              QStringLiteral("The server address uses a protocol that is not supported."));
}

}  // namespace
