#include "platform/file_provider/file_provider.h"

#include <QStringList>

#include "platform/seam.h"

namespace platform {

namespace {
FileProviderService& service() {
    return current<FileProviderService>();
}
}  // namespace

QString FileProviderError::fullDescription() const {
    QStringList info;
    for (const auto& [name, value] : details) info << QStringLiteral("%1=%2").arg(name, value);
    return QStringLiteral("Error Domain=%1 Code=%2 \"%3\" UserInfo={%4}")
        .arg(QLatin1String(DOMAIN))
        .arg(int(code))
        .arg(description, info.join(QStringLiteral(", ")));
}

std::optional<FileProviderManager> FileProviderManager::forDomain(
    const FileProviderDomain& domain) {
    if (!service().isRegistered(domain.identifier)) return std::nullopt;
    return FileProviderManager(domain.identifier);
}

void FileProviderManager::getDomains(DomainsCompletion completion) {
    service().getDomains(std::move(completion));
}

void FileProviderManager::add(const FileProviderDomain& domain, ErrorCompletion completion) {
    service().add(domain, std::move(completion));
}

void FileProviderManager::remove(const FileProviderDomain& domain, ErrorCompletion completion) {
    service().remove(domain, std::move(completion));
}

void FileProviderManager::getIdentifierForUserVisibleFile(const QString& path,
                                                          IdentifierCompletion completion) {
    service().identifierForUserVisibleFile(path, std::move(completion));
}

void FileProviderManager::reconnect(ErrorCompletion completion) const {
    service().reconnect(domainIdentifier_, std::move(completion));
}

void FileProviderManager::signalWorkingSetEnumerator(ErrorCompletion completion) const {
    service().signalWorkingSet(domainIdentifier_, std::move(completion));
}

void FileProviderManager::getUserVisibleURL(URLCompletion completion) const {
    service().userVisibleURL(domainIdentifier_, std::move(completion));
}

void FileProviderManager::evictItem(const QString& itemIdentifier,
                                    ErrorCompletion completion) const {
    service().evictItem(domainIdentifier_, itemIdentifier, std::move(completion));
}

std::shared_ptr<FileProviderProgress> FileProviderManager::globalProgress(
    FileOperationKind kind) const {
    return service().globalProgress(domainIdentifier_, kind);
}

}  // namespace platform
