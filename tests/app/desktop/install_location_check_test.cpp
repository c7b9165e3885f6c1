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
        alerts.shown.clear();
        alerts.answers = {answer};
        presentation.setActivationPolicy(platform::ActivationPolicy::accessory);
        const int activations = presentation.activations();
        EXPECT_TRUE(refuseBadInstallLocation()) << "the application ends either way";
        EXPECT_EQ(std::pair(presentation.activationPolicy(), presentation.activations()),
                  std::pair(platform::ActivationPolicy::regular, activations + 1));
        ASSERT_EQ(alerts.shown.size(), 1u);
        const platform::Alert& alert = alerts.shown[0];
        EXPECT_EQ(std::tuple(alert.style, alert.messageText, alert.informativeText, alert.buttons),
                  std::tuple(platform::Alert::Style::warning, "Vaskel isn't installed yet",
                             *VaskelHost::installLocationProblem(),
                             QStringList{"Show Applications Folder", "Quit"}));
    }
    EXPECT_EQ(desktop.workspace.revealed, std::vector{QStringList{"/Applications"}})
        << "only the first button reveals the folder";
}

}  // namespace
