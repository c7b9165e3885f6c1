#pragma once

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QObject>
#include <QStringList>
#include <QVariantMap>
#include <optional>

#include "support/event_loop_wait.h"

namespace testing_support {

/// A tray host as the item sees it, on a bus connection of its own: it runs the
/// org.kde.StatusNotifierWatcher, takes (or refuses) registrations, reads the registered item's
/// properties and D-Bus menu, sends menu events and records every signal the item sends. All
/// calls to the item are asynchronous and wait in the event loop, so the item answers from the
/// same thread. Start and stop it like a panel that starts, crashes or restarts.
class FakePanel final : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")

public:
    /// One entry of the item's menu as the panel reads it.
    struct MenuEntry {
        int id = 0;
        QVariantMap properties;
        QList<MenuEntry> children;
        QString label() const { return properties.value(QStringLiteral("label")).toString(); }
    };

    ~FakePanel() override { stop(); }

    /// Takes the watcher's name; false when that failed.
    bool start() {
        static int count = 0;
        connectionName_ = QStringLiteral("vaskel-fake-panel-%1").arg(++count);
        QDBusConnection bus =
            QDBusConnection::connectToBus(QDBusConnection::SessionBus, connectionName_);
        return bus.isConnected() &&
               bus.registerObject(QStringLiteral("/StatusNotifierWatcher"), this,
                                  QDBusConnection::ExportAllSlots) &&
               bus.registerService(QStringLiteral("org.kde.StatusNotifierWatcher"));
    }
    /// Leaves the bus at once, as a crashing panel does.
    void stop() {
        if (!connectionName_.isEmpty()) QDBusConnection::disconnectFromBus(connectionName_);
        connectionName_.clear();
    }

    /// Refuse this many registrations before taking one.
    int refusals = 0;
    /// Registration calls received, refused ones included.
    int attempts = 0;
    /// The accepted items' service names, in order.
    QStringList registrations;
    /// Names of the signals the item sent (item and menu), in order of arrival.
    QStringList signalNames;

    bool waitForRegistrations(int count, int timeoutMs = 5000) {
        return runEventsUntil([&] { return registrations.size() >= count; }, timeoutMs);
    }

    /// A property of the last registered item; invalid when the call failed. Structures come
    /// as QDBusArgument.
    QVariant itemProperty(const QString& name) {
        if (registrations.isEmpty()) return {};
        QDBusMessage get = QDBusMessage::createMethodCall(
            registrations.last(), ITEM_PATH, QStringLiteral("org.freedesktop.DBus.Properties"),
            QStringLiteral("Get"));
        get << ITEM_INTERFACE << name;
        const QDBusMessage reply = callAndWait(get);
        if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) return {};
        return qvariant_cast<QDBusVariant>(reply.arguments().first()).variant();
    }
    /// Calls `method` of the item's menu with `arguments`; the reply (or error) message.
    QDBusMessage callMenu(const QString& method, const QVariantList& arguments) {
        const QString path =
            qvariant_cast<QDBusObjectPath>(itemProperty(QStringLiteral("Menu"))).path();
        QDBusMessage call = QDBusMessage::createMethodCall(
            registrations.value(registrations.size() - 1), path, MENU_INTERFACE, method);
        call.setArguments(arguments);
        return callAndWait(call);
    }
    /// The whole menu layout and its revision; none when the call failed.
    std::optional<MenuEntry> menuLayout(uint* revision = nullptr) {
        const QDBusMessage reply = callMenu(QStringLiteral("GetLayout"), {0, -1, QStringList()});
        if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().size() != 2) return {};
        if (revision) *revision = reply.arguments()[0].toUInt();
        return readEntry(qvariant_cast<QDBusArgument>(reply.arguments()[1]));
    }

    bool waitForSignal(const QString& name, int timeoutMs = 5000) {
        return runEventsUntil([&] { return signalNames.contains(name); }, timeoutMs);
    }

public Q_SLOTS:
    void RegisterStatusNotifierItem(const QString& service) {
        ++attempts;
        if (refusals > 0) {
            --refusals;
            sendErrorReply(QDBusError::AccessDenied, QStringLiteral("the test refuses this item"));
            return;
        }
        // Some items register an object path; the service is then the caller.
        const QString name = service.startsWith(QLatin1Char('/')) ? message().service() : service;
        // Every signal of the item and of its menu, whatever its name.
        connection().connect(name, ITEM_PATH, ITEM_INTERFACE, QString(), this,
                             SLOT(recordSignal(QDBusMessage)));
        connection().connect(name, QString(), MENU_INTERFACE, QString(), this,
                             SLOT(recordSignal(QDBusMessage)));
        registrations << name;
    }

private Q_SLOTS:
    void recordSignal(const QDBusMessage& message) { signalNames << message.member(); }

private:
    static inline const QString ITEM_PATH = QStringLiteral("/StatusNotifierItem");
    static inline const QString ITEM_INTERFACE = QStringLiteral("org.kde.StatusNotifierItem");
    static inline const QString MENU_INTERFACE = QStringLiteral("com.canonical.dbusmenu");

    static MenuEntry readEntry(const QDBusArgument& argument) {
        MenuEntry entry;
        argument.beginStructure();
        argument >> entry.id >> entry.properties;
        argument.beginArray();
        while (!argument.atEnd()) {
            QDBusVariant child;
            argument >> child;
            entry.children.append(readEntry(qvariant_cast<QDBusArgument>(child.variant())));
        }
        argument.endArray();
        argument.endStructure();
        return entry;
    }
    QDBusMessage callAndWait(const QDBusMessage& call) {
        QDBusPendingCall pending = connection().asyncCall(call, 5000);
        runEventsUntil([&] { return pending.isFinished(); }, 6000);
        return QDBusPendingReply<>(pending).reply();
    }
    QDBusConnection connection() const { return QDBusConnection(connectionName_); }

    QString connectionName_;
};

/// The pixmaps of an IconPixmap property as (width, height, ARGB bytes in network order).
struct PanelPixmap {
    int width = 0;
    int height = 0;
    QByteArray bytes;
};
inline QList<PanelPixmap> panelPixmaps(const QDBusArgument& argument) {
    QList<PanelPixmap> pixmaps;
    argument.beginArray();
    while (!argument.atEnd()) {
        PanelPixmap pixmap;
        argument.beginStructure();
        argument >> pixmap.width >> pixmap.height >> pixmap.bytes;
        argument.endStructure();
        pixmaps.append(pixmap);
    }
    argument.endArray();
    return pixmaps;
}
inline QList<PanelPixmap> panelPixmaps(const QVariant& value) {
    return panelPixmaps(qvariant_cast<QDBusArgument>(value));
}

/// The ToolTip property (icon name, pixmaps, title, description): its title and description.
inline std::pair<QString, QString> panelToolTip(const QVariant& value) {
    QString iconName, title, description;
    const auto argument = qvariant_cast<QDBusArgument>(value);
    argument.beginStructure();
    argument >> iconName;
    panelPixmaps(argument);
    argument >> title >> description;
    argument.endStructure();
    return {title, description};
}

}  // namespace testing_support
