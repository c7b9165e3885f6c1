#include "platform/desktop/dbus_menu_types.h"

#include <QDBusMetaType>

namespace platform {

void registerDBusMenuTypes() {
    static const bool registered = [] {
        qDBusRegisterMetaType<DBusMenuItem>();
        qDBusRegisterMetaType<DBusMenuItemList>();
        qDBusRegisterMetaType<DBusMenuItemKeys>();
        qDBusRegisterMetaType<DBusMenuItemKeysList>();
        qDBusRegisterMetaType<DBusMenuLayoutItem>();
        qDBusRegisterMetaType<DBusMenuEvent>();
        qDBusRegisterMetaType<DBusMenuEventList>();
        qDBusRegisterMetaType<DBusMenuShortcut>();
        return true;
    }();
    (void)registered;
}

QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuItem& item) {
    argument.beginStructure();
    argument << item.id << item.properties;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuItem& item) {
    argument.beginStructure();
    argument >> item.id >> item.properties;
    argument.endStructure();
    return argument;
}

QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuItemKeys& keys) {
    argument.beginStructure();
    argument << keys.id << keys.properties;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuItemKeys& keys) {
    argument.beginStructure();
    argument >> keys.id >> keys.properties;
    argument.endStructure();
    return argument;
}

QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuLayoutItem& item) {
    argument.beginStructure();
    argument << item.id << item.properties;
    argument.beginArray(qMetaTypeId<QDBusVariant>());
    for (const DBusMenuLayoutItem& child : item.children)
        argument << QDBusVariant(QVariant::fromValue(child));
    argument.endArray();
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuLayoutItem& item) {
    argument.beginStructure();
    argument >> item.id >> item.properties;
    item.children.clear();
    argument.beginArray();
    while (!argument.atEnd()) {
        QDBusVariant child;
        argument >> child;
        const QVariant value = child.variant();
        if (value.userType() == qMetaTypeId<QDBusArgument>()) {
            DBusMenuLayoutItem childItem;
            qvariant_cast<QDBusArgument>(value) >> childItem;
            item.children.append(childItem);
        } else {
            item.children.append(qvariant_cast<DBusMenuLayoutItem>(value));
        }
    }
    argument.endArray();
    argument.endStructure();
    return argument;
}

QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuEvent& event) {
    argument.beginStructure();
    argument << event.id << event.eventId << event.data << event.timestamp;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuEvent& event) {
    argument.beginStructure();
    argument >> event.id >> event.eventId >> event.data >> event.timestamp;
    argument.endStructure();
    return argument;
}

}  // namespace platform
