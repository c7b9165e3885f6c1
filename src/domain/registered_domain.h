#pragma once

#include <functional>
#include <optional>

#include "platform/file_provider/file_provider.h"

/// The registered domain of this program and its manager.
struct RegisteredDomain {
    platform::FileProviderDomain domain;
    platform::FileProviderManager manager;
};

/// Lists the registered domains and gives the first whose identifier is `DOMAIN_ID`, with its
/// manager; none when there is no such domain, it has no manager, or the list cannot be had (the
/// error is not examined). The completion runs on the file-provider service's callback thread.
void findRegisteredDomain(std::function<void(std::optional<RegisteredDomain>)> completion);

/// The same rule over a list already at hand: the first domain with `identifier`.
std::optional<RegisteredDomain> registeredDomainIn(
    const QList<platform::FileProviderDomain>& domains, const QString& identifier);
