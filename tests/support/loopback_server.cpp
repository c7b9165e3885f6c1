#include "support/loopback_server.h"

#include <arpa/inet.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <strings.h>
#include <unistd.h>

#include <csignal>
#include <sstream>
#include <stdexcept>

namespace testing_support {
namespace {

using namespace std::chrono_literals;

void require(bool holds, const char* what) {
    if (!holds) throw std::runtime_error(std::string("loopback test server: ") + what);
}

// A socket on 127.0.0.1 with a port of the system's choosing; the port is written to `port`.
int boundLoopbackSocket(int& port) {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    require(socket >= 0 && ::bind(socket, reinterpret_cast<sockaddr*>(&address), length) == 0 &&
                ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length) == 0,
            "no loopback port");
    port = ntohs(address.sin_port);
    return socket;
}

struct Connection {
    int socket;
    SSL* tls;
    const std::atomic<bool>& stopped;

    long read(char* buffer, int size) {
        return tls ? SSL_read(tls, buffer, size) : ::read(socket, buffer, size_t(size));
    }
    bool write(const std::string& bytes) {
        return tls ? SSL_write(tls, bytes.data(), int(bytes.size())) == int(bytes.size())
                   : ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL) == long(bytes.size());
    }
    // Waits up to `wait` for bytes to read, in short steps so that stopping is noticed.
    bool readable(std::chrono::milliseconds wait) {
        for (auto left = wait; left > 0ms && !stopped; left -= 20ms) {
            pollfd entry{socket, POLLIN, 0};
            if ((tls && SSL_pending(tls) > 0) || ::poll(&entry, 1, 20) > 0) return true;
        }
        return false;
    }
    // The request's head and as much body as its Content-Length announces; none when the
    // client sent less.
    std::optional<RecordedRequest> readRequest() {
        std::string bytes;
        const auto readUntil = [&](auto done) {
            for (char buffer[4096]; !done();) {
                const long count = readable(2s) ? read(buffer, sizeof buffer) : 0;
                if (count <= 0) return false;
                bytes.append(buffer, size_t(count));
            }
            return true;
        };
        if (!readUntil([&] { return bytes.find("\r\n\r\n") != std::string::npos; })) return {};
        const size_t head = bytes.find("\r\n\r\n") + 4;
        RecordedRequest request;
        std::istringstream lines(bytes.substr(0, head - 2));
        std::string line;
        std::getline(lines, line);
        std::istringstream(line) >> request.method >> request.path;
        request.path = request.path.substr(0, request.path.find('?'));
        while (std::getline(lines, line))
            if (const size_t colon = line.find(':'); colon != std::string::npos)
                request.headers.emplace_back(line.substr(0, colon),
                                             line.substr(colon + 2, line.size() - colon - 3));
        const size_t end = head + std::stoul(request.header("Content-Length").value_or("0"));
        if (!readUntil([&] { return bytes.size() >= end; })) return {};
        request.body = bytes.substr(head, end - head);
        return request;
    }
};

}  // namespace

TestCertificate TestCertificate::generate(const CertificateOptions& options) {
    TestCertificate made{{X509_new(), X509_free}, {EVP_EC_gen("P-256"), EVP_PKEY_free}};
    X509* cert = made.certificate.get();
    X509_set_version(cert, 2);
    static long serial = std::chrono::system_clock::now().time_since_epoch().count() & 0xffffff;
    ASN1_INTEGER_set(X509_get_serialNumber(cert), ++serial);
    X509_gmtime_adj(X509_getm_notBefore(cert), long(options.validFrom.count()));
    X509_gmtime_adj(X509_getm_notAfter(cert), long(options.validUntil.count()));
    X509_set_pubkey(cert, made.key.get());
    X509_NAME* name = X509_get_subject_name(cert);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>("loopback test"), -1, -1, 0);
    X509_set_issuer_name(cert, name);
    std::string addresses;
    for (const std::string& ip : options.ipAddresses) addresses += ",IP:" + ip;
    for (const auto& [nid, value] : {std::pair<int, std::string>{NID_basic_constraints, "CA:TRUE"},
                                     {NID_subject_alt_name, addresses.substr(1)}}) {
        X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, nullptr, nid, value.c_str());
        require(extension && X509_add_ext(cert, extension, -1), "a certificate extension");
        X509_EXTENSION_free(extension);
    }
    require(X509_sign(cert, made.key.get(), EVP_sha256()) > 0, "signing a certificate");
    return made;
}

