#include "menubar/menu_bar_controller.h"

#include <gtest/gtest.h>

#include <QAction>
#include <QCoreApplication>
#include <QFileInfo>
#include <QJsonDocument>
#include <QMenu>
#include <QTimer>

#include "menubar/status_texts.h"
#include "platform/desktop/menu_attention.h"
#include "platform/desktop/presentation.h"
#include "platform/network_session.h"
#include "shared/config.h"
#include "shared/key_storage.h"
#include "shared/keychain_store.h"
#include "support/command_fixture.h"
#include "support/event_loop_wait.h"
#include "support/fake_desktop.h"
#include "support/loopback_server.h"
#include "support/qt_printing.h"

using namespace testing_support;
using platform::ActivationPolicy;

namespace {

const char* const ME = "/vaskel/api/me";

std::string accountBody(qint64 used, qint64 quota, const std::string& extra = {}) {
    return R"({"email":"ada@example.com","name":"Ada","unlimited":false,"used_bytes":)" +
           std::to_string(used) + R"(,"quota_bytes":)" + std::to_string(quota) + extra + "}";
}

std::string updateOffer(const std::string& version, int build, const std::string& notes) {
    return R"(,"client":{"update_available":true,"latest":{"version":")" + version +
           R"(","build":)" + std::to_string(build) +
           R"(,"url":"https://example.com/v.dmg","notes":")" + notes + R"("}})";
}

class MenuBarControllerTest : public CommandFixture {
protected:
    void TearDown() override {
        platform.keychain.release();  // a start-up waiting on the keychain ends before the join
        controller.reset();
        platform::NetworkSession::shared().reset();
        server.stop();
    }

    void configure(const QString& key = "key-1") {
        Shared::setConfig("server", server.origin());
        Shared::storeKey(key, "ada@example.com");
    }
    void answer(const std::string& body, int status = 200) {
        server.script("GET", ME, {.status = status, .body = body});
    }
    void started() {
        controller->start();
        EXPECT_TRUE(runEventsUntil([&] { return controller->refreshTimer() != nullptr; }));
    }
    // Starts configured and connected, and waits for what start-up set going: two account
    // requests and a signal.
    void connected() {
        configure();
        registerOurDomain();
        started();
        ASSERT_TRUE(runEventsUntil([&] {
            return controller->lastRefresh().has_value() && server.requests().size() >= 2;
        }));
        runEventsUntil([] { return false; }, 100);
    }
    // Runs one account refresh to its end; a second later than the last one.
    void refresh(bool succeeds = true) {
        platform.clock.now += 1;
        const auto failures = platform.log.messages().filter("account refresh failed").size();
        controller->refreshAccount();
        ASSERT_TRUE(runEventsUntil([&] {
            return succeeds
                       ? controller->accountFetchedAt() == platform.clock.now
                       : platform.log.messages().filter("account refresh failed").size() > failures;
        }));
    }
    QStringList menuTitles() {
        QMenu* menu = item().menu;
        Q_EMIT menu->aboutToShow();
        QStringList titles;
        for (QAction* action : menu->actions())
            titles << (action->isSeparator() ? "-" : action->text());
        return titles;
    }
    QAction* menuItem(const QString& title) {
        for (QAction* action : item().menu->actions())
            if (action->text() == title) return action;
        return nullptr;
    }
    FakeStatusItem& item() { return *desktop.statusBar.item; }
    void writeRates(double down, double up, double age = 1) {
        writeFile(
            platform.container.dir + "/group.com.norva.vaskel/stats.json",
            QJsonDocument(
                QJsonObject{{"down_bps", down}, {"up_bps", up}, {"at", platform.clock.now - age}})
                .toJson());
    }

    FakeDesktop desktop;
    LoopbackServer server;
    std::unique_ptr<MenuBarController> controller = std::make_unique<MenuBarController>();
};

