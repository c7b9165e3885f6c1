#include "platform/desktop/status_item.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <QAction>
#include <QFileInfo>
#include <QMenu>

#include "platform/desktop/dbus_menu_types.h"
#include "platform/desktop/menu_attention.h"
#include "support/fake_panel.h"
#include "support/qt_printing.h"

// These tests run on a private session bus only (see tests/CMakeLists.txt): the item would
// otherwise show up in the desktop of whoever runs them.

namespace {

using testing_support::FakePanel;
using testing_support::runEventsUntil;

class SessionBusTray : public ::testing::Test {
protected:
    // Like the agent's, the menu is empty until it opens and is rebuilt from scratch each time.
    void SetUp() override {
        QObject::connect(&menu, &QMenu::aboutToShow, [this] { rebuild(); });
    }
    void rebuild() {
        ++rebuilds;
        menu.clear();
        delete limitsMenu;  // QMenu::clear() leaves submenus alone
        menu.addAction("Up to date")->setEnabled(false);
        platform::markAttention(menu.addAction("Update_available && more"));
        menu.addSeparator();
        limitsMenu = menu.addMenu("Download Limit");
        for (const char* title : {"Unlimited", "1 MB/s"})
            limitsMenu->addAction(title)->setCheckable(true);
        limitsMenu->actions()[0]->setChecked(true);
        QObject::connect(
            menu.addAction("Check for Changes Now", QKeySequence(Qt::CTRL | Qt::Key_R)),
            &QAction::triggered, [this] { ++refreshes; });
        menu.addAction("Account…", QKeySequence(Qt::CTRL | Qt::Key_Comma));
        menu.addAction("Quit &Vaskel");
    }
    // Starts the panel, makes the item (unless the test made it before) with its menu, and
    // waits until it has registered.
    bool shown() {
        if (!panel.start()) return false;
        if (!item) item = platform::StatusBar::real().makeStatusItem();
        item->setMenu(&menu);
        return panel.waitForRegistrations(1, 10000);
    }
    const FakePanel::MenuEntry& entry(const FakePanel::MenuEntry& menu, const QString& label) {
        for (const FakePanel::MenuEntry& child : menu.children)
            if (child.label() == label) return child;
        ADD_FAILURE() << "no entry " << label.toStdString();
        return menu;
    }
    QDBusMessage event(int id, const char* name) {
        return panel.callMenu("Event", {id, name, QVariant::fromValue(QDBusVariant(0)), 0u});
    }

