#pragma once

#include <QAbstractSocket>
#include <QList>
#include <QSslError>
#include <QString>

// The readable sentences that stand for failures of the transport, which callers show as they
// stand after their own words ("Could not reach the server. ...").
namespace platform {

/// A connection failure, naming the certificate problem when TLS verification failed.
QString describeSocketError(QAbstractSocket::SocketError error, const QList<QSslError>& sslErrors);

/// A request that got no complete answer within its time-out.
QString timedOutText();

/// A connection that ended before a complete answer arrived.
QString connectionLostText();

/// An answer that breaks HTTP's rules.
QString unreadableAnswerText();

/// A request cancelled before it completed.
QString cancelledText();

/// An address whose scheme is neither http nor https.
QString unsupportedProtocolText();

}  // namespace platform
