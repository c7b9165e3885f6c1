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
using testing_support::ScriptedReply;
using testing_support::Transport;
using End = ScriptedReply::End;

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

TEST_P(NetworkSessionTest, EachRequestGoesOutOnceAsSentAndOnlyWholeAnswersCount) {
    const QString timedOut = QStringLiteral("The request timed out.");
    const std::string head = "HTTP/1.1 200 OK\r\nContent-Length: 40\r\n\r\n";
    std::vector<std::string> trickle{head};
    trickle.resize(41, "x");  // a byte every 50 ms: never idle for long, but 2 s in all
    const QString lost = QStringLiteral("The network connection was lost.");
    const qint64 limit = NetworkSession::MAX_BODY_BYTES;
    const struct {
        const char* name;
        ScriptedReply reply;
        std::optional<QString> error;  // else the HTTP status (0: not HTTP) and body
        int status = 0;
        QByteArray body{};
        bool refused = false;
    } cases[] = {
        {"redirect and cookie",  // neither followed nor kept
         {.status = 302,
          .body = "moved",
          .headers = {{"Location", "/y"}, {"Set-Cookie", "session=abc; Path=/"}}},
         std::nullopt,
         302,
         "moved"},
        {"never answered", {.body = "{}", .delay = 5s}, timedOut},
        {"trickled", ScriptedReply::bytes(trickle, End::hold, 50ms), timedOut},
        {"closed before answering", ScriptedReply::bytes({}), lost},
        {"reset before answering", ScriptedReply::bytes({}, End::reset), lost},
        {"reset in the body", ScriptedReply::bytes({head + R"({"api_key":"k")"}, End::reset), lost},
        {"closed in the body", ScriptedReply::bytes({head + R"({"api_key":"k")"}), lost},
        {"lengths that disagree",
         ScriptedReply::bytes(
             {"HTTP/1.1 200 OK\r\nContent-Length: 2\r\nContent-Length: 3\r\n\r\nabc"}, End::hold),
         "The server's answer could not be read."},
        {"not HTTP", ScriptedReply::bytes({"SSH-2.0-OpenSSH_9.2\r\n"}, End::hold), std::nullopt},
        {"body up to the end",
         ScriptedReply::bytes({"HTTP/1.0 201 Created\r\n\r\n", "done"}, End::close, 20ms),
         std::nullopt, 201, "done"},
        {"largest body",
         {.body = std::string(limit, 'a')},
         std::nullopt,
         200,
         QByteArray(limit, 'a')},
        {"body too large", {.body = std::string(limit + 1, 'a')}, std::nullopt, 200, {}, true},
    };
    size_t sent = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        server->script("POST", "/login", c.reply);
        HttpRequest request = to("/login");
        request.method = "POST";
        request.headers = {{"X-API-Key", "key\r\nX-Injected: 1"}};
        request.body = "{\"password\":\"p\"}";
        request.timeout = c.error == timedOut ? 400ms : 20s;
        const HttpResponse response = fetch(std::move(request));
        EXPECT_EQ(response.transportError, c.error);
        EXPECT_EQ(response.isHttp, c.status != 0);
        EXPECT_EQ(response.status, c.status);
        EXPECT_EQ(response.body, c.body);
        EXPECT_EQ(response.bodyRefused, c.refused);
        EXPECT_EQ(server->requests().size(), ++sent) << "the request went out more than once";
    }
    for (const auto& request : server->requests()) {
        EXPECT_EQ(request.header("X-API-Key"), "keyX-Injected: 1");
        EXPECT_FALSE(request.header("X-Injected"));
        EXPECT_FALSE(request.header("Cookie"));
        EXPECT_EQ(request.body, "{\"password\":\"p\"}");
    }
    const QString closed = QStringLiteral("http://127.0.0.1:%1/x");
    EXPECT_EQ(fetch(get(closed.arg(testing_support::closedLoopbackPort()))).transportError,
              QStringLiteral("The server refused the connection."));
    EXPECT_EQ(fetch(get(QStringLiteral("file:///etc/passwd"))).transportError,
              QStringLiteral("The server address uses a protocol that is not supported."));
}

TEST_P(NetworkSessionTest, CompletesEachRequestOnceOnItsThreadFromManyThreadsAndOnReset) {
    server->script("GET", "/x", {.body = "{}"});
    server->script("GET", "/slow", {.body = "{}", .delay = 30s});
    CompletionProbe<HttpResponse> slow;
    NetworkSession::shared().send(to("/slow"), slow.callback());
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
    EXPECT_FALSE(slow.arrived());
    NetworkSession::shared().reset();
    EXPECT_EQ(slow.wait(0ms).transportError, QStringLiteral("The request was cancelled."));
    EXPECT_EQ(slow.calls(), 1);
    for (auto& probe : probes) {
        EXPECT_EQ(probe.calls(), 1);
        EXPECT_EQ(probe.thread(), slow.thread());
    }
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
    const std::tuple<testing_support::CertificateOptions, bool, QString> cases[] = {
        {{}, false, "The server's certificate is not trusted."},
        {{.validFrom = -48h, .validUntil = -24h}, true, "The server's certificate has expired."},
        {{.ipAddresses = {"10.1.2.3"}}, true, "The server's certificate is for a different host."},
    };
    for (const auto& [options, trusted, expected] : cases) {
        const auto certificate = testing_support::TestCertificate::generate(options);
        if (trusted)
            NetworkSession::shared().setExtraTrustedCertificates({certificate.qtCertificate()});
        testing_support::LoopbackServer server(Transport::https, &certificate);
        server.script("GET", "/x", {.body = "{}"});
        EXPECT_EQ(fetch(get(server.origin() + "/x")).transportError, expected);
        NetworkSession::shared().reset();
        NetworkSession::shared().setExtraTrustedCertificates({});
        server.stop();
        EXPECT_TRUE(server.requests().empty()) << expected.toStdString();
    }
}

}  // namespace
