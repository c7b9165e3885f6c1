#include "platform/graphical_session.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <QFile>
#include <QTemporaryDir>
#include <map>

namespace {

// A listening Unix socket standing in for a display server.
class ListeningSocket {
public:
    explicit ListeningSocket(const QString& path) {
        fd_ = ::socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const QByteArray native = QFile::encodeName(path);
        std::memcpy(address.sun_path, native.constData(), size_t(native.size()));
        ::bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address);
        ::listen(fd_, 4);
    }
    ~ListeningSocket() { ::close(fd_); }

private:
    int fd_;
};

TEST(GraphicalSession, DecidesFromTheEnvironment) {
    QTemporaryDir runtime;
    ListeningSocket wayland(runtime.path() + "/wayland-test");
    using Environment = std::map<std::string, QString>;
    struct Case {
        const char* what;
        Environment environment;
        bool usable;
        const char* mentions;
    };
    const Case cases[] = {
        {"nothing set", {}, false, "no graphical session"},
        {"explicit Qt platform", {{"QT_QPA_PLATFORM", "offscreen"}}, true, ""},
        {"X display nobody serves", {{"DISPLAY", ":4321"}}, false, "\":4321\""},
        {"malformed X display", {{"DISPLAY", "garbage"}}, false, "\"garbage\""},
        {"remote X display is trusted", {{"DISPLAY", "otherhost:10.0"}}, true, ""},
        {"Wayland socket beside the runtime dir",
         {{"WAYLAND_DISPLAY", "wayland-test"}, {"XDG_RUNTIME_DIR", runtime.path()}},
         true,
         ""},
        {"Wayland socket by absolute path",
         {{"WAYLAND_DISPLAY", runtime.path() + "/wayland-test"}},
         true,
         ""},
        {"Wayland socket that is not there",
         {{"WAYLAND_DISPLAY", "wayland-9"}, {"XDG_RUNTIME_DIR", runtime.path()}},
         false,
         "no graphical session"},
        {"Wayland name without a runtime dir",
         {{"WAYLAND_DISPLAY", "wayland-test"}},
         false,
         "no graphical session"},
    };
    for (const Case& c : cases) {
        const auto problem = platform::graphicalSessionProblem([&](const char* name) {
            auto found = c.environment.find(name);
            return found == c.environment.end() ? QString() : found->second;
        });
        EXPECT_EQ(!problem.has_value(), c.usable) << c.what;
        if (problem) {
            EXPECT_TRUE(problem->contains(QLatin1String(c.mentions))) << problem->toStdString();
            EXPECT_FALSE(problem->contains('\n')) << "one line";
        }
    }
}

}  // namespace
