#include "support/loopback_server.h"

#include <arpa/inet.h>
#include <httplib.h>
#include <netinet/in.h>
#include <openssl/pem.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <stdexcept>

namespace testing_support {
namespace {

bool sameName(const std::string& a, const std::string& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        return std::tolower(static_cast<unsigned char>(x)) ==
               std::tolower(static_cast<unsigned char>(y));
    });
}

std::unique_ptr<httplib::Server> makeServer(Transport transport,
                                            const TestCertificate* certificate) {
    if (transport == Transport::http) return std::make_unique<httplib::Server>();
    if (!certificate) throw std::invalid_argument("an HTTPS loopback server needs a certificate");

    BIO* certBio = BIO_new_mem_buf(certificate->certificatePem.data(),
                                   int(certificate->certificatePem.size()));
    X509* cert = PEM_read_bio_X509(certBio, nullptr, nullptr, nullptr);
    BIO_free(certBio);
    BIO* keyBio =
        BIO_new_mem_buf(certificate->privateKeyPem.data(), int(certificate->privateKeyPem.size()));
    EVP_PKEY* key = PEM_read_bio_PrivateKey(keyBio, nullptr, nullptr, nullptr);
    BIO_free(keyBio);
    if (!cert || !key) throw std::runtime_error("unreadable test certificate");
    // The server's TLS context takes references of its own.
    auto server = std::make_unique<httplib::SSLServer>(cert, key);
    X509_free(cert);
    EVP_PKEY_free(key);
    if (!server->is_valid()) throw std::runtime_error("the HTTPS loopback server did not start");
    return server;
}

}  // namespace

std::optional<std::string> RecordedRequest::header(const std::string& name) const {
    for (const auto& [key, value] : headers) {
        if (sameName(key, name)) return value;
    }
    return std::nullopt;
}

LoopbackServer::LoopbackServer(Transport transport, const TestCertificate* certificate)
    : transport_(transport), server_(makeServer(transport, certificate)) {
    auto handler = [this](const httplib::Request& request, httplib::Response& response) {
        handle(&request, &response);
    };
    // Answer at once, as production servers do, instead of waiting for acknowledgements.
    server_->set_tcp_nodelay(true);
    server_->Get(".*", handler);
    server_->Post(".*", handler);
    server_->Put(".*", handler);
    server_->Delete(".*", handler);
    port_ = server_->bind_to_any_port("127.0.0.1");
    if (port_ <= 0) throw std::runtime_error("the loopback server could not bind a port");
    // The socket listens from here on; the thread only accepts.
    thread_ = std::thread([this] { server_->listen_after_bind(); });
}

LoopbackServer::~LoopbackServer() {
    stop();
}

QString LoopbackServer::origin() const {
    return QStringLiteral("%1://127.0.0.1:%2")
        .arg(transport_ == Transport::https ? QStringLiteral("https") : QStringLiteral("http"))
        .arg(port_);
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

void LoopbackServer::stop() {
    {
        std::lock_guard lock(mutex_);
        if (stopped_) return;
        stopped_ = true;
    }
    stopping_.notify_all();
    server_->stop();
    if (thread_.joinable()) thread_.join();
}

void LoopbackServer::handle(const void* requestPointer, void* responsePointer) {
    const auto& request = *static_cast<const httplib::Request*>(requestPointer);
    auto& response = *static_cast<httplib::Response*>(responsePointer);

    RecordedRequest recorded{request.method, request.path, {}, {}, request.body};
    for (const auto& [name, value] : request.headers) {
        // httplib adds the peer's address as pseudo headers; they were not sent.
        if (name == "REMOTE_ADDR" || name == "REMOTE_PORT" || name == "LOCAL_ADDR" ||
            name == "LOCAL_PORT") {
            continue;
        }
        recorded.headers.emplace_back(name, value);
    }
    for (const auto& [name, value] : request.params) {
        recorded.query += (recorded.query.empty() ? "" : "&") + name + "=" + value;
    }

    std::optional<ScriptedReply> reply;
    {
        std::unique_lock lock(mutex_);
        requests_.push_back(std::move(recorded));
        const auto route = routes_.find({request.method, request.path});
        if (route != routes_.end()) reply = route->second;
        if (reply && reply->delay.count() > 0) {
            stopping_.wait_for(lock, reply->delay, [this] { return stopped_; });
        }
    }
    if (!reply) {
        response.status = 404;
        response.set_content("{\"error\":\"not found\"}", "application/json");
        return;
    }

    response.status = reply->status;
    for (const auto& [name, value] : reply->headers) response.set_header(name, value);
    if (reply->dropMidBody) {
        const std::string body = reply->body;
        response.set_content_provider(body.size(), reply->contentType,
                                      [body](size_t, size_t, httplib::DataSink& sink) {
                                          sink.write(body.data(), body.size() / 2);
                                          return false;  // ends the connection before the rest
                                      });
        return;
    }
    response.set_content(reply->body, reply->contentType);
}

int closedLoopbackPort() {
    const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = 0;
    ::bind(socket, reinterpret_cast<sockaddr*>(&address), sizeof address);
    socklen_t length = sizeof address;
    ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length);
    ::close(socket);
    return ntohs(address.sin_port);
}

}  // namespace testing_support
