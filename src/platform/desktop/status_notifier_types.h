#pragma once

#include <QByteArray>
#include <QDBusArgument>
#include <QList>
#include <QString>

class QIcon;

namespace platform {

// The structures of the org.kde.StatusNotifierItem interface, as they travel on the bus.

/// One pixmap: (iiay), ARGB32 pixels in network byte order.
struct StatusNotifierPixmap {
    int width = 0;
    int height = 0;
    QByteArray bytes;
};
using StatusNotifierPixmapList = QList<StatusNotifierPixmap>;

/// The tooltip: (sa(iiay)ss) icon name, icon pixmaps, title, description.
struct StatusNotifierToolTip {
    QString iconName;
    StatusNotifierPixmapList iconPixmaps;
    QString title;
    QString description;
};

/// `icon` drawn at each of `sizes` (square) in the wire format.
StatusNotifierPixmapList statusNotifierPixmaps(const QIcon& icon, const QList<int>& sizes);

/// Registers the types with Qt DBus; safe to call more than once.
void registerStatusNotifierTypes();

QDBusArgument& operator<<(QDBusArgument& argument, const StatusNotifierPixmap& pixmap);
const QDBusArgument& operator>>(const QDBusArgument& argument, StatusNotifierPixmap& pixmap);
QDBusArgument& operator<<(QDBusArgument& argument, const StatusNotifierToolTip& toolTip);
const QDBusArgument& operator>>(const QDBusArgument& argument, StatusNotifierToolTip& toolTip);

}  // namespace platform

Q_DECLARE_METATYPE(platform::StatusNotifierPixmap)
Q_DECLARE_METATYPE(platform::StatusNotifierToolTip)
