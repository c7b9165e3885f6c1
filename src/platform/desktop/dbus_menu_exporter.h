#pragma once

#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusVariant>
#include <QHash>
#include <QMenu>
#include <QObject>
#include <QPointer>
#include <QSet>

#include "platform/desktop/dbus_menu_types.h"

namespace platform {

/// Publishes a QMenu on D-Bus as com.canonical.dbusmenu, so that a panel draws it itself.
///
/// The menu may be rebuilt from scratch in its `aboutToShow` signal: the exporter emits that
/// signal when the panel is about to open the menu (AboutToShow, or an "opened" event that no
/// AboutToShow came before) and when a panel asks for the layout of a menu that is still empty,
/// then publishes the new layout. Changes made at other times are published once control returns
/// to the event loop. Nothing is sent when the menu is the same as the panel last saw it.
/// Choosing an item triggers its action after the panel's call has been answered. Main thread
/// only.
class DBusMenuExporter final : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.canonical.dbusmenu")
    Q_PROPERTY(uint Version READ version)
    Q_PROPERTY(QString TextDirection READ textDirection)
    Q_PROPERTY(QString Status READ status)
    Q_PROPERTY(QStringList IconThemePath READ iconThemePath)

public:
    /// Exports the (empty) menu at `path` on `connection`; `exported()` tells whether it worked.
    DBusMenuExporter(QDBusConnection connection, const QString& path);
    ~DBusMenuExporter() override;

    bool exported() const { return exported_; }
    QString path() const { return path_; }

    /// The menu to publish; not owned.
    void setMenu(QMenu* menu);

    uint version() const { return 3; }
    QString textDirection() const;
    QString status() const { return QStringLiteral("normal"); }
    QStringList iconThemePath() const;

    // Qt DBus finds the types of parameters by name: the slots and signals spell them out instead
    // of using the list aliases.
public Q_SLOTS:
    uint GetLayout(int parentId, int recursionDepth, const QStringList& propertyNames,
                   platform::DBusMenuLayoutItem& layout);
    QList<platform::DBusMenuItem> GetGroupProperties(const QList<int>& ids,
                                                     const QStringList& propertyNames);
    QDBusVariant GetProperty(int id, const QString& name);
    void Event(int id, const QString& eventId, const QDBusVariant& data, uint timestamp);
    QList<int> EventGroup(const QList<platform::DBusMenuEvent>& events);
    bool AboutToShow(int id);
    QList<int> AboutToShowGroup(const QList<int>& ids, QList<int>& idErrors);

Q_SIGNALS:
    void ItemsPropertiesUpdated(const QList<platform::DBusMenuItem>& updatedProps,
                                const QList<platform::DBusMenuItemKeys>& removedProps);
    void LayoutUpdated(uint revision, int parent);
    void ItemActivationRequested(int id, uint timestamp);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    struct Node {
        QVariantMap properties;
        QList<int> children;
        bool operator==(const Node&) const = default;
    };
    using Snapshot = QHash<int, Node>;

    int idFor(QAction* action);
    QMenu* menuFor(int id) const;
    QVariantMap propertiesOf(QAction* action);
    void snapshotMenu(QMenu* menu, int id, Snapshot& snapshot, int depth);
    /// Compares the menu with what the panel last saw and sends the difference; true when the
    /// layout itself changed.
    bool publish();
    void schedulePublish();
    /// Lets the receivers of `aboutToShow` fill the menu of `id`; false for no such menu.
    bool prepare(int id);
    /// Handles one event; false when `id` is no item.
    bool handleEvent(int id, const QString& eventId);
    DBusMenuLayoutItem layoutOf(int id, int depth, const QStringList& names) const;
    void failCall(const QString& message);

    QDBusConnection connection_;
    QString path_;
    bool exported_ = false;
    QPointer<QMenu> menu_;
    Snapshot published_;
    uint revision_ = 1;
    int nextId_ = 1;
    QHash<QAction*, int> ids_;
    QHash<int, QPointer<QAction>> actions_;
    QSet<int> opened_;  // menus shown since an AboutToShow or "opened" and not closed since
    bool publishScheduled_ = false;
};

}  // namespace platform
