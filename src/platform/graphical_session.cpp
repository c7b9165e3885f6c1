#include "platform/graphical_session.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <QFile>
#include <cstring>

namespace platform {
namespace {

// Connects to a Unix socket in the file system.
bool socketAccepts(const QByteArray& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.isEmpty() || size_t(path.size()) >= sizeof(address.sun_path)) return false;
    std::memcpy(address.sun_path, path.constData(), size_t(path.size()));
    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return false;
    bool connected = ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;
    ::close(fd);
    return connected;
}

// Opens and closes a real X connection, the way Qt's xcb platform will: a socket that accepts
// is not enough, since the server may still refuse us (no cookie in XAUTHORITY, a stale display
// forwarded over ssh) and Qt aborts the process when it does. libxcb is loaded only for this
// check, so that the command-line tool never maps it; without it Qt cannot use X either.
bool x11DisplayReachable(const QString& display) {
    if (display.isEmpty()) return false;
    void* xcb = ::dlopen("libxcb.so.1", RTLD_NOW | RTLD_LOCAL);
    if (!xcb) return false;
    using Connect = void* (*)(const char* display, int* screen);
    using HasError = int (*)(void* connection);
    using Disconnect = void (*)(void* connection);
    const auto connect = reinterpret_cast<Connect>(::dlsym(xcb, "xcb_connect"));
    const auto hasError = reinterpret_cast<HasError>(::dlsym(xcb, "xcb_connection_has_error"));
    const auto disconnect = reinterpret_cast<Disconnect>(::dlsym(xcb, "xcb_disconnect"));
    bool reachable = false;
    if (connect && hasError && disconnect) {
        // libxcb prints the server's refusal on standard error; the caller explains it in one
        // line of its own. xcb_connect never returns null: a failed connection is an object in
        // an error state.
        const int savedError = ::dup(STDERR_FILENO);
        const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (savedError >= 0 && nowhere >= 0) ::dup2(nowhere, STDERR_FILENO);
        void* connection = connect(QFile::encodeName(display).constData(), nullptr);
        if (savedError >= 0 && nowhere >= 0) ::dup2(savedError, STDERR_FILENO);
        if (nowhere >= 0) ::close(nowhere);
        if (savedError >= 0) ::close(savedError);
        reachable = hasError(connection) == 0;
        disconnect(connection);
    }
    ::dlclose(xcb);
    return reachable;
}

bool waylandDisplayReachable(const EnvironmentLookup& environment) {
    QString display = environment("WAYLAND_DISPLAY");
    if (display.isEmpty()) return false;
    if (!display.startsWith(QLatin1Char('/'))) {
        const QString runtime = environment("XDG_RUNTIME_DIR");
        if (runtime.isEmpty()) return false;
        display = runtime + QLatin1Char('/') + display;
    }
    return socketAccepts(QFile::encodeName(display));
}

}  // namespace

QString processEnvironment(const char* name) {
    return qEnvironmentVariable(name);
}

GraphicalSession findGraphicalSession(const EnvironmentLookup& environment) {
    if (!environment("QT_QPA_PLATFORM").isEmpty()) return {};
    const QString display = environment("DISPLAY");
    if (x11DisplayReachable(display)) return {};
    if (waylandDisplayReachable(environment)) return {std::nullopt, true};
    if (!display.isEmpty()) {
        return {QStringLiteral("cannot open the display \"%1\"; run Vaskel from a desktop session")
                    .arg(display)};
    }
    return {QStringLiteral(
        "no graphical session (neither DISPLAY nor WAYLAND_DISPLAY is set); run Vaskel from a "
        "desktop session, or give it a command-line option")};
}

void preferWayland() {
    qputenv("QT_QPA_PLATFORM", "wayland");
}

}  // namespace platform
