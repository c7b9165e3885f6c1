#include "platform/desktop/status_item.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <QAction>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QFileInfo>
#include <QMenu>

#include "platform/desktop/dbus_menu_types.h"
#include "platform/desktop/menu_attention.h"
#include "support/event_loop_wait.h"
#include "support/fake_panel.h"
#include "support/qt_printing.h"

// These tests run on a private session bus only (see tests/CMakeLists.txt): the item would
// otherwise show up in the desktop of whoever runs them.

namespace {

using testing_support::FakePanel;
using testing_support::runEventsUntil;

// A menu that, like the agent's, is empty until it opens and is rebuilt from scratch each time.
struct RebuiltMenu {
    QMenu menu;
    int rebuilds = 0;
    int refreshes = 0;  // triggers of "Check for Changes Now"
    QMenu* limits = nullptr;

    RebuiltMenu() {
        QObject::connect(&menu, &QMenu::aboutToShow, [this] { rebuild(); });
    }

    void rebuild() {
        ++rebuilds;
        menu.clear();
        delete limits;  // QMenu::clear() leaves submenus alone
        menu.addAction(QStringLiteral("Up to date"))->setEnabled(false);
        platform::markAttention(menu.addAction(QStringLiteral("Update_available && more")));
        menu.addSeparator();
        limits = new QMenu(QStringLiteral("Download Limit"), &menu);
        for (const char* title : {"Unlimited", "1 MB/s"}) {
            QAction* preset = limits->addAction(QLatin1String(title));
            preset->setCheckable(true);
            preset->setChecked(preset->text() == QLatin1String("Unlimited"));
        }
        menu.addMenu(limits);
        QAction* refresh = menu.addAction(QStringLiteral("Check for Changes Now"));
        refresh->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_R));
        QObject::connect(refresh, &QAction::triggered, [this] { ++refreshes; });
        menu.addAction(QStringLiteral("Account…"))
            ->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Comma));
        menu.addAction(QStringLiteral("Quit &Vaskel"));
    }
};

class SessionBusTray : public ::testing::Test {
protected:
    // Starts the panel, makes the item (unless the test made it before) with its menu, and
    // waits until it has registered.
    bool shown() {
        if (!panel.start()) return false;
        if (!item) item = platform::StatusBar::real().makeStatusItem();
        item->setMenu(&menu.menu);
        return panel.waitForRegistrations(1, 10000);
    }
    const FakePanel::MenuEntry* entry(const FakePanel::MenuEntry& menu, const QString& label) {
        for (const FakePanel::MenuEntry& child : menu.children)
            if (child.label() == label) return &child;
        ADD_FAILURE() << "no entry " << label.toStdString();
        return &menu;
    }
    QDBusMessage event(int id, const char* name) {
        return panel.callMenu("Event", {id, name, QVariant::fromValue(QDBusVariant(0)), 0u});
    }

    FakePanel panel;
    RebuiltMenu menu;
    std::unique_ptr<platform::StatusItem> item;
};

TEST_F(SessionBusTray, PanelReadsTheItemIconLabelAndToolTip) {
    ASSERT_TRUE(shown());
    EXPECT_TRUE(item->hasButton());
    EXPECT_TRUE(panel.registrations[0].startsWith(
        QStringLiteral("org.kde.StatusNotifierItem-%1-").arg(::getpid())));

    EXPECT_TRUE(item->setSymbol("arrow.up.arrow.down.circle", "Transferring"));
    item->setTitle(" 5 KB/s");
    item->setToolTip("Vaskel\n↓ 0 B/s   ↑ 5 KB/s\nLast checked 10:00");
    const std::pair<const char*, QVariant> fixed[] = {
        {"Id", "vaskel"},
        {"Title", "Vaskel"},
        {"Category", "ApplicationStatus"},
        {"Status", "Active"},
        {"ItemIsMenu", true},
        {"IconName", "vaskel-transfer-circle-symbolic"},
        {"XAyatanaLabel", " 5 KB/s"},
    };
    for (const auto& [name, value] : fixed) EXPECT_EQ(panel.itemProperty(name), value) << name;
    EXPECT_EQ(qvariant_cast<QDBusObjectPath>(panel.itemProperty("Menu")).path(), "/MenuBar");

    // A panel finds the icon by name in the theme path, or draws the pixels.
    const QString themePath = panel.itemProperty("IconThemePath").toString();
    EXPECT_TRUE(
        QFileInfo::exists(themePath + "/hicolor/scalable/apps/vaskel-transfer-circle-symbolic.svg"))
        << themePath.toStdString();
    const auto pixmaps = testing_support::panelPixmaps(panel.itemProperty("IconPixmap"));
    ASSERT_FALSE(pixmaps.isEmpty());
    for (const auto& pixmap : pixmaps) {
        ASSERT_EQ(pixmap.bytes.size(), pixmap.width * pixmap.height * 4);
        bool drawn = false;  // alpha is the first byte of each big-endian ARGB pixel
        for (qsizetype i = 0; i < pixmap.bytes.size(); i += 4) drawn |= pixmap.bytes[i] != 0;
        EXPECT_TRUE(drawn) << pixmap.width;
    }
    EXPECT_EQ(testing_support::panelToolTip(panel.itemProperty("ToolTip")),
              (std::pair<QString, QString>("Vaskel", "↓ 0 B/s   ↑ 5 KB/s\nLast checked 10:00")));

    // An unknown symbol leaves the icon; clearing it leaves the title alone.
    EXPECT_FALSE(item->setSymbol("no.such.symbol", "Vaskel"));
    EXPECT_EQ(panel.itemProperty("IconName"), "vaskel-transfer-circle-symbolic");
    item->clearImage();
    item->setTitle("Vaskel");
    EXPECT_EQ(panel.itemProperty("IconName"), "");
    EXPECT_EQ(panel.itemProperty("XAyatanaLabel"), "Vaskel");
    EXPECT_EQ(item->symbol(), "");
}

