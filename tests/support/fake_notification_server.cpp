#include "support/fake_notification_server.h"

#include <QDBusConnection>
#include <QDBusError>

namespace testing_support {

bool FakeNotificationServer::start() {
    static int count = 0;
    connectionName_ = QStringLiteral("vaskel-fake-notifications-%1").arg(++count);
    QDBusConnection bus =
        QDBusConnection::connectToBus(QDBusConnection::SessionBus, connectionName_);
    return bus.isConnected() &&
           bus.registerObject(
               QStringLiteral("/org/freedesktop/Notifications"), this,
               QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllSignals) &&
           bus.registerService(QStringLiteral("org.freedesktop.Notifications"));
}

void FakeNotificationServer::stop() {
    if (connectionName_.isEmpty()) return;
    QDBusConnection::disconnectFromBus(connectionName_);
    connectionName_.clear();
}

uint FakeNotificationServer::Notify(const QString& appName, uint replacesId, const QString& appIcon,
                                    const QString& summary, const QString& body,
                                    const QStringList& actions, const QVariantMap& hints,
                                    int timeout) {
    if (refuse) {
        sendErrorReply(QDBusError::AccessDenied, QStringLiteral("notifications are turned off"));
        return 0;
    }
    const uint id = replacesId != 0 ? replacesId : ++lastId_;
    notices.push_back({appName, replacesId, appIcon, summary, body, actions, hints, timeout, id});
    return id;
}

QStringList FakeNotificationServer::GetCapabilities() {
    return {QStringLiteral("body")};
}

QString FakeNotificationServer::GetServerInformation(QString& vendor, QString& version,
                                                     QString& specVersion) {
    vendor = QStringLiteral("vaskel-tests");
    version = QStringLiteral("1");
    specVersion = QStringLiteral("1.2");
    return QStringLiteral("fake-notification-server");
}

void FakeNotificationServer::CloseNotification(uint id) {
    Q_EMIT NotificationClosed(id, 3);
}

}  // namespace testing_support
