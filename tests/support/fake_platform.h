#pragma once

#include <QDir>
#include <QTemporaryDir>

#include "platform/app_group_container.h"
#include "platform/application_bundle.h"
#include "platform/clock.h"
#include "platform/home_directory.h"
#include "platform/log.h"
#include "platform/seam.h"
#include "support/fake_keychain.h"

namespace testing_support {

struct FakeHome final : platform::HomeDirectory {
    QString dir;
    QString path() const override { return dir; }
};

/// A container folder under the test's directory; `available` false acts as a group that cannot
/// be created.
struct FakeContainer final : platform::AppGroupContainer {
    QString dir;
    bool available = true;
    std::optional<QString> path(const QString& group) const override {
        const QString folder = dir + QLatin1Char('/') + group;
        return available && QDir().mkpath(folder) ? std::optional(folder) : std::nullopt;
    }
};

struct FakeClock final : platform::Clock {
    double now = 1'800'000'000.0;
    double secondsSince1970() const override { return now; }
};

struct FakeBundle final : platform::ApplicationBundle {
    platform::BundleInfo bundleInfo{"1.0", "1", "vaskel", "Vaskel"};
    QString bundlePath = QStringLiteral("/usr/bin");
    platform::BundleInfo info() const override { return bundleInfo; }
    QString path() const override { return bundlePath; }
};

struct LogLine {
    platform::LogLevel level;
    std::string subsystem, category;
    QString message;
};

/// Records log lines instead of sending them to the journal; thread-safe.
class CaptureLog final : public platform::LogSink {
public:
    void write(platform::LogLevel level, std::string_view subsystem, std::string_view category,
               const QString& message) override {
        std::lock_guard lock(mutex_);
        lines_.push_back({level, std::string(subsystem), std::string(category), message});
    }
    std::vector<LogLine> lines() const {
        std::lock_guard lock(mutex_);
        return lines_;
    }
    /// The messages alone, in order.
    QStringList messages() const {
        QStringList result;
        for (const LogLine& line : lines()) result << line.message;
        return result;
    }
    void clear() {
        std::lock_guard lock(mutex_);
        lines_.clear();
    }

private:
    mutable std::mutex mutex_;
    std::vector<LogLine> lines_;
};

/// Every platform facility of the core replaced for one test: a throwaway home directory and
/// container, a fixed clock, a build of version 1.0 (1), a captured log and an empty in-memory
/// keychain.
class FakePlatform {
public:
    FakePlatform() {
        home.dir = root.path() + "/home";
        container.dir = root.path() + "/container";
        QDir().mkpath(home.dir);
    }

    QTemporaryDir root;
    FakeHome home;
    FakeContainer container;
    FakeClock clock;
    FakeBundle bundle;
    CaptureLog log;
    FakeKeychain keychain;

private:
    platform::StandIn<platform::HomeDirectory> homeStandIn_{home};
    platform::StandIn<platform::AppGroupContainer> containerStandIn_{container};
    platform::StandIn<platform::Clock> clockStandIn_{clock};
    platform::StandIn<platform::ApplicationBundle> bundleStandIn_{bundle};
    platform::StandIn<platform::LogSink> logStandIn_{log};
};

}  // namespace testing_support