TEST_F(SessionBusTray, SendsOneSignalPerChangeAndNothingForAnIdleTick) {
    ASSERT_TRUE(shown());
    ASSERT_TRUE(panel.menuLayout());  // the panel has seen the menu, filled on the way
    ASSERT_TRUE(panel.waitForSignal("LayoutUpdated"));
    panel.signalNames.clear();
    for (const char* title : {"", " 1 KB/s", " 1 KB/s", " 1 KB/s"}) {
        item->setSymbol("cloud", "Vaskel");
        item->setTitle(title);
        item->setToolTip("Vaskel\nIdle");
        item->setMenu(&menu.menu);
    }
    item->setSymbol("cloud", "another description");
    // Signals arrive in the order they were sent: anything the idle ticks sent comes first.
    item->setToolTip("Vaskel\nTransfers paused");
    ASSERT_TRUE(runEventsUntil([&] { return panel.signalNames.count("NewToolTip") == 2; }));
    EXPECT_EQ(panel.signalNames,
              QStringList({"NewIcon", "NewToolTip", "XAyatanaNewLabel", "NewToolTip"}));
    EXPECT_EQ(menu.rebuilds, 1);
}

TEST_F(SessionBusTray, PanelOpensTheRebuiltMenuAndChoosesItems) {
    ASSERT_TRUE(shown());
    // Asked for before it ever opened, the menu is filled first rather than shown empty.
    uint firstRevision = 0;
    auto layout = panel.menuLayout(&firstRevision);
    ASSERT_TRUE(layout);
    EXPECT_EQ(menu.rebuilds, 1);
    ASSERT_EQ(layout->children.size(), 7);
    EXPECT_EQ(layout->children[0].properties.value("enabled"), false);
    const auto* attention = entry(*layout, "Update__available & more");
    EXPECT_EQ(attention->properties.value("disposition"), "alert");
    EXPECT_FALSE(attention->properties.value("icon-data").toByteArray().isEmpty());
    EXPECT_EQ(layout->children[2].properties.value("type"), "separator");
    const auto* limits = entry(*layout, "Download Limit");
    EXPECT_EQ(limits->properties.value("children-display"), "submenu");
    ASSERT_EQ(limits->children.size(), 2);
    for (const auto& [index, state] : {std::pair{0, 1}, {1, 0}}) {
        EXPECT_EQ(limits->children[index].properties.value("toggle-type"), "checkmark");
        EXPECT_EQ(limits->children[index].properties.value("toggle-state"), state);
    }
    for (const auto& [label, key] :
         {std::pair{"Check for Changes Now", "r"}, {"Account…", "comma"}})
        EXPECT_EQ(qdbus_cast<QList<QStringList>>(entry(*layout, label)->properties["shortcut"]),
                  (QList<QStringList>{{"Control", key}}));
    entry(*layout, "Quit Vaskel");

    // Opening rebuilds the menu and announces a new layout.
    ASSERT_TRUE(panel.waitForSignal("LayoutUpdated"));  // the one of the first filling
    panel.signalNames.clear();
    const QDBusMessage answer = panel.callMenu("AboutToShow", {0});
    ASSERT_EQ(answer.type(), QDBusMessage::ReplyMessage) << answer.errorMessage().toStdString();
    EXPECT_EQ(answer.arguments().value(0), true);
    EXPECT_EQ(menu.rebuilds, 2);
    ASSERT_TRUE(panel.waitForSignal("LayoutUpdated"));
    uint revision = 0;
    layout = panel.menuLayout(&revision);
    ASSERT_TRUE(layout);
    EXPECT_GT(revision, firstRevision);

    // A click triggers the current action once; stale and unknown ids are errors.
    const int refreshId = entry(*layout, "Check for Changes Now")->id;
    ASSERT_EQ(event(refreshId, "clicked").type(), QDBusMessage::ReplyMessage);
    EXPECT_TRUE(runEventsUntil([&] { return menu.refreshes == 1; }));
    EXPECT_EQ(event(9999, "clicked").type(), QDBusMessage::ErrorMessage);

    // Changes to the shown menu go out as property updates, not as a new layout.
    panel.signalNames.clear();
    menu.limits->actions().at(0)->setChecked(false);
    ASSERT_TRUE(panel.waitForSignal("ItemsPropertiesUpdated"));
    layout = panel.menuLayout();
    ASSERT_TRUE(layout);
    EXPECT_EQ(entry(*layout, "Download Limit")->children[0].properties["toggle-state"], 0);
    EXPECT_FALSE(panel.signalNames.contains("LayoutUpdated"));

    // A group of clicks triggers the known items and names the unknown ones.
    const QList<platform::DBusMenuEvent> group{{refreshId, "clicked", QDBusVariant(0), 0},
                                               {9999, "clicked", QDBusVariant(0), 0}};
    const QDBusMessage groupAnswer = panel.callMenu("EventGroup", {QVariant::fromValue(group)});
    ASSERT_EQ(groupAnswer.type(), QDBusMessage::ReplyMessage);
    EXPECT_EQ(qdbus_cast<QList<int>>(groupAnswer.arguments().value(0)), QList<int>{9999});
    EXPECT_TRUE(runEventsUntil([&] { return menu.refreshes == 2; }));

    // A panel that opens without AboutToShow gets a fresh menu too, but only once per opening.
    const int before = menu.rebuilds;
    event(0, "opened");
    EXPECT_EQ(menu.rebuilds, before);  // AboutToShow came first
    event(0, "closed");
    event(0, "opened");
    EXPECT_EQ(menu.rebuilds, before + 1);
    event(0, "closed");
    EXPECT_EQ(menu.refreshes, 2);
}

