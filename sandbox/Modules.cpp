// The provider emulators this sandbox serves. A new provider adds its module here.
#include "box/BoxModule.h"
#include "dropbox/DropboxModule.h"
#include "evernote/EvernoteModule.h"
#include "framework/ProviderModule.h"
#include "google/GoogleModule.h"
#include "onedrive/OneDriveModule.h"
#include "onenote/OneNoteModule.h"

namespace vxcloud::sandbox {

std::vector<std::unique_ptr<ProviderModule>> createProviderModules(ProviderContext& context) {
    std::vector<std::unique_ptr<ProviderModule>> modules;
    modules.push_back(std::make_unique<dropbox::DropboxModule>(context));
    modules.push_back(std::make_unique<google::GoogleModule>(context));
    modules.push_back(std::make_unique<onedrive::OneDriveModule>(context));
    modules.push_back(std::make_unique<onenote::OneNoteModule>(context));
    modules.push_back(std::make_unique<box::BoxModule>(context));
    modules.push_back(std::make_unique<evernote::EvernoteModule>(context));
    return modules;
}

}  // namespace vxcloud::sandbox
