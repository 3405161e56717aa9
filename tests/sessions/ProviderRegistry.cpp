#include "sessions/BoxFixture.h"
#include "sessions/DropboxFixture.h"
#include "sessions/EvernoteFixture.h"
#include "sessions/GoogleDriveFixture.h"
#include "sessions/OneDriveFixture.h"
#include "sessions/OneNoteFixture.h"
#include "sessions/ProviderFixture.h"

namespace vxcloud::testing {

std::vector<ProviderCase> contractProviders() {
    return {
        {"Dropbox", [] { return std::make_unique<DropboxFixture>(); }},
        {"GoogleDrive", [] { return std::make_unique<GoogleDriveFixture>(); }},
        {"OneDrive", [] { return std::make_unique<OneDriveFixture>(); }},
        {"OneNote", [] { return std::make_unique<OneNoteFixture>(); }},
        {"Box", [] { return std::make_unique<BoxFixture>(); }},
        {"Evernote", [] { return std::make_unique<EvernoteFixture>(); }},
    };
}

}  // namespace vxcloud::testing
