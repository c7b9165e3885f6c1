#include "platform/graphical_session.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <QFile>
#include <cstring>

namespace platform {
namespace {

// Connects to a Unix socket; `abstractName` selects the Linux abstract namespace.
bool socketAccepts(const QByteArray& name, bool abstractName) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const size_t offset = abstractName ? 1 : 0;
    if (name.isEmpty() || size_t(name.size()) + offset >= sizeof(address.sun_path)) return false;
    std::memcpy(address.sun_path + offset, name.constData(), size_t(name.size()));
    const socklen_t length =
        socklen_t(offsetof(sockaddr_un, sun_path) + offset + name.size() + (abstractName ? 0 : 1));
    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return false;
    bool connected = ::connect(fd, reinterpret_cast<sockaddr*>(&address), length) == 0;
    ::close(fd);
    return connected;
}

// DISPLAY is [host]:number[.screen]; a local display listens on /tmp/.X11-unix/X<number>, in
// the abstract namespace, the file system, or both.
bool x11DisplayReachable(const QString& display) {
    if (display.isEmpty()) return false;
    if (display.startsWith(QLatin1Char('/'))) {
        // A launchd-style socket path: "/path/to/socket:0".
        return socketAccepts(QFile::encodeName(display.section(QLatin1Char(':'), 0, 0)), false);
    }
    const qsizetype colon = display.lastIndexOf(QLatin1Char(':'));
    if (colon < 0) return false;
    const QString host = display.left(colon);
    if (!host.isEmpty() && host != QLatin1String("unix")) return true;  // remote: trusted
    bool isNumber = false;
    const int number = display.mid(colon + 1).section(QLatin1Char('.'), 0, 0).toInt(&isNumber);
    if (!isNumber || number < 0) return false;
    const QByteArray socketPath = "/tmp/.X11-unix/X" + QByteArray::number(number);
    return socketAccepts(socketPath, true) || socketAccepts(socketPath, false);
}

bool waylandDisplayReachable(const EnvironmentLookup& environment) {
    QString display = environment("WAYLAND_DISPLAY");
    if (display.isEmpty()) return false;
    if (!display.startsWith(QLatin1Char('/'))) {
        const QString runtime = environment("XDG_RUNTIME_DIR");
        if (runtime.isEmpty()) return false;
        display = runtime + QLatin1Char('/') + display;
    }
    return socketAccepts(QFile::encodeName(display), false);
}

}  // namespace

QString processEnvironment(const char* name) {
    return qEnvironmentVariable(name);
}

std::optional<QString> graphicalSessionProblem(const EnvironmentLookup& environment) {
    if (!environment("QT_QPA_PLATFORM").isEmpty()) return std::nullopt;
    if (x11DisplayReachable(environment("DISPLAY"))) return std::nullopt;
    if (waylandDisplayReachable(environment)) return std::nullopt;
    const QString display = environment("DISPLAY");
    if (!display.isEmpty()) {
        return QStringLiteral("cannot open the display \"%1\"; run Vaskel from a desktop session")
            .arg(display);
    }
    return QStringLiteral(
        "no graphical session (neither DISPLAY nor WAYLAND_DISPLAY is set); run Vaskel from a "
        "desktop session, or give it a command-line option");
}

void preferReachableDisplay() {
    if (!qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) return;
    if (x11DisplayReachable(processEnvironment("DISPLAY"))) return;
    if (waylandDisplayReachable(processEnvironment)) qputenv("QT_QPA_PLATFORM", "wayland");
}

}  // namespace platform