TEST_F(MenuBarControllerTest, NotConfiguredShowsSetupAfterAMomentAndRunsBothTimers) {
    Shared::setConfig("server", server.origin());  // a server alone is not a setup
    platform.log.clear();
    started();
    EXPECT_EQ(platform.log.messages(),
              (QStringList{"Vaskel 20261007-080416 starting", "status item created",
                           "not configured; showing setup as a normal app"}));
    EXPECT_TRUE(desktop.setup.presented.empty());
    ASSERT_TRUE(runEventsUntil([&] { return !desktop.setup.presented.empty(); }, 1000));
    EXPECT_EQ(platform::Presentation::shared().activationPolicy(), ActivationPolicy::regular);
    EXPECT_EQ(item().symbol(), "cloud");
    EXPECT_EQ(controller->refreshTimer()->interval(), 60000);
    EXPECT_EQ(controller->tickTimer()->interval(), 1000);
    EXPECT_TRUE(server.requests().empty());
    EXPECT_TRUE(desktop.notifications.shown.empty()) << "there is a tray";

    // Dismissing while still not configured keeps the regular presentation; once configured,
    // it turns to the tray alone.
    desktop.setup.presented[0].onDismiss();
    EXPECT_EQ(platform::Presentation::shared().activationPolicy(), ActivationPolicy::regular);
    configure();
    desktop.setup.presented[0].onDismiss();
    EXPECT_EQ(platform::Presentation::shared().activationPolicy(), ActivationPolicy::accessory);
}

TEST_F(MenuBarControllerTest, NeitherAMissingTrayNorAKeychainThatDoesNotAnswerHoldsUpTheItem) {
    configure();
    platform.keychain.hold();
    desktop.statusBar.button = false;
    controller->trayGrace = 0.05;
    controller->start();
    EXPECT_EQ(item().symbol(), "cloud") << "the item keeps its state for a tray that comes later";
    EXPECT_TRUE(
        platform.log.messages().contains("status item has no button — menu bar may be full"));
    EXPECT_EQ(controller->refreshTimer(), nullptr) << "the rest waits for the keychain";
    // The user is told how to reach the agent.
    ASSERT_TRUE(runEventsUntil([&] { return !desktop.notifications.shown.empty(); }, 1000));
    EXPECT_EQ(desktop.notifications.shown[0].identifier, "vaskel-no-tray");
    EXPECT_EQ(desktop.notifications.shown[0].title, "Vaskel is running");
    platform.keychain.release();
    EXPECT_TRUE(runEventsUntil([&] { return controller->refreshTimer() != nullptr; }));
    EXPECT_TRUE(
        platform.log.messages().contains("config present; checking whether it actually works"));
}

TEST_F(MenuBarControllerTest, ConfiguredWithoutDomainRegistersUnderTheServersAddressOrShowsSetup) {
    configure();
    answer(R"({"email":"server@example.com"})");
    started();
    ASSERT_TRUE(runEventsUntil([&] { return controller->domainRegistered(); }));
    EXPECT_EQ(Shared::configString(Shared::readConfig(), "account_email"), "server@example.com");
    EXPECT_TRUE(QFileInfo(folderOf("server@example.com")).isDir());
    EXPECT_EQ(platform::Presentation::shared().activationPolicy(), ActivationPolicy::accessory);
    EXPECT_TRUE(platform.log.messages().contains("key works; connecting as server@example.com"));

    // Rejected key: setup, and the configuration stays as it is.
    controller = std::make_unique<MenuBarController>();
    ASSERT_TRUE(QFile::remove(provider.registryPath()));
    answer("", 401);
    const QByteArray before = readFile(Shared::configPath());
    started();
    ASSERT_TRUE(runEventsUntil([&] { return !desktop.setup.presented.empty(); }));
    EXPECT_EQ(readFile(Shared::configPath()), before);
    EXPECT_FALSE(controller->domainRegistered());
}

TEST_F(MenuBarControllerTest, RefusedRegistrationExplainsAndShowsTheDisconnectedIcon) {
    configure();
    answer(R"({"email":"ada@example.com"})");
    writeFile(folderOf("ada@example.com"), "a file where the folder belongs");
    started();
    ASSERT_TRUE(runEventsUntil([&] { return !desktop.alerts.shown.empty(); }));
    const platform::Alert& alert = desktop.alerts.shown[0];
    EXPECT_EQ(alert.messageText, "Vaskel could not connect this Mac");
    EXPECT_TRUE(alert.informativeText.startsWith(
        "Signing in worked, but macOS refused to add the Vaskel folder.\n\nthe synced folder"));
    EXPECT_TRUE(
        alert.informativeText.endsWith("\n\nIf this persists, quit Vaskel and open it again."));
    EXPECT_TRUE(runEventsUntil([&] { return item().symbol() == "icloud.slash"; }));
    EXPECT_FALSE(controller->domainRegistered());
}

