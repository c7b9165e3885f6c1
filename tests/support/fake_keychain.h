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
    template <class Action>
    auto locked(Action action) const {
        std::lock_guard lock(mutex_);
        return action();
    }

public:
    using Refusal = std::optional<platform::OSStatus>;

    Lookup copyMatching(const platform::KeychainQuery& query) override {
        std::unique_lock lock(mutex_);
        released_.wait(lock, [this] { return !held_; });
        if (refuseCopy_) return {*refuseCopy_, {}};
        for (auto item = items_.rbegin(); item != items_.rend(); ++item)
            if (matches(*item, query)) return {platform::keychain_status::SUCCESS, item->secret};
        return {platform::keychain_status::ITEM_NOT_FOUND, {}};
    }
    platform::OSStatus add(const platform::KeychainItem& item) override {
        std::lock_guard lock(mutex_);
        if (!refuseAdd_) items_.push_back(item);
        return refuseAdd_.value_or(platform::keychain_status::SUCCESS);
    }
    platform::OSStatus deleteMatching(const platform::KeychainQuery& query) override {
        std::lock_guard lock(mutex_);
        if (refuseDelete_) return *refuseDelete_;
        return std::erase_if(items_, [&](const auto& item) { return matches(item, query); })
                   ? platform::keychain_status::SUCCESS
                   : platform::keychain_status::ITEM_NOT_FOUND;
    }
    bool readableAcrossSession() const override {
        return locked([&] { return readable_; });
    }

    /// Makes the operation answer `status` without doing anything; none to work again.
    void refuseCopy(Refusal status) {
        locked([&] { refuseCopy_ = status; });
    }
    void refuseAdd(Refusal status) {
        locked([&] { refuseAdd_ = status; });
    }
    void refuseDelete(Refusal status) {
        locked([&] { refuseDelete_ = status; });
    }
    /// Refuses every operation with `status`, as a locked or missing keychain would.
    void refuseAll(platform::OSStatus status) {
        locked([&] { refuseCopy_ = refuseAdd_ = refuseDelete_ = status; });
    }
    /// Whether the product's other components read the items (the action-UI extension).
    void setReadableAcrossSession(bool readable) {
        locked([&] { readable_ = readable; });
    }

    /// While held, lookups wait, as with a keychain that does not answer, until `release()`.
    void hold() {
        locked([&] { held_ = true; });
    }
    void release() {
        locked([&] { held_ = false; });
        released_.notify_all();
    }
    /// Puts an item in place directly, bypassing refusals (raw bytes, any attributes).
    void insert(const platform::KeychainItem& item) {
        locked([&] { items_.push_back(item); });
    }
    std::vector<platform::KeychainItem> items() const {
        return locked([&] { return items_; });
    }

private:
    static bool matches(const platform::KeychainItem& item, const platform::KeychainQuery& query) {
        return item.service == query.service && item.accessGroup == query.accessGroup;
    }

    mutable std::mutex mutex_;
    std::condition_variable released_;
    std::vector<platform::KeychainItem> items_;
    Refusal refuseCopy_, refuseAdd_, refuseDelete_;
    bool readable_ = true, held_ = false;
    platform::StandIn<platform::KeychainBackend> standIn_{*this};
};

}  // namespace testing_support
