#include "platform/desktop/symbol_images.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QSet>

#include "support/fake_desktop.h"
#include "support/qt_printing.h"

namespace {

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
