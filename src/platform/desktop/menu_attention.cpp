#include "platform/desktop/menu_attention.h"

#include <QAction>
#include <QApplication>
#include <QIcon>
#include <QMenu>
#include <QPointer>
#include <QProxyStyle>
#include <QStyleOptionMenuItem>

namespace platform {
namespace {

constexpr const char* ATTENTION_PROPERTY = "vaskelNeedsAttention";

// Red that reads on the menu's background: a darker one on light menus, a lighter one on dark.
QColor attentionRed(const QPalette& palette) {
    return palette.color(QPalette::Window).lightnessF() < 0.5 ? QColor(0xff, 0x7b, 0x63)
                                                              : QColor(0xc0, 0x1c, 0x28);
}

// The application's style, except that a menu item marked for attention gets red text unless it
// is highlighted (the highlight keeps its own text colour, which is made to be read on it).
class AttentionStyle final : public QProxyStyle {
public:
    void drawControl(ControlElement element, const QStyleOption* option, QPainter* painter,
                     const QWidget* widget) const override {
        const auto* menu = qobject_cast<const QMenu*>(widget);
        const auto* item = qstyleoption_cast<const QStyleOptionMenuItem*>(option);
        if (element == CE_MenuItem && menu && item) {
            for (QAction* action : menu->actions()) {
                if (!needsAttention(action) || menu->actionGeometry(action) != option->rect)
                    continue;
                QStyleOptionMenuItem red(*item);
                const QColor color = attentionRed(item->palette);
                for (QPalette::ColorGroup group : {QPalette::Active, QPalette::Inactive}) {
                    for (QPalette::ColorRole role :
                         {QPalette::Text, QPalette::WindowText, QPalette::ButtonText})
                        red.palette.setColor(group, role, color);
                }
                QProxyStyle::drawControl(element, &red, painter, widget);
                return;
            }
        }
        QProxyStyle::drawControl(element, option, painter, widget);
    }
};

QStyle* attentionStyle() {
    // Lives as long as the application; menus only borrow it.
    static QPointer<QStyle> style;
    if (!style) {
        style = new AttentionStyle;
        style->setParent(qApp);
    }
    return style;
}

}  // namespace

void markAttention(QAction* action) {
    if (!action) return;
    action->setProperty(ATTENTION_PROPERTY, true);
    action->setIcon(attentionIcon());
    for (QObject* holder : action->associatedObjects())
        if (auto* menu = qobject_cast<QMenu*>(holder)) drawAttentionText(menu);
}

bool needsAttention(const QAction* action) {
    return action && action->property(ATTENTION_PROPERTY).toBool();
}

void drawAttentionText(QMenu* menu) {
    if (!menu || !qApp) return;
    QStyle* style = attentionStyle();
    if (menu->style() != style) menu->setStyle(style);
}

QIcon attentionIcon() {
    return QIcon(QStringLiteral(":/icons/vaskel-attention.svg"));
}

}  // namespace platform
