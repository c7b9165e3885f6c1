#pragma once

#include <QByteArray>
#include <QList>
#include <QSslCertificate>
#include <QString>
#include <QUrl>
#include <chrono>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

class QThread;

namespace platform {

/// One HTTP request as the server client builds it.
struct HttpRequest {
    QByteArray method;  // "GET" or "POST"
    QUrl url;
    std::vector<std::pair<QByteArray, QByteArray>> headers;
    std::optional<QByteArray> body;             // none: no body (a POST then sends an empty one)
    std::chrono::milliseconds timeout{60'000};  // longest the whole request may take
};

/// What came back. A transport failure has a readable description and nothing else (an answer
/// cut short is one); otherwise `isHttp` says whether an HTTP status line arrived, and `body`
/// holds the whole body, unless it was longer than the session accepts (`bodyRefused`; the body
/// is then empty).
struct HttpResponse {
    std::optional<QString> transportError;
    bool isHttp = false;
    int status = 0;
    QByteArray body;
    bool bodyRefused = false;
};

/// The program's one HTTP session: HTTP/1.1 on a thread of its own, usable from any thread. It
/// keeps no cookies, sends no credentials of its own, follows no redirects (a redirected request
/// would carry the account key or the password to another address) and trusts the system's
/// certificate authorities. Each request has a connection of its own and goes out exactly once,
/// never again when the connection breaks (a sign-in sent twice signs in twice); its time-out
/// bounds the whole request, however slowly the answer trickles in.
///
/// `send` returns at once; the completion runs exactly once, on the session's thread.
class NetworkSession {
public:
    /// The largest response body accepted; a longer one is refused, not buffered.
    static constexpr qint64 MAX_BODY_BYTES = 1024 * 1024;

    static NetworkSession& shared();

    void send(HttpRequest request, std::function<void(HttpResponse)> completion);

    /// Whether the calling thread is the session's thread.
    bool isSessionThread() const;

    /// Tests only: certificate authorities trusted in addition to the system's.
    void setExtraTrustedCertificates(const QList<QSslCertificate>& certificates);

    /// Tests only: no request waits longer than `cap`; none lifts the cap.
    void setTimeoutCap(std::optional<std::chrono::milliseconds> cap);

    /// Aborts every request in flight (each completes with a transport error) and closes its
    /// connection. Blocks until done. Tests call it before stopping a loopback server.
    void reset();

    /// Stops the session's thread; called when the application object goes away. Requests in
    /// flight or queued complete with a transport error; later ones complete at once, on the
    /// calling thread, with "The program is shutting down.".
    void shutdown();

    NetworkSession(const NetworkSession&) = delete;
    NetworkSession& operator=(const NetworkSession&) = delete;

private:
    NetworkSession();
    ~NetworkSession();
    class Worker;
    QThread* thread_;
    Worker* worker_;
};

}  // namespace platform
