#include "support/fake_keychain.h"

#include <algorithm>

namespace testing_support {
namespace {

namespace status = platform::keychain_status;

bool matches(const platform::KeychainItem& item, const platform::KeychainQuery& query) {
    return item.service == query.service && item.accessGroup == query.accessGroup;
}

}  // namespace

platform::KeychainBackend::Lookup FakeKeychain::copyMatching(const platform::KeychainQuery& query) {
    std::unique_lock lock(mutex_);
    released_.wait(lock, [this] { return !held_; });
    if (refuseCopy_) return {*refuseCopy_, {}};
    const auto found = std::find_if(items_.rbegin(), items_.rend(),
                                    [&](const auto& item) { return matches(item, query); });
    if (found == items_.rend()) return {status::ITEM_NOT_FOUND, {}};
    return {status::SUCCESS, found->secret};
}

platform::OSStatus FakeKeychain::add(const platform::KeychainItem& item) {
    std::lock_guard lock(mutex_);
    if (refuseAdd_) return *refuseAdd_;
    items_.push_back(item);
    return status::SUCCESS;
}

platform::OSStatus FakeKeychain::deleteMatching(const platform::KeychainQuery& query) {
    std::lock_guard lock(mutex_);
    if (refuseDelete_) return *refuseDelete_;
    const auto removed =
        std::erase_if(items_, [&](const auto& item) { return matches(item, query); });
    return removed ? status::SUCCESS : status::ITEM_NOT_FOUND;
}

}  // namespace testing_support
