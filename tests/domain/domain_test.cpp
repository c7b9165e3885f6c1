#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <cmath>
#include <future>
#include <thread>

#include "domain/domain_identity.h"
#include "domain/provider_responds.h"
#include "domain/registered_domain.h"
#include "platform/settings_application.h"
#include "shared/config.h"
#include "support/fake_file_provider.h"
#include "support/fake_platform.h"

using namespace platform;
using testing_support::FakeFileProvider;
using testing_support::FakePlatform;

namespace {

class DomainTest : public ::testing::Test {
protected:
    FakePlatform platform;
    FakeFileProvider provider{platform.root.path() + QStringLiteral("/state")};

    void writeConfig(const QByteArray& json) {
        QDir().mkpath(platform.home.dir + "/.vaskel");
        QFile file(Shared::configPath());
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(json);
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
    const std::vector<std::pair<QByteArray, QString>> cases{
        {"", "Vaskel"},
        {"{}", "Vaskel"},
        {"{\"account_email\": \"\"}", "Vaskel"},
        {"{\"account_email\": 42}", "Vaskel"},
        {"[\"a@b.c\"]", "Vaskel"},
        {"{\"account_email\": \"me@example.com\"}", "me@example.com"},
    };
    for (const auto& [config, name] : cases) {
        writeConfig(config);
        EXPECT_EQ(DOMAIN_NAME(), name) << config.constData();
    }
    EXPECT_EQ(makeDomain().identifier, QStringLiteral("com.norva.vaskel.domain"));
    EXPECT_EQ(makeDomain().displayName, QStringLiteral("me@example.com"));
}

TEST_F(DomainTest, LookupFindsTheFirstDomainWithOurIdentifier) {
    auto find = [] {
        std::promise<std::optional<RegisteredDomain>> p;
        findRegisteredDomain([&](auto found) { p.set_value(found); });
        return p.get_future().get();
    };
    EXPECT_FALSE(find());
    provider.addDomain("other.domain", "Other");
    provider.addDomain(DOMAIN_ID, "Mine");
    const auto found = find();
    ASSERT_TRUE(found);
    EXPECT_EQ(found->domain.displayName, QStringLiteral("Mine"));
    EXPECT_EQ(found->manager.domainIdentifier(), QLatin1String(DOMAIN_ID));

    QFile registry(provider.registryPath());
    ASSERT_TRUE(registry.open(QIODevice::WriteOnly));
    registry.write("damaged");
    registry.close();
    EXPECT_FALSE(find()) << "a failed listing reads as no domain";
}

TEST_F(DomainTest, ProviderRespondsAnswersFalseAtOnceWithoutADomain) {
    provider.listing.setHang(true);
    EXPECT_FALSE(responds(3600));
    EXPECT_EQ(provider.listing.calls(), 0);
    EXPECT_EQ(PROVIDER_RESPONDS_DEFAULT_TIMEOUT, 6);
}

TEST_F(DomainTest, ProviderRespondsWhenTheListingReturns) {
    provider.addDomain(DOMAIN_ID, "Mine");
    EXPECT_TRUE(responds(3600));
    EXPECT_EQ(provider.listing.calls(), 1);
    // A folder that cannot be listed still answers: the listing returned.
    QDir(platform.home.dir + "/CloudStorage/Vaskel-Mine").removeRecursively();
    provider.listing.onList = [&] {
        QDir(platform.home.dir + "/CloudStorage/Vaskel-Mine").removeRecursively();
    };
    EXPECT_TRUE(responds(3600));
}

TEST_F(DomainTest, AListingThatNeverReturnsGivesFalseAtTheDeadline) {
    provider.addDomain(DOMAIN_ID, "Mine");
    provider.listing.setHang(true);
    EXPECT_FALSE(responds(0.05));
    provider.listing.waitForCalls(1);
    for (double strange : {-1.0, double(NAN), -double(INFINITY)}) EXPECT_FALSE(responds(strange));
    provider.listing.waitForCalls(4);
    provider.listing.release();
}

TEST(SettingsApplicationTest, ChoosesTheSettingsProgramOfTheCurrentDesktop) {
    const auto installed = [](const QString& name) {
        return name == QLatin1String("systemsettings") ||
                       name == QLatin1String("gnome-control-center")
                   ? QStringLiteral("/usr/bin/") + name
                   : QString();
    };
    const std::vector<std::pair<QString, std::optional<QStringList>>> cases{
        {"GNOME", QStringList{"/usr/bin/gnome-control-center"}},
        {"ubuntu:GNOME", QStringList{"/usr/bin/gnome-control-center"}},
        {"kde", QStringList{"/usr/bin/systemsettings"}},
        {"XFCE", std::nullopt},  // known, but not installed
        {"XFCE:KDE", QStringList{"/usr/bin/systemsettings"}},
        {"sway", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto& [desktop, command] : cases) {
        EXPECT_EQ(settingsCommand(desktop, installed), command) << desktop.toStdString();
    }
}

}  // namespace