TEST_F(MenuBarControllerTest, ConnectsWithoutValidatingTheKeyAndSendsNoticesOncePerOccasion) {
    answer(accountBody(1, 10));
    connected();
    EXPECT_TRUE(platform.log.messages().contains("connected; running in the menu bar"));
    EXPECT_EQ(platform::Presentation::shared().activationPolicy(), ActivationPolicy::accessory);
    EXPECT_EQ(provider.workingSetSignals(DOMAIN_ID), 1);
    EXPECT_EQ(server.requests().size(), 2u) << "the start-up refresh and the one after connecting";

    desktop.notifications.error = "refused";
    const std::pair<std::string, int> fetches[] = {
        {accountBody(10, 10), 1},                            // full
        {accountBody(10, 10), 1},                            // still full: no second notice
        {accountBody(5, 10), 1},                             // not full: marker removed
        {accountBody(10, 10), 2},                            // full again
        {accountBody(1, 10, updateOffer("2.0", 7, "")), 3},  // an update
        {accountBody(1, 10, updateOffer("2.0", 7, "")), 3},  // the same one
        {accountBody(1, 10), 3},                             // gone
        {accountBody(1, 10, updateOffer("2.0", 7, "")), 3},  // back: not again
        {accountBody(1, 10, updateOffer("2.0", 8, "Faster.")), 4},
    };
    for (const auto& [body, count] : fetches) {
        answer(body);
        refresh();
        EXPECT_EQ(desktop.notifications.shown.size(), size_t(count)) << body;
    }
    const auto& shown = desktop.notifications.shown;
    EXPECT_EQ(shown[0].identifier, "vaskel-full");
    EXPECT_EQ(shown[0].title, "Vaskel is full");
    EXPECT_EQ(shown[0].body,
              "10 bytes of 10 bytes used. New files are waiting on this Mac and will upload once "
              "there is room. Open the Vaskel menu to get more space.");
    EXPECT_EQ(shown[2].identifier, "vaskel-update-2.0 (7)");
    EXPECT_EQ(shown[2].title, "Vaskel 2.0 is available");
    EXPECT_EQ(shown[2].body, "Choose Download from the Vaskel menu to install it.");
    EXPECT_EQ(shown[3].body, "Faster.");
    EXPECT_TRUE(platform.log.messages().contains("full notification failed: refused"));
    EXPECT_EQ(desktop.defaults.string("notifiedUpdate"), "2.0 (8)");

    // A failed fetch keeps the last account; a refresh without a key clears it.
    answer("", 500);
    refresh(false);
    EXPECT_TRUE(controller->account().has_value());
    KeychainStore::deleteKey();
    Shared::setConfig("api_key", "");
    controller->refreshAccount();
    EXPECT_FALSE(controller->account().has_value());
}

TEST_F(MenuBarControllerTest, IconFollowsItsPrecedenceAndTheTooltipSaysTheSame) {
    connected();
    const QString checked = "Last checked " + shortTime(platform.clock.now);
    struct Case {
        bool paused;
        double down, up, age;
        std::string account;
        const char* symbol;
        const char* description;
        const char* title;
        QString tooltip;
    };
    const Case cases[] = {
        {true, 5000, 0, 1, accountBody(96, 100), "pause.circle", "Transfers paused", "",
         "Vaskel\nTransfers paused\n96 bytes of 100 bytes used (96%)\n" + checked},
        {false, 0, 5000, 1, accountBody(95, 100), "arrow.up.arrow.down.circle", "Transferring",
         " 5 KB/s", "Vaskel\n↓ 0 B/s   ↑ 5 KB/s\n95 bytes of 100 bytes used (95%)\n" + checked},
        {false, 9000, 0, 5, accountBody(95, 100), "exclamationmark.icloud", "Vaskel almost full",
         "", "Vaskel\nIdle\n95 bytes of 100 bytes used (95%)\n" + checked},
        {false, 0, 0, 1, accountBody(94, 100, R"(,"status":"past_due")"), "exclamationmark.icloud",
         "Vaskel payment needed", "",
         "Vaskel\nIdle\n94 bytes of 100 bytes used (94%)\nPayment failed – update your card…\n" +
             checked},
        {false, 0, 0, 1, R"({"email":"a@b","used_bytes":5)" + updateOffer("3.1", 0, "") + "}",
         "exclamationmark.icloud", "Vaskel update available", "",
         "Vaskel\nIdle\n5 bytes used\nUpdate available: Vaskel 3.1\n" + checked},
        {false, 0, 0, 1, accountBody(1, 100), "cloud", "Vaskel", "",
         "Vaskel\nIdle\n1 byte of 100 bytes used (1%)\n" + checked},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.symbol) + " " + c.description);
        Shared::setConfig("transfers_paused", c.paused);
        writeRates(c.down, c.up, c.age);
        answer(c.account);
        refresh();
        EXPECT_EQ(item().symbol(), c.symbol);
        EXPECT_EQ(item().description, c.description);
        EXPECT_EQ(item().title(), c.title);
        EXPECT_EQ(item().toolTip(), c.tooltip);
    }

    // Without a domain: the slashed cloud, and "Not connected" comes before the pause.
    Shared::setConfig("transfers_paused", true);
    controller->removeDomainSilently();
    ASSERT_TRUE(runEventsUntil([&] { return !controller->domainRegistered(); }));
    EXPECT_TRUE(item().toolTip().startsWith("Vaskel\nNot connected\n"));
    Shared::setConfig("transfers_paused", false);
    controller->updateStatusItem();
    EXPECT_EQ(item().symbol(), "icloud.slash");

    // A symbol the desktop lacks leaves the text label.
    item().known.clear();
    controller->updateStatusItem();
    EXPECT_EQ(item().symbol(), "");
    EXPECT_EQ(item().title(), "Vaskel");
    EXPECT_TRUE(
        platform.log.messages().contains("symbol icloud.slash unavailable; using a text label"));
}

