#include "sessions/DropboxFixture.h"
#include "sessions/GoogleDriveFixture.h"
#include "sessions/ProviderFixture.h"

namespace vxcloud::testing {

std::vector<ProviderCase> contractProviders() {
    return {
        {"Dropbox", [] { return std::make_unique<DropboxFixture>(); }},
        {"GoogleDrive", [] { return std::make_unique<GoogleDriveFixture>(); }},
    };
}

}  // namespace vxcloud::testing
