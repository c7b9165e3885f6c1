#pragma once

#include <QColor>
#include <QMenu>
#include <QPointer>
#include <QString>

namespace platform {

/// What the status item shows, whichever kind of tray shows it.
struct StatusItemState {
    QString symbol;  // the symbol's name; empty when the image was cleared or never set
    QString description;
    QString title;
    QString toolTip;
    QPointer<QMenu> menu;
};

/// Colour of the tray icon where the tray takes pixels instead of recolouring a themed symbol:
/// a middle grey, which reads on light and on dark panels alike.
inline QColor trayPixmapColor() {
    return QColor(0x80, 0x80, 0x80);
}

/// One way of showing the status item: a StatusNotifierItem on D-Bus or an XEmbed tray icon.
/// It reads the item's state, which outlives it, and is told which part of it changed; it is only
/// told of real changes.
class StatusItemBackend {
public:
    virtual ~StatusItemBackend() = default;

    /// Whether a tray shows the item.
    virtual bool showing() const = 0;

    virtual void iconChanged() = 0;  // symbol, or image cleared
    virtual void titleChanged() = 0;
    virtual void toolTipChanged() = 0;
    virtual void menuChanged() = 0;
};

}  // namespace platform
