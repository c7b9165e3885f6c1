#include "platform/graphical_session.h"

#include <gtest/gtest.h>

#include <QLocalServer>
#include <QTemporaryDir>
#include <map>

namespace {

TEST(GraphicalSession, DecidesFromTheEnvironment) {
    QTemporaryDir runtime;
    QLocalServer wayland;  // stands in for a display server
    ASSERT_TRUE(wayland.listen(runtime.path() + "/wayland-test"));
    const QString none = "no graphical session";
    const std::pair<std::map<std::string, QString>, std::optional<QString>> cases[] = {
        {{}, none},
        {{{"QT_QPA_PLATFORM", "offscreen"}}, std::nullopt},
        {{{"DISPLAY", ":4321"}}, "cannot open the display \":4321\""},
        {{{"DISPLAY", "otherhost:10.0"}}, std::nullopt},  // remote displays are trusted
        {{{"WAYLAND_DISPLAY", "wayland-test"}, {"XDG_RUNTIME_DIR", runtime.path()}}, std::nullopt},
        {{{"WAYLAND_DISPLAY", runtime.path() + "/wayland-test"}}, std::nullopt},
        {{{"WAYLAND_DISPLAY", "wayland-9"}, {"XDG_RUNTIME_DIR", runtime.path()}}, none},
    };
    for (const auto& [environment, problem] : cases) {
        const auto found = platform::graphicalSessionProblem([&](const char* name) {
            const auto value = environment.find(name);
            return value == environment.end() ? QString() : value->second;
        });
        EXPECT_EQ(found.has_value(), problem.has_value()) << found.value_or("usable").toStdString();
        if (found && problem) {
            EXPECT_TRUE(found->startsWith(*problem)) << found->toStdString();
            EXPECT_FALSE(found->contains('\n')) << "one line";
        }
    }
}

}  // namespace
