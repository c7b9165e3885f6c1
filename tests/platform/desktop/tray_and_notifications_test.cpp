#include <gtest/gtest.h>

#include <unistd.h>
#include <QAction>
#include <QFileInfo>
#include <QMenu>

#include "platform/desktop/dbus_menu_types.h"
#include "platform/desktop/menu_attention.h"
#include "platform/desktop/notification_center.h"
#include "platform/desktop/status_item.h"
#include "support/event_loop_wait.h"
#include "support/fake_notification_server.h"
#include "support/fake_panel.h"
#include "support/qt_printing.h"

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

    // An unknown symbol leaves the icon.
    EXPECT_FALSE(item->setSymbol("no.such.symbol", "Vaskel"));
    EXPECT_EQ(panel.itemProperty("IconName"), "vaskel-transfer-circle-symbolic");
    EXPECT_EQ(panel.signalNames, QStringList({"NewIcon", "XAyatanaNewLabel", "NewToolTip"}));
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

using testing_support::runEventsUntil;

TEST(SessionBusNotifications, ANoticeReplacesTheLastOneOfItsIdentifierAndFailuresReachTheCaller) {
    testing_support::FakeNotificationServer server;
    ASSERT_TRUE(server.start());
    QList<std::optional<QString>> errors;
    // Sends without waiting; the completion must not run inside `add`.
    auto send = [&](const QString& identifier, const QString& body) {
        const auto before = errors.size();
        platform::NotificationCenter::real().add({identifier, "Vaskel is full", body},
                                                 [&](auto error) { errors << error; });
        EXPECT_EQ(errors.size(), before);
    };
    auto answered = [&](int count) {
        return runEventsUntil([&] { return errors.size() == count; });
    };

    server.refuse = true;
    send("full", "refused");
    ASSERT_TRUE(answered(1));
    // Sent back to back: the second notice of an identifier waits for the first one's id, so the
    // update overtakes it.
    server.refuse = false;
    send("full", "95 GB");
    send("full", "96 GB");
    send("update-1.1", "Vaskel 1.1");
    ASSERT_TRUE(answered(4));
    send("full", "100 GB");
    ASSERT_TRUE(answered(5));

    EXPECT_EQ(errors,
              (QList<std::optional<QString>>{"notifications are turned off", {}, {}, {}, {}}));
    std::vector<std::pair<uint, QString>> sent;  // the refused notice left no id behind
    for (const auto& notice : server.notices) {
        sent.emplace_back(notice.replacesId, notice.body);
        EXPECT_EQ(std::tuple(notice.appName, notice.summary, notice.actions,
                             notice.hints.value("desktop-entry"), notice.timeout),
                  std::tuple("Vaskel", "Vaskel is full", QStringList(), QVariant("vaskel"), -1));
        EXPECT_TRUE(notice.appIcon == "vaskel" || notice.appIcon.endsWith("/vaskel.svg"))
            << notice.appIcon.toStdString();
    }
    EXPECT_EQ(sent, (std::vector<std::pair<uint, QString>>{
                        {0, "95 GB"}, {0, "Vaskel 1.1"}, {1, "96 GB"}, {1, "100 GB"}}));
}

}  // namespace
