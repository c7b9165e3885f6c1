#include "app/vaskel_host.h"

#include <gtest/gtest.h>

#include <QTemporaryDir>

#include "support/fake_platform.h"
#include "support/run_program.h"

namespace {

using testing_support::runVaskel;

TEST(InstallLocation, ProblemByBundlePath) {
    const QString diskImage =
        "This copy is running from the downloaded disk image. Drag Vaskel into your Applications "
        "folder (replacing the old one), eject the disk image, then open Vaskel from Applications.";
    const QString translocated =
        "This copy is running from a temporary location, probably your Downloads folder. Move "
        "Vaskel into your Applications folder (replacing the old one), then open it from there.";
    // clang-format off
    const std::pair<const char*, std::optional<QString>> cases[] = {
        {"/Volumes/Vaskel/Vaskel.app", diskImage}, {"/Volumes/x/AppTranslocation/y", diskImage},
        {"/private/var/folders/AppTranslocation/abc/Vaskel.app", translocated},
        {"/volumes/lowercase", std::nullopt}, {"/Volumes", std::nullopt},
        {"/home/u/AppTranslocation", std::nullopt}};
    // clang-format on
    testing_support::FakePlatform platform;
    for (const auto& [path, problem] : cases) {
        platform.bundle.bundlePath = path;
        EXPECT_EQ(VaskelHost::installLocationProblem(), problem) << path;
    }
}

// The command line maps Qt Core and the core library only: the desktop module, the network and
// keychain code and what they pull in stay out. (GLib itself comes with Qt Core.)
TEST(ProgramEntry, CommandModeMapsNoDesktopNetworkOrKeychainLibrary) {
    QTemporaryDir home;
    QProcessEnvironment environment;
    environment.insert("LD_DEBUG", "libs");
    const auto run = runVaskel({"--add"}, home.path(), environment);
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_TRUE(run.standardOutput.startsWith("domain added: "));
    EXPECT_TRUE(run.standardError.contains("libQt6Core")) << "the loader trace is there";
    EXPECT_TRUE(run.standardError.contains("libvaskel-core"));
    for (const char* library :
         {"libvaskel-desktop", "libvaskel-account", "libQt6Widgets", "libQt6Gui", "libQt6Network",
          "libQt6DBus", "libdbus-1", "libsecret", "libgio-2.0", "libgobject-2.0", "libsystemd",
          "libssl", "libcrypto"})
        EXPECT_FALSE(run.standardError.contains(library)) << library;
}

TEST(ProgramEntry, ApplicationModeWithoutADisplayExplainsAndFails) {
    QTemporaryDir home;
    const auto run = runVaskel({}, home.path());
    EXPECT_EQ(run.exitStatus, 1);
    EXPECT_EQ(run.standardOutput, "");
    EXPECT_TRUE(run.standardError.startsWith("vaskel: ")) << run.standardError.constData();
    EXPECT_EQ(run.standardError.count('\n'), 1) << run.standardError.constData();
}

}  // namespace
