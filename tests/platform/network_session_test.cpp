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

HttpRequest get(const QString& url, QByteArray method = "GET") {
    HttpRequest request;
    request.method = method;
    request.url = QUrl(url);
    request.timeout = 20s;
    return request;
}

// Every field of the response in one line: error text, HTTP or not, status, refused, body.
std::string fetch(HttpRequest request) {
    CompletionProbe<HttpResponse> probe;
    NetworkSession::shared().send(std::move(request), probe.callback());
    const HttpResponse r = probe.wait();
    EXPECT_TRUE(probe.thread() != QThread::currentThread());
    const QByteArray body = r.body.size() > 20 ? QByteArray::number(r.body.size()) : r.body;
    return r.transportError.value_or("").toStdString() + (r.isHttp ? " HTTP " : " ") +
           std::to_string(r.status) + (r.bodyRefused ? " refused " : " ") + body.toStdString();
}

using NetworkSessionTest = testing_support::LoopbackTest;

TEST_P(NetworkSessionTest, EachRequestGoesOutOnceAsSentAndOnlyWholeAnswersCount) {
    const std::string ok = "HTTP/1.1 200 OK\r\n", head = ok + "Content-Length: 40\r\n\r\n";
    const std::string cut = head + "{\"k\"", chunked = ok + "Transfer-Encoding: chunked\r\n\r\n";
    std::vector<std::string> trickle{head}, byByte;
    trickle.resize(41, "x");  // a byte every 50 ms: never idle for long, but 2 s in all
    for (char byte : ok +
                         "transfer-encoding: gzip, "
                         "chunked\r\n\r\n2\r\nab\r\nA;ext\r\n0123456789\r\n0\r\nTrailer: t\r\n\r\n")
        byByte.emplace_back(1, byte);
    const std::string limit = std::to_string(NetworkSession::MAX_BODY_BYTES);
    const std::string half = std::string(NetworkSession::MAX_BODY_BYTES / 2 + 1, 'a');
    const std::string halves =
        QByteArray::number(qint64(half.size()), 16).toStdString() + "\r\n" + half + "\r\n";
    const std::string timedOut = "The request timed out. 0 ";
    const std::string lost = "The network connection was lost. 0 ";
    const std::string unreadable = "The server's answer could not be read. 0 ";
    const auto held = [](std::string bytes) {
        return ScriptedReply::bytes({std::move(bytes)}, End::hold);
    };
    // clang-format off
    const std::pair<ScriptedReply, std::string> cases[] = {
        {{.status = 302, .body = "moved", .headers = {{"Location", "/y"}, {"Set-Cookie", "s=abc; Path=/"}}}, " HTTP 302 moved"},
        {{.body = "{}", .delay = 5s}, timedOut},
        {ScriptedReply::bytes(trickle, End::hold, 50ms), timedOut},
        {ScriptedReply::bytes({}), lost},
        {ScriptedReply::bytes({}, End::reset), lost},
        {ScriptedReply::bytes({cut}, End::reset), lost},
        {ScriptedReply::bytes({cut}), lost},
        {ScriptedReply::bytes({chunked + "2\r\nab\r\n"}), lost},
        {held(ok + "Content-Length: 2\r\nContent-Length: 3\r\n\r\nabc"), unreadable},
        {held(chunked + "zz\r\n"), unreadable},
        {held("HTTP/1.1 2OO OK\r\n\r\n"), unreadable},
        {held("SSH-2.0-OpenSSH_9.2\r\n"), " 0 "},
        {ScriptedReply::bytes({"HTTP/1.0 201 Created\n\n", "done"}, End::close, 20ms), " HTTP 201 done"},
        {held(ok + "Content-Length: 3\r\n\r\nabcEXTRA"), " HTTP 200 abc"},
        {ScriptedReply::bytes(byByte, End::hold), " HTTP 200 ab0123456789"},
        {held("HTTP/1.1 304 Not Modified\r\nContent-Length: 10\r\n\r\n"), " HTTP 304 "},
        {held("HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 403 Forbidden\r\nContent-Length: 2\r\n\r\n{}"), " HTTP 403 {}"},
        {{.body = std::string(NetworkSession::MAX_BODY_BYTES, 'a')}, " HTTP 200 " + limit},
        {{.body = std::string(NetworkSession::MAX_BODY_BYTES + 1, 'a')}, " HTTP 200 refused "},
        {held(chunked + halves + halves), " HTTP 200 refused "},
    };
    // clang-format on
    HttpRequest post = get(server->origin() + "/login", "POST");
    post.headers = {{"X-API-Key", "key\r\nX-Injected: 1"}};
    post.body = "{\"password\":\"p\"}";
    size_t sent = 0;
    for (const auto& [reply, expected] : cases) {
        server->script("POST", "/login", reply);
        post.timeout = expected == timedOut ? 400ms : 20s;
        EXPECT_EQ(fetch(post), expected);
        EXPECT_EQ(server->requests().size(), ++sent) << expected << ": sent more than once";
    }
    for (const auto& request : server->requests()) {
        EXPECT_EQ(request.header("X-API-Key"), "keyX-Injected: 1");
        EXPECT_FALSE(request.header("X-Injected") || request.header("Cookie"));
        EXPECT_EQ(request.body, "{\"password\":\"p\"}");
    }
    const QString closed = QStringLiteral("http://127.0.0.1:%1/x");
    EXPECT_EQ(fetch(get(closed.arg(testing_support::closedLoopbackPort()))),
              "The server refused the connection. 0 ");
    EXPECT_EQ(fetch(get(QStringLiteral("file:///etc/passwd"))),
              "The server address uses a protocol that is not supported. 0 ");
}

TEST_P(NetworkSessionTest, ResetCompletesRequestsInFlightOnce) {
    server->script("GET", "/slow", {.body = "{}", .delay = 30s});
    CompletionProbe<HttpResponse> slow;
    NetworkSession::shared().send(get(server->origin() + "/slow"), slow.callback());
    while (server->requests().empty()) std::this_thread::sleep_for(5ms);
    NetworkSession::shared().reset();
    EXPECT_EQ(slow.wait(0ms).transportError, QStringLiteral("The request was cancelled."));
    EXPECT_EQ(slow.calls(), 1);
}

INSTANTIATE_TEST_SUITE_P(Transports, NetworkSessionTest,
                         ::testing::Values(Transport::http, Transport::https),
                         testing_support::transportName);

TEST(NetworkSessionTls, RefusesCertificatesItCannotTrust) {
    const std::tuple<testing_support::CertificateOptions, bool, std::string> cases[] = {
        {{}, false, "The server's certificate is not trusted. 0 "},
        {{.validFrom = -48h, .validUntil = -24h}, true, "The server's certificate has expired. 0 "},
        {{.ipAddresses = {"10.1.2.3"}},
         true,
         "The server's certificate is for a different host. 0 "},
    };
    for (const auto& [options, trusted, expected] : cases) {
        const auto certificate = testing_support::TestCertificate::generate(options);
        if (trusted)
            NetworkSession::shared().setExtraTrustedCertificates({certificate.qtCertificate()});
        testing_support::LoopbackServer server(Transport::https, &certificate);
        server.script("GET", "/x", {.body = "{}"});
        EXPECT_EQ(fetch(get(server.origin() + "/x")), expected);
        NetworkSession::shared().reset();
        NetworkSession::shared().setExtraTrustedCertificates({});
        server.stop();
        EXPECT_TRUE(server.requests().empty()) << expected;
    }
}

}  // namespace
