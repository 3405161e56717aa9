// The provider emulators this sandbox serves. A new provider adds its module here.
#include "dropbox/DropboxModule.h"
#include "framework/ProviderModule.h"
#include "google/GoogleModule.h"

namespace vxcloud::sandbox {

std::vector<std::unique_ptr<ProviderModule>> createProviderModules(ProviderContext& context) {
    std::vector<std::unique_ptr<ProviderModule>> modules;
    modules.push_back(std::make_unique<dropbox::DropboxModule>(context));
    modules.push_back(std::make_unique<google::GoogleModule>(context));
    return modules;
}

}  // namespace vxcloud::sandbox