QSslCertificate TestCertificate::qtCertificate() const {
    unsigned char* der = nullptr;
    const int length = i2d_X509(certificate.get(), &der);
    const QSslCertificate result(QByteArray(reinterpret_cast<char*>(der), length), QSsl::Der);
    OPENSSL_free(der);
    return result;
}

std::optional<std::string> RecordedRequest::header(const std::string& name) const {
    for (const auto& [key, value] : headers)
        if (::strcasecmp(key.c_str(), name.c_str()) == 0) return value;
    return std::nullopt;
}

LoopbackServer::LoopbackServer(Transport transport, const TestCertificate* certificate)
    : tls_(nullptr, SSL_CTX_free) {
    if (transport == Transport::https) {
        require(certificate, "HTTPS needs a certificate");
        tls_.reset(SSL_CTX_new(TLS_server_method()));
        require(SSL_CTX_use_certificate(tls_.get(), certificate->certificate.get()) == 1 &&
                    SSL_CTX_use_PrivateKey(tls_.get(), certificate->key.get()) == 1,
                "the certificate was refused");
        std::signal(SIGPIPE, SIG_IGN);  // writing to a peer that left must not end the tests
    }
    listener_ = boundLoopbackSocket(port_);
    require(::listen(listener_, 64) == 0, "cannot listen");
    acceptor_ = std::thread([this] {
        while (!stopped_) {
            pollfd entry{listener_, POLLIN, 0};
            if (::poll(&entry, 1, 20) <= 0) continue;
            const int socket = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
            if (socket >= 0) connections_.emplace_back([this, socket] { serve(socket); });
        }
    });
}

void LoopbackServer::stop() {
    {
        std::lock_guard lock(mutex_);
        if (stopped_.exchange(true)) return;
    }
    stopping_.notify_all();
    acceptor_.join();
    for (std::thread& connection : connections_) connection.join();
    ::close(listener_);
}

void LoopbackServer::serve(int socket) {
    Connection connection{socket, tls_ ? SSL_new(tls_.get()) : nullptr, stopped_};
    const timeval limit{2, 0};  // bounds a handshake that the client leaves unfinished
    ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    if (connection.tls) SSL_set_fd(connection.tls, socket);
    const std::optional<RecordedRequest> request =
        !connection.tls || SSL_accept(connection.tls) == 1 ? connection.readRequest()
                                                           : std::nullopt;
    ScriptedReply reply{.status = 404, .body = R"({"error":"not found"})"};
    if (request) {
        std::lock_guard lock(mutex_);
        requests_.push_back(*request);
        const auto route = routes_.find({request->method, request->path});
        if (route != routes_.end()) reply = route->second;
    }
    std::vector<std::string> pieces = reply.raw.value_or(std::vector<std::string>{});
    if (!reply.raw) {
        std::string head = "HTTP/1.1 " + std::to_string(reply.status) +
                           " Scripted\r\nContent-Type: application/json\r\nContent-Length: " +
                           std::to_string(reply.body.size()) + "\r\n";
        for (const auto& [name, value] : reply.headers) head += name + ": " + value + "\r\n";
        pieces = {head + "Connection: close\r\n\r\n" + reply.body};
    }
    for (const std::string& piece : request ? pieces : std::vector<std::string>{}) {
        std::unique_lock lock(mutex_);
        if (stopping_.wait_for(lock, reply.delay, [this] { return stopped_.load(); })) break;
        lock.unlock();
        if (!connection.write(piece)) break;
    }
    if (reply.end == ScriptedReply::End::hold) {
        // Until the client gives up and closes, or the server stops.
        char byte;
        while (!stopped_ && (!connection.readable(100ms) || connection.read(&byte, 1) > 0)) {
        }
    } else if (reply.end == ScriptedReply::End::reset) {
        const linger abort{1, 0};  // closing now sends a reset instead of an orderly end
        ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
    } else if (connection.tls) {
        SSL_shutdown(connection.tls);
    }
    SSL_free(connection.tls);
    ::close(socket);
}

int closedLoopbackPort() {
    int port = 0;
    ::close(boundLoopbackSocket(port));
    return port;
}

}  // namespace testing_support
