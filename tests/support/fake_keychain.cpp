#include "support/fake_keychain.h"

#include <algorithm>

namespace testing_support {
namespace {

bool matches(const platform::KeychainItem& item, const platform::KeychainQuery& query) {
    return item.service == query.service && item.accessGroup == query.accessGroup;
}

}  // namespace

platform::KeychainBackend::Lookup FakeKeychain::copyMatching(const platform::KeychainQuery& query) {
    {
        std::unique_lock wait(holdMutex_);
        released_.wait(wait, [this] { return !held_; });
    }
    std::lock_guard lock(mutex_);
    if (refuseCopy_) return {*refuseCopy_, {}};
    const auto found = std::find_if(items_.rbegin(), items_.rend(),
                                    [&](const auto& item) { return matches(item, query); });
    if (found == items_.rend()) return {platform::keychain_status::ITEM_NOT_FOUND, {}};
    return {platform::keychain_status::SUCCESS, found->secret};
}

platform::OSStatus FakeKeychain::add(const platform::KeychainItem& item) {
    std::lock_guard lock(mutex_);
    if (refuseAdd_) return *refuseAdd_;
    items_.push_back(item);
    return platform::keychain_status::SUCCESS;
}

platform::OSStatus FakeKeychain::deleteMatching(const platform::KeychainQuery& query) {
    std::lock_guard lock(mutex_);
    if (refuseDelete_) return *refuseDelete_;
    const auto removed =
        std::erase_if(items_, [&](const auto& item) { return matches(item, query); });
    return removed ? platform::keychain_status::SUCCESS : platform::keychain_status::ITEM_NOT_FOUND;
}

void FakeKeychain::hold() {
    std::lock_guard lock(holdMutex_);
    held_ = true;
}

void FakeKeychain::release() {
    {
        std::lock_guard lock(holdMutex_);
        held_ = false;
    }
    released_.notify_all();
}

bool FakeKeychain::readableAcrossSession() const {
    std::lock_guard lock(mutex_);
    return readableAcrossSession_;
}

void FakeKeychain::refuseCopy(std::optional<platform::OSStatus> status) {
    std::lock_guard lock(mutex_);
    refuseCopy_ = status;
}

void FakeKeychain::refuseAdd(std::optional<platform::OSStatus> status) {
    std::lock_guard lock(mutex_);
    refuseAdd_ = status;
}

void FakeKeychain::refuseDelete(std::optional<platform::OSStatus> status) {
    std::lock_guard lock(mutex_);
    refuseDelete_ = status;
}

void FakeKeychain::refuseAll(platform::OSStatus status) {
    std::lock_guard lock(mutex_);
    refuseCopy_ = refuseAdd_ = refuseDelete_ = status;
}

void FakeKeychain::setReadableAcrossSession(bool readable) {
    std::lock_guard lock(mutex_);
    readableAcrossSession_ = readable;
}

void FakeKeychain::insert(const platform::KeychainItem& item) {
    std::lock_guard lock(mutex_);
    items_.push_back(item);
}

std::vector<platform::KeychainItem> FakeKeychain::items() const {
    std::lock_guard lock(mutex_);
    return items_;
}

}  // namespace testing_support
