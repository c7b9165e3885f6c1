#include "platform/desktop/dbus_menu_exporter.h"

#include <QAction>
#include <QActionGroup>
#include <QBuffer>
#include <QDBusError>
#include <QEvent>
#include <QGuiApplication>
#include <QIcon>
#include <QKeySequence>
#include <QMetaObject>
#include <QTimer>

#include "platform/desktop/menu_attention.h"
#include "platform/desktop/symbol_images.h"

namespace platform {
namespace {

constexpr int ROOT_ID = 0;
constexpr int MAX_DEPTH = 8;  // submenus nested deeper than this are not published
constexpr int ICON_SIZE = 16;

// Qt marks a mnemonic with '&' ("&&" for a literal one), dbusmenu with '_' ("__" for a literal
// one). Mnemonics are dropped: tray menus are opened with the pointer.
QString dbusLabel(const QString& text) {
    QString label;
    label.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        if (c == QLatin1Char('&')) {
            if (i + 1 < text.size() && text[i + 1] == QLatin1Char('&')) label += text[++i];
        } else if (c == QLatin1Char('_')) {
            label += QStringLiteral("__");
        } else {
            label += c;
        }
    }
    return label;
}

// Key names as X keysyms, which the panels' toolkits parse.
QString keyName(Qt::Key key) {
    if ((key >= Qt::Key_A && key <= Qt::Key_Z) || (key >= Qt::Key_0 && key <= Qt::Key_9))
        return QString(QChar(key)).toLower();
    if (key >= Qt::Key_F1 && key <= Qt::Key_F35)
        return QStringLiteral("F%1").arg(int(key - Qt::Key_F1) + 1);
    switch (key) {
        case Qt::Key_Comma:
            return QStringLiteral("comma");
        case Qt::Key_Period:
            return QStringLiteral("period");
        case Qt::Key_Slash:
            return QStringLiteral("slash");
        case Qt::Key_Minus:
            return QStringLiteral("minus");
        case Qt::Key_Plus:
            return QStringLiteral("plus");
        case Qt::Key_Equal:
            return QStringLiteral("equal");
        case Qt::Key_Semicolon:
            return QStringLiteral("semicolon");
        case Qt::Key_Space:
            return QStringLiteral("space");
        case Qt::Key_Return:
            return QStringLiteral("Return");
        case Qt::Key_Enter:
            return QStringLiteral("KP_Enter");
        case Qt::Key_Escape:
            return QStringLiteral("Escape");
        case Qt::Key_Tab:
            return QStringLiteral("Tab");
        case Qt::Key_Backspace:
            return QStringLiteral("BackSpace");
        case Qt::Key_Delete:
            return QStringLiteral("Delete");
        default:
            return QKeySequence(key).toString(QKeySequence::PortableText);
    }
}

DBusMenuShortcut dbusShortcut(const QKeySequence& sequence) {
    DBusMenuShortcut shortcut;
    for (int i = 0; i < sequence.count(); ++i) {
        const QKeyCombination combination = sequence[i];
        QStringList keys;
        const Qt::KeyboardModifiers modifiers = combination.keyboardModifiers();
        if (modifiers & Qt::ControlModifier) keys << QStringLiteral("Control");
        if (modifiers & Qt::AltModifier) keys << QStringLiteral("Alt");
        if (modifiers & Qt::ShiftModifier) keys << QStringLiteral("Shift");
        if (modifiers & Qt::MetaModifier) keys << QStringLiteral("Super");
        keys << keyName(combination.key());
        shortcut << keys;
    }
    return shortcut;
}

QByteArray pngOf(const QIcon& icon) {
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    icon.pixmap(ICON_SIZE, ICON_SIZE).save(&buffer, "PNG");
    return png;
}

QVariantMap filtered(const QVariantMap& properties, const QStringList& names) {
    if (names.isEmpty()) return properties;
    QVariantMap kept;
    for (const QString& name : names)
        if (auto found = properties.constFind(name); found != properties.cend())
            kept.insert(name, *found);
    return kept;
}

}  // namespace

DBusMenuExporter::DBusMenuExporter(QDBusConnection connection, const QString& path)
    : connection_(std::move(connection)), path_(path) {
    registerDBusMenuTypes();
    published_.insert(ROOT_ID,
                      Node{{{QStringLiteral("children-display"), QStringLiteral("submenu")}}, {}});
    exported_ = connection_.registerObject(path_, this,
                                           QDBusConnection::ExportAllSlots |
                                               QDBusConnection::ExportAllSignals |
                                               QDBusConnection::ExportAllProperties);
}

DBusMenuExporter::~DBusMenuExporter() {
    if (exported_) connection_.unregisterObject(path_);
}

QString DBusMenuExporter::textDirection() const {
    return QGuiApplication::layoutDirection() == Qt::RightToLeft ? QStringLiteral("rtl")
                                                                 : QStringLiteral("ltr");
}