    FakePanel panel;
    QMenu menu;
    QMenu* limitsMenu = nullptr;
    int rebuilds = 0;
    int refreshes = 0;  // triggers of "Check for Changes Now"
    std::unique_ptr<platform::StatusItem> item;
};

TEST_F(SessionBusTray, PanelReadsTheItemIconLabelAndToolTipAndHearsOfEachChangeOnce) {
    ASSERT_TRUE(shown());
    EXPECT_TRUE(panel.registrations[0].startsWith(
        QStringLiteral("org.kde.StatusNotifierItem-%1-").arg(::getpid())));

    // The second round changes nothing, as the agent's idle ticks do, and sends nothing.
    for (int round = 0; round < 2; ++round) {
        EXPECT_TRUE(item->setSymbol("arrow.up.arrow.down.circle", "Transferring"));
        item->setTitle(" 5 KB/s");
        item->setToolTip("Vaskel\n↓ 0 B/s   ↑ 5 KB/s\nLast checked 10:00");
        item->setMenu(&menu);
    }
    // clang-format off
    const std::pair<const char*, QVariant> fixed[] = {
        {"Id", "vaskel"}, {"Title", "Vaskel"}, {"Category", "ApplicationStatus"}, {"Status", "Active"},
        {"ItemIsMenu", true}, {"IconName", "vaskel-transfer-circle-symbolic"}, {"XAyatanaLabel", " 5 KB/s"}};
    // clang-format on
    for (const auto& [name, value] : fixed) EXPECT_EQ(panel.itemProperty(name), value) << name;
    EXPECT_EQ(qvariant_cast<QDBusObjectPath>(panel.itemProperty("Menu")).path(), "/MenuBar");
    // The tooltip is (icon name, pixmaps, title, description).
    EXPECT_EQ(panel.itemProperty("ToolTip").toList().mid(2),
              (QVariantList{"Vaskel", "↓ 0 B/s   ↑ 5 KB/s\nLast checked 10:00"}));

    // A panel finds the icon by name in the theme path, or draws the pixmaps.
    const QString themePath = panel.itemProperty("IconThemePath").toString();
    EXPECT_TRUE(
        QFileInfo::exists(themePath + "/hicolor/scalable/apps/vaskel-transfer-circle-symbolic.svg"))
        << themePath.toStdString();
    // The first pixmap: (width, height, ARGB bytes), not blank.
    const QVariantList pixmap = panel.itemProperty("IconPixmap").toList().value(0).toList();
    const QByteArray bytes = pixmap.value(2).toByteArray();
    EXPECT_EQ(bytes.size(), pixmap.value(0).toInt() * pixmap.value(1).toInt() * 4);
    EXPECT_TRUE(!bytes.isEmpty() && bytes.contains('\xff'));

    // An unknown symbol leaves the icon; clearing it leaves the title alone.
    EXPECT_FALSE(item->setSymbol("no.such.symbol", "Vaskel"));
    item->setSymbol("arrow.up.arrow.down.circle", "another description");
    EXPECT_EQ(panel.itemProperty("IconName"), "vaskel-transfer-circle-symbolic");
    item->clearImage();
    item->setTitle("Vaskel");
    EXPECT_EQ(panel.itemProperty("IconName"), "");
    EXPECT_EQ(panel.itemProperty("XAyatanaLabel"), "Vaskel");
    EXPECT_EQ(item->symbol(), "");
    ASSERT_TRUE(panel.waitForSignal("XAyatanaNewLabel", 2));
    EXPECT_EQ(panel.signalNames, QStringList({"NewIcon", "XAyatanaNewLabel", "NewToolTip",
                                              "NewIcon", "XAyatanaNewLabel"}));
    EXPECT_EQ(rebuilds, 0);
}

TEST_F(SessionBusTray, PanelOpensTheRebuiltMenuAndChoosesItems) {
    ASSERT_TRUE(shown());
    // Asked for before it ever opened, the menu is filled first rather than shown empty.
    auto layout = panel.menuLayout();
    ASSERT_TRUE(layout);
    EXPECT_EQ(rebuilds, 1);
    ASSERT_EQ(layout->children.size(), 7);
    EXPECT_EQ(layout->children[0].properties.value("enabled"), false);
    const auto& attention = entry(*layout, "Update__available & more");
    EXPECT_EQ(attention.properties.value("disposition"), "alert");
    EXPECT_FALSE(attention.properties.value("icon-data").toByteArray().isEmpty());
    EXPECT_EQ(layout->children[2].properties.value("type"), "separator");
    const auto& limits = entry(*layout, "Download Limit");
    EXPECT_EQ(limits.properties.value("children-display"), "submenu");
    ASSERT_EQ(limits.children.size(), 2);
    for (const auto& [index, state] : {std::pair{0, 1}, {1, 0}}) {
        EXPECT_EQ(limits.children[index].properties.value("toggle-type"), "checkmark");
        EXPECT_EQ(limits.children[index].properties.value("toggle-state"), state);
    }
    for (const auto& [label, key] :
         {std::pair{"Check for Changes Now", "r"}, {"Account…", "comma"}})
        EXPECT_EQ(entry(*layout, label).properties["shortcut"],
                  (QVariantList{QStringList{"Control", key}}));
    entry(*layout, "Quit Vaskel");

    // Opening rebuilds the menu and announces a new layout.
    ASSERT_TRUE(panel.waitForSignal("LayoutUpdated"));  // the one of the first filling
    const QDBusMessage answer = panel.callMenu("AboutToShow", {0});
    ASSERT_EQ(answer.type(), QDBusMessage::ReplyMessage) << answer.errorMessage().toStdString();
    EXPECT_EQ(answer.arguments().value(0), true);
    EXPECT_EQ(rebuilds, 2);
    ASSERT_TRUE(panel.waitForSignal("LayoutUpdated", 2));
    layout = panel.menuLayout();
    ASSERT_TRUE(layout);

    // A click triggers the current action once; stale and unknown ids are errors.
    const int refreshId = entry(*layout, "Check for Changes Now").id;
    ASSERT_EQ(event(refreshId, "clicked").type(), QDBusMessage::ReplyMessage);
    EXPECT_TRUE(runEventsUntil([&] { return refreshes == 1; }));
    EXPECT_EQ(event(9999, "clicked").type(), QDBusMessage::ErrorMessage);

    // Changes to the shown menu go out as property updates, not as a new layout.
    limitsMenu->actions().at(0)->setChecked(false);
    ASSERT_TRUE(panel.waitForSignal("ItemsPropertiesUpdated"));
    layout = panel.menuLayout();
    ASSERT_TRUE(layout);
    EXPECT_EQ(entry(*layout, "Download Limit").children[0].properties["toggle-state"], 0);
    EXPECT_EQ(panel.signalNames.count("LayoutUpdated"), 2);

    // A group of clicks triggers the known items and names the unknown ones.
    const QList<platform::DBusMenuEvent> group{{refreshId, "clicked", QDBusVariant(0), 0},
                                               {9999, "clicked", QDBusVariant(0), 0}};
    const QDBusMessage groupAnswer = panel.callMenu("EventGroup", {QVariant::fromValue(group)});
    ASSERT_EQ(groupAnswer.type(), QDBusMessage::ReplyMessage);
    EXPECT_EQ(testing_support::plainDBusValue(groupAnswer.arguments().value(0)),
              QVariantList{9999});
    EXPECT_TRUE(runEventsUntil([&] { return refreshes == 2; }));

    // A panel that opens without AboutToShow gets a fresh menu too, but only once per opening.
    for (const char* name : {"opened", "closed", "opened", "closed"}) event(0, name);
    EXPECT_EQ(std::pair(rebuilds, refreshes), std::pair(3, 2));
}

TEST_F(SessionBusTray, RemembersItsStateWithoutATrayAndRegistersWithEveryNewWatcher) {
    // No panel yet, and the offscreen platform has no XEmbed tray either.
    item = platform::StatusBar::real().makeStatusItem();
    EXPECT_FALSE(item->hasButton());
    EXPECT_TRUE(item->setSymbol("icloud.slash", "Vaskel"));
    item->setToolTip("Vaskel\nNot connected");

    ASSERT_TRUE(shown());
    EXPECT_TRUE(item->hasButton());
    EXPECT_EQ(panel.itemProperty("IconName"), "vaskel-cloud-slash-symbolic");
    EXPECT_EQ(panel.itemProperty("ToolTip").toList().value(3), "Not connected");

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
