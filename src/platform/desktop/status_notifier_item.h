#pragma once

#include <QDBusConnection>
#include <QDBusObjectPath>
#include <QObject>
#include <QTimer>
#include <memory>

#include "platform/desktop/dbus_menu_exporter.h"
#include "platform/desktop/status_item_backend.h"
#include "platform/desktop/status_notifier_types.h"

namespace platform {

/// The status item as an org.kde.StatusNotifierItem at /StatusNotifierItem under a name of its
/// own ("org.kde.StatusNotifierItem-<pid>-<n>"), with its menu exported as com.canonical.dbusmenu
/// at /MenuBar. It registers with the org.kde.StatusNotifierWatcher on creation, tries again with
/// growing pauses while the watcher refuses, and registers anew on `registerWithWatcher()` (a new
/// watcher). The title is the XAyatanaLabel, which GNOME's AppIndicator extension and Ayatana
/// panels show beside the icon. Main thread only.
class StatusNotifierItem final : public QObject, public StatusItemBackend {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierItem")
    Q_PROPERTY(QString Category READ category)
    Q_PROPERTY(QString Id READ id)
    Q_PROPERTY(QString Title READ title)
    Q_PROPERTY(QString Status READ status)
    Q_PROPERTY(int WindowId READ windowId)
    Q_PROPERTY(QString IconName READ iconName)
    Q_PROPERTY(QString IconThemePath READ iconThemePath)
    Q_PROPERTY(platform::StatusNotifierPixmapList IconPixmap READ iconPixmap)
    Q_PROPERTY(QString OverlayIconName READ emptyName)
    Q_PROPERTY(platform::StatusNotifierPixmapList OverlayIconPixmap READ noPixmaps)
    Q_PROPERTY(QString AttentionIconName READ emptyName)
    Q_PROPERTY(platform::StatusNotifierPixmapList AttentionIconPixmap READ noPixmaps)
    Q_PROPERTY(QString AttentionMovieName READ emptyName)
    Q_PROPERTY(platform::StatusNotifierToolTip ToolTip READ toolTip)
    Q_PROPERTY(bool ItemIsMenu READ itemIsMenu)
    Q_PROPERTY(QDBusObjectPath Menu READ menu)
    Q_PROPERTY(QString XAyatanaLabel READ label)
    Q_PROPERTY(QString XAyatanaLabelGuide READ label)
    Q_PROPERTY(uint XAyatanaOrderingIndex READ orderingIndex)

public:
    StatusNotifierItem(const StatusItemState& state, QDBusConnection connection);
    ~StatusNotifierItem() override;

    /// Asks the watcher to show the item (again); called for a watcher that just appeared.
    void registerWithWatcher();
    /// Whether the watcher accepted the item.
    bool registered() const { return registered_; }
    QString serviceName() const { return serviceName_; }

    bool showing() const override { return exported_; }
    void iconChanged() override;
    void titleChanged() override;
    void toolTipChanged() override;
    void menuChanged() override;

    QString category() const { return QStringLiteral("ApplicationStatus"); }
    QString id() const { return QStringLiteral("vaskel"); }
    QString title() const { return QStringLiteral("Vaskel"); }
    QString status() const { return QStringLiteral("Active"); }
    int windowId() const { return 0; }
    QString iconName() const;
    QString iconThemePath() const;
    StatusNotifierPixmapList iconPixmap() const;
    QString emptyName() const { return QString(); }
    StatusNotifierPixmapList noPixmaps() const { return {}; }
    StatusNotifierToolTip toolTip() const;
    bool itemIsMenu() const { return true; }
    QDBusObjectPath menu() const;
    QString label() const { return state_.title; }
    uint orderingIndex() const { return 0; }

public Q_SLOTS:
    void Activate(int x, int y);
    void SecondaryActivate(int x, int y);
    void ContextMenu(int x, int y);
    void Scroll(int delta, const QString& orientation);
    void ProvideXdgActivationToken(const QString& token);

Q_SIGNALS:
    void NewTitle();
    void NewIcon();
    void NewAttentionIcon();
    void NewOverlayIcon();
    void NewToolTip();
    void NewStatus(const QString& status);
    void XAyatanaNewLabel(const QString& label, const QString& guide);

private:
    void popUpMenu(int x, int y);

    const StatusItemState& state_;
    QDBusConnection connection_;
    QString serviceName_;
    bool exported_ = false;
    bool registered_ = false;
    std::unique_ptr<DBusMenuExporter> menuExporter_;
    QTimer retry_;
    int retryDelayMs_;
    int attempt_ = 0;  // tells the answer to the latest registration apart from older ones
    mutable QString pixmapSymbol_;
    mutable StatusNotifierPixmapList pixmaps_;
};

}  // namespace platform
