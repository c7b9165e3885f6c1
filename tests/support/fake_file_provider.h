#pragma once

#include <QString>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "platform/file_provider/file_provider.h"
#include "platform/file_provider/local_file_provider_service.h"
#include "platform/folder_listing.h"
#include "platform/seam.h"
#include "platform/settings_application.h"
#include "sync-standin/extension_files.h"

namespace testing_support {

/// Waits for one service completion and gives its values (tests call the service synchronously).
std::optional<platform::FileProviderError> waitFor(
    const std::function<void(platform::ErrorCompletion)>& request);

/// A folder listing that can hang like an extension that does not answer: while `hang` is set,
/// `list` blocks until `release()` (or the destructor). `onList` runs at the start of each call.
class FakeListing final : public platform::FolderListing {
public:
    ~FakeListing() override;
    void list(const QString& path) override;
    void setHang(bool hang);
    void release();
    int calls() const;
    /// Blocks until `list` has been entered `count` times in all.
    void waitForCalls(int count);
    std::function<void()> onList;

private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    bool hang_ = false;
    bool released_ = false;
    int calls_ = 0;
    int active_ = 0;
};

/// Records requests to open the settings application instead of opening it.
class FakeSettingsApplication final : public platform::SettingsApplication {
public:
    void open() override { ++opened; }
    int opened = 0;
};

/// A service that keeps every request and answers none until `releaseAll()` hands them to the
/// wrapped service: a system that does not answer, or answers late.
class HeldService final : public platform::FileProviderService {
public:
    explicit HeldService(platform::FileProviderService& inner) : inner_(inner) {}
    void releaseAll();
    int held() const;

    using Service = platform::FileProviderService;
    using Completion = platform::ErrorCompletion;
    using Domain = platform::FileProviderDomain;
    void getDomains(platform::DomainsCompletion done) override { hold(&Service::getDomains, done); }
    void add(const Domain& domain, Completion done) override { hold(&Service::add, domain, done); }
    void remove(const Domain& domain, Completion done) override {
        hold(&Service::remove, domain, done);
    }
    bool isRegistered(const QString& id) override { return inner_.isRegistered(id); }
    void reconnect(const QString& id, Completion done) override {
        hold(&Service::reconnect, id, done);
    }
    void signalWorkingSet(const QString& id, Completion done) override {
        hold(&Service::signalWorkingSet, id, done);
    }
    void userVisibleURL(const QString& id, platform::URLCompletion done) override {
        hold(&Service::userVisibleURL, id, done);
    }
    void identifierForUserVisibleFile(const QString& path,
                                      platform::IdentifierCompletion done) override {
        hold(&Service::identifierForUserVisibleFile, path, done);
    }
    void evictItem(const QString& id, const QString& item, Completion done) override {
        hold(&Service::evictItem, id, item, done);
    }
    std::shared_ptr<platform::FileProviderProgress> globalProgress(
        const QString& id, platform::FileOperationKind kind) override {
        return inner_.globalProgress(id, kind);
    }

private:
    // Keeps the call of `method` on the wrapped service with copies of `arguments`.
    template <class Method, class... Arguments>
    void hold(Method method, const Arguments&... arguments) {
        std::lock_guard lock(mutex_);
        held_.push_back([this, method, arguments...] { (inner_.*method)(arguments...); });
    }
    platform::FileProviderService& inner_;
    mutable std::mutex mutex_;
    std::vector<std::function<void()>> held_;
};

/// The file-provider service over a throwaway state folder, put in place for one test, with the
/// other side of it: the sync extension's access to the same files (without an app-group
/// container). Needs a FakePlatform (for the home directory and clock) that outlives it.
class FakeFileProvider {
public:
    explicit FakeFileProvider(const QString& stateDirectory);

    platform::LocalFileProviderService service;
    FakeListing listing;
    FakeSettingsApplication settings;
    standin::ExtensionFiles extension{service.stateDirectory(), QString()};

    QString registryPath() const;
    /// Registers a domain through the service, as --add would (without trash syncing).
    void addDomain(const QString& identifier, const QString& displayName);
    /// How often the working set of `domain` was signalled.
    qint64 workingSetSignals(const QString& domain) const {
        return extension.workingSetSignals(domain);
    }

private:
    platform::StandIn<platform::FileProviderService> serviceStandIn_{service};
    platform::StandIn<platform::FolderListing> listingStandIn_{listing};
    platform::StandIn<platform::SettingsApplication> settingsStandIn_{settings};
};

}  // namespace testing_support
