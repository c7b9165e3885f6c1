#include "platform/desktop/notification_center.h"

#include <gtest/gtest.h>

#include "support/event_loop_wait.h"
#include "support/fake_notification_server.h"
#include "support/qt_printing.h"

// On a private session bus only (see tests/CMakeLists.txt), with a notification server of the
// test's own or none at all.

namespace {

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
    server.stop();
    send("absent", "no server");
    ASSERT_TRUE(answered(6));

    EXPECT_EQ(errors.mid(0, 5),
              (QList<std::optional<QString>>{"notifications are turned off", {}, {}, {}, {}}));
    EXPECT_TRUE(errors[5].has_value());
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
