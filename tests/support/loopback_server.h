#pragma once

#include <QString>
#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/test_certificate.h"

namespace httplib {
class Server;
}

namespace testing_support {

/// How a scripted route answers.
struct ScriptedReply {
    int status = 200;
    std::string body{};
    std::string contentType = "application/json";
    std::vector<std::pair<std::string, std::string>> headers{};
    /// Waits this long before answering (cut short when the server stops).
    std::chrono::milliseconds delay{0};
    /// Sends the status line, the headers with the full length, half the body, then closes.
    bool dropMidBody = false;
};

/// One request as the server saw it. Header names are compared without regard to case.
struct RecordedRequest {
    std::string method;
    std::string path;
    std::string query;
    std::vector<std::pair<std::string, std::string>> headers{};
    std::string body{};

    /// The header's value, none when absent.
    std::optional<std::string> header(const std::string& name) const;
};

enum class Transport { http, https };

/// A storage server on 127.0.0.1 for tests: plain HTTP, or HTTPS with a given certificate. Each
/// route (method and path) answers as scripted; anything else gets 404. Every request is
/// recorded with its headers and body. Stop the client's connections (NetworkSession::reset)
/// before the server goes away: a kept-alive connection holds up stopping.
class LoopbackServer {
public:
    explicit LoopbackServer(Transport transport = Transport::http,
                            const TestCertificate* certificate = nullptr);
    ~LoopbackServer();
    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;

    /// "http://127.0.0.1:PORT" or "https://127.0.0.1:PORT".
    QString origin() const;
    int port() const { return port_; }

    /// Sets how `method` `path` answers from now on.
    void script(const std::string& method, const std::string& path, ScriptedReply reply);

    std::vector<RecordedRequest> requests() const;
    void clearRequests();

    /// Stops listening; idempotent.
    void stop();

private:
    void handle(const void* request, void* response);

    Transport transport_;
    std::unique_ptr<httplib::Server> server_;
    std::thread thread_;
    int port_ = 0;

    mutable std::mutex mutex_;
    std::condition_variable stopping_;
    bool stopped_ = false;
    std::map<std::pair<std::string, std::string>, ScriptedReply> routes_;
    std::vector<RecordedRequest> requests_;
};

/// A port on 127.0.0.1 that nothing listens on: connections to it are refused.
int closedLoopbackPort();

}  // namespace testing_support
