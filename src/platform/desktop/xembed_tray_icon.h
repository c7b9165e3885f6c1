#pragma once

#include <QObject>
#include <QSystemTrayIcon>

#include "platform/desktop/status_item_backend.h"

namespace platform {

/// The status item as an icon in an XEmbed system tray (freedesktop system-tray protocol), for
/// desktops that have such a tray but no StatusNotifierItem host. The tray cannot show text beside
/// the icon, so the title shows only where there is no symbol (drawn as the icon). Either click
/// opens the menu. Main thread only.
class XEmbedTrayIcon final : public QObject, public StatusItemBackend {
    Q_OBJECT

public:
    explicit XEmbedTrayIcon(const StatusItemState& state);

    /// Whether there is an XEmbed tray to show an icon in.
    static bool trayAvailable();
    /// Whether one can appear at all: only on X11 (not on Wayland or the offscreen platform).
    static bool trayPossible();

    bool showing() const override { return icon_.isVisible(); }
    void iconChanged() override;
    void titleChanged() override;
    void toolTipChanged() override;
    void menuChanged() override;

private:
    const StatusItemState& state_;
    QSystemTrayIcon icon_;
};

}  // namespace platform
