#pragma once

#include <QString>
#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace testing_support {

/// How a raw server answers every connection: the pieces in order, a pause before each, then the
/// end of the connection.
struct RawAnswer {
    std::vector<std::string> pieces{};
    std::chrono::milliseconds pause{0};
    enum class End { close, reset, hold } end = End::close;
};

/// A plain TCP server on 127.0.0.1 that answers each connection byte for byte as scripted, for
/// the answers a real HTTP server never gives: none at all, a reset, something that is not
/// HTTP, a body cut short, a body that trickles. Connections are served one after the other;
/// each one's request (head and announced body) is recorded.
class RawLoopbackServer {
public:
    explicit RawLoopbackServer(RawAnswer answer);
    ~RawLoopbackServer();
    RawLoopbackServer(const RawLoopbackServer&) = delete;
    RawLoopbackServer& operator=(const RawLoopbackServer&) = delete;

    /// "http://127.0.0.1:PORT".
    QString origin() const;

    /// What each connection sent, in order of connection.
    std::vector<std::string> requests() const;

private:
    void serve();
    void answer(int connection);

    RawAnswer answer_;
    int listener_ = -1;
    int port_ = 0;
    std::atomic<bool> stopping_{false};
    mutable std::mutex mutex_;
    std::vector<std::string> requests_;
    std::thread thread_;
};

}  // namespace testing_support
