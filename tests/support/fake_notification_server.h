#pragma once

#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusError>
#include <QObject>
#include <QStringList>
#include <QVariantMap>
#include <vector>

namespace testing_support {

/// A desktop notification server (org.freedesktop.Notifications) on a bus connection of its own
/// that records every notice. Ids count up from 1; a notice that replaces an earlier one keeps
/// that one's id, as real servers do.
class FakeNotificationServer final : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

public:
    struct Notice {
        QString appName;
        uint replacesId = 0;
        QString appIcon;
        QString summary;
        QString body;
        QStringList actions;
        QVariantMap hints;
        int timeout = 0;
    };

    ~FakeNotificationServer() override { stop(); }

    /// Takes the server's name; false when that failed.
    bool start() {
        static int count = 0;
        connectionName_ = QStringLiteral("vaskel-fake-notifications-%1").arg(++count);
        QDBusConnection bus =
            QDBusConnection::connectToBus(QDBusConnection::SessionBus, connectionName_);
        return bus.isConnected() &&
               bus.registerObject(QStringLiteral("/org/freedesktop/Notifications"), this,
                                  QDBusConnection::ExportAllSlots) &&
               bus.registerService(QStringLiteral("org.freedesktop.Notifications"));
    }
    /// Leaves the bus.
    void stop() {
        if (!connectionName_.isEmpty()) QDBusConnection::disconnectFromBus(connectionName_);
        connectionName_.clear();
    }

    /// Answer Notify with this error instead of showing the notice.
    bool refuse = false;
    std::vector<Notice> notices;

public Q_SLOTS:
    uint Notify(const QString& appName, uint replacesId, const QString& appIcon,
                const QString& summary, const QString& body, const QStringList& actions,
                const QVariantMap& hints, int timeout) {
        if (refuse) {
            sendErrorReply(QDBusError::AccessDenied,
                           QStringLiteral("notifications are turned off"));
            return 0;
        }
        notices.push_back({appName, replacesId, appIcon, summary, body, actions, hints, timeout});
        return replacesId != 0 ? replacesId : ++lastId_;
    }
    QString GetServerInformation(QString& vendor, QString& version, QString& protocolVersion) {
        vendor = QStringLiteral("vaskel-tests");
        version = QStringLiteral("1");
        protocolVersion = QStringLiteral("1.2");
        return QStringLiteral("fake-notification-server");
    }

private:
    QString connectionName_;
    uint lastId_ = 0;
};

}  // namespace testing_support
