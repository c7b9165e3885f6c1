#include "platform/desktop/login_items.h"

#include <QFile>

#include "platform/application_bundle.h"
#include "platform/files.h"
#include "platform/home_directory.h"
#include "platform/seam.h"

namespace platform {
namespace {

QString autostartEntryPath() {
    QString configHome = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (!configHome.startsWith(QLatin1Char('/'))) {
        configHome = current<HomeDirectory>().path() + QStringLiteral("/.config");
    }
    return configHome + QStringLiteral("/autostart/vaskel.desktop");
}

// Quotes a path for the Exec key of a desktop entry: inside double quotes \ " ` $ take a
// backslash, and % is doubled so that it is not a field code.
QString execArgument(QString path) {
    path.replace(QLatin1Char('%'), QStringLiteral("%%"))
        .replace(QLatin1Char('\\'), QStringLiteral("\\\\"))
        .replace(QLatin1Char('"'), QStringLiteral("\\\""))
        .replace(QLatin1Char('`'), QStringLiteral("\\`"))
        .replace(QLatin1Char('$'), QStringLiteral("\\$"));
    return QLatin1Char('"') + path + QLatin1Char('"');
}

// Whether the [Desktop Entry] group of an autostart file lets the session start the program.
bool entryEnabled(const QByteArray& contents) {
    bool inMainGroup = false;
    for (QByteArray line : contents.split('\n')) {
        line = line.trimmed();
        if (line.startsWith('[')) {
            inMainGroup = line == "[Desktop Entry]";
            continue;
        }
        if (!inMainGroup) continue;
        const qsizetype equals = line.indexOf('=');
        if (equals < 0) continue;
        const QByteArray key = line.left(equals).trimmed();
        const QByteArray value = line.mid(equals + 1).trimmed();
        if (key == "Hidden" && value == "true") return false;
        if (key == "X-GNOME-Autostart-enabled" && value == "false") return false;
    }
    return true;
}

class AutostartEntry final : public LoginItems {
public:
    LoginItemStatus status() const override {
        const auto contents = readSmallFile(autostartEntryPath(), 64 * 1024);
        return contents && entryEnabled(*contents) ? LoginItemStatus::enabled
                                                   : LoginItemStatus::notRegistered;
    }

    std::optional<QString> registerApplication() override {
        const QString path = autostartEntryPath();
        if (auto failure = makeDirectories(path.section(QLatin1Char('/'), 0, -2), 0700)) {
            return failure;
        }
        const QString executable = current<ApplicationBundle>().path() + QStringLiteral("/vaskel");
        // Started after the panel, so that the tray is there when the item registers.
        const QString entry = QStringLiteral(
                                  "[Desktop Entry]\n"
                                  "Type=Application\n"
                                  "Name=Vaskel\n"
                                  "Comment=Cloud storage in the system tray\n"
                                  "Exec=%1\n"
                                  "Icon=vaskel\n"
                                  "Terminal=false\n"
                                  "X-GNOME-Autostart-enabled=true\n"
                                  "X-GNOME-Autostart-Delay=3\n"
                                  "X-KDE-autostart-after=panel\n"
                                  "X-KDE-autostart-phase=2\n"
                                  "X-LXQt-Need-Tray=true\n")
                                  .arg(execArgument(executable));
        return writeFileAtomically(path, entry.toUtf8(), 0644);
    }

    std::optional<QString> unregisterApplication() override {
        QFile entry(autostartEntryPath());
        if (!entry.exists() || entry.remove()) return std::nullopt;
        return entry.fileName() + QStringLiteral(": ") + entry.errorString();
    }
};

}  // namespace

LoginItems& LoginItems::real() {
    static AutostartEntry items;
    return items;
}

}  // namespace platform
