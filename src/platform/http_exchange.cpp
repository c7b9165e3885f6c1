#include "platform/http_exchange.h"

#include <QSslConfiguration>
#include <QSslSocket>
#include <QTcpSocket>
#include <QTimer>

#include "platform/network_error_text.h"

namespace platform {
namespace {

QByteArray withoutLineBreaks(QByteArray value) {
    // A line break inside a value would end the header and start another one.
    return value.replace('\r', QByteArray())
        .replace('\n', QByteArray())
        .replace('\0', QByteArray());
}

/// The request as it goes on the wire.
QByteArray serialise(const HttpRequest& request) {
    const QUrl& url = request.url;
    QByteArray target = url.path(QUrl::FullyEncoded).toUtf8();
    if (target.isEmpty()) target = "/";
    if (url.hasQuery()) target += '?' + url.query(QUrl::FullyEncoded).toUtf8();

    QByteArray host = url.host(QUrl::FullyEncoded).toUtf8();
    if (host.contains(':')) host = '[' + host + ']';
    const int defaultPort = url.scheme().toLower() == QLatin1String("https") ? 443 : 80;
    if (url.port(defaultPort) != defaultPort) host += ':' + QByteArray::number(url.port());

    QByteArray bytes = request.method + ' ' + target + " HTTP/1.1\r\nHost: " + host + "\r\n";
    for (const auto& [name, value] : request.headers) {
        bytes += withoutLineBreaks(name) + ": " + withoutLineBreaks(value) + "\r\n";
    }
    // A POST without a body still says so; servers may refuse one whose length they cannot tell.
    if (request.body || request.method != "GET") {
        bytes +=
            "Content-Length: " + QByteArray::number(request.body.value_or(QByteArray()).size()) +
            "\r\n";
    }
    bytes += "Connection: close\r\n\r\n";
    if (request.body) bytes += *request.body;
    return bytes;
}

}  // namespace

HttpExchange::HttpExchange(const HttpRequest& request, const Settings& settings, QObject* parent)
    : QObject(parent),
      url_(request.url),
      settings_(settings),
      requestBytes_(serialise(request)),
      reader_(settings.maxBodyBytes) {}

void HttpExchange::start(std::function<void(HttpResponse)> completion) {
    completion_ = std::move(completion);
    const QString scheme = url_.scheme().toLower();
    const bool secure = scheme == QLatin1String("https");
    if (!secure && scheme != QLatin1String("http")) {
        completeWithError(unsupportedProtocolText());
        return;
    }

    deadline_ = new QTimer(this);
    deadline_->setSingleShot(true);
    connect(deadline_, &QTimer::timeout, this, [this] { completeWithError(timedOutText()); });
    deadline_->start(settings_.timeout);

    if (secure) {
        auto* socket = new QSslSocket(this);
        socket_ = socket;
        QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
        tls.setPeerVerifyMode(QSslSocket::VerifyPeer);
        if (!settings_.extraCertificates.isEmpty())
            tls.addCaCertificates(settings_.extraCertificates);
        socket->setSslConfiguration(tls);
        connect(socket, &QSslSocket::sslErrors, this,
                [this](const QList<QSslError>& errors) { sslErrors_ += errors; });
        connect(socket, &QSslSocket::encrypted, this, &HttpExchange::sendRequest);
    } else {
        socket_ = new QTcpSocket(this);
        connect(socket_, &QTcpSocket::connected, this, &HttpExchange::sendRequest);
    }
    connect(socket_, &QTcpSocket::readyRead, this, &HttpExchange::readAnswer);
    connect(socket_, &QTcpSocket::disconnected, this, &HttpExchange::connectionEnded);
    connect(socket_, &QTcpSocket::errorOccurred, this,
            [this](QAbstractSocket::SocketError error) { socketFailed(int(error)); });

    const QString host = url_.host(QUrl::FullyEncoded);
    const quint16 port = quint16(url_.port(secure ? 443 : 80));
    if (secure) {
        static_cast<QSslSocket*>(socket_)->connectToHostEncrypted(host, port);
    } else {
        socket_->connectToHost(host, port);
    }
}

void HttpExchange::cancel() {
    completeWithError(cancelledText());
}

void HttpExchange::sendRequest() {
    if (completed_) return;
    socket_->write(requestBytes_);
}

void HttpExchange::readAnswer() {
    if (completed_) return;
    switch (reader_.feed(socket_->readAll())) {
        case HttpResponseReader::State::reading:
            return;
        case HttpResponseReader::State::complete: {
            HttpResponse response;
            response.isHttp = true;
            response.status = reader_.status();
            response.bodyRefused = reader_.bodyRefused();
            response.body = reader_.body();
            complete(std::move(response));
            return;
        }
        case HttpResponseReader::State::notHttp:
            // An answer, though not an HTTP one: the caller tells it apart by `isHttp`.
            complete(HttpResponse{});
            return;
        case HttpResponseReader::State::broken:
            completeWithError(unreadableAnswerText());
            return;
    }
}

void HttpExchange::connectionEnded() {
    if (completed_) return;
    readAnswer();  // what arrived just before the end
    if (completed_) return;
    if (reader_.end() == HttpResponseReader::State::complete) {
        readAnswer();
        return;
    }
    // Nothing, or only part of an answer, arrived: the server was not reached in any useful way.
    completeWithError(connectionLostText());
}

void HttpExchange::socketFailed(int error) {
    if (completed_) return;
    const auto socketError = QAbstractSocket::SocketError(error);
    // The peer closing (or resetting) the connection is its end, which `disconnected` reports
    // too; whether that is a failure depends on what arrived before it.
    if (socketError == QAbstractSocket::RemoteHostClosedError) {
        connectionEnded();
        return;
    }
    completeWithError(describeSocketError(socketError, sslErrors_));
}

void HttpExchange::completeWithError(const QString& description) {
    HttpResponse response;
    response.transportError = description;
    complete(std::move(response));
}

void HttpExchange::complete(HttpResponse response) {
    if (completed_) return;
    completed_ = true;
    if (deadline_) deadline_->stop();
    if (socket_) {
        socket_->disconnect(this);
        socket_->abort();
    }
    auto completion = std::move(completion_);
    deleteLater();
    completion(std::move(response));
}

}  // namespace platform
