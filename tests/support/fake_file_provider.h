#pragma once

#include <QJsonObject>
#include <QString>
#include <QStringList>
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

    void getDomains(platform::DomainsCompletion completion) override;
    void add(const platform::FileProviderDomain& domain,
             platform::ErrorCompletion completion) override;
    void remove(const platform::FileProviderDomain& domain,
                platform::ErrorCompletion completion) override;
    bool isRegistered(const QString& id) override { return inner_.isRegistered(id); }
    void reconnect(const QString& id, platform::ErrorCompletion completion) override;
    void signalWorkingSet(const QString& id, platform::ErrorCompletion completion) override;
    void userVisibleURL(const QString& id, platform::URLCompletion completion) override;
    void identifierForUserVisibleFile(const QString& path,
                                      platform::IdentifierCompletion completion) override;
    void evictItem(const QString& id, const QString& item,
                   platform::ErrorCompletion completion) override;
    std::shared_ptr<platform::FileProviderProgress> globalProgress(
        const QString& id, platform::FileOperationKind kind) override {
        return inner_.globalProgress(id, kind);
    }

private:
    void hold(std::function<void()> request);
    platform::FileProviderService& inner_;
    mutable std::mutex mutex_;
    std::vector<std::function<void()>> held_;
};

/// The file-provider service over a throwaway state folder, put in place for one test, with the
/// other side of it: what the sync extension reads and writes there. Needs a FakePlatform (for
/// the home directory and clock) that outlives it.
class FakeFileProvider {
public:
    explicit FakeFileProvider(const QString& stateDirectory);

    platform::LocalFileProviderService service;
    FakeListing listing;
    FakeSettingsApplication settings;

    QString registryPath() const;
    /// Registers a domain through the service, as --add would (without trash syncing).
    void addDomain(const QString& identifier, const QString& displayName);

    // The extension's side.
    /// How often the working set was signalled, and when last.
    qint64 workingSetSignals(const QString& domain) const;
    double lastSignalTime(const QString& domain) const;
    /// The items whose eviction was asked for, oldest first.
    QStringList evictionRequests(const QString& domain) const;
    /// Reports transfer counts of one kind, as the extension leaves them.
    void reportProgress(const QString& domain, platform::FileOperationKind kind,
                        const QJsonObject& counts);
    /// Marks a registered domain disconnected or connected in the registry.
    void setDisconnected(const QString& domain, bool disconnected);

private:
    QJsonObject domainFile(const QString& domain, const char* name) const;
    platform::StandIn<platform::FileProviderService> serviceStandIn_{service};
    platform::StandIn<platform::FolderListing> listingStandIn_{listing};
    platform::StandIn<platform::SettingsApplication> settingsStandIn_{settings};
};

}  // namespace testing_support
