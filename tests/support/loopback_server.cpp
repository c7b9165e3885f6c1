#include "support/loopback_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <sstream>
#include <stdexcept>

namespace testing_support {
namespace {

using namespace std::chrono_literals;

// A socket on 127.0.0.1 with a port of the system's choosing; the port is written to `port`.
int boundLoopbackSocket(int& port) {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (socket < 0 || ::bind(socket, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
        ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        throw std::runtime_error("no loopback port for a test server");
    }
    port = ntohs(address.sin_port);
    return socket;
}

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
        if (!extension || !X509_add_ext(cert, extension, -1))
            throw std::runtime_error("a test certificate extension: " + value);
        X509_EXTENSION_free(extension);
    }
    if (X509_sign(cert, made.key.get(), EVP_sha256()) <= 0)
        throw std::runtime_error("signing a test certificate");
    return made;
}

QSslCertificate TestCertificate::qtCertificate() const {
    std::unique_ptr<BIO, decltype(&BIO_free)> bio(BIO_new(BIO_s_mem()), BIO_free);
    PEM_write_bio_X509(bio.get(), certificate.get());
    char* pem = nullptr;
    const long length = BIO_get_mem_data(bio.get(), &pem);
    return QSslCertificate(QByteArray(pem, length), QSsl::Pem);
}

std::optional<std::string> RecordedRequest::header(const std::string& name) const {
    for (const auto& [key, value] : headers)
        if (::strcasecmp(key.c_str(), name.c_str()) == 0) return value;
    return std::nullopt;
}

struct LoopbackServer::Connection {
    int socket;
    SSL* tls = nullptr;
    long read(char* buffer, int size) {
        return tls ? SSL_read(tls, buffer, size) : ::read(socket, buffer, size_t(size));
    }
    bool write(const std::string& bytes) {
        return tls ? SSL_write(tls, bytes.data(), int(bytes.size())) == int(bytes.size())
                   : ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL) == long(bytes.size());
    }
};

LoopbackServer::LoopbackServer(Transport transport, const TestCertificate* certificate)
    : tls_(nullptr, SSL_CTX_free) {
    if (transport == Transport::https) {
        if (!certificate) throw std::invalid_argument("an HTTPS test server needs a certificate");
        tls_.reset(SSL_CTX_new(TLS_server_method()));
        if (SSL_CTX_use_certificate(tls_.get(), certificate->certificate.get()) != 1 ||
            SSL_CTX_use_PrivateKey(tls_.get(), certificate->key.get()) != 1)
            throw std::runtime_error("the HTTPS test server refused its certificate");
        std::signal(SIGPIPE, SIG_IGN);  // writing to a peer that left must not end the tests
    }
    listener_ = boundLoopbackSocket(port_);
    if (::listen(listener_, 64) != 0) throw std::runtime_error("a test server could not listen");
    acceptor_ = std::thread([this] {
        while (!stopped()) {
            pollfd entry{listener_, POLLIN, 0};
            if (::poll(&entry, 1, 20) <= 0) continue;
            const int socket = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
            if (socket >= 0) connections_.emplace_back([this, socket] { serve(socket); });
        }
    });
}

LoopbackServer::~LoopbackServer() {
    stop();
}

QString LoopbackServer::origin() const {
    return QStringLiteral("%1://127.0.0.1:%2").arg(tls_ ? "https" : "http").arg(port_);
}

void LoopbackServer::script(const std::string& method, const std::string& path,
                            ScriptedReply reply) {
    std::lock_guard lock(mutex_);
    routes_[{method, path}] = std::move(reply);
}

std::vector<RecordedRequest> LoopbackServer::requests() const {
    std::lock_guard lock(mutex_);
    return requests_;
}

void LoopbackServer::clearRequests() {
    std::lock_guard lock(mutex_);
    requests_.clear();
}

bool LoopbackServer::stopped() {
    std::lock_guard lock(mutex_);
    return stopped_;
}

void LoopbackServer::stop() {
    {
        std::lock_guard lock(mutex_);
        if (stopped_) return;
        stopped_ = true;
    }
    stopping_.notify_all();
    acceptor_.join();
    for (std::thread& connection : connections_) connection.join();
    ::close(listener_);
}

// Waits up to `wait` for bytes to read, in short steps so that stopping is noticed.
bool LoopbackServer::readable(Connection& connection, std::chrono::milliseconds wait) {
    for (auto left = wait; left > 0ms && !stopped(); left -= 20ms) {
        if (connection.tls && SSL_pending(connection.tls) > 0) return true;
        pollfd entry{connection.socket, POLLIN, 0};
        if (::poll(&entry, 1, 20) > 0) return true;
    }
    return false;
}

// The request's head and as much body as its Content-Length announces; none when the client
// sent less.
std::optional<RecordedRequest> LoopbackServer::readRequest(Connection& connection) {
    std::string bytes;
    const auto readMore = [&] {
        char buffer[4096];
        const long count = readable(connection, 2s) ? connection.read(buffer, sizeof buffer) : 0;
        if (count > 0) bytes.append(buffer, size_t(count));
        return count > 0;
    };
    size_t head;
    while ((head = bytes.find("\r\n\r\n")) == std::string::npos)
        if (!readMore()) return std::nullopt;
    RecordedRequest request;
    std::istringstream lines(bytes.substr(0, head + 2));
    std::string line;
    std::getline(lines, line);
    std::istringstream(line) >> request.method >> request.path;
    request.path = request.path.substr(0, request.path.find('?'));
    while (std::getline(lines, line)) {
        const size_t colon = line.find(':'), value = line.find_first_not_of(' ', colon + 1);
        if (colon != std::string::npos)
            request.headers.emplace_back(line.substr(0, colon),
                                         line.substr(value, line.size() - value - 1));
    }
    const size_t end = head + 4 + std::stoul(request.header("Content-Length").value_or("0"));
    while (bytes.size() < end)
        if (!readMore()) return std::nullopt;
    request.body = bytes.substr(head + 4, end - head - 4);
    return request;
}

void LoopbackServer::serve(int socket) {
    Connection connection{socket};
    const timeval limit{2, 0};  // bounds a handshake that the client leaves unfinished
    ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    if (tls_) {
        connection.tls = SSL_new(tls_.get());
        SSL_set_fd(connection.tls, socket);
    }
    const std::optional<RecordedRequest> request =
        !connection.tls || SSL_accept(connection.tls) == 1 ? readRequest(connection) : std::nullopt;
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
        if (stopping_.wait_for(lock, reply.delay, [this] { return stopped_; })) break;
        lock.unlock();
        if (!connection.write(piece)) break;
    }
    if (reply.end == ScriptedReply::End::hold) {
        // Until the client gives up and closes, or the server stops.
        char byte;
        while (!stopped() && (!readable(connection, 100ms) || connection.read(&byte, 1) > 0)) {
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
