#include "platform/graphical_session.h"

#include <gtest/gtest.h>

#include <QFile>
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
    // An X server of our own on a free display, whose only cookie is in `cookies`. The server
    // accepts every cookie in its file, whatever display an entry names; clients look theirs up
    // by display, so the cookie is added again under the display picked.
    const QString xvfb = QStandardPaths::findExecutable("Xvfb");
    if (xvfb.isEmpty() || QStandardPaths::findExecutable("xauth").isEmpty())
        GTEST_SKIP() << "needs Xvfb and xauth";
    const QString cookies = runtime.path() + "/Xauthority";
    const auto addCookie = [&](const QString& display) {
        QProcess::execute("xauth", {"-q", "-f", cookies, "add", display, ".",
                                    "0123456789abcdef0123456789abcdef"});
    };
    QFile(cookies).open(QIODevice::WriteOnly);
    addCookie(":0");
    QProcess x;
    x.start(xvfb, {"-displayfd", "1", "-nolisten", "tcp", "-auth", cookies});
    ASSERT_TRUE(x.waitForReadyRead(10000));
    const QString display = ":" + QString::fromLatin1(x.readLine().trimmed());
    addCookie(display);
    const QByteArray previousCookies = qgetenv("XAUTHORITY");  // null when unset

    const QString none = "no graphical session", refused = "cannot open the display";
    // clang-format off
    const std::tuple<std::map<std::string, QString>, QString, std::optional<QString>> cases[] = {
        {{}, cookies, none},
        {{{"QT_QPA_PLATFORM", "offscreen"}}, cookies, std::nullopt},
        {{{"DISPLAY", display}}, cookies, std::nullopt},
        {{{"DISPLAY", display}}, runtime.path() + "/no-such-file", refused},
        {{{"DISPLAY", ":4321"}}, cookies, "cannot open the display \":4321\""},
        {{{"WAYLAND_DISPLAY", "wayland-test"}, {"XDG_RUNTIME_DIR", runtime.path()}}, cookies, std::nullopt},
        {{{"WAYLAND_DISPLAY", runtime.path() + "/wayland-test"}}, cookies, std::nullopt},
        {{{"WAYLAND_DISPLAY", "wayland-9"}, {"XDG_RUNTIME_DIR", runtime.path()}}, cookies, none},
    };
    // clang-format on
    for (const auto& [environment, cookieFile, problem] : cases) {
        qputenv("XAUTHORITY", cookieFile.toLocal8Bit());
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
    previousCookies.isNull() ? qunsetenv("XAUTHORITY") : qputenv("XAUTHORITY", previousCookies);
    x.terminate();
    x.waitForFinished(5000);
}

}  // namespace
