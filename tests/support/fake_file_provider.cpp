#include "support/fake_file_provider.h"

#include <future>

namespace testing_support {

using namespace platform;

std::optional<FileProviderError> waitFor(const std::function<void(ErrorCompletion)>& request) {
    std::promise<std::optional<FileProviderError>> answer;
    request([&answer](std::optional<FileProviderError> error) { answer.set_value(error); });
    return answer.get_future().get();
}

FakeListing::~FakeListing() {
    std::unique_lock lock(mutex_);
    released_ = true;
    changed_.notify_all();
    changed_.wait(lock, [this] { return active_ == 0; });
}

void FakeListing::list(const QString& path) {
    {
        std::lock_guard lock(mutex_);
        ++calls_;
        ++active_;
        changed_.notify_all();
    }
    if (onList) onList();
    FolderListing::real().list(path);
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return !hang_ || released_; });
    --active_;
    changed_.notify_all();
}

void FakeListing::waitForCalls(int count) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return calls_ >= count; });
}

void FakeListing::setHang(bool hang) {
    std::lock_guard lock(mutex_);
    hang_ = hang;
}

void FakeListing::release() {
    std::lock_guard lock(mutex_);
    released_ = true;
    changed_.notify_all();
}

int FakeListing::calls() const {
    std::lock_guard lock(mutex_);
    return calls_;
}

void HeldService::releaseAll() {
    std::vector<std::function<void()>> requests;
    {
        std::lock_guard lock(mutex_);
        requests.swap(held_);
    }
    for (auto& request : requests) request();
}

int HeldService::held() const {
    std::lock_guard lock(mutex_);
    return int(held_.size());
}

FakeFileProvider::FakeFileProvider(const QString& stateDirectory) : service(stateDirectory) {}

QString FakeFileProvider::registryPath() const {
    return service.stateDirectory() + QStringLiteral("/registry.json");
}

void FakeFileProvider::addDomain(const QString& identifier, const QString& displayName) {
    FileProviderDomain domain;
    domain.identifier = identifier;
    domain.displayName = displayName;
    const auto error = waitFor([&](ErrorCompletion done) { service.add(domain, done); });
    if (error) qFatal("could not add a test domain: %s", qPrintable(error->description));
}

}  // namespace testing_support