TEST_F(MenuBarControllerTest, MenuRowsFollowTheSetup) {
    started();
    const QStringList common{"-", "Download Limit",        "Upload Limit",      "Pause Transfers",
                             "-", "Check for Changes Now", "Open Vaskel Folder"};
    EXPECT_EQ(menuTitles(), (QStringList{"Not set up"} + common +
                             QStringList{"-", "Set Up Vaskel…", "Open at Login", "-",
                                         "Vaskel 1.0 (1)", "Quit Vaskel"}));
    EXPECT_EQ(menuItem("Vaskel 1.0 (1)")->toolTip(), "Build 20261007-080416");
    EXPECT_FALSE(menuItem("Not set up")->isEnabled());
    EXPECT_EQ(menuItem("Quit Vaskel")->shortcut(), QKeySequence("Ctrl+Q"));

    configure();
    answer(accountBody(100, 100, R"(,"status":"suspended")" + updateOffer("2.0", 7, "Notes")));
    EXPECT_EQ(menuTitles(), (QStringList{"Not connected"} + common +
                             QStringList{"Browse Files Online", "-", "Account…", "Connect Vaskel",
                                         "Open at Login", "-", "Vaskel 1.0 (1)", "Quit Vaskel"}))
        << "no account yet, so the opening fetched one";
    ASSERT_TRUE(runEventsUntil([&] { return controller->account().has_value(); }));

    registerOurDomain();
    controller->findDomain();
    ASSERT_TRUE(runEventsUntil([&] { return controller->domainRegistered(); }));
    Shared::setConfig("max_upload_kbps", 5000);
    Shared::setConfig("transfers_paused", 1);
    desktop.loginItems.enabled = true;
    const QStringList titles = menuTitles();
    EXPECT_EQ(titles.mid(0, 6),
              (QStringList{"Transfers paused", "100 bytes of 100 bytes used (100%)",
                           "Vaskel is full – new files are waiting. Get more space…",
                           "Access paused – payment needed…",
                           "Update available: Vaskel 2.0 – Download…", "-"}));
    EXPECT_TRUE(titles.contains("Disconnect Vaskel") && titles.contains("Resume Transfers"));
    EXPECT_TRUE(platform::needsAttention(menuItem("Access paused – payment needed…")));
    EXPECT_EQ(menuItem("Update available: Vaskel 2.0 – Download…")->toolTip(), "Notes");
    EXPECT_TRUE(menuItem("Open at Login")->isChecked());

    // Each limit: the preset checked now, and what choosing another one writes.
    const std::tuple<const char*, const char*, int, const char*, int> limits[] = {
        {"Download Limit", "Unlimited", 3, "max_download_kbps", 1000},
        {"Upload Limit", "5 MB/s", 0, "max_upload_kbps", 0}};
    for (const auto& [submenu, checked, choice, key, kbps] : limits) {
        const QList<QAction*> presets = menuItem(submenu)->menu()->actions();
        QStringList on;
        for (QAction* preset : presets)
            if (preset->isChecked()) on << preset->text();
        EXPECT_EQ(on, QStringList{checked}) << submenu;
        presets[choice]->trigger();
        EXPECT_EQ(Shared::readConfig()[key], kbps) << submenu;
    }
    // Resuming writes the configuration too; an action with data of another shape changes
    // nothing.
    menuItem("Resume Transfers")->trigger();
    const QJsonObject config = Shared::readConfig();
    EXPECT_EQ(config["transfers_paused"], false);
    QAction odd;
    odd.setData(QVariantList{42, "x"});
    controller->setLimit(&odd);
    EXPECT_EQ(Shared::readConfig(), config);
}

