#pragma once

#include <QList>
#include <QNetworkReply>
#include <QSslError>
#include <QString>

namespace platform {

/// Whether a reply's error is a failure of the transport (connection, TLS, proxy, protocol)
/// rather than an HTTP status that the server chose to send.
bool isTransportError(QNetworkReply::NetworkError error);

/// A readable sentence for a transport failure, naming the certificate problem when TLS
/// verification failed.
QString describeTransportError(QNetworkReply::NetworkError error,
                               const QList<QSslError>& sslErrors);

/// The description of a request that got no answer within its time-out.
QString timedOutText();

}  // namespace platform
