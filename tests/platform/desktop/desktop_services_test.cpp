#include <gtest/gtest.h>

#include <QApplication>
#include <QDir>
#include <QMessageBox>
#include <QPushButton>
#include <QSet>
#include <QTimer>

#include "platform/desktop/alerts.h"
#include "platform/desktop/login_items.h"
#include "platform/desktop/symbol_images.h"
#include "support/fake_desktop.h"
#include "support/fake_platform.h"
#include "support/qt_printing.h"
#include "support/test_files.h"

using namespace testing_support;
using platform::LoginItemStatus;

namespace {

TEST(MessageBoxAlerts, ShowsTextsAndAnswersByButtonPosition) {
    const QStringList two{"Show Applications Folder", "Quit"};
    // The buttons, the one clicked once the box is up (-1: Escape) and the answer.
    const std::tuple<QStringList, int, int> cases[] = {
        {two, 0, 1000}, {two, 1, 1001}, {two, -1, 1001}, {{}, -1, platform::ALERT_FIRST_BUTTON}};
    for (const auto& [buttons, click, expected] : cases) {
        SCOPED_TRACE(buttons.join(",").toStdString() + " " + std::to_string(click));
        const QStringList titles = buttons.isEmpty() ? QStringList{"OK"} : buttons;
        QTimer::singleShot(0, [&] {
            auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
            ASSERT_NE(box, nullptr);
            EXPECT_EQ(
                std::tuple(box->text(), box->informativeText(), box->icon(), box->buttons().size(),
                           box->defaultButton()->text()),
                std::tuple("Message", "Details", QMessageBox::Warning, titles.size(), titles[0]));
            if (click < 0) return box->reject();
            for (QAbstractButton* button : box->buttons())
                if (button->text() == titles[click]) button->click();
        });
        const platform::Alert alert{platform::Alert::Style::warning, "Message", "Details", buttons};
        EXPECT_EQ(platform::Alerts::real().runModal(alert), expected);
    }
}

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

TEST(SymbolImages, EveryNameInUseIsAnInstalledFillOnlySymbol) {
    const QDir theme(platform::symbolThemePath() + "/hicolor/scalable/apps");
    ASSERT_TRUE(theme.exists("vaskel.svg")) << theme.path().toStdString();
    // The tray item's states and the setup window's pictures.
    const QStringList names = testing_support::FakeStatusItem().known +
                              QStringList{"exclamationmark.triangle.fill",
                                          "person.crop.circle.fill", "folder.badge.questionmark"};
    QSet<QString> themeNames;
    for (const QString& name : names) {
        const std::optional<QString> themeName = platform::symbolIconName(name);
        ASSERT_TRUE(themeName) << name.toStdString();
        QFile installed(theme.filePath(*themeName + ".svg"));
        ASSERT_TRUE(installed.open(QIODevice::ReadOnly)) << name.toStdString();
        // Panels recolour symbolic icons by their fill; a stroke would keep its own colour.
        EXPECT_FALSE(installed.readAll().contains("stroke")) << name.toStdString();
        EXPECT_TRUE(platform::symbolIcon(name, Qt::red)) << name.toStdString();
        themeNames << *themeName;
    }
    EXPECT_EQ(themeNames.size(), names.size()) << "each name has a picture of its own";
    EXPECT_FALSE(platform::symbolIconName("gear"));
    EXPECT_FALSE(platform::symbolIcon("gear"));
}

}  // namespace
