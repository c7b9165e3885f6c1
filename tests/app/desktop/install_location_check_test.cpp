#include "app/desktop/install_location_check.h"
#include "app/vaskel_host.h"

#include <gtest/gtest.h>

#include "platform/desktop/presentation.h"
#include "support/fake_desktop.h"
#include "support/fake_platform.h"

namespace {

TEST(InstallLocationCheck, AlertTextsButtonsAndAnswers) {
    testing_support::FakePlatform platform;
    testing_support::FakeDesktop desktop;
    auto& alerts = desktop.alerts;
    platform.bundle.bundlePath = "/usr/lib/vaskel";
    EXPECT_FALSE(refuseBadInstallLocation());
    EXPECT_TRUE(alerts.shown.empty());

    platform.bundle.bundlePath = "/Volumes/Vaskel";
    auto& presentation = platform::Presentation::shared();
    for (const int answer : {platform::ALERT_FIRST_BUTTON + 1, platform::ALERT_FIRST_BUTTON}) {
        SCOPED_TRACE(answer);
        alerts.shown.clear();
        alerts.answers = {answer};
        presentation.setActivationPolicy(platform::ActivationPolicy::accessory);
        const int activationsBefore = presentation.activations();

        EXPECT_TRUE(refuseBadInstallLocation()) << "the application ends either way";

        EXPECT_EQ(presentation.activationPolicy(), platform::ActivationPolicy::regular);
        EXPECT_EQ(presentation.activations(), activationsBefore + 1);
        ASSERT_EQ(alerts.shown.size(), 1u);
        EXPECT_EQ(alerts.shown[0].style, platform::Alert::Style::warning);
        EXPECT_EQ(alerts.shown[0].messageText, "Vaskel isn't installed yet");
        EXPECT_EQ(alerts.shown[0].informativeText, *VaskelHost::installLocationProblem());
        EXPECT_EQ(alerts.shown[0].buttons, (QStringList{"Show Applications Folder", "Quit"}));
    }
    EXPECT_EQ(desktop.workspace.revealed, std::vector{QStringList{"/Applications"}})
        << "only the first button reveals the folder";
}

}  // namespace
