#pragma once

#include <openssl/ssl.h>

#include <QSslCertificate>
#include <QString>
#include <atomic>
#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace testing_support {

/// What a generated certificate is for and when it is valid.
struct CertificateOptions {
    std::vector<std::string> ipAddresses{"127.0.0.1"};
    std::chrono::seconds validFrom{-3600};  // relative to now
    std::chrono::seconds validUntil{24 * 3600};
};

/// A self-signed certificate and its key, made at test time, so that no key material lives in
/// the repository.
struct TestCertificate {
    std::shared_ptr<X509> certificate;
    std::shared_ptr<EVP_PKEY> key;

    static TestCertificate generate(const CertificateOptions& options = {});
    /// The certificate as Qt's TLS configuration takes it.
    QSslCertificate qtCertificate() const;
};

/// How a route answers: a well-formed answer with a JSON content type, or, with `raw`, exactly
/// those bytes in pieces, for the answers a real server never gives (not HTTP, cut short,
/// trickling). Before each piece (a formatted answer is one) it waits `delay`, cut short when
/// the server stops; then it ends the connection as `end` says.
struct ScriptedReply {
    enum class End { close, reset, hold };
    int status = 200;
    std::string body{};
    std::vector<std::pair<std::string, std::string>> headers{};
    std::chrono::milliseconds delay{0};
    std::optional<std::vector<std::string>> raw{};
    End end = End::close;

    /// Exactly `pieces`, `pause` before each, then `end`.
    static ScriptedReply bytes(std::vector<std::string> pieces, End end = End::close,
                               std::chrono::milliseconds pause = {}) {
        return {.delay = pause, .raw = std::move(pieces), .end = end};
    }
};

/// One request as the server read it. Header names are compared without regard to case.
struct RecordedRequest {
    std::string method, path;
    std::vector<std::pair<std::string, std::string>> headers{};
    std::string body{};

    /// The header's value, none when absent.
    std::optional<std::string> header(const std::string& name) const;
};

enum class Transport { http, https };

/// A storage server on 127.0.0.1 for tests: plain HTTP, or HTTPS with a given certificate. It
/// reads one request per connection, records it, answers it as scripted for its method and path
/// (404 for anything else) and ends the connection. Connections are served in parallel.
class LoopbackServer {
public:
    explicit LoopbackServer(Transport transport = Transport::http,
                            const TestCertificate* certificate = nullptr);
    ~LoopbackServer() { stop(); }
    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;

    /// "http://127.0.0.1:PORT" or "https://127.0.0.1:PORT".
    QString origin() const {
        return QStringLiteral("%1://127.0.0.1:%2").arg(tls_ ? "https" : "http").arg(port_);
    }

    /// Sets how `method` `path` answers from now on.
    void script(const std::string& method, const std::string& path, ScriptedReply reply) {
        std::lock_guard lock(mutex_);
        routes_[{method, path}] = std::move(reply);
    }

    std::vector<RecordedRequest> requests() const {
        std::lock_guard lock(mutex_);
        return requests_;
    }
    void clearRequests() {
        std::lock_guard lock(mutex_);
        requests_.clear();
    }

    /// Stops listening and ends every connection; idempotent.
    void stop();

private:
    void serve(int socket);

    std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> tls_;
    int listener_ = -1, port_ = 0;
    std::thread acceptor_;
    std::vector<std::thread> connections_;
    mutable std::mutex mutex_;
    std::condition_variable stopping_;
    std::atomic<bool> stopped_ = false;  // set under `mutex_`
    std::map<std::pair<std::string, std::string>, ScriptedReply> routes_;
    std::vector<RecordedRequest> requests_;
};

/// A port on 127.0.0.1 that nothing listens on: connections to it are refused.
int closedLoopbackPort();

}  // namespace testing_support