QStringList DBusMenuExporter::iconThemePath() const {
    const QString path = symbolThemePath();
    return path.isEmpty() ? QStringList() : QStringList{path};
}

void DBusMenuExporter::setMenu(QMenu* menu) {
    if (menu_ == menu) return;
    if (menu_) menu_->removeEventFilter(this);
    menu_ = menu;
    if (menu_) menu_->installEventFilter(this);
    opened_.clear();
    publish();
}

int DBusMenuExporter::idFor(QAction* action) {
    if (auto found = ids_.constFind(action); found != ids_.cend()) return *found;
    const int id = nextId_++;
    ids_.insert(action, id);
    actions_.insert(id, action);
    // The address may be reused by a later action, which must get an id of its own.
    connect(action, &QObject::destroyed, this, [this, action, id] {
        ids_.remove(action);
        actions_.remove(id);
    });
    return id;
}

QMenu* DBusMenuExporter::menuFor(int id) const {
    if (id == ROOT_ID) return menu_;
    const QPointer<QAction> action = actions_.value(id);
    return action ? action->menu() : nullptr;
}

QVariantMap DBusMenuExporter::propertiesOf(QAction* action) {
    QVariantMap properties;
    properties.insert(QStringLiteral("visible"), action->isVisible());
    if (action->isSeparator()) {
        properties.insert(QStringLiteral("type"), QStringLiteral("separator"));
        return properties;
    }
    properties.insert(QStringLiteral("label"), dbusLabel(action->text()));
    properties.insert(QStringLiteral("enabled"), action->isEnabled());
    if (action->isCheckable()) {
        const bool radio = action->actionGroup() && action->actionGroup()->isExclusive();
        properties.insert(QStringLiteral("toggle-type"),
                          radio ? QStringLiteral("radio") : QStringLiteral("checkmark"));
        properties.insert(QStringLiteral("toggle-state"), action->isChecked() ? 1 : 0);
    }
    if (action->menu())
        properties.insert(QStringLiteral("children-display"), QStringLiteral("submenu"));
    if (!action->shortcut().isEmpty())
        properties.insert(QStringLiteral("shortcut"),
                          QVariant::fromValue(dbusShortcut(action->shortcut())));
    if (needsAttention(action))
        properties.insert(QStringLiteral("disposition"), QStringLiteral("alert"));
    const QIcon icon = action->icon();
    if (!icon.isNull()) {
        if (!icon.name().isEmpty())
            properties.insert(QStringLiteral("icon-name"), icon.name());
        else
            properties.insert(QStringLiteral("icon-data"), pngOf(icon));
    }
    return properties;
}

void DBusMenuExporter::snapshotMenu(QMenu* menu, int id, Snapshot& snapshot, int depth) {
    Node& node = snapshot[id];
    if (id == ROOT_ID)
        node.properties.insert(QStringLiteral("children-display"), QStringLiteral("submenu"));
    if (!menu || depth > MAX_DEPTH) return;
    menu->installEventFilter(this);  // installing twice keeps one filter
    const QList<QAction*> actions = menu->actions();
    for (QAction* action : actions) {
        const int childId = idFor(action);
        node.children.append(childId);
        Node& child = snapshot[childId];
        child.properties = propertiesOf(action);
        if (QMenu* submenu = action->menu()) snapshotMenu(submenu, childId, snapshot, depth + 1);
    }
}

bool DBusMenuExporter::publish() {
    Snapshot current;
    snapshotMenu(menu_, ROOT_ID, current, 0);
    bool layoutChanged = current.size() != published_.size();
    for (auto it = current.cbegin(); !layoutChanged && it != current.cend(); ++it) {
        auto before = published_.constFind(it.key());
        layoutChanged = before == published_.cend() || before->children != it->children;
    }
    if (layoutChanged) {
        published_ = std::move(current);
        ++revision_;
        Q_EMIT LayoutUpdated(revision_, ROOT_ID);
        return true;
    }
    DBusMenuItemList updated;
    DBusMenuItemKeysList removed;
    for (auto it = current.cbegin(); it != current.cend(); ++it) {
        const QVariantMap& before = published_[it.key()].properties;
        if (before == it->properties) continue;
        QVariantMap changed;
        for (auto property = it->properties.cbegin(); property != it->properties.cend(); ++property)
            if (before.value(property.key()) != property.value())
                changed.insert(property.key(), property.value());
        QStringList gone;
        for (auto property = before.cbegin(); property != before.cend(); ++property)
            if (!it->properties.contains(property.key())) gone << property.key();
        if (!changed.isEmpty()) updated.append({it.key(), changed});
        if (!gone.isEmpty()) removed.append({it.key(), gone});
    }
    published_ = std::move(current);
    if (!updated.isEmpty() || !removed.isEmpty()) Q_EMIT ItemsPropertiesUpdated(updated, removed);
    return false;
}

