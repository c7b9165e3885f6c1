#include "menubar/menu_bar_controller.h"

#include <gtest/gtest.h>

#include <QAction>
#include <QFileInfo>
#include <QMenu>
#include <QTimer>

#include "menubar/status_texts.h"
#include "platform/desktop/menu_attention.h"
#include "platform/desktop/presentation.h"
#include "platform/network_session.h"
#include "shared/config.h"
#include "shared/key_storage.h"
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

    void configure() {
        Shared::setConfig("server", server.origin());
        Shared::storeKey("key-1", "ada@example.com");
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
    // Runs one account refresh to its end, a fetch or a failure, a second after the last one.
    void refresh() {
        platform.clock.now += 1;
        auto failures = [&] { return platform.log.messages().filter("refresh failed").size(); };
        const auto before = failures();
        controller->refreshAccount();
        ASSERT_TRUE(runEventsUntil([&] {
            return controller->accountFetchedAt() == platform.clock.now || failures() > before;
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
    static ActivationPolicy policy() { return platform::Presentation::shared().activationPolicy(); }
    bool logged(const QString& line) { return platform.log.messages().contains(line); }
    void writeRates(double down, double up, double age) {
        writeFile(platform.container.dir + "/group.com.norva.vaskel/stats.json",
                  QString::asprintf(R"({"down_bps":%f,"up_bps":%f,"at":%f})", down, up,
                                    platform.clock.now - age)
                      .toUtf8());
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
    EXPECT_EQ(std::tuple(policy(), item().symbol(), controller->refreshTimer()->interval(),
                         controller->tickTimer()->interval(), server.requests().size(),
                         desktop.notifications.shown.size()),
              std::tuple(ActivationPolicy::regular, "cloud", 60000, 1000, 0u, 0u));

    // Dismissing once configured turns to the tray alone.
    configure();
    desktop.setup.presented[0].onDismiss();
    EXPECT_EQ(policy(), ActivationPolicy::accessory);
}

TEST_F(MenuBarControllerTest, NeitherAMissingTrayNorAKeychainThatDoesNotAnswerHoldsUpTheItem) {
    configure();
    platform.keychain.hold();
    desktop.statusBar.button = false;
    controller->trayGrace = 0.05;
    controller->start();
    EXPECT_EQ(item().symbol(), "cloud") << "the item keeps its state for a tray that comes later";
    EXPECT_TRUE(logged("status item has no button — menu bar may be full"));
    EXPECT_EQ(controller->refreshTimer(), nullptr) << "the rest waits for the keychain";
    // The user is told how to reach the agent.
    ASSERT_TRUE(runEventsUntil([&] { return !desktop.notifications.shown.empty(); }, 1000));
    EXPECT_EQ(
        std::pair(desktop.notifications.shown[0].identifier, desktop.notifications.shown[0].title),
        std::pair(QString("vaskel-no-tray"), QString("Vaskel is running")));
    platform.keychain.release();
    EXPECT_TRUE(runEventsUntil([&] { return controller->refreshTimer() != nullptr; }));
    EXPECT_TRUE(logged("config present; checking whether it actually works"));
}

TEST_F(MenuBarControllerTest, ConfiguredWithoutDomainRegistersUnderTheServersAddressOrShowsSetup) {
    configure();
    answer(R"({"email":"server@example.com"})");
    started();
    ASSERT_TRUE(runEventsUntil([&] { return controller->domainRegistered(); }));
    EXPECT_EQ(Shared::configString(Shared::readConfig(), "account_email"), "server@example.com");
    EXPECT_TRUE(QFileInfo(folderOf("server@example.com")).isDir());
    EXPECT_EQ(policy(), ActivationPolicy::accessory);
    EXPECT_TRUE(logged("key works; connecting as server@example.com"));

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
    EXPECT_TRUE(logged("connected; running in the menu bar"));
    EXPECT_EQ(policy(), ActivationPolicy::accessory);
    EXPECT_EQ(provider.workingSetSignals(DOMAIN_ID), 1);
    EXPECT_EQ(server.requests().size(), 2u) << "the start-up refresh and the one after connecting";

    desktop.notifications.error = "refused";
    const std::string offer7 = updateOffer("2.0", 7, "");
    // Each fetch and the notices sent so far: full, still full, not full (marker removed), full
    // again, an update, the same one, gone, back (not again), a newer one.
    // clang-format off
    const std::pair<std::string, int> fetches[] = {
        {accountBody(10, 10), 1}, {accountBody(10, 10), 1}, {accountBody(5, 10), 1}, {accountBody(10, 10), 2},
        {accountBody(1, 10, offer7), 3}, {accountBody(1, 10, offer7), 3}, {accountBody(1, 10), 3},
        {accountBody(1, 10, offer7), 3}, {accountBody(1, 10, updateOffer("2.0", 8, "Faster.")), 4}};
    // clang-format on
    for (const auto& [body, count] : fetches) {
        answer(body);
        refresh();
        EXPECT_EQ(desktop.notifications.shown.size(), size_t(count)) << body;
    }
    const QString full =
        "vaskel-full | Vaskel is full | 10 bytes of 10 bytes used. New files are waiting on this "
        "Mac and will upload once there is room. Open the Vaskel menu to get more space.";
    QStringList notices;
    for (const auto& shown : desktop.notifications.shown)
        notices << shown.identifier + " | " + shown.title + " | " + shown.body;
    EXPECT_EQ(notices, (QStringList{full, full,
                                    "vaskel-update-2.0 (7) | Vaskel 2.0 is available | Choose "
                                    "Download from the Vaskel menu to install it.",
                                    "vaskel-update-2.0 (8) | Vaskel 2.0 is available | Faster."}));
    EXPECT_TRUE(logged("full notification failed: refused"));
    EXPECT_EQ(desktop.defaults.string("notifiedUpdate"), "2.0 (8)");

    answer("", 500);
    refresh();
    EXPECT_TRUE(controller->account().has_value()) << "a failed fetch keeps the last account";
}

TEST_F(MenuBarControllerTest, IconFollowsItsPrecedenceAndTheTooltipSaysTheSame) {
    connected();
    const QString checked = "\nLast checked " + shortTime(platform.clock.now);
    auto shown = [&] {
        return QStringList{item().symbol(), item().description, item().title(), item().toolTip()}
            .join(" | ");
    };
    // Paused, download and upload rates and their age, the account, and what the item shows:
    // symbol | description | title | tooltip without its last line.
    using Case = std::tuple<bool, double, double, double, std::string, QString>;
    // clang-format off
    const Case cases[] = {
        {true, 5000, 0, 1, accountBody(96, 100), "pause.circle | Transfers paused |  | Vaskel\nTransfers paused\n96 bytes of 100 bytes used (96%)"},
        {false, 0, 5000, 1, accountBody(95, 100), "arrow.up.arrow.down.circle | Transferring |  5 KB/s | Vaskel\n↓ 0 B/s   ↑ 5 KB/s\n95 bytes of 100 bytes used (95%)"},
        {false, 9000, 0, 5, accountBody(95, 100), "exclamationmark.icloud | Vaskel almost full |  | Vaskel\nIdle\n95 bytes of 100 bytes used (95%)"},
        {false, 0, 0, 1, accountBody(94, 100, R"(,"status":"past_due")"), "exclamationmark.icloud | Vaskel payment needed |  | Vaskel\nIdle\n94 bytes of 100 bytes used (94%)\nPayment failed – update your card…"},
        {false, 0, 0, 1, R"({"email":"a@b","used_bytes":5)" + updateOffer("3.1", 0, "") + "}", "exclamationmark.icloud | Vaskel update available |  | Vaskel\nIdle\n5 bytes used\nUpdate available: Vaskel 3.1"},
        {false, 0, 0, 1, accountBody(1, 100), "cloud | Vaskel |  | Vaskel\nIdle\n1 byte of 100 bytes used (1%)"},
    };
    // clang-format on
    for (const auto& [paused, down, up, age, account, expected] : cases) {
        Shared::setConfig("transfers_paused", paused);
        writeRates(down, up, age);
        answer(account);
        refresh();
        EXPECT_EQ(shown(), expected + checked);
    }

    // Without a domain: the slashed cloud, and "Not connected" comes before the pause.
    Shared::setConfig("transfers_paused", true);
    controller->removeDomainSilently();
    ASSERT_TRUE(runEventsUntil([&] { return !controller->domainRegistered(); }));
    EXPECT_TRUE(item().toolTip().startsWith("Vaskel\nNot connected\n"));
    Shared::setConfig("transfers_paused", false);
    controller->updateStatusItem();
    EXPECT_EQ(item().symbol(), "icloud.slash");
}

TEST_F(MenuBarControllerTest, MenuRowsFollowTheSetup) {
    started();
    const QString tail = "Check for Changes Now | Open Vaskel Folder | ";
    EXPECT_EQ(menuTitles().join(" | "),
              "Not set up | - | Download Limit | Upload Limit | Pause Transfers | - | " + tail +
                  "- | Set Up Vaskel… | Open at Login | - | Vaskel 1.0 (1) | Quit Vaskel");
    EXPECT_EQ(std::tuple(menuItem("Vaskel 1.0 (1)")->toolTip(), menuItem("Not set up")->isEnabled(),
                         menuItem("Quit Vaskel")->shortcut().toString()),
              std::tuple("Build 20261007-080416", false, "Ctrl+Q"));

    configure();
    answer(accountBody(100, 100, R"(,"status":"suspended")" + updateOffer("2.0", 7, "Notes")));
    menuTitles();
    ASSERT_TRUE(runEventsUntil([&] { return controller->account().has_value(); }))
        << "no account yet, so the opening fetched one";

    registerOurDomain();
    controller->findDomain();
    ASSERT_TRUE(runEventsUntil([&] { return controller->domainRegistered(); }));
    Shared::setConfig("max_upload_kbps", 5000);
    Shared::setConfig("transfers_paused", 1);
    desktop.loginItems.enabled = true;
    EXPECT_EQ(
        menuTitles().join(" | "),
        "Transfers paused | 100 bytes of 100 bytes used (100%) | Vaskel is full – new files "
        "are waiting. Get more space… | Access paused – payment needed… | Update available: "
        "Vaskel 2.0 – Download… | - | Download Limit | Upload Limit | Resume Transfers | - | " +
            tail +
            "Browse Files Online | - | Account… | Disconnect Vaskel | Open at Login | - | "
            "Vaskel 1.0 (1) | Quit Vaskel");
    EXPECT_EQ(std::tuple(platform::needsAttention(menuItem("Access paused – payment needed…")),
                         menuItem("Update available: Vaskel 2.0 – Download…")->toolTip(),
                         menuItem("Open at Login")->isChecked()),
              std::tuple(true, "Notes", true));

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
    menuItem("Resume Transfers")->trigger();
    EXPECT_EQ(Shared::readConfig()["transfers_paused"], false);
}

TEST_F(MenuBarControllerTest, MenuActionsAndTheUpdateFlow) {
    connected();
    const QString cursor = platform.container.dir + "/group.com.norva.vaskel/cursor.json";

    controller->openPortal();
    controller->openOnline();
    controller->openFolder();
    runEventsUntil([&] { return desktop.workspace.opened.size() == 3; });
    EXPECT_EQ(desktop.workspace.opened,
              (std::vector<QUrl>{server.origin() + "/vaskel/account/",
                                 server.origin() + "/vaskel/account/files#files",
                                 QUrl::fromLocalFile(folderOf("Vaskel"))}));
    desktop.workspace.opened.clear();

    controller->toggleLogin();
    EXPECT_TRUE(desktop.loginItems.enabled);

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
        EXPECT_EQ(
            std::tuple(alert.messageText, alert.buttons, policy()),
            std::tuple("Vaskel 2.0 is available", QStringList{"Quit Vaskel & Download", "Later"},
                       ActivationPolicy::accessory));
        EXPECT_TRUE(alert.informativeText.startsWith(opening) &&
                    alert.informativeText.endsWith("4. Eject the disk image, then open Vaskel "
                                                   "from Applications.\n\nYour sign-in and "
                                                   "files are kept."))
            << alert.informativeText.toStdString();
    }
    EXPECT_TRUE(desktop.workspace.opened.empty());

    desktop.alerts.answers = {1000};
    controller->openUpdate();
    EXPECT_EQ(desktop.workspace.opened.back().toString(), "https://example.com/v.dmg");
    EXPECT_TRUE(logged("update: quitting to install 2.0 (7)"));

    // Disconnect: cancel changes nothing; confirm removes the domain and keeps the cursor.
    writeFile(cursor, "{}");
    desktop.alerts.answers = {1001, 1000};
    controller->removeDomainAction();
    EXPECT_EQ(desktop.alerts.shown.back().messageText, "Disconnect Vaskel?");
    controller->removeDomainAction();
    ASSERT_TRUE(runEventsUntil([&] { return !controller->domainRegistered(); }));
    EXPECT_TRUE(QFile::exists(cursor));
    EXPECT_TRUE(menuTitles().contains("Connect Vaskel"));

    // The setup window's callbacks: a sign-in forgets the cursor and registers; a sign-out
    // unregisters and forgets it again.
    controller->showSetup();
    ASSERT_EQ(desktop.setup.presented.size(), 1u);
    EXPECT_EQ(policy(), ActivationPolicy::regular);
    desktop.setup.presented[0].onConnected();
    EXPECT_FALSE(QFile::exists(cursor));
    ASSERT_TRUE(runEventsUntil([&] { return controller->domainRegistered(); }));
    writeFile(cursor, "{}");
    desktop.setup.presented[0].onSignedOut();
    ASSERT_TRUE(runEventsUntil([&] { return !controller->domainRegistered(); }));
    EXPECT_FALSE(QFile::exists(cursor));
}

}  // namespace
