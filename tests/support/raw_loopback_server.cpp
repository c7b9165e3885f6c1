#include "support/raw_loopback_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

namespace testing_support {
namespace {

using namespace std::chrono_literals;

// Waits up to `wait` for `fd` to become readable, in short steps so that stopping is noticed.
bool readable(int fd, std::chrono::milliseconds wait, const std::atomic<bool>& stopping) {
    for (auto left = wait; left > 0ms && !stopping; left -= 20ms) {
        pollfd entry{fd, POLLIN, 0};
        if (::poll(&entry, 1, 20) > 0) return true;
    }
    return false;
}

// The request's head and as much of its body as Content-Length announces.
std::string readRequest(int fd, const std::atomic<bool>& stopping) {
    std::string request;
    char buffer[4096];
    for (;;) {
        const size_t head = request.find("\r\n\r\n");
        if (head != std::string::npos) {
            size_t length = 0;
            const size_t field = request.find("Content-Length: ");
            if (field != std::string::npos && field < head)
                length = std::strtoul(request.c_str() + field + 16, nullptr, 10);
            if (request.size() >= head + 4 + length) return request;
        }
        if (!readable(fd, 2s, stopping)) return request;
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n <= 0) return request;
        request.append(buffer, size_t(n));
    }
}

}  // namespace

RawLoopbackServer::RawLoopbackServer(RawAnswer answer) : answer_(std::move(answer)) {
    listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (listener_ < 0 || ::bind(listener_, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
        ::listen(listener_, 16) != 0 ||
        ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        throw std::runtime_error("the raw loopback server could not listen");
    }
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { serve(); });
}

RawLoopbackServer::~RawLoopbackServer() {
    stopping_ = true;
    thread_.join();
    ::close(listener_);
}

QString RawLoopbackServer::origin() const {
    return QStringLiteral("http://127.0.0.1:%1").arg(port_);
}

std::vector<std::string> RawLoopbackServer::requests() const {
    std::lock_guard lock(mutex_);
    return requests_;
}

void RawLoopbackServer::serve() {
    while (!stopping_) {
        if (!readable(listener_, 100ms, stopping_)) continue;
        const int connection = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (connection < 0) continue;
        answer(connection);
    }
}

void RawLoopbackServer::answer(int connection) {
    {
        std::string request = readRequest(connection, stopping_);
        std::lock_guard lock(mutex_);
        requests_.push_back(std::move(request));
    }
    for (const std::string& piece : answer_.pieces) {
        for (auto left = answer_.pause; left > 0ms && !stopping_; left -= 10ms)
            std::this_thread::sleep_for(std::min(left, std::chrono::milliseconds(10)));
        if (stopping_ || ::send(connection, piece.data(), piece.size(), MSG_NOSIGNAL) < 0) break;
    }
    if (answer_.end == RawAnswer::End::hold) {
        // Until the client gives up and closes, or the server stops.
        char byte;
        while (!stopping_) {
            if (readable(connection, 100ms, stopping_) && ::read(connection, &byte, 1) <= 0) break;
        }
    } else if (answer_.end == RawAnswer::End::reset) {
        const linger abort{1, 0};  // closing now sends a reset instead of an orderly end
        ::setsockopt(connection, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
    }
    ::close(connection);
}

}  // namespace testing_support