TEST_F(SessionBusTray, RemembersItsStateWithoutATrayAndRegistersWithEveryNewWatcher) {
    // No panel yet, and the offscreen platform has no XEmbed tray either.
    item = platform::StatusBar::real().makeStatusItem();
    EXPECT_FALSE(item->hasButton());
    EXPECT_TRUE(item->setSymbol("icloud.slash", "Vaskel"));
    item->setToolTip("Vaskel\nNot connected");
    EXPECT_EQ(item->symbol(), "icloud.slash");
    EXPECT_EQ(item->toolTip(), "Vaskel\nNot connected");

    // The panel that appears refuses twice before it takes the item.
    panel.refusals = 2;
    ASSERT_TRUE(shown());
    EXPECT_EQ(panel.attempts, 3);
    EXPECT_TRUE(item->hasButton());
    EXPECT_EQ(panel.itemProperty("IconName"), "vaskel-cloud-slash-symbolic");
    EXPECT_EQ(testing_support::panelToolTip(panel.itemProperty("ToolTip")).second, "Not connected");

    // The panel crashes; a restarted one shows what changed meanwhile.
    item->setSymbol("pause.circle", "Transfers paused");
    panel.stop();
    ASSERT_TRUE(runEventsUntil([&] { return !item->hasButton(); }));
    item->setTitle(" 2 MB/s");
    FakePanel restarted;
    ASSERT_TRUE(restarted.start());
    ASSERT_TRUE(restarted.waitForRegistrations(1));
    EXPECT_TRUE(item->hasButton());
    EXPECT_EQ(restarted.itemProperty("IconName"), "vaskel-pause-circle-symbolic");
    EXPECT_EQ(restarted.itemProperty("XAyatanaLabel"), " 2 MB/s");
}

}  // namespace
