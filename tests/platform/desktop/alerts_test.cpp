#include "platform/desktop/alerts.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>

namespace {

// Answers the message box that the real alert shows, once it is up.
template <class Answer>
void whenAlertShows(Answer answer) {
    QTimer::singleShot(0, [answer] {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        ASSERT_NE(box, nullptr);
        answer(*box);
    });
}

QStringList buttonTitles(const QMessageBox& box) {
    QStringList titles;
    for (QAbstractButton* button : box.buttons()) titles << button->text();
    return titles;
}

const platform::Alert TWO_BUTTONS{
    platform::Alert::Style::warning, "Message", "Details", {"Show Applications Folder", "Quit"}};

TEST(MessageBoxAlerts, ShowsTextsAndAnswersByButtonPosition) {
    struct Case {
        int click;  // index of the button pressed, -1 for Escape
        int answer;
    };
    for (const Case c : {Case{0, 1000}, Case{1, 1001}, Case{-1, 1001}}) {
        whenAlertShows([c](QMessageBox& box) {
            EXPECT_EQ(box.text(), "Message");
            EXPECT_EQ(box.informativeText(), "Details");
            EXPECT_EQ(box.icon(), QMessageBox::Warning);
            EXPECT_EQ(box.defaultButton()->text(), "Show Applications Folder");
            EXPECT_TRUE(buttonTitles(box).contains("Quit"));
            if (c.click < 0) {
                box.reject();
            } else {
                const QString title = TWO_BUTTONS.buttons[c.click];
                for (QAbstractButton* button : box.buttons()) {
                    if (button->text() == title) button->click();
                }
            }
        });
        EXPECT_EQ(platform::Alerts::real().runModal(TWO_BUTTONS), c.answer) << c.click;
    }
}

TEST(MessageBoxAlerts, OneOkButtonWhenNoneIsGiven) {
    whenAlertShows([](QMessageBox& box) {
        EXPECT_EQ(buttonTitles(box), QStringList{"OK"});
        box.reject();
    });
    EXPECT_EQ(
        platform::Alerts::real().runModal({platform::Alert::Style::informational, "m", "i", {}}),
        platform::ALERT_FIRST_BUTTON);
}

}  // namespace
