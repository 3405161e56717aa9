#pragma once
// A provider's client for one account, made the way every provider makes it: only when a
// token is stored for the account, with the service's configured endpoints and upload
// limits, and a token provider that reads and refreshes the account's token.
#include <memory>
#include <string>
#include <utility>

#include "providers/oauth/TokenProvider.h"
#include "vxcloud/auth/VXCloudTokenStore.h"
#include "vxcloud/sessions/VXCloudServiceConfig.h"

namespace vxcloud::oauth {

// `Options` is the client's options (endpoints, limits, ...); the client is made from a
// token provider and those options. Nothing when no token is stored under `storageName`.
template <typename Client, typename Options>
std::shared_ptr<Client> clientForAccount(VXCloudService service, const std::string& storageName) {
    if (storageName.empty() || !VXCloudTokenStore::load(service, storageName)) return nullptr;
    Options options;
    options.endpoints = VXCloudServiceConfig::endpoints(service);
    options.limits = VXCloudServiceConfig::uploadLimits(service);
    return std::make_shared<Client>(std::make_shared<TokenProvider>(service, storageName), std::move(options));
}

}  // namespace vxcloud::oauth
