#include "app/vaskel_host.h"

#include <cstdio>
#include <variant>

#include "app/command_mode.h"
#include "platform/application_bundle.h"
#include "platform/desktop_module.h"
#include "platform/graphical_session.h"
#include "platform/seam.h"

namespace VaskelHost {
namespace {

int runApplicationMode(int argc, char** argv) {
    const platform::GraphicalSession session =
        platform::findGraphicalSession(platform::processEnvironment);
    if (session.problem) {
        std::fprintf(stderr, "vaskel: %s\n", session.problem->toLocal8Bit().constData());
        return 1;
    }
    const auto module = platform::loadDesktopModule();
    if (const QString* error = std::get_if<QString>(&module)) {
        std::fprintf(stderr, "vaskel: cannot load the desktop module: %s\n",
                     error->toLocal8Bit().constData());
        return 1;
    }
    if (session.waylandOnly) platform::preferWayland();
    return std::get<platform::ApplicationEntry>(module)(argc, argv);
}

}  // namespace

int main(int argc, char** argv) {
    // Every printed line reaches a pipe or file as soon as it is complete.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    if (argc <= 1) return runApplicationMode(argc, argv);
    return runCommandMode(argc, argv);
}

std::optional<QString> installLocationProblem() {
    const QString path = platform::current<platform::ApplicationBundle>().path();
    if (path.startsWith(QLatin1String("/Volumes/"))) {
        return QStringLiteral(
            "This copy is running from the downloaded disk image. Drag Vaskel into your "
            "Applications folder (replacing the old one), eject the disk image, then open Vaskel "
            "from Applications.");
    }
    if (path.contains(QLatin1String("/AppTranslocation/"))) {
        return QStringLiteral(
            "This copy is running from a temporary location, probably your Downloads folder. Move "
            "Vaskel into your Applications folder (replacing the old one), then open it from "
            "there.");
    }
    return std::nullopt;
}

}  // namespace VaskelHost
