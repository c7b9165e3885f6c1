#include "platform/desktop/alerts.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>

namespace {

// Runs the real alert and answers its message box with `answer` once it is up.
template <class Answer>
int answerAlert(const platform::Alert& alert, Answer answer) {
    QTimer::singleShot(0, [answer] {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        ASSERT_NE(box, nullptr);
        answer(*box);
    });
    return platform::Alerts::real().runModal(alert);
}

TEST(MessageBoxAlerts, ShowsTextsAndAnswersByButtonPosition) {
    const platform::Alert alert{platform::Alert::Style::warning,
                                "Message",
                                "Details",
                                {"Show Applications Folder", "Quit"}};
    for (const auto& [index, expected] : {std::pair{0, 1000}, {1, 1001}, {-1, 1001}}) {
        const int click = index;  // -1 for Escape
        const int answer = answerAlert(alert, [&alert, click](QMessageBox& box) {
            EXPECT_EQ(box.text(), "Message");
            EXPECT_EQ(box.informativeText(), "Details");
            EXPECT_EQ(box.icon(), QMessageBox::Warning);
            ASSERT_EQ(box.buttons().size(), 2);
            EXPECT_EQ(box.defaultButton()->text(), "Show Applications Folder");
            if (click < 0) return box.reject();
            for (QAbstractButton* button : box.buttons())
                if (button->text() == alert.buttons[click]) button->click();
        });
        EXPECT_EQ(answer, expected) << click;
    }
    const int ok =
        answerAlert({platform::Alert::Style::informational, "m", "i", {}}, [](QMessageBox& box) {
            ASSERT_EQ(box.buttons().size(), 1);
            EXPECT_EQ(box.buttons()[0]->text(), "OK");
            box.reject();
        });
    EXPECT_EQ(ok, platform::ALERT_FIRST_BUTTON);
}

}  // namespace
