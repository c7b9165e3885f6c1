#include <cmath>
#include <future>
#include <thread>

#include "domain/provider_responds.h"
#include "shared/config.h"
#include "support/command_fixture.h"

using namespace platform;

namespace {

class DomainTest : public testing_support::CommandFixture {
protected:
    void writeConfig(const QByteArray& json) {
        testing_support::writeFile(Shared::configPath(), json);
    }

    bool responds(double timeout) {
        std::promise<std::pair<bool, std::thread::id>> answer;
        providerResponds(timeout, [&](bool value) {
            answer.set_value({value, std::this_thread::get_id()});
        });
        const auto [value, thread] = answer.get_future().get();
        EXPECT_NE(thread, std::this_thread::get_id()) << "never on the caller's (main) thread";
        return value;
    }
};

TEST_F(DomainTest, NameFollowsTheAccountEmailOnEveryRead) {
    for (const auto& [config, name] :
         {std::pair{"", "Vaskel"},
          {R"({"account_email": ""})", "Vaskel"},
          {R"({"account_email": "me@example.com"})", "me@example.com"}}) {
        writeConfig(config);
        EXPECT_EQ(makeDomain().displayName, name) << config;
    }
    EXPECT_EQ(makeDomain().identifier, "com.norva.vaskel.domain");
}

TEST_F(DomainTest, ProviderRespondsWhenTheListingReturnsBeforeTheDeadline) {
    provider.listing.setHang(true);
    EXPECT_FALSE(responds(3600)) << "at once without a domain";
    EXPECT_EQ(provider.listing.calls(), 0);

    provider.addDomain(DOMAIN_ID, "Mine");
    provider.listing.setHang(false);
    EXPECT_TRUE(responds(3600));
    EXPECT_EQ(provider.listing.calls(), 1);

    provider.listing.setHang(true);
    EXPECT_FALSE(responds(0.05));
    for (double strange : {-1.0, double(NAN), -double(INFINITY)}) EXPECT_FALSE(responds(strange));
    provider.listing.waitForCalls(5);
    provider.listing.release();
}

TEST(SettingsApplicationTest, ChoosesTheSettingsProgramOfTheCurrentDesktop) {
    const auto installed = [](const QString& name) {
        return name == "systemsettings" || name == "gnome-control-center" ? "/usr/bin/" + name
                                                                          : QString();
    };
    const QStringList gnome{"/usr/bin/gnome-control-center"}, kde{"/usr/bin/systemsettings"};
    const std::vector<std::pair<QString, std::optional<QStringList>>> cases{
        {"GNOME", gnome},  {"ubuntu:GNOME", gnome},
        {"kde", kde},      {"XFCE", std::nullopt},  // known, but not installed
        {"XFCE:KDE", kde}, {"sway", std::nullopt},
    };
    for (const auto& [desktop, command] : cases) {
        EXPECT_EQ(settingsCommand(desktop, installed), command) << desktop.toStdString();
    }
}

}  // namespace
