#include "platform/settings_application.h"

#include <QProcess>
#include <QStandardPaths>

namespace platform {
namespace {

struct DesktopSettings {
    const char* desktop;  // a name of XDG_CURRENT_DESKTOP, compared without case
    const char* program;
};

// Programs that host the desktop's own settings. None of them has a page for sync extensions,
// so they open at their start page.
constexpr DesktopSettings KNOWN_SETTINGS[] = {
    {"GNOME", "gnome-control-center"},
    {"Unity", "gnome-control-center"},
    {"ubuntu", "gnome-control-center"},
    {"KDE", "systemsettings"},
    {"XFCE", "xfce4-settings-manager"},
    {"X-Cinnamon", "cinnamon-settings"},
    {"Cinnamon", "cinnamon-settings"},
    {"MATE", "mate-control-center"},
    {"LXQt", "lxqt-config"},
    {"Budgie", "budgie-control-center"},
};

class DesktopSettingsApplication final : public SettingsApplication {
public:
    void open() override {
        const auto command = settingsCommand(
            qEnvironmentVariable("XDG_CURRENT_DESKTOP"),
            [](const QString& name) { return QStandardPaths::findExecutable(name); });
        if (!command) return;
        QProcess::startDetached(command->first(), command->mid(1));
    }
};

}  // namespace

std::optional<QStringList> settingsCommand(
    const QString& currentDesktop, const std::function<QString(const QString&)>& findExecutable) {
    for (const QString& name : currentDesktop.split(QLatin1Char(':'), Qt::SkipEmptyParts)) {
        for (const DesktopSettings& known : KNOWN_SETTINGS) {
            if (name.compare(QLatin1String(known.desktop), Qt::CaseInsensitive) != 0) continue;
            const QString program = findExecutable(QLatin1String(known.program));
            if (program.isEmpty()) continue;
            return QStringList{program};
        }
    }
    return std::nullopt;
}

SettingsApplication& SettingsApplication::real() {
    static DesktopSettingsApplication application;
    return application;
}

}  // namespace platform
