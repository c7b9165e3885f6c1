#include "platform/desktop/notification_center.h"

#include <gtest/gtest.h>

#include "support/event_loop_wait.h"
#include "support/fake_notification_server.h"
#include "support/qt_printing.h"

// On a private session bus only (see tests/CMakeLists.txt), with a notification server of the
// test's own or none at all.

namespace {

using testing_support::runEventsUntil;

// Sends `request` and waits for its completion; the completion must not run inside `add`.
std::optional<QString> post(const platform::NotificationRequest& request) {
    std::optional<std::optional<QString>> result;
    platform::NotificationCenter::real().add(request, [&](auto error) { result = error; });
    EXPECT_FALSE(result.has_value());
    EXPECT_TRUE(runEventsUntil([&] { return result.has_value(); }, 8000));
    return result.value_or("no answer");
}

std::optional<bool> authorization() {
    std::optional<bool> granted;
    platform::NotificationCenter::real().requestAuthorization([&](bool g) { granted = g; });
    EXPECT_FALSE(granted.has_value());
    runEventsUntil([&] { return granted.has_value(); }, 8000);
    return granted;
}

TEST(SessionBusNotifications, ANoticeReplacesTheLastOneOfItsIdentifier) {
    testing_support::FakeNotificationServer server;
    ASSERT_TRUE(server.start());
    EXPECT_EQ(authorization(), true);

    // Sent back to back: the second notice of an identifier waits for the first one's id.
    int completions = 0;
    auto count = [&](std::optional<QString> error) {
        EXPECT_FALSE(error.has_value()) << error.value_or("").toStdString();
        ++completions;
    };
    auto& center = platform::NotificationCenter::real();
    center.add({"replace-full", "Vaskel is almost full", "Used 95 GB of 100 GB"}, count);
    center.add({"replace-full", "Vaskel is almost full", "Used 96 GB of 100 GB"}, count);
    center.add({"replace-update-1.1", "Update available", "Vaskel 1.1"}, count);
    ASSERT_TRUE(runEventsUntil([&] { return completions == 3; }));
    EXPECT_FALSE(post({"replace-full", "Vaskel is full", "Used 100 GB of 100 GB"}));

    // The first full notice got the server's first id.
    const std::pair<uint, QString> expected[] = {
        {0, "Used 95 GB of 100 GB"},
        {0, "Vaskel 1.1"},  // overtakes the second full notice, which waits for an id
        {1, "Used 96 GB of 100 GB"},
        {1, "Used 100 GB of 100 GB"},
    };
    ASSERT_EQ(server.notices.size(), std::size(expected));
    for (size_t i = 0; i < server.notices.size(); ++i) {
        const auto& notice = server.notices[i];
        EXPECT_EQ(notice.replacesId, expected[i].first) << i;
        EXPECT_EQ(notice.body, expected[i].second) << i;
        EXPECT_EQ(notice.appName, "Vaskel");
        EXPECT_TRUE(notice.appIcon == "vaskel" || notice.appIcon.endsWith("/vaskel.svg"))
            << notice.appIcon.toStdString();
        EXPECT_TRUE(notice.actions.isEmpty());
        EXPECT_EQ(notice.hints.value("desktop-entry"), "vaskel");
        EXPECT_EQ(notice.timeout, -1);
    }
    EXPECT_EQ(server.notices[3].summary, "Vaskel is full");
}

TEST(SessionBusNotifications, RefusalAndAbsenceReachTheCaller) {
    testing_support::FakeNotificationServer server;
    ASSERT_TRUE(server.start());
    server.refuse = true;
    EXPECT_EQ(post({"refused", "t", "b"}), "notifications are turned off");
    server.refuse = false;
    EXPECT_FALSE(post({"refused", "t", "b"}));
    EXPECT_EQ(server.notices.at(0).replacesId, 0u);  // the refused notice left no id behind

    server.stop();
    EXPECT_EQ(authorization(), false);
    EXPECT_FALSE(post({"absent", "t", "b"}).value_or("").isEmpty());
}

}  // namespace
