#pragma once

#include <optional>

#include "support/event_loop_wait.h"
#include "support/fake_notification_server.h"

namespace testing_support {

/// A D-Bus value read without knowing its types: structures and arrays as QVariantList,
/// dictionaries as QVariantMap, variants unwrapped, byte arrays as QByteArray.
inline QVariant plainDBusValue(const QVariant& value) {
    if (value.metaType() == QMetaType::fromType<QDBusVariant>())
        return plainDBusValue(qvariant_cast<QDBusVariant>(value).variant());
    if (value.metaType() != QMetaType::fromType<QDBusArgument>()) return value;
    const auto argument = qvariant_cast<QDBusArgument>(value);
    const auto type = argument.currentType();
    if (type == QDBusArgument::MapType) {
        QVariantMap map;
        argument >> map;
        for (QVariant& entry : map) entry = plainDBusValue(entry);
        return map;
    }
    if (type != QDBusArgument::StructureType && type != QDBusArgument::ArrayType)
        return argument.asVariant();
    QVariantList list;
    type == QDBusArgument::ArrayType ? argument.beginArray() : argument.beginStructure();
    while (!argument.atEnd()) list << plainDBusValue(argument.asVariant());
    type == QDBusArgument::ArrayType ? argument.endArray() : argument.endStructure();
    return list;
}

/// A tray host as the item sees it: it runs the org.kde.StatusNotifierWatcher, takes
/// registrations, reads the registered item's properties and D-Bus menu, sends menu
/// events and records every signal the item sends. Calls to the item wait in a local event
/// loop, so an item of the same thread answers them.
class FakePanel final : public FakeBusService, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")

public:
    /// One entry of the item's menu as the panel reads it.
    struct MenuEntry {
        int id = 0;
        QVariantMap properties;
        QList<MenuEntry> children;
        QString label() const { return properties.value("label").toString(); }
    };

    bool start() {
        return FakeBusService::start("/StatusNotifierWatcher", "org.kde.StatusNotifierWatcher");
    }

    /// The accepted items' service names, in order.
    QStringList registrations;
    /// Names of the signals the item sent (item and menu), in order of arrival.
    QStringList signalNames;

    bool waitForRegistrations(int count, int timeoutMs = 5000) {
        return runEventsUntil([&] { return registrations.size() >= count; }, timeoutMs);
    }
    bool waitForSignal(const QString& name, int count = 1) {
        return runEventsUntil([&] { return signalNames.count(name) >= count; });
    }

    /// A property of the last registered item, read by plainDBusValue(); invalid when the call
    /// failed.
    QVariant itemProperty(const QString& name) {
        QDBusMessage get =
            QDBusMessage::createMethodCall(registrations.value(registrations.size() - 1), ITEM_PATH,
                                           "org.freedesktop.DBus.Properties", "Get");
        get << ITEM_INTERFACE << name;
        const QDBusMessage reply = bus().call(get, QDBus::BlockWithGui, 5000);
        return plainDBusValue(reply.arguments().value(0));
    }
    /// Calls `method` of the item's menu with `arguments`; the reply (or error) message.
    QDBusMessage callMenu(const QString& method, const QVariantList& arguments) {
        QDBusMessage call = QDBusMessage::createMethodCall(
            registrations.value(registrations.size() - 1),
            qvariant_cast<QDBusObjectPath>(itemProperty("Menu")).path(), MENU_INTERFACE, method);
        call.setArguments(arguments);
        return bus().call(call, QDBus::BlockWithGui, 5000);
    }
    /// The whole menu layout; none when the call failed.
    std::optional<MenuEntry> menuLayout() {
        const QDBusMessage reply = callMenu("GetLayout", {0, -1, QStringList()});
        if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().size() != 2) return {};
        return entryOf(plainDBusValue(reply.arguments()[1]).toList());
    }

public Q_SLOTS:
    void RegisterStatusNotifierItem(const QString& service) {
        // Some items register an object path; the service is then the caller.
        const QString name = service.startsWith('/') ? message().service() : service;
        // Every signal of the item and of its menu, whatever its name.
        bus().connect(name, ITEM_PATH, ITEM_INTERFACE, QString(), this,
                      SLOT(recordSignal(QDBusMessage)));
        bus().connect(name, QString(), MENU_INTERFACE, QString(), this,
                      SLOT(recordSignal(QDBusMessage)));
        registrations << name;
    }

private Q_SLOTS:
    void recordSignal(const QDBusMessage& message) { signalNames << message.member(); }

private:
    static inline const QString ITEM_PATH = "/StatusNotifierItem";
    static inline const QString ITEM_INTERFACE = "org.kde.StatusNotifierItem";
    static inline const QString MENU_INTERFACE = "com.canonical.dbusmenu";

    // (id, properties, children) as plainDBusValue() reads it.
    static MenuEntry entryOf(const QVariantList& fields) {
        MenuEntry entry{fields.value(0).toInt(), fields.value(1).toMap(), {}};
        for (const QVariant& child : fields.value(2).toList())
            entry.children << entryOf(child.toList());
        return entry;
    }
};

}  // namespace testing_support
