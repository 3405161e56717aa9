#include "support/IsolatedStores.h"

#include "vxcloud/platform/PreferencesStore.h"
#include "vxcloud/platform/SecureStore.h"

namespace vxcloud::testing {

IsolatedStores::IsolatedStores() {
    SecureStore::setShared(SecureStore::openFile(temp_.file("secure-store.json")));
    PreferencesStore::setStandardPath(temp_.file("preferences.json"));
}

IsolatedStores::~IsolatedStores() {
    // Leave a store behind that never reaches the person's keyring.
    SecureStore::setShared(SecureStore::openFile(temp_.file("secure-store.json")));
}

}  // namespace vxcloud::testing
