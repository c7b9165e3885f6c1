#include "app/vaskel_host.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QTemporaryDir>

#include "support/fake_platform.h"
#include "support/run_program.h"

namespace {

using testing_support::runVaskel;

const QString DISK_IMAGE_TEXT =
    "This copy is running from the downloaded disk image. Drag Vaskel into your Applications "
    "folder (replacing the old one), eject the disk image, then open Vaskel from Applications.";
const QString TRANSLOCATED_TEXT =
    "This copy is running from a temporary location, probably your Downloads folder. Move Vaskel "
    "into your Applications folder (replacing the old one), then open it from there.";

TEST(InstallLocation, ProblemByBundlePath) {
    struct Case {
        const char* path;
        std::optional<QString> problem;
    };
    const Case cases[] = {
        {"/usr/bin", std::nullopt},
        {"/opt/vaskel/bin", std::nullopt},
        {"/Volumes/Vaskel/Vaskel.app", DISK_IMAGE_TEXT},
        {"/Volumes/x/AppTranslocation/y", DISK_IMAGE_TEXT},
        {"/private/var/folders/AppTranslocation/abc/Vaskel.app", TRANSLOCATED_TEXT},
        {"/volumes/lowercase", std::nullopt},
        {"/Volumes", std::nullopt},
        {"/home/u/apptranslocation/x", std::nullopt},
        {"/home/u/AppTranslocation", std::nullopt},
    };
    testing_support::FakePlatform platform;
    for (const Case& c : cases) {
        platform.bundle.bundlePath = c.path;
        EXPECT_EQ(VaskelHost::installLocationProblem(), c.problem) << c.path;
    }
}

TEST(ProgramEntry, VersionPrintsOneLineAndTouchesNothing) {
    QTemporaryDir home;
    const auto run = runVaskel({"--version", "ignored"}, home.path());
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.standardOutput, "Vaskel 20261007-080416\n");
    EXPECT_EQ(run.standardError, "");
    EXPECT_TRUE(QDir(home.path()).isEmpty(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden))
        << "nothing is created in the home directory";
}

TEST(ProgramEntry, CommandModeLoadsNoWidgetLibrary) {
    QTemporaryDir home;
    QProcessEnvironment environment;
    environment.insert("LD_DEBUG", "libs");
    const auto run = runVaskel({"--version"}, home.path(), environment);
    ASSERT_EQ(run.exitStatus, 0);
    EXPECT_TRUE(run.standardError.contains("libQt6Core")) << "the loader trace is there";
    EXPECT_FALSE(run.standardError.contains("libQt6Widgets"));
    EXPECT_FALSE(run.standardError.contains("libQt6Gui"));
    EXPECT_FALSE(run.standardError.contains("libvaskel-desktop"));
}

TEST(ProgramEntry, ApplicationModeWithoutADisplayExplainsAndFails) {
    QTemporaryDir home;
    for (const char* display : {"", ":4321"}) {
        QProcessEnvironment environment;
        if (*display) environment.insert("DISPLAY", display);
        const auto run = runVaskel({}, home.path(), environment);
        EXPECT_EQ(run.exitStatus, 1) << display;
        EXPECT_EQ(run.standardOutput, "");
        EXPECT_TRUE(run.standardError.startsWith("vaskel: ")) << run.standardError.constData();
        EXPECT_EQ(run.standardError.count('\n'), 1) << run.standardError.constData();
    }
}

}  // namespace
