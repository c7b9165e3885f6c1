#include <cmath>
#include <thread>

#include "domain/provider_responds.h"
#include "support/command_fixture.h"

using namespace platform;

namespace {

// Whether the provider responds within `timeout`; the answer never comes on the caller's thread.
bool responds(double timeout) {
    std::promise<std::pair<bool, std::thread::id>> answer;
    providerResponds(timeout, [&](bool value) {
        answer.set_value({value, std::this_thread::get_id()});
    });
    const auto [value, thread] = answer.get_future().get();
    EXPECT_NE(thread, std::this_thread::get_id()) << "never on the caller's (main) thread";
    return value;
}

using DomainTest = testing_support::CommandFixture;

TEST_F(DomainTest, ProviderRespondsWhenTheListingReturnsBeforeTheDeadline) {
    provider.listing.hang = true;
    EXPECT_FALSE(responds(3600)) << "at once without a domain";
    EXPECT_EQ(provider.listing.calls, 0);
    registerOurDomain();
    provider.listing.hang = false;
    EXPECT_TRUE(responds(3600));
    EXPECT_EQ(provider.listing.calls, 1);
    provider.listing.hang = true;
    for (double timeout : {0.05, -1.0, double(NAN), -double(INFINITY)})
        EXPECT_FALSE(responds(timeout));
    provider.listing.waitForCalls(5);
}

TEST(SettingsApplicationTest, ChoosesTheSettingsProgramOfTheCurrentDesktop) {
    const auto installed = [](const QString& name) {
        return name == "systemsettings" || name == "gnome-control-center" ? "/usr/bin/" + name
                                                                          : QString();
    };
    const QStringList gnome{"/usr/bin/gnome-control-center"}, kde{"/usr/bin/systemsettings"};
    // clang-format off
    const std::pair<QString, std::optional<QStringList>> cases[] = {
        {"GNOME", gnome}, {"ubuntu:GNOME", gnome}, {"kde", kde},
        {"XFCE", std::nullopt} /* known, but not installed */, {"XFCE:KDE", kde}, {"sway", std::nullopt}};
    // clang-format on
    for (const auto& [desktop, command] : cases)
        EXPECT_EQ(settingsCommand(desktop, installed), command) << desktop.toStdString();
}

}  // namespace
