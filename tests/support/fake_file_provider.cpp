#include "support/fake_file_provider.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <future>

#include "platform/file_provider/domain_registry.h"
#include "platform/files.h"

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

void HeldService::hold(std::function<void()> request) {
    std::lock_guard lock(mutex_);
    held_.push_back(std::move(request));
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

void HeldService::getDomains(DomainsCompletion completion) {
    hold([this, completion] { inner_.getDomains(completion); });
}
void HeldService::add(const FileProviderDomain& domain, ErrorCompletion completion) {
    hold([this, domain, completion] { inner_.add(domain, completion); });
}
void HeldService::remove(const FileProviderDomain& domain, ErrorCompletion completion) {
    hold([this, domain, completion] { inner_.remove(domain, completion); });
}
void HeldService::reconnect(const QString& id, ErrorCompletion completion) {
    hold([this, id, completion] { inner_.reconnect(id, completion); });
}
void HeldService::signalWorkingSet(const QString& id, ErrorCompletion completion) {
    hold([this, id, completion] { inner_.signalWorkingSet(id, completion); });
}
void HeldService::userVisibleURL(const QString& id, URLCompletion completion) {
    hold([this, id, completion] { inner_.userVisibleURL(id, completion); });
}
void HeldService::identifierForUserVisibleFile(const QString& path,
                                               IdentifierCompletion completion) {
    hold([this, path, completion] { inner_.identifierForUserVisibleFile(path, completion); });
}
void HeldService::evictItem(const QString& id, const QString& item, ErrorCompletion completion) {
    hold([this, id, item, completion] { inner_.evictItem(id, item, completion); });
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

QJsonObject FakeFileProvider::domainFile(const QString& domain, const char* name) const {
    return file_provider_state::readStateObject(
        file_provider_state::domainStateDirectory(service.stateDirectory(), domain) + '/' +
        QLatin1String(name));
}

qint64 FakeFileProvider::workingSetSignals(const QString& domain) const {
    return domainFile(domain, "signals.json")
        .value(QStringLiteral("workingSet"))
        .toObject()
        .value(QStringLiteral("count"))
        .toInteger();
}

double FakeFileProvider::lastSignalTime(const QString& domain) const {
    return domainFile(domain, "signals.json")
        .value(QStringLiteral("workingSet"))
        .toObject()
        .value(QStringLiteral("signalledAt"))
        .toDouble();
}

QStringList FakeFileProvider::evictionRequests(const QString& domain) const {
    QStringList items;
    const QJsonArray requests =
        domainFile(domain, "evictions.json").value(QStringLiteral("requests")).toArray();
    for (const QJsonValue& request : requests) {
        items << request.toObject().value(QStringLiteral("identifier")).toString();
    }
    return items;
}

void FakeFileProvider::reportProgress(const QString& domain, FileOperationKind kind,
                                      const QJsonObject& counts) {
    QJsonObject all = domainFile(domain, "progress.json");
    all[kind == FileOperationKind::downloading ? QStringLiteral("downloading")
                                               : QStringLiteral("uploading")] = counts;
    const QString path =
        file_provider_state::domainStateDirectory(service.stateDirectory(), domain) +
        QStringLiteral("/progress.json");
    if (file_provider_state::writeStateObject(path, all)) qFatal("could not report progress");
}

void FakeFileProvider::setDisconnected(const QString& domain, bool disconnected) {
    QList<file_provider_state::RegisteredDomain> domains;
    if (file_provider_state::loadRegistry(service.stateDirectory(), domains)) {
        qFatal("registry damaged");
    }
    for (auto& entry : domains) {
        if (entry.domain.identifier == domain) entry.domain.isDisconnected = disconnected;
    }
    if (file_provider_state::saveRegistry(service.stateDirectory(), domains)) {
        qFatal("could not save registry");
    }
}

}  // namespace testing_support
