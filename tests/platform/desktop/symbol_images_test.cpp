#include "platform/desktop/symbol_images.h"

#include <gtest/gtest.h>

#include <QAction>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QMenu>

#include "platform/desktop/menu_attention.h"
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

TEST(SymbolImages, EveryNameIsAFillOnlySymbolThatTakesTheColourAndIsInstalledAsATheme) {
    const std::pair<const char*, const char*> symbols[] = {
        {"cloud", "vaskel-cloud-symbolic"},
        {"icloud.slash", "vaskel-cloud-slash-symbolic"},
        {"pause.circle", "vaskel-pause-circle-symbolic"},
        {"arrow.up.arrow.down.circle", "vaskel-transfer-circle-symbolic"},
        {"exclamationmark.icloud", "vaskel-cloud-attention-symbolic"},
        {"exclamationmark.triangle.fill", "vaskel-warning-symbolic"},
        {"person.crop.circle.fill", "vaskel-account-symbolic"},
        {"folder.badge.questionmark", "vaskel-folder-question-symbolic"},
    };
    const QString theme = platform::symbolThemePath();
    ASSERT_FALSE(theme.isEmpty());
    for (const auto& [name, themeName] : symbols) {
        EXPECT_EQ(platform::symbolIconName(name), themeName) << name;
        const QString installed = theme + "/hicolor/scalable/apps/" + themeName + ".svg";
        QFile file(installed);
        ASSERT_TRUE(file.open(QIODevice::ReadOnly)) << installed.toStdString();
        // Panels recolour symbolic icons by their fill; a stroke would keep its own colour.
        EXPECT_FALSE(file.readAll().contains("stroke")) << name;

        const std::optional<QIcon> icon = platform::symbolIcon(name, Qt::red);
        ASSERT_TRUE(icon) << name;
        const QImage image = icon->pixmap(32, 32).toImage();
        const auto [opaque, red] = opaqueAndRed(image, image.rect());
        EXPECT_GT(opaque, 32 * 32 / 10) << name;  // a shape, not a speck
        EXPECT_EQ(red, opaque) << name;
    }
    EXPECT_FALSE(platform::symbolIconName("gear"));
    EXPECT_FALSE(platform::symbolIcon("gear"));
    EXPECT_TRUE(QFileInfo::exists(theme + "/hicolor/scalable/apps/vaskel.svg"));
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
    const auto [plainOpaque, plainRed] = opaqueAndRed(drawn, menu.actionGeometry(plain));
    EXPECT_EQ(plainRed, 0);
    // The marked row's text is red; its icon is red too, so look only right of the icon.
    QRect text = menu.actionGeometry(marked);
    text.setLeft(text.left() + text.width() / 4);
    const auto [markedOpaque, markedRed] = opaqueAndRed(drawn, text);
    EXPECT_GT(markedRed, 20);
}

}  // namespace
