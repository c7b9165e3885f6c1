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
    presentation.setActivationPolicy(platform::ActivationPolicy::accessory);
    const int activations = presentation.activations();
    alerts.answers = {platform::ALERT_FIRST_BUTTON + 1, platform::ALERT_FIRST_BUTTON};
    // The application ends either way; only the first button reveals the folder.
    EXPECT_TRUE(refuseBadInstallLocation());
    EXPECT_TRUE(desktop.workspace.revealed.empty());
    EXPECT_TRUE(refuseBadInstallLocation());
    EXPECT_EQ(desktop.workspace.revealed, std::vector{QStringList{"/Applications"}});
    EXPECT_EQ(std::pair(presentation.activationPolicy(), presentation.activations()),
              std::pair(platform::ActivationPolicy::regular, activations + 2));
    ASSERT_EQ(alerts.shown.size(), 2u);
    for (const platform::Alert& alert : alerts.shown)
        EXPECT_EQ(std::tuple(alert.style, alert.messageText, alert.informativeText, alert.buttons),
                  std::tuple(platform::Alert::Style::warning, "Vaskel isn't installed yet",
                             *VaskelHost::installLocationProblem(),
                             QStringList{"Show Applications Folder", "Quit"}));
}

}  // namespace