TEST_F(MenuBarControllerTest, MenuActions) {
    connected();
    const QString cursor = platform.container.dir + "/group.com.norva.vaskel/cursor.json";

    controller->openPortal();
    controller->openOnline();
    controller->openFolder();
    ASSERT_TRUE(runEventsUntil([&] { return desktop.workspace.opened.size() == 3; }));
    EXPECT_EQ(desktop.workspace.opened[0].toString(), server.origin() + "/vaskel/account/");
    EXPECT_EQ(desktop.workspace.opened[1].toString(),
              server.origin() + "/vaskel/account/files#files");
    EXPECT_EQ(desktop.workspace.opened[2], QUrl::fromLocalFile(folderOf("Vaskel")));

    controller->toggleLogin();
    EXPECT_TRUE(desktop.loginItems.enabled);
    desktop.loginItems.failure = "read-only";
    controller->toggleLogin();
    EXPECT_TRUE(platform.log.messages().contains("login item change failed: read-only"));

    // Disconnect: cancel changes nothing; confirm removes the domain and keeps the cursor.
    writeFile(cursor, "{}");
    desktop.alerts.answers = {1001, 1000};
    controller->removeDomainAction();
    EXPECT_EQ(desktop.alerts.shown.back().messageText, "Disconnect Vaskel?");
    controller->removeDomainAction();
    ASSERT_TRUE(runEventsUntil([&] { return !controller->domainRegistered(); }));
    EXPECT_TRUE(QFile::exists(cursor));
    EXPECT_TRUE(menuTitles().contains("Connect Vaskel"));
    controller->openFolder();
    EXPECT_TRUE(platform.log.messages().contains("open folder: no domain registered"));

    // The setup window's callbacks: a sign-in forgets the cursor and registers; a sign-out
    // unregisters and forgets it again.
    controller->showSetup();
    ASSERT_EQ(desktop.setup.presented.size(), 1u);
    EXPECT_EQ(platform::Presentation::shared().activationPolicy(), ActivationPolicy::regular);
    desktop.setup.presented[0].onConnected();
    EXPECT_FALSE(QFile::exists(cursor));
    ASSERT_TRUE(runEventsUntil([&] { return controller->domainRegistered(); }));
    writeFile(cursor, "{}");
    desktop.setup.presented[0].onSignedOut();
    ASSERT_TRUE(runEventsUntil([&] { return !controller->domainRegistered(); }));
    EXPECT_FALSE(QFile::exists(cursor));
}

TEST_F(MenuBarControllerTest, UpdateFlowExplainsThenDownloadsAndQuits) {
    connected();
    controller->openUpdate();  // no offer: nothing
    EXPECT_TRUE(desktop.alerts.shown.empty());
    for (const auto& [notes, opening] :
         {std::pair{std::string(""), QString("To install it:\n1. Click Quit Vaskel & Download.")},
          {"Fixes.", "Fixes.\n\nTo install it:\n"}}) {
        answer(accountBody(1, 10, updateOffer("2.0", 7, notes)));
        refresh();
        desktop.alerts.answers = {1001};
        controller->openUpdate();
        const platform::Alert& alert = desktop.alerts.shown.back();
        EXPECT_EQ(alert.messageText, "Vaskel 2.0 is available");
        EXPECT_TRUE(alert.informativeText.startsWith(opening))
            << alert.informativeText.toStdString();
        EXPECT_TRUE(alert.informativeText.endsWith(
            "4. Eject the disk image, then open Vaskel from Applications.\n\nYour sign-in and "
            "files are kept."));
        EXPECT_EQ(alert.buttons, (QStringList{"Quit Vaskel & Download", "Later"}));
        EXPECT_EQ(platform::Presentation::shared().activationPolicy(), ActivationPolicy::accessory);
    }
    EXPECT_TRUE(desktop.workspace.opened.empty());

    desktop.alerts.answers = {1000};
    controller->openUpdate();
    EXPECT_EQ(desktop.workspace.opened.back().toString(), "https://example.com/v.dmg");
    EXPECT_TRUE(platform.log.messages().contains("update: quitting to install 2.0 (7)"));
}

}  // namespace
