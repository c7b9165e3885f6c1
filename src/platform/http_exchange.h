#pragma once

#include <QList>
#include <QObject>
#include <QSslCertificate>
#include <QSslError>
#include <chrono>
#include <functional>

#include "platform/http_response_reader.h"
#include "platform/network_session.h"

class QTcpSocket;
class QTimer;

namespace platform {

/// One HTTP/1.1 request on a connection of its own, closed afterwards. The request goes out
/// once: whatever happens to the connection, it is never sent again, because a second copy of a
/// sign-in or sign-out is a second sign-in or sign-out. The time-out bounds the whole exchange,
/// from connecting to the last byte of the answer, however slowly the bytes come. An answer cut
/// short (the connection closed or reset before the end its framing announced) is a transport
/// failure, never an answer.
///
/// Lives on the thread that creates it and completes there, exactly once; it deletes itself
/// afterwards.
class HttpExchange final : public QObject {
public:
    struct Settings {
        std::chrono::milliseconds timeout;
        /// Certificate authorities trusted in addition to the system's.
        QList<QSslCertificate> extraCertificates;
        qint64 maxBodyBytes;
    };

    HttpExchange(const HttpRequest& request, const Settings& settings, QObject* parent = nullptr);

    /// Sends the request; `completion` gets the outcome on this object's thread, exactly once
    /// (already inside this call when connecting fails at once).
    void start(std::function<void(HttpResponse)> completion);

    /// Completes the request with "The request was cancelled." unless it completed already.
    void cancel();

private:
    void sendRequest();
    void readAnswer();
    void connectionEnded();
    void socketFailed(int error);
    void complete(HttpResponse response);
    void completeWithError(const QString& description);

    QUrl url_;
    Settings settings_;
    QByteArray requestBytes_;
    std::function<void(HttpResponse)> completion_;
    QTcpSocket* socket_ = nullptr;
    QTimer* deadline_ = nullptr;
    HttpResponseReader reader_;
    QList<QSslError> sslErrors_;
    bool completed_ = false;
};

}  // namespace platform
