#include "domain/domain_identity.h"

#include "shared/config.h"

QString DOMAIN_NAME() {
    const auto email = Shared::configString(Shared::readConfig(), QStringLiteral("account_email"));
    if (email && !email->isEmpty()) return *email;
    return QStringLiteral("Vaskel");
}

platform::FileProviderDomain makeDomain() {
    platform::FileProviderDomain domain;
    domain.identifier = QLatin1String(DOMAIN_ID);
    domain.displayName = DOMAIN_NAME();
    return domain;
}
