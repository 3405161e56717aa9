#include "vxcloud/sessions/VXCloudServiceConfig.h"

#include <array>
#include <algorithm>
#include <mutex>
#include <vector>
#include <utility>

#include "vxcloud/model/VXCloudServiceRegistry.h"
#include "vxcloud/platform/Http.h"

namespace vxcloud {
namespace {

struct Entry {
    VXCloudServiceEndpoints endpoints;
    VXCloudAppCredentials credentials;
    VXCloudUploadLimits limits;
};

struct Registry {
    std::mutex mutex;
    std::array<Entry, allCloudServices.size()> entries;
    VXCloudNetworkTimeouts timeouts;

    Registry() {
        for (VXCloudService service : allCloudServices) {
            entries[index(service)].endpoints = VXCloudServiceConfig::defaultEndpoints(service);
        }
    }
    static std::size_t index(VXCloudService service) {
        return static_cast<std::size_t>(rawValue(service));
    }
    Entry& at(VXCloudService service) { return entries.at(index(service)); }
};

Registry& registry() {
    static Registry instance;
    return instance;
}

// The transport trusts each service's CA file for the origins of that service's URLs.
// Called with the registry's lock held, after any change of endpoints.
void publishAuthorities(Registry& r) {
    std::map<std::string, std::string> byOrigin;
    for (const Entry& entry : r.entries) {
        const VXCloudServiceEndpoints& e = entry.endpoints;
        if (e.caFile.empty()) continue;
        std::vector<std::string> urls = {e.apiBase, e.contentBase, e.authorizeUrl, e.tokenUrl};
        for (const auto& [role, url] : e.extra) urls.push_back(url);
        for (const auto& url : urls) {
            if (auto origin = HttpClient::originOf(url); !origin.empty()) byOrigin.emplace(std::move(origin), e.caFile);
        }
    }
    HttpClient::setAuthoritiesByOrigin(std::move(byOrigin));
}

// One field of a service's entry, read or replaced under the registry's lock.
template <auto Field>
auto get(VXCloudService service) {
    Registry& r = registry();
    std::lock_guard lock(r.mutex);
    return r.at(service).*Field;
}

template <auto Field, typename Value>
void set(VXCloudService service, Value value) {
    Registry& r = registry();
    std::lock_guard lock(r.mutex);
    r.at(service).*Field = std::move(value);
}

}  // namespace

VXCloudServiceEndpoints VXCloudServiceConfig::defaultEndpoints(VXCloudService service) {
    const VXCloudEndpointDefaults& defaults = serviceDescriptor(service).endpoints;
    VXCloudServiceEndpoints e;
    e.apiBase = defaults.apiBase;
    e.contentBase = defaults.contentBase;
    e.authorizeUrl = defaults.authorizeUrl;
    e.tokenUrl = defaults.tokenUrl;
    for (const auto& [key, url] : defaults.extra) e.extra.emplace(key, url);
    return e;
}

VXCloudServiceEndpoints VXCloudServiceConfig::endpoints(VXCloudService service) {
    return get<&Entry::endpoints>(service);
}

void VXCloudServiceConfig::setEndpoints(VXCloudService service, VXCloudServiceEndpoints endpoints) {
    Registry& r = registry();
    std::lock_guard lock(r.mutex);
    const bool trustChanges = !endpoints.caFile.empty() || !r.at(service).endpoints.caFile.empty();
    r.at(service).endpoints = std::move(endpoints);
    if (trustChanges) publishAuthorities(r);
}

VXCloudAppCredentials VXCloudServiceConfig::credentials(VXCloudService service) {
    return get<&Entry::credentials>(service);
}

void VXCloudServiceConfig::setCredentials(VXCloudService service, VXCloudAppCredentials credentials) {
    set<&Entry::credentials>(service, std::move(credentials));
}

VXCloudUploadLimits VXCloudServiceConfig::uploadLimits(VXCloudService service) {
    return get<&Entry::limits>(service);
}

void VXCloudServiceConfig::setUploadLimits(VXCloudService service, VXCloudUploadLimits limits) {
    set<&Entry::limits>(service, std::move(limits));
}

void VXCloudServiceConfig::reset(VXCloudService service) {
    Registry& r = registry();
    std::lock_guard lock(r.mutex);
    const bool trusted = !r.at(service).endpoints.caFile.empty();
    r.at(service) = Entry{defaultEndpoints(service), {}, {}};
    if (trusted) publishAuthorities(r);
}

VXCloudNetworkTimeouts VXCloudServiceConfig::networkTimeouts() {
    Registry& r = registry();
    std::lock_guard lock(r.mutex);
    return r.timeouts;
}

void VXCloudServiceConfig::setNetworkTimeouts(VXCloudNetworkTimeouts timeouts) {
    const std::chrono::milliseconds least{1};
    timeouts.connect = std::max(timeouts.connect, least);
    timeouts.stall = std::max(timeouts.stall, least);
    Registry& r = registry();
    std::lock_guard lock(r.mutex);
    r.timeouts = timeouts;
}

void VXCloudServiceConfig::resetAll() {
    for (VXCloudService service : allCloudServices) reset(service);
}

}  // namespace vxcloud
