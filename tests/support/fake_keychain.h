#pragma once

#include <condition_variable>
#include <mutex>
#include <optional>
#include <vector>

#include "platform/keychain_backend.h"
#include "platform/seam.h"

namespace testing_support {

/// An in-memory keychain put in place of the real one for its lifetime. Items keep the order in
/// which they were added; a lookup gives the newest match. Each operation can be made to refuse
/// with a chosen status. Thread-safe.
class FakeKeychain final : public platform::KeychainBackend {
public:
    FakeKeychain() = default;

    Lookup copyMatching(const platform::KeychainQuery& query) override;
    platform::OSStatus add(const platform::KeychainItem& item) override;
    platform::OSStatus deleteMatching(const platform::KeychainQuery& query) override;
    bool readableAcrossSession() const override;

    /// Makes the operation answer `status` without doing anything; none to work again.
    void refuseCopy(std::optional<platform::OSStatus> status);
    void refuseAdd(std::optional<platform::OSStatus> status);
    void refuseDelete(std::optional<platform::OSStatus> status);
    /// Refuses every operation with `status`, as a locked or missing keychain would.
    void refuseAll(platform::OSStatus status);

    /// Whether the product's other components read the items (the action-UI extension).
    void setReadableAcrossSession(bool readable);

    /// While held, lookups wait, as with a keychain that does not answer, until `release()`.
    void hold();
    void release();
    /// Puts an item in place directly, bypassing refusals (raw bytes, any attributes).
    void insert(const platform::KeychainItem& item);
    std::vector<platform::KeychainItem> items() const;

private:
    mutable std::mutex mutex_;
    std::vector<platform::KeychainItem> items_;
    std::optional<platform::OSStatus> refuseCopy_;
    std::optional<platform::OSStatus> refuseAdd_;
    std::optional<platform::OSStatus> refuseDelete_;
    bool readableAcrossSession_ = true;
    std::mutex holdMutex_;
    std::condition_variable released_;
    bool held_ = false;
    platform::StandIn<platform::KeychainBackend> standIn_{*this};
};

}  // namespace testing_support
