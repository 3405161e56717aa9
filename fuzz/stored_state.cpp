// What the component reads back from files: the preferences file (with the stored accounts
// in it) through the standard preferences store, each account and its upload folder, and the
// account's settings document as the sessions and the manager read it.
//
// Each input is the whole content of the preferences file, written afresh to a private folder
// for every run; the same bytes are then read as a settings document.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "../src/model/KeychainSearch.h"
#include "../src/sessions/SettingsDocument.h"
#include "FuzzInput.h"
#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/model/VXCloudFile.h"
#include "vxcloud/model/VXCloudUserDefaults.h"
#include "vxcloud/model/VXCloudWebDAVAccount.h"
#include "vxcloud/platform/Log.h"
#include "vxcloud/platform/PreferencesStore.h"

using namespace vxcloud;
namespace fs = std::filesystem;

namespace {

fs::path& folder() {
    static fs::path path;
    return path;
}

fs::path preferencesPath() { return folder() / "preferences.json"; }

void writeFile(const fs::path& path, std::string_view content) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    FUZZ_CHECK(file != nullptr);
    FUZZ_CHECK(std::fwrite(content.data(), 1, content.size(), file) == content.size());
    std::fclose(file);
}

// A corrupt file is moved aside, never deleted: clear those copies so the folder stays small.
void clearFolder() {
    for (const auto& entry : fs::directory_iterator(folder())) fs::remove_all(entry.path());
}

bool isWebDAV(const VXCloudAccount& account) { return account.cloudService == VXCloudService::webDAV; }

// An account written back with toDict and read again is the same account.
void checkRoundTrip(const VXCloudAccount& account) {
    const Json written = account.toDict();
    std::shared_ptr<VXCloudAccount> again = isWebDAV(account) ? VXCloudWebDAVAccount::initWithDictionary(written)
                                                              : VXCloudAccount::initWithDictionary(written);
    FUZZ_CHECK(again != nullptr);
    FUZZ_CHECK(again->toDict() == written);
}

void readAccounts() {
    const auto accounts =
        VXCloudUserDefaults::loadAccounts({allCloudServices.begin(), allCloudServices.end()});
    if (!accounts) return;
    for (const auto& account : *accounts) {
        FUZZ_CHECK(account != nullptr);
        VXCloudFile::initWithUploadFolderInfo(account->uploadFolderInfo);
        checkRoundTrip(*account);
    }
}

// Every value of the document as an account of either kind, and all of them as the list a
// keychain search answers.
void readEveryValue(const Json& document) {
    Json list = Json::array();
    for (const Json& value : document) {
        VXCloudAccount::initWithDictionary(value);
        VXCloudWebDAVAccount::initWithDictionary(value);
        VXCloudFile::initWithUploadFolderInfo(value);
        list.push_back(value);
    }
    keychain::accountsFromSearchResult(list);
}

void readSettingsDocument(std::string_view text) {
    const JsonBox settings = sessions::readSettingsDocument(text);
    VXCloudFile::initWithUploadFolderInfo(settings);
    for (const char* key : {VXCloudFile::kUploadFolderIdKey, VXCloudFile::kUploadFolderPathKey}) {
        const auto value = sessions::settingsString(text, key);
        // Only an object's string member is read.
        FUZZ_CHECK(!value || (settings && settings->at(key) == *value));
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    log::setLevel(log::Level::off);
    std::string pattern = (fs::temp_directory_path() / "vxcloud-fuzz-XXXXXX").string();
    FUZZ_CHECK(mkdtemp(pattern.data()) != nullptr);
    folder() = pattern;
    PreferencesStore::setStandardPath(preferencesPath().string());
    // The folder goes when the run ends.
    std::atexit([] { fs::remove_all(folder()); });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    writeFile(preferencesPath(), text);
    auto store = PreferencesStore::standard();
    const Json document = store->snapshot();
    FUZZ_CHECK(document.is_object());
    store->takeCorruptionReport();
    store->get(VXCloudUserDefaults::kAccountsKey);
    readAccounts();
    readEveryValue(document);
    if (const auto stored = document.find(VXCloudUserDefaults::kAccountsKey);
        stored != document.end() && stored->is_object()) {
        readEveryValue(*stored);
    }
    readSettingsDocument(text);
    clearFolder();
    return 0;
}
