#include "platform/desktop/alerts.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>

#include "support/qt_printing.h"

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
            EXPECT_EQ(box->text(), "Message");
            EXPECT_EQ(box->informativeText(), "Details");
            EXPECT_EQ(box->icon(), QMessageBox::Warning);
            ASSERT_EQ(box->buttons().size(), titles.size());
            EXPECT_EQ(box->defaultButton()->text(), titles[0]);
            if (click < 0) return box->reject();
            for (QAbstractButton* button : box->buttons())
                if (button->text() == titles[click]) button->click();
        });
        const platform::Alert alert{platform::Alert::Style::warning, "Message", "Details", buttons};
        EXPECT_EQ(platform::Alerts::real().runModal(alert), expected);
    }
}

}  // namespace
