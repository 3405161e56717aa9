#pragma once
// The secure store's two backends, behind SecureStore's factories.
#include <memory>
#include <string>

#include "vxcloud/platform/SecureStore.h"

namespace vxcloud::detail {

std::shared_ptr<SecureStore> makeFileSecureStore(std::string path);
// Null when built without libsecret or when no Secret Service answers in time.
std::shared_ptr<SecureStore> connectSecretService();

// Whether an item's identity is selected by a query (limit aside). An empty item
// class in the query selects every class.
inline bool queryMatches(const SecureQuery& query, const SecureItemKey& key) {
    return (query.itemClass.empty() || query.itemClass == key.itemClass) &&
           (!query.type || *query.type == key.type) &&
           (!query.account || *query.account == key.account) &&
           (!query.service || *query.service == key.service);
}

}  // namespace vxcloud::detail
