#pragma once

#include <QDBusArgument>
#include <QDBusVariant>
#include <QList>
#include <QString>
#include <QStringList>
#include <QVariantMap>

namespace platform {

// The structures of the com.canonical.dbusmenu interface, as they travel on the bus. The panel
// side (tests, diagnostics) reads them with the same types.

/// One item and its properties: (ia{sv}).
struct DBusMenuItem {
    int id = 0;
    QVariantMap properties;
};
using DBusMenuItemList = QList<DBusMenuItem>;

/// One item and the names of properties that went back to their defaults: (ias).
struct DBusMenuItemKeys {
    int id = 0;
    QStringList properties;
};
using DBusMenuItemKeysList = QList<DBusMenuItemKeys>;

/// A part of the menu tree: (ia{sv}av), each child a variant holding the same structure.
struct DBusMenuLayoutItem {
    int id = 0;
    QVariantMap properties;
    QList<DBusMenuLayoutItem> children;
};

/// An event the panel sends: (isvu).
struct DBusMenuEvent {
    int id = 0;
    QString eventId;
    QDBusVariant data;
    uint timestamp = 0;
};
using DBusMenuEventList = QList<DBusMenuEvent>;

/// A key combination: each entry the modifiers ("Control", "Alt", "Shift", "Super") then the key.
using DBusMenuShortcut = QList<QStringList>;

/// Registers the types with Qt DBus; safe to call more than once.
void registerDBusMenuTypes();

QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuItem& item);
const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuItem& item);
QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuItemKeys& keys);
const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuItemKeys& keys);
QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuLayoutItem& item);
const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuLayoutItem& item);
QDBusArgument& operator<<(QDBusArgument& argument, const DBusMenuEvent& event);
const QDBusArgument& operator>>(const QDBusArgument& argument, DBusMenuEvent& event);

}  // namespace platform

Q_DECLARE_METATYPE(platform::DBusMenuItem)
Q_DECLARE_METATYPE(platform::DBusMenuItemKeys)
Q_DECLARE_METATYPE(platform::DBusMenuLayoutItem)
Q_DECLARE_METATYPE(platform::DBusMenuEvent)
