#include "platform/network_error_text.h"

namespace platform {
namespace {

QString certificateProblem(const QList<QSslError>& sslErrors) {
    // One certificate often fails several checks; name the most specific problem.
    const std::pair<QList<QSslError::SslError>, const char*> problems[] = {
        {{QSslError::CertificateExpired}, "The server's certificate has expired."},
        {{QSslError::CertificateNotYetValid}, "The server's certificate is not yet valid."},
        {{QSslError::HostNameMismatch}, "The server's certificate is for a different host."},
        {{QSslError::CertificateRevoked}, "The server's certificate has been revoked."},
        {{QSslError::SelfSignedCertificate, QSslError::SelfSignedCertificateInChain,
          QSslError::UnableToGetLocalIssuerCertificate, QSslError::UnableToGetIssuerCertificate,
          QSslError::UnableToVerifyFirstCertificate, QSslError::CertificateUntrusted},
         "The server's certificate is not trusted."},
    };
    for (const auto& [codes, text] : problems) {
        for (const QSslError& sslError : sslErrors) {
            if (codes.contains(sslError.error())) return QString::fromUtf8(text);
        }
    }
    if (!sslErrors.isEmpty()) return QStringLiteral("The server's certificate is not valid.");
    return {};
}

}  // namespace

QString timedOutText() {
    return QStringLiteral("The request timed out.");
}

QString connectionLostText() {
    return QStringLiteral("The network connection was lost.");
}

QString unreadableAnswerText() {
    return QStringLiteral("The server's answer could not be read.");
}

QString cancelledText() {
    return QStringLiteral("The request was cancelled.");
}

QString unsupportedProtocolText() {
    return QStringLiteral("The server address uses a protocol that is not supported.");
}

QString describeSocketError(QAbstractSocket::SocketError error, const QList<QSslError>& sslErrors) {
    using E = QAbstractSocket;
    switch (error) {
        case E::ConnectionRefusedError:
            return QStringLiteral("The server refused the connection.");
        case E::RemoteHostClosedError:
            return connectionLostText();
        case E::HostNotFoundError:
            return QStringLiteral("A server with that name could not be found.");
        case E::SocketTimeoutError:
            return timedOutText();
        case E::SslHandshakeFailedError: {
            const QString problem = certificateProblem(sslErrors);
            return problem.isEmpty()
                       ? QStringLiteral("A secure connection to the server could not be made.")
                       : problem;
        }
        case E::SslInternalError:
        case E::SslInvalidUserDataError:
            return QStringLiteral("A secure connection to the server could not be made.");
        case E::NetworkError:  // no route to the server's network
        case E::TemporaryError:
            return QStringLiteral("The network connection appears to be offline.");
        case E::ProxyAuthenticationRequiredError:
        case E::ProxyConnectionRefusedError:
        case E::ProxyConnectionClosedError:
        case E::ProxyConnectionTimeoutError:
        case E::ProxyNotFoundError:
        case E::ProxyProtocolError:
            return QStringLiteral("The proxy server could not be used.");
        default:
            return QStringLiteral("The connection to the server failed.");
    }
}

}  // namespace platform
