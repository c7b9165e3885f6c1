#include "platform/graphical_session.h"

#include <gtest/gtest.h>

#include <QLocalServer>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <map>

namespace {

TEST(GraphicalSession, DecidesFromTheEnvironment) {
    QTemporaryDir runtime;
    QLocalServer wayland;  // stands in for a Wayland compositor
    ASSERT_TRUE(wayland.listen(runtime.path() + "/wayland-test"));
    // An X server of our own on a free display, open to local clients.
    const QString xvfb = QStandardPaths::findExecutable("Xvfb");
    if (xvfb.isEmpty()) GTEST_SKIP() << "needs Xvfb";
    QProcess x;
    x.start(xvfb, {"-displayfd", "1", "-nolisten", "tcp"});
    ASSERT_TRUE(x.waitForReadyRead(10000));
    const QString display = ":" + QString::fromLatin1(x.readLine().trimmed());

    const QString none = "no graphical session";
    // clang-format off
    const std::pair<std::map<std::string, QString>, std::optional<QString>> cases[] = {
        {{}, none},
        {{{"QT_QPA_PLATFORM", "offscreen"}}, std::nullopt},
        {{{"DISPLAY", display}}, std::nullopt},
        {{{"DISPLAY", ":4321"}}, "cannot open the display \":4321\""},
        {{{"WAYLAND_DISPLAY", "wayland-test"}, {"XDG_RUNTIME_DIR", runtime.path()}}, std::nullopt},
        {{{"WAYLAND_DISPLAY", runtime.path() + "/wayland-test"}}, std::nullopt},
        {{{"WAYLAND_DISPLAY", "wayland-9"}, {"XDG_RUNTIME_DIR", runtime.path()}}, none},
    };
    // clang-format on
    for (const auto& [environment, problem] : cases) {
        const auto found = platform::findGraphicalSession([&](const char* name) {
                               const auto value = environment.find(name);
                               return value == environment.end() ? QString() : value->second;
                           }).problem;
        // The problem is one line that starts with the expected text.
        const QString seen =
            found && problem && found->startsWith(*problem) ? *problem : found.value_or("usable");
        EXPECT_EQ(seen.toStdString(), problem.value_or("usable").toStdString());
        EXPECT_FALSE(found.value_or("").contains('\n')) << "one line";
    }
    x.terminate();
    x.waitForFinished(5000);
}

}  // namespace
