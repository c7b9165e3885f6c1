#include "platform/desktop/login_items.h"

#include <gtest/gtest.h>

#include "support/fake_platform.h"
#include "support/test_files.h"

using namespace testing_support;
using platform::LoginItemStatus;

namespace {

TEST(AutostartEntry, RegistersUnregistersAndHonoursHiddenEntries) {
    FakePlatform fake;
    fake.bundle.bundlePath = "/opt/My \"Apps\"/$bin";
    qunsetenv("XDG_CONFIG_HOME");
    const QString entry = fake.home.dir + "/.config/autostart/vaskel.desktop";
    auto& items = platform::LoginItems::real();

    EXPECT_EQ(items.status(), LoginItemStatus::notRegistered);
    EXPECT_EQ(items.registerApplication(), std::nullopt);
    EXPECT_EQ(items.status(), LoginItemStatus::enabled);
    const QByteArray written = readFile(entry);
    EXPECT_TRUE(written.startsWith("[Desktop Entry]\nType=Application\nName=Vaskel\n"));
    EXPECT_TRUE(written.contains("\nExec=\"/opt/My \\\"Apps\\\"/\\$bin/vaskel\"\n"))
        << written.data();
    EXPECT_TRUE(written.contains("X-KDE-autostart-after=panel"));

    // An entry the user switched off in the desktop's settings counts as off.
    for (const char* off : {"Hidden=true", "X-GNOME-Autostart-enabled=false"}) {
        writeFile(entry, QByteArray("[Desktop Entry]\nExec=vaskel\n") + off + "\n");
        EXPECT_EQ(items.status(), LoginItemStatus::notRegistered) << off;
    }
    writeFile(entry, "[Desktop Entry]\nExec=vaskel\n[Other]\nHidden=true\n");
    EXPECT_EQ(items.status(), LoginItemStatus::enabled);

    EXPECT_EQ(items.unregisterApplication(), std::nullopt);
    EXPECT_EQ(items.status(), LoginItemStatus::notRegistered);
    EXPECT_EQ(items.unregisterApplication(), std::nullopt) << "nothing to remove is no failure";

    qputenv("XDG_CONFIG_HOME", (fake.root.path() + "/config").toUtf8());
    EXPECT_EQ(items.registerApplication(), std::nullopt);
    EXPECT_TRUE(QFile::exists(fake.root.path() + "/config/autostart/vaskel.desktop"));
    qunsetenv("XDG_CONFIG_HOME");
}

}  // namespace
