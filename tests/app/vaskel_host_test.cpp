#include "app/vaskel_host.h"

#include <gtest/gtest.h>

#include "support/fake_platform.h"

namespace {

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

}  // namespace
