#include "platform/desktop/symbol_images.h"

#include <gtest/gtest.h>

#include <QAction>
#include <QDir>
#include <QImage>
#include <QMenu>
#include <QSet>

#include "platform/desktop/menu_attention.h"
#include "support/fake_desktop.h"
#include "support/qt_printing.h"

namespace {

// Opaque pixels of `image` inside `rect`, and how many of them are clearly red.
std::pair<int, int> opaqueAndRed(const QImage& image, const QRect& rect) {
    int opaque = 0, red = 0;
    for (int y = rect.top(); y <= rect.bottom(); ++y)
        for (int x = rect.left(); x <= rect.right(); ++x) {
            const QColor c = image.pixelColor(x, y);
            if (c.alpha() < 128) continue;
            ++opaque;
            red += c.red() > 150 && c.green() < 110 && c.blue() < 110;
        }
    return {opaque, red};
}

TEST(SymbolImages, EveryNameInUseIsAnInstalledFillOnlySymbolThatTakesTheColour) {
    const QDir theme(platform::symbolThemePath() + "/hicolor/scalable/apps");
    ASSERT_TRUE(theme.exists("vaskel.svg")) << theme.path().toStdString();
    // The tray item's states and the setup window's pictures.
    const QStringList names = testing_support::FakeStatusItem().known +
                              QStringList{"exclamationmark.triangle.fill",
                                          "person.crop.circle.fill", "folder.badge.questionmark"};
    QSet<QString> themeNames;
    for (const QString& name : names) {
        SCOPED_TRACE(name.toStdString());
        const std::optional<QString> themeName = platform::symbolIconName(name);
        ASSERT_TRUE(themeName);
        QFile installed(theme.filePath(*themeName + ".svg"));
        ASSERT_TRUE(installed.open(QIODevice::ReadOnly));
        // Panels recolour symbolic icons by their fill; a stroke would keep its own colour.
        EXPECT_FALSE(installed.readAll().contains("stroke"));
        themeNames << *themeName;
        const std::optional<QIcon> icon = platform::symbolIcon(name, Qt::red);
        ASSERT_TRUE(icon);
        const QImage image = icon->pixmap(32, 32).toImage();
        const auto [opaque, red] = opaqueAndRed(image, image.rect());
        EXPECT_GT(opaque, 32 * 32 / 10);  // a shape, not a speck
        EXPECT_EQ(red, opaque);
    }
    EXPECT_EQ(themeNames.size(), names.size()) << "each name has a picture of its own";
    EXPECT_FALSE(platform::symbolIconName("gear"));
    EXPECT_FALSE(platform::symbolIcon("gear"));
}

TEST(MenuAttention, MarkedItemsAreDrawnRedInOurMenusAndCarryARedIcon) {
    QMenu menu;
    QAction* plain = menu.addAction("Used 1 GB of 100 GB");
    QAction* marked = menu.addAction("Payment needed – open the portal");
    platform::markAttention(marked);
    EXPECT_TRUE(platform::needsAttention(marked));
    EXPECT_FALSE(platform::needsAttention(plain));

    const QImage icon = marked->icon().pixmap(16, 16).toImage();
    const auto [iconOpaque, iconRed] = opaqueAndRed(icon, icon.rect());
    EXPECT_GT(iconRed, iconOpaque / 2);

    menu.adjustSize();
    const QImage drawn = menu.grab().toImage();
    EXPECT_EQ(opaqueAndRed(drawn, menu.actionGeometry(plain)).second, 0);
    // The marked row's text is red; its icon is red too, so look only right of the icon.
    QRect text = menu.actionGeometry(marked);
    text.setLeft(text.left() + text.width() / 4);
    EXPECT_GT(opaqueAndRed(drawn, text).second, 20);
}

}  // namespace
