#pragma once

#include <QDBusContext>
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
        uint id = 0;  // the id the server answered with
    };

    FakeNotificationServer() = default;
    ~FakeNotificationServer() override { stop(); }

    /// Takes the server's name; false when that failed.
    bool start();
    /// Leaves the bus.
    void stop();

    /// Answer Notify with this error instead of showing the notice.
    bool refuse = false;
    std::vector<Notice> notices;

public Q_SLOTS:
    uint Notify(const QString& appName, uint replacesId, const QString& appIcon,
                const QString& summary, const QString& body, const QStringList& actions,
                const QVariantMap& hints, int timeout);
    QStringList GetCapabilities();
    QString GetServerInformation(QString& vendor, QString& version, QString& specVersion);
    void CloseNotification(uint id);

Q_SIGNALS:
    void NotificationClosed(uint id, uint reason);
    void ActionInvoked(uint id, const QString& actionKey);

private:
    QString connectionName_;
    uint lastId_ = 0;
};

}  // namespace testing_support
