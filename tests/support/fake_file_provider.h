#pragma once

#include <atomic>
#include <functional>
#include <future>
#include <mutex>
#include <thread>

#include "platform/file_provider/local_file_provider_service.h"
#include "platform/folder_listing.h"
#include "platform/seam.h"
#include "platform/settings_application.h"
#include "sync-standin/extension_files.h"

namespace testing_support {

/// Waits for one service completion and gives its error (tests call the service synchronously).
inline std::optional<platform::FileProviderError> waitFor(
    const std::function<void(platform::ErrorCompletion)>& request) {
    std::promise<std::optional<platform::FileProviderError>> answer;
    request([&answer](auto error) { answer.set_value(error); });
    return answer.get_future().get();
}

/// A folder listing that can hang like an extension that does not answer: while `hang` is set,
/// `list` blocks until `release()` (or the destructor). `onList` runs at the start of each call.
class FakeListing final : public platform::FolderListing {
public:
    ~FakeListing() override {
        release();
        waitUntil([this] { return active_ == 0; });
    }
    void list(const QString& path) override {
        ++calls, ++active_;
        if (onList) onList();
        FolderListing::real().list(path);
        if (hang) released_.wait();
        --active_;
    }
    void release() {
        std::call_once(releasing_, [this] { release_.set_value(); });
    }
    std::atomic<bool> hang = false;
    std::atomic<int> calls = 0;
    std::function<void()> onList;

private:
    static void waitUntil(const std::function<bool()>& done) {
        while (!done()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    std::atomic<int> active_ = 0;
    std::once_flag releasing_;
    std::promise<void> release_;
    std::shared_future<void> released_ = release_.get_future().share();
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
    using S = platform::FileProviderService;
    using Id = const QString&;
    using Domain = const platform::FileProviderDomain&;
    using Done = platform::ErrorCompletion;

public:
    explicit HeldService(S& inner) : inner_(inner) {}
    void releaseAll() {
        std::vector<std::function<void()>> requests;
        {
            std::lock_guard lock(mutex_);
            requests.swap(held_);
        }
        for (auto& request : requests) request();
    }
    int held() const {
        std::lock_guard lock(mutex_);
        return int(held_.size());
    }

    void getDomains(platform::DomainsCompletion done) override { hold(&S::getDomains, done); }
    void add(Domain domain, Done done) override { hold(&S::add, domain, done); }
    void remove(Domain domain, Done done) override { hold(&S::remove, domain, done); }
    bool isRegistered(Id id) override { return inner_.isRegistered(id); }
    void reconnect(Id id, Done done) override { hold(&S::reconnect, id, done); }
    void signalWorkingSet(Id id, Done done) override { hold(&S::signalWorkingSet, id, done); }
    void userVisibleURL(Id id, platform::URLCompletion done) override {
        hold(&S::userVisibleURL, id, done);
    }
    void identifierForUserVisibleFile(Id path, platform::IdentifierCompletion done) override {
        hold(&S::identifierForUserVisibleFile, path, done);
    }
    void evictItem(Id id, Id item, Done done) override { hold(&S::evictItem, id, item, done); }
    std::shared_ptr<platform::FileProviderProgress> globalProgress(
        Id id, platform::FileOperationKind kind) override {
        return inner_.globalProgress(id, kind);
    }

private:
    // Keeps the call of `method` on the wrapped service with copies of `arguments`.
    template <class Method, class... Arguments>
    void hold(Method method, const Arguments&... arguments) {
        std::lock_guard lock(mutex_);
        held_.push_back([this, method, arguments...] { (inner_.*method)(arguments...); });
    }
    S& inner_;
    mutable std::mutex mutex_;
    std::vector<std::function<void()>> held_;
};

/// The file-provider service over a throwaway state folder, put in place for one test, with the
/// other side of it: the sync extension's access to the same files (without an app-group
/// container). Needs a FakePlatform (for the home directory and clock) that outlives it.
class FakeFileProvider {
public:
    explicit FakeFileProvider(const QString& stateDirectory) : service(stateDirectory) {}

    platform::LocalFileProviderService service;
    FakeListing listing;
    FakeSettingsApplication settings;
    standin::ExtensionFiles extension{service.stateDirectory(), QString()};

    QString registryPath() const { return service.stateDirectory() + "/registry.json"; }
    /// Registers a domain through the service, as --add would (without trash syncing).
    void addDomain(const QString& identifier, const QString& displayName) {
        const auto error = waitFor([&](auto done) {
            service.add({identifier, displayName}, done);
        });
        if (error) qFatal("could not add a test domain: %s", qPrintable(error->description));
    }
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
