#include "platform/desktop/xembed_tray_icon.h"

#include <QCursor>
#include <QFont>
#include <QFontMetricsF>
#include <QGuiApplication>
#include <QPainter>
#include <QPixmap>

#include "platform/desktop/menu_attention.h"
#include "platform/desktop/symbol_images.h"

namespace platform {
namespace {

// The title drawn as an icon, shrunk to fit, for the state without a symbol.
QIcon textIcon(const QString& text) {
    constexpr int SIZE = 64;
    QPixmap pixmap(SIZE, SIZE);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::TextAntialiasing);
    QFont font = painter.font();
    font.setBold(true);
    font.setPixelSize(SIZE / 2);
    const qreal width = QFontMetricsF(font).horizontalAdvance(text);
    if (width > SIZE) font.setPixelSize(std::max(8, int(SIZE / 2 * SIZE / width)));
    painter.setFont(font);
    painter.setPen(trayPixmapColor());
    painter.drawText(pixmap.rect(), Qt::AlignCenter, text);
    painter.end();
    return QIcon(pixmap);
}

}  // namespace

XEmbedTrayIcon::XEmbedTrayIcon(const StatusItemState& state) : state_(state) {
    connect(&icon_, &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
                // The right button opens the context menu by itself; the left one does the same.
                if (reason == QSystemTrayIcon::Trigger && state_.menu)
                    state_.menu->popup(QCursor::pos());
            });
    iconChanged();
    toolTipChanged();
    menuChanged();
    icon_.show();
}

bool XEmbedTrayIcon::trayAvailable() {
    return trayPossible() && QSystemTrayIcon::isSystemTrayAvailable();
}

bool XEmbedTrayIcon::trayPossible() {
    return QGuiApplication::platformName() == QLatin1String("xcb");
}

void XEmbedTrayIcon::iconChanged() {
    const std::optional<QIcon> symbol = symbolIcon(state_.symbol, trayPixmapColor());
    icon_.setIcon(symbol ? *symbol
                         : textIcon(state_.title.trimmed().isEmpty() ? QStringLiteral("Vaskel")
                                                                     : state_.title.trimmed()));
}

void XEmbedTrayIcon::titleChanged() {
    if (!symbolIconName(state_.symbol)) iconChanged();
}

void XEmbedTrayIcon::toolTipChanged() {
    icon_.setToolTip(state_.toolTip);
}

void XEmbedTrayIcon::menuChanged() {
    drawAttentionText(state_.menu);
    icon_.setContextMenu(state_.menu);
}

}  // namespace platform
