#pragma once

#include <QtDBus/QtDBus>
#include <vector>

namespace testing_support {

/// An object of the test's own on a bus connection of its own, under a well-known name. Start
/// and stop it like a desktop service that starts, crashes or restarts. A service that answers
/// with errors lists QDBusContext among its own bases, where moc sees it.
class FakeBusService : public QObject {
public:
    ~FakeBusService() override { stop(); }
    /// Takes `service`; false when that failed.
    bool start(const QString& path, const QString& service) {
        static int count = 0;
        connectionName_ = QStringLiteral("vaskel-fake-service-%1").arg(++count);
        QDBusConnection bus =
            QDBusConnection::connectToBus(QDBusConnection::SessionBus, connectionName_);
        return bus.isConnected() &&
               bus.registerObject(path, this, QDBusConnection::ExportAllSlots) &&
               bus.registerService(service);
    }
    /// Leaves the bus at once.
    void stop() {
        if (!connectionName_.isEmpty()) QDBusConnection::disconnectFromBus(connectionName_);
        connectionName_.clear();
    }

protected:
    QDBusConnection bus() const { return QDBusConnection(connectionName_); }

private:
    QString connectionName_;
};

/// A desktop notification server (org.freedesktop.Notifications) that records every notice.
/// Ids count up from 1; a notice that replaces an earlier one keeps that one's id, as real
/// servers do.
class FakeNotificationServer final : public FakeBusService, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

public:
    struct Notice {
        QString appName;
        uint replacesId;
        QString appIcon, summary, body;
        QStringList actions;
        QVariantMap hints;
        int timeout;
    };

    bool start() {
        return FakeBusService::start("/org/freedesktop/Notifications",
                                     "org.freedesktop.Notifications");
    }

    /// Answer Notify with this error instead of showing the notice.
    bool refuse = false;
    std::vector<Notice> notices;

public Q_SLOTS:
    uint Notify(const QString& appName, uint replacesId, const QString& appIcon,
                const QString& summary, const QString& body, const QStringList& actions,
                const QVariantMap& hints, int timeout) {
        if (refuse) {
            sendErrorReply(QDBusError::AccessDenied, "notifications are turned off");
            return 0;
        }
        notices.push_back({appName, replacesId, appIcon, summary, body, actions, hints, timeout});
        return replacesId != 0 ? replacesId : ++lastId_;
    }
    QString GetServerInformation(QString& vendor, QString& version, QString& protocolVersion) {
        vendor = version = protocolVersion = "1.2";
        return "vaskel-tests";
    }

private:
    uint lastId_ = 0;
};

}  // namespace testing_support
