#include "platform/desktop/status_notifier_types.h"

#include <QDBusMetaType>
#include <QIcon>
#include <QImage>
#include <QtEndian>

namespace platform {

StatusNotifierPixmapList statusNotifierPixmaps(const QIcon& icon, const QList<int>& sizes) {
    StatusNotifierPixmapList pixmaps;
    for (int size : sizes) {
        QImage image = icon.pixmap(size, size).toImage().convertToFormat(QImage::Format_ARGB32);
        if (image.isNull()) continue;
        if (image.size() != QSize(size, size))
            image = image.scaled(size, size, Qt::KeepAspectRatio, Qt::SmoothTransformation);
        StatusNotifierPixmap pixmap{image.width(), image.height(), {}};
        pixmap.bytes.resize(qsizetype(image.width()) * image.height() * 4);
        auto* out = reinterpret_cast<quint32*>(pixmap.bytes.data());
        for (int y = 0; y < image.height(); ++y) {
            const auto* line = reinterpret_cast<const quint32*>(image.constScanLine(y));
            for (int x = 0; x < image.width(); ++x) *out++ = qToBigEndian(line[x]);
        }
        pixmaps.append(pixmap);
    }
    return pixmaps;
}

void registerStatusNotifierTypes() {
    static const bool registered = [] {
        qDBusRegisterMetaType<StatusNotifierPixmap>();
        qDBusRegisterMetaType<StatusNotifierPixmapList>();
        qDBusRegisterMetaType<StatusNotifierToolTip>();
        return true;
    }();
    (void)registered;
}

QDBusArgument& operator<<(QDBusArgument& argument, const StatusNotifierPixmap& pixmap) {
    argument.beginStructure();
    argument << pixmap.width << pixmap.height << pixmap.bytes;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, StatusNotifierPixmap& pixmap) {
    argument.beginStructure();
    argument >> pixmap.width >> pixmap.height >> pixmap.bytes;
    argument.endStructure();
    return argument;
}

QDBusArgument& operator<<(QDBusArgument& argument, const StatusNotifierToolTip& toolTip) {
    argument.beginStructure();
    argument << toolTip.iconName << toolTip.iconPixmaps << toolTip.title << toolTip.description;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, StatusNotifierToolTip& toolTip) {
    argument.beginStructure();
    argument >> toolTip.iconName >> toolTip.iconPixmaps >> toolTip.title >> toolTip.description;
    argument.endStructure();
    return argument;
}

}  // namespace platform
