#include "platform/graphical_session.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QLocalServer>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <map>

namespace {

// An X server of our own on a free display, whose only cookie is in `cookies`.
struct PrivateXServer {
    QTemporaryDir folder;
    QString cookies = folder.path() + "/Xauthority";
    QProcess process;
    QString display;

    bool start() {
        const QString xvfb = QStandardPaths::findExecutable("Xvfb");
        if (xvfb.isEmpty() || QStandardPaths::findExecutable("xauth").isEmpty()) return false;
        // The server accepts every cookie in its file, whatever display an entry names; clients
        // look theirs up by display, so the cookie is added again under the display picked.
        QFile(cookies).open(QIODevice::WriteOnly);
        QProcess::execute("xauth", {"-q", "-f", cookies, "add", ":0", ".", cookie()});
        process.start(xvfb, {"-displayfd", "1", "-nolisten", "tcp", "-auth", cookies});
        if (!process.waitForReadyRead(10000)) return false;
        display = ":" + QString::fromLatin1(process.readLine().trimmed());
        QProcess::execute("xauth", {"-q", "-f", cookies, "add", display, ".", cookie()});
        return display.size() > 1;
    }
    static QString cookie() { return QStringLiteral("0123456789abcdef0123456789abcdef"); }
    ~PrivateXServer() {
        process.terminate();
        process.waitForFinished(5000);
    }
};

TEST(GraphicalSession, DecidesFromTheEnvironment) {
    QTemporaryDir runtime;
    QLocalServer wayland;  // stands in for a Wayland compositor
    ASSERT_TRUE(wayland.listen(runtime.path() + "/wayland-test"));
    PrivateXServer x;
    if (!x.start()) GTEST_SKIP() << "needs Xvfb and xauth";
    const QByteArray previousCookies = qgetenv("XAUTHORITY");  // null when unset

    const QString none = "no graphical session";
    const QString refused = "cannot open the display";
    const struct {
        std::map<std::string, QString> environment;
        QString cookies;
        std::optional<QString> problem;
    } cases[] = {
        {{}, x.cookies, none},
        {{{"QT_QPA_PLATFORM", "offscreen"}}, x.cookies, std::nullopt},
        {{{"DISPLAY", x.display}}, x.cookies, std::nullopt},
        {{{"DISPLAY", x.display}}, runtime.path() + "/no-such-file", refused},
        {{{"DISPLAY", ":4321"}}, x.cookies, "cannot open the display \":4321\""},
        {{{"DISPLAY", "127.0.0.1" + x.display}}, x.cookies, refused},  // it listens on no port
        {{{"WAYLAND_DISPLAY", "wayland-test"}, {"XDG_RUNTIME_DIR", runtime.path()}},
         x.cookies,
         std::nullopt},
        {{{"WAYLAND_DISPLAY", runtime.path() + "/wayland-test"}}, x.cookies, std::nullopt},
        {{{"WAYLAND_DISPLAY", "wayland-9"}, {"XDG_RUNTIME_DIR", runtime.path()}}, x.cookies, none},
    };
    for (const auto& c : cases) {
        qputenv("XAUTHORITY", c.cookies.toLocal8Bit());
        const auto found = platform::findGraphicalSession([&](const char* name) {
                               const auto value = c.environment.find(name);
                               return value == c.environment.end() ? QString() : value->second;
                           }).problem;
        EXPECT_EQ(found.has_value(), c.problem.has_value())
            << found.value_or("usable").toStdString();
        if (found && c.problem) {
            EXPECT_TRUE(found->startsWith(*c.problem)) << found->toStdString();
            EXPECT_FALSE(found->contains('\n')) << "one line";
        }
    }
    previousCookies.isNull() ? qunsetenv("XAUTHORITY") : qputenv("XAUTHORITY", previousCookies);
}

}  // namespace
