#include "app/desktop/install_location_check.h"
#include "app/vaskel_host.h"

#include <gtest/gtest.h>

#include <vector>

#include "platform/desktop/alerts.h"
#include "platform/desktop/presentation.h"
#include "platform/desktop/workspace.h"
#include "support/fake_platform.h"

namespace {

class FakeAlerts final : public platform::Alerts {
public:
    int answer = platform::ALERT_FIRST_BUTTON;
    std::vector<platform::Alert> shown;
    int runModal(const platform::Alert& alert) override {
        shown.push_back(alert);
        return answer;
    }
};

class FakeWorkspace final : public platform::Workspace {
public:
    std::vector<QStringList> revealed;
    bool openURL(const QUrl&) override { return true; }
    void activateFileViewerSelecting(const QStringList& paths) override {
        revealed.push_back(paths);
    }
};

class InstallLocationCheck : public ::testing::Test {
protected:
    testing_support::FakePlatform platform;
    FakeAlerts alerts;
    FakeWorkspace workspace;
    platform::StandIn<platform::Alerts> alertsStandIn{alerts};
    platform::StandIn<platform::Workspace> workspaceStandIn{workspace};
};

TEST_F(InstallLocationCheck, GoodLocationShowsNothing) {
    platform.bundle.bundlePath = "/usr/lib/vaskel";
    EXPECT_FALSE(refuseBadInstallLocation());
    EXPECT_TRUE(alerts.shown.empty());
}

TEST_F(InstallLocationCheck, AlertTextsButtonsAndAnswers) {
    platform.bundle.bundlePath = "/Volumes/Vaskel";
    struct Case {
        int answer;
        size_t reveals;
    };
    for (const Case c :
         {Case{platform::ALERT_FIRST_BUTTON, 1}, Case{platform::ALERT_FIRST_BUTTON + 1, 0}}) {
        alerts.shown.clear();
        workspace.revealed.clear();
        alerts.answer = c.answer;
        auto& presentation = platform::Presentation::shared();
        presentation.setActivationPolicy(platform::ActivationPolicy::accessory);
        const int activationsBefore = presentation.activations();

        EXPECT_TRUE(refuseBadInstallLocation()) << "the application ends either way";

        EXPECT_EQ(presentation.activationPolicy(), platform::ActivationPolicy::regular);
        EXPECT_EQ(presentation.activations(), activationsBefore + 1);
        ASSERT_EQ(alerts.shown.size(), 1u);
        const platform::Alert& alert = alerts.shown[0];
        EXPECT_EQ(alert.style, platform::Alert::Style::warning);
        EXPECT_EQ(alert.messageText, "Vaskel isn't installed yet");
        EXPECT_EQ(alert.informativeText, *VaskelHost::installLocationProblem());
        EXPECT_EQ(alert.buttons, (QStringList{"Show Applications Folder", "Quit"}));
        ASSERT_EQ(workspace.revealed.size(), c.reveals);
        if (c.reveals) {
            EXPECT_EQ(workspace.revealed[0], QStringList{"/Applications"});
        }
    }
}

}  // namespace