void DBusMenuExporter::schedulePublish() {
    if (publishScheduled_) return;
    publishScheduled_ = true;
    QTimer::singleShot(0, this, [this] {
        publishScheduled_ = false;
        publish();
    });
}

bool DBusMenuExporter::eventFilter(QObject* watched, QEvent* event) {
    switch (event->type()) {
        case QEvent::ActionAdded:
        case QEvent::ActionRemoved:
        case QEvent::ActionChanged:
            schedulePublish();
            break;
        default:
            break;
    }
    return QObject::eventFilter(watched, event);
}

bool DBusMenuExporter::prepare(int id) {
    QMenu* menu = menuFor(id);
    if (!menu) return false;
    opened_.insert(id);
    Q_EMIT menu->aboutToShow();
    return true;
}

void DBusMenuExporter::failCall(const QString& message) {
    if (calledFromDBus()) sendErrorReply(QDBusError::InvalidArgs, message);
}

DBusMenuLayoutItem DBusMenuExporter::layoutOf(int id, int depth, const QStringList& names) const {
    DBusMenuLayoutItem item;
    item.id = id;
    const Node node = published_.value(id);
    item.properties = filtered(node.properties, names);
    if (depth != 0)
        for (int child : node.children) item.children.append(layoutOf(child, depth - 1, names));
    return item;
}

uint DBusMenuExporter::GetLayout(int parentId, int recursionDepth, const QStringList& propertyNames,
                                 DBusMenuLayoutItem& layout) {
    // A menu that is filled only when it opens is filled now: a panel that reads the layout
    // before opening the menu would otherwise remember it as empty.
    if (QMenu* menu = menuFor(parentId); menu && menu->actions().isEmpty()) prepare(parentId);
    publish();
    if (!published_.contains(parentId)) {
        failCall(QStringLiteral("no menu item with id %1").arg(parentId));
        return revision_;
    }
    layout = layoutOf(parentId, recursionDepth < 0 ? MAX_DEPTH + 1 : recursionDepth, propertyNames);
    return revision_;
}

QList<DBusMenuItem> DBusMenuExporter::GetGroupProperties(const QList<int>& ids,
                                                         const QStringList& propertyNames) {
    DBusMenuItemList items;
    const QList<int> wanted = ids.isEmpty() ? published_.keys() : ids;
    for (int id : wanted)
        if (auto node = published_.constFind(id); node != published_.cend())
            items.append({id, filtered(node->properties, propertyNames)});
    return items;
}

QDBusVariant DBusMenuExporter::GetProperty(int id, const QString& name) {
    const auto node = published_.constFind(id);
    if (node == published_.cend() || !node->properties.contains(name)) {
        failCall(QStringLiteral("menu item %1 has no property %2").arg(id).arg(name));
        return QDBusVariant(QVariant(QString()));
    }
    return QDBusVariant(node->properties.value(name));
}

bool DBusMenuExporter::handleEvent(int id, const QString& eventId) {
    if (id != ROOT_ID && !actions_.value(id)) return false;
    if (eventId == QLatin1String("clicked")) {
        QAction* action = actions_.value(id);
        // Triggered once the panel has its answer: the action may open a modal dialog.
        if (action && action->isEnabled())
            QMetaObject::invokeMethod(action, &QAction::trigger, Qt::QueuedConnection);
    } else if (eventId == QLatin1String("opened")) {
        if (!opened_.contains(id) && prepare(id)) publish();
    } else if (eventId == QLatin1String("closed")) {
        opened_.remove(id);
        if (QMenu* menu = menuFor(id)) Q_EMIT menu->aboutToHide();
    }
    return true;
}

void DBusMenuExporter::Event(int id, const QString& eventId, const QDBusVariant&, uint) {
    if (!handleEvent(id, eventId)) failCall(QStringLiteral("no menu item with id %1").arg(id));
}

QList<int> DBusMenuExporter::EventGroup(const QList<DBusMenuEvent>& events) {
    QList<int> idErrors;
    for (const DBusMenuEvent& event : events)
        if (!handleEvent(event.id, event.eventId)) idErrors.append(event.id);
    if (!events.isEmpty() && idErrors.size() == events.size())
        failCall(QStringLiteral("none of the menu items exists"));
    return idErrors;
}

bool DBusMenuExporter::AboutToShow(int id) {
    if (!prepare(id)) {
        failCall(QStringLiteral("no menu with id %1").arg(id));
        return false;
    }
    return publish();
}

QList<int> DBusMenuExporter::AboutToShowGroup(const QList<int>& ids, QList<int>& idErrors) {
    QList<int> prepared;
    for (int id : ids) (prepare(id) ? prepared : idErrors).append(id);
    return publish() ? prepared : QList<int>();
}

}  // namespace platform
