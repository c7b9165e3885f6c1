#include "domain/registered_domain.h"

#include "domain/domain_identity.h"

std::optional<RegisteredDomain> registeredDomainIn(
    const QList<platform::FileProviderDomain>& domains, const QString& identifier) {
    for (const platform::FileProviderDomain& domain : domains) {
        if (domain.identifier != identifier) continue;
        auto manager = platform::FileProviderManager::forDomain(domain);
        if (!manager) return std::nullopt;
        return RegisteredDomain{domain, *manager};
    }
    return std::nullopt;
}

void findRegisteredDomain(std::function<void(std::optional<RegisteredDomain>)> completion) {
    platform::FileProviderManager::getDomains(
        [completion = std::move(completion)](QList<platform::FileProviderDomain> domains,
                                             std::optional<platform::FileProviderError>) {
            completion(registeredDomainIn(domains, QLatin1String(DOMAIN_ID)));
        });
}
