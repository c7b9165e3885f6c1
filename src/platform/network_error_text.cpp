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

bool isTransportError(QNetworkReply::NetworkError error) {
    // Qt numbers its errors by group: 1-99 network layer, 101-199 proxy, 201-299 content
    // (HTTP 4xx), 301-399 protocol, 401-499 server (HTTP 5xx).
    const int code = int(error);
    if (code == 0) return false;
    if (code >= 201 && code <= 299) return false;
    if (code >= 401 && code <= 499) return false;
    return true;
}

QString timedOutText() {
    return QStringLiteral("The request timed out.");
}

QString describeTransportError(QNetworkReply::NetworkError error,
                               const QList<QSslError>& sslErrors) {
    using E = QNetworkReply;
    switch (error) {
        case E::ConnectionRefusedError:
            return QStringLiteral("The server refused the connection.");
        case E::RemoteHostClosedError:
            return QStringLiteral("The network connection was lost.");
        case E::HostNotFoundError:
            return QStringLiteral("A server with that name could not be found.");
        case E::TimeoutError:
            return timedOutText();
        case E::OperationCanceledError:
            return QStringLiteral("The request was cancelled.");
        case E::SslHandshakeFailedError: {
            const QString problem = certificateProblem(sslErrors);
            return problem.isEmpty()
                       ? QStringLiteral("A secure connection to the server could not be made.")
                       : problem;
        }
        case E::TemporaryNetworkFailureError:
        case E::NetworkSessionFailedError:
        case E::BackgroundRequestNotAllowedError:
            return QStringLiteral("The network connection appears to be offline.");
        case E::TooManyRedirectsError:
        case E::InsecureRedirectError:
            return QStringLiteral("The server redirected the request elsewhere.");
        case E::ProxyConnectionRefusedError:
        case E::ProxyConnectionClosedError:
        case E::ProxyNotFoundError:
        case E::ProxyTimeoutError:
        case E::ProxyAuthenticationRequiredError:
        case E::UnknownProxyError:
            return QStringLiteral("The proxy server could not be used.");
        case E::ProtocolUnknownError:
            return QStringLiteral("The server address uses a protocol that is not supported.");
        case E::ProtocolInvalidOperationError:
        case E::ProtocolFailure:
            return QStringLiteral("The server's answer could not be read.");
        default:
            return QStringLiteral("The connection to the server failed.");
    }
}

}  // namespace platform
