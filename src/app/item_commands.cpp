#include "app/item_commands.h"

#include <QDir>

#include "domain/registered_domain.h"
#include "platform/file_provider/file_provider.h"

using platform::FileProviderDomain;
using platform::FileProviderError;
using platform::FileProviderManager;

QString lastPathComponent(const QString& path) {
    QString absolute = QDir::isAbsolutePath(path) ? path : QDir::currentPath() + '/' + path;
    while (absolute.size() > 1 && absolute.endsWith(QLatin1Char('/'))) absolute.chop(1);
    if (absolute == QLatin1String("/")) return absolute;
    return absolute.mid(absolute.lastIndexOf(QLatin1Char('/')) + 1);
}

void identifyPath(const QString& path, const Output& out, Completion completion) {
    if (path.isEmpty()) {
        out->line(QStringLiteral("usage: --identify <path>"));
        return completion();
    }
    FileProviderManager::getIdentifierForUserVisibleFile(
        path, [out, completion](std::optional<QString> item, std::optional<QString> domain,
                                std::optional<FileProviderError> error) {
            if (item) {
                out->line(QStringLiteral("identifier: ") + *item);
                out->line(QStringLiteral("domain    : ") + domain.value_or(QStringLiteral("?")));
            } else {
                out->line(QStringLiteral("no identifier: ") +
                          (error ? error->localizedDescription() : QStringLiteral("unknown")));
            }
            completion();
        });
}

void evictPath(const QString& path, const Output& out, Completion completion) {
    if (path.isEmpty()) {
        out->line(QStringLiteral("usage: --evict <path>"));
        return completion();
    }
    const QString name = lastPathComponent(path);
    FileProviderManager::getIdentifierForUserVisibleFile(
        path, [path, name, out, completion](std::optional<QString> item,
                                            std::optional<QString> domainIdentifier,
                                            std::optional<FileProviderError> error) {
            if (!item || !domainIdentifier) {
                out->line(QStringLiteral("not a file provider item: ") +
                          (error ? error->localizedDescription() : path));
                return completion();
            }
            FileProviderManager::getDomains(
                [item = *item, domainIdentifier = *domainIdentifier, name, out, completion](
                    QList<FileProviderDomain> domains, std::optional<FileProviderError>) {
                    // The path's own domain, which need not be ours.
                    const auto found = registeredDomainIn(domains, domainIdentifier);
                    if (!found) {
                        out->line(QStringLiteral("no manager for domain ") + domainIdentifier);
                        return completion();
                    }
                    found->manager.evictItem(
                        item, [name, out, completion](std::optional<FileProviderError> error) {
                            out->line(error ? QStringLiteral("evict failed: ") +
                                                  error->localizedDescription()
                                            : QStringLiteral("evicted ") + name);
                            completion();
                        });
                });
        });
}
