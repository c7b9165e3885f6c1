// The built vaskel in application mode on a private session bus, as a desktop would run it: a
// panel of the test's own shows its item, a notification server of the test's own records its
// notices, and a vaskel-devserver is the storage server.
#include <gtest/gtest.h>

#include <QDBusConnection>
#include <QDir>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>

#include "support/event_loop_wait.h"
#include "support/fake_notification_server.h"
#include "support/fake_panel.h"
#include "support/qt_printing.h"
#include "support/run_program.h"
#include "support/test_files.h"

namespace {

using namespace testing_support;

TEST(SessionBusAgent, ConnectsShowsTheAccountInTheMenuAndTellsOnceThatItIsFull) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "ThreadSanitizer cannot follow a process that forks while other threads run";
#endif
    QProcess server;
    server.start(QStringLiteral(VASKEL_DEVSERVER),
                 {"--port", "0", "--key", "e2e-key", "--quota-bytes", "5000000000", "--used-bytes",
                  "5000000000"});
    ASSERT_TRUE(server.waitForReadyRead(10'000));
    const QString origin = QRegularExpression(QStringLiteral("http://127\\.0\\.0\\.1:\\d+"))
                               .match(QString::fromUtf8(server.readLine()))
                               .captured();
    ASSERT_FALSE(origin.isEmpty());

    QTemporaryDir home;
    writeFile(home.path() + "/.vaskel/config.json",
              QStringLiteral(R"({"server": "%1", "api_key": "e2e-key",
                                 "account_email": "demo@example.com"})")
                  .arg(origin)
                  .toUtf8());
    QFile::setPermissions(home.path() + "/.vaskel/config.json",
                          QFile::ReadOwner | QFile::WriteOwner);
    ASSERT_EQ(runVaskel({"--add"}, home.path()).exitStatus, 0);

    FakePanel panel;
    FakeNotificationServer notifications;
    ASSERT_TRUE(panel.start() && notifications.start());

    QProcessEnvironment extra;
    extra.insert("DBUS_SESSION_BUS_ADDRESS", qEnvironmentVariable("DBUS_SESSION_BUS_ADDRESS"));
    extra.insert("QT_QPA_PLATFORM", "offscreen");
    QProcess agent;
    agent.setProcessEnvironment(vaskelEnvironment(home.path(), extra));
    agent.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    agent.start(vaskelExecutable(), {});
    ASSERT_TRUE(panel.waitForRegistrations(1, 15'000));

    // Both start-up fetches see a full account; the user hears of it once.
    ASSERT_TRUE(runEventsUntil([&] { return !notifications.notices.empty(); }, 15'000));
    runEventsUntil([] { return false; }, 1500);
    ASSERT_EQ(notifications.notices.size(), 1u);
    EXPECT_EQ(notifications.notices[0].summary, "Vaskel is full");
    EXPECT_TRUE(notifications.notices[0].body.startsWith("5 GB of 5 GB used. New files are"));

    // The menu is built when the panel opens it; the account shows once it has been fetched.
    const QString glance = "Pro · 5 GB of 5 GB used (100%)";
    QStringList labels;
    ASSERT_TRUE(runEventsUntil(
        [&] {
            panel.callMenu("AboutToShow", {0});
            labels.clear();
            for (const auto& entry : panel.menuLayout().value_or(FakePanel::MenuEntry()).children)
                labels << entry.label();
            return labels.contains(glance);
        },
        10'000))
        << labels.join(" | ").toStdString();
    EXPECT_EQ(labels.first(), "Up to date");
    for (const char* label : {"Vaskel is full – new files are waiting. Get more space…",
                              "Disconnect Vaskel", "Quit Vaskel"})
        EXPECT_TRUE(labels.contains(label)) << label;
    EXPECT_EQ(panel.itemProperty("IconName").toString(), "vaskel-cloud-attention-symbolic");

    agent.terminate();
    EXPECT_TRUE(agent.waitForFinished(10'000));
    server.terminate();
    server.waitForFinished(10'000);
}

}  // namespace
