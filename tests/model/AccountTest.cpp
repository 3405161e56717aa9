#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <set>
#include <type_traits>

#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/model/VXCloudWebDAVAccount.h"
#include "vxcloud/engine/VXCloudSessionFactory.h"

namespace vxcloud {
namespace {

using nlohmann::json;

json baseDictionary(int service = 1) {
    return {{"userid", "u1"}, {"accountname", "a@x.com"}, {"cloudservicerawvalue", service}};
}

TEST(CloudService, NamesPrefixesIconsAndRawValues) {
    struct Row {
        VXCloudService service;
        int raw;
        const char* type;
        const char* prefix;
        const char* icon;
    };
    const Row rows[] = {
        {VXCloudService::googleDrive, 0, "google_drive", "VX_Google_Drive_", "google-drive"},
        {VXCloudService::dropbox, 1, "dropbox", "VX_Dropbox_", "dropbox"},
        {VXCloudService::oneDrive, 2, "one_drive", "VX_OneDrive_", "onedrive"},
        {VXCloudService::oneNote, 3, "one_note", "VX_OneNote_", "onenote"},
        {VXCloudService::box, 4, "box", "VX_Box_", "box"},
        {VXCloudService::evernote, 5, "evernote", "VX_Evernote_", "evernote"},
        {VXCloudService::webDAV, 6, "web_dav", "VX_WebDAV_", "webdav"},
    };
    ASSERT_EQ(std::size(rows), allCloudServices.size());
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const Row& row = rows[i];
        SCOPED_TRACE(row.type);
        EXPECT_EQ(allCloudServices[i], row.service);
        EXPECT_EQ(rawValue(row.service), row.raw);
        EXPECT_EQ(cloudServiceFromRawValue(row.raw), row.service);
        EXPECT_EQ(accountType(row.service), row.type);
        EXPECT_EQ(keyPrefix(row.service), row.prefix);
        EXPECT_EQ(accountIconName(row.service), row.icon);
        EXPECT_EQ(cloudServiceFromType(row.type), row.service);
    }
    EXPECT_EQ(cloudServiceFromRawValue(7), std::nullopt);
    EXPECT_EQ(cloudServiceFromRawValue(-1), std::nullopt);
    // Exact type words only: no icon names, no other case, no aliases.
    for (const char* word : {"google-drive", "Google_Drive", "DROPBOX", "onedrive", "webdav", "", " box"})
        EXPECT_EQ(cloudServiceFromType(word), std::nullopt) << word;
}

TEST(CloudAccount, DesignatedInitialiserDefaultsAndKey) {
    static_assert(!std::is_default_constructible_v<VXCloudAccount>);
    static_assert(!std::is_default_constructible_v<VXCloudWebDAVAccount>);
    static_assert(!std::is_constructible_v<VXCloudWebDAVAccount, std::string, std::string, VXCloudService>);

    VXCloudAccount account("123", "me@x.com", VXCloudService::googleDrive);
    EXPECT_EQ(account.displayName, "me@x.com");
    EXPECT_FALSE(account.shouldAutoUpload);
    EXPECT_TRUE(account.onlyWifiUpload);
    EXPECT_FALSE(account.uploadFolderInfo);
    EXPECT_EQ(account.error, nullptr);
    EXPECT_EQ(account.key(), "VX_Google_Drive_123");
    EXPECT_EQ(account.accountType(), "google_drive");

    // Same user id on two services: two different keys.
    EXPECT_NE(VXCloudAccount("9", "e", VXCloudService::dropbox).key(),
              VXCloudAccount("9", "e", VXCloudService::googleDrive).key());
}

TEST(CloudAccount, DictionaryRoundTripForEveryService) {
    for (VXCloudService service : allCloudServices) {
        SCOPED_TRACE(std::string(accountType(service)));
        VXCloudAccount account("id-\"quoted\"/slash", "Ünïcode@x.com", service);
        account.displayName = "My account";
        account.shouldAutoUpload = true;
        account.onlyWifiUpload = false;
        account.uploadFolderInfo = json{{"uploadFolderId", "f1"},
                                        {"uploadFolderName", "Scans"},
                                        {"uploadFolderPath", "/Scans"}};
        account.error = std::make_shared<VXCloudError>(ErrorCode::missingFolder);

        const json dict = account.toDict();
        EXPECT_EQ(dict["cloudservicerawvalue"], rawValue(service));
        EXPECT_EQ(dict["error"], "missing_folder");
        auto back = VXCloudAccount::initWithDictionary(dict);
        ASSERT_NE(back, nullptr);
        EXPECT_EQ(back->userId, account.userId);
        EXPECT_EQ(back->email, account.email);
        EXPECT_EQ(back->displayName, "My account");
        EXPECT_EQ(back->cloudService, service);
        EXPECT_TRUE(back->shouldAutoUpload);
        EXPECT_FALSE(back->onlyWifiUpload);
        EXPECT_EQ(back->uploadFolderInfo, account.uploadFolderInfo);
        ASSERT_NE(back->error, nullptr);
        EXPECT_EQ(back->error->errorCode, ErrorCode::missingFolder);
        EXPECT_EQ(back->toDict(), dict);
    }

    // Without folder info or error neither key is written.
    const json plain = VXCloudAccount("1", "e", VXCloudService::box).toDict();
    EXPECT_EQ(plain, json({{"userid", "1"},
                           {"accountname", "e"},
                           {"displayname", "e"},
                           {"cloudservicerawvalue", 4},
                           {"onlyuploadonwifi", true},
                           {"shouldAutoUpload", false}}));
}

TEST(CloudAccount, DictionaryRequiredKeysAndTypes) {
    EXPECT_NE(VXCloudAccount::initWithDictionary(baseDictionary()), nullptr);
    for (const char* key : {"userid", "accountname", "cloudservicerawvalue"}) {
        json missing = baseDictionary();
        missing.erase(key);
        EXPECT_EQ(VXCloudAccount::initWithDictionary(missing), nullptr) << key;
    }
    // Wrong types of required values.
    const std::pair<const char*, json> wrong[] = {
        {"userid", 12},          {"accountname", nullptr},       {"accountname", json::array()},
        {"cloudservicerawvalue", "1"}, {"cloudservicerawvalue", 1.0}, {"cloudservicerawvalue", true},
        {"cloudservicerawvalue", 7},   {"cloudservicerawvalue", -1},
        {"cloudservicerawvalue", 18446744073709551615ULL},
    };
    for (const auto& [key, value] : wrong) {
        json dict = baseDictionary();
        dict[key] = value;
        EXPECT_EQ(VXCloudAccount::initWithDictionary(dict), nullptr) << key << "=" << value.dump();
    }
    // Keys are case-sensitive.
    EXPECT_EQ(VXCloudAccount::initWithDictionary(
                  {{"UserId", "u1"}, {"accountname", "a"}, {"cloudservicerawvalue", 1}}),
              nullptr);
    // Not a dictionary at all.
    for (const json& value : {json(), json::array({baseDictionary()}), json("userid")})
        EXPECT_EQ(VXCloudAccount::initWithDictionary(value), nullptr) << value.dump();

    // 6 makes a plain account of the WebDAV service.
    auto webdav = VXCloudAccount::initWithDictionary(baseDictionary(6));
    ASSERT_NE(webdav, nullptr);
    EXPECT_EQ(webdav->cloudService, VXCloudService::webDAV);
    EXPECT_EQ(dynamic_cast<VXCloudWebDAVAccount*>(webdav.get()), nullptr);
}

TEST(CloudAccount, DictionaryOptionalValuesKeepDefaultsWhenOfWrongType) {
    json dict = baseDictionary();
    dict["displayname"] = 5;
    dict["onlyuploadonwifi"] = 0;          // an integer is not a bool
    dict["shouldAutoUpload"] = "true";     // nor is a string
    dict["shouldautoupload"] = true;       // wrong case: ignored
    dict["defaultuploadfolderinfo"] = "/Scans";
    dict["error"] = "STORAGE_QUOTA_REACHED";
    auto account = VXCloudAccount::initWithDictionary(dict);
    ASSERT_NE(account, nullptr);
    EXPECT_EQ(account->displayName, "a@x.com");  // falls back to accountname
    EXPECT_TRUE(account->onlyWifiUpload);
    EXPECT_FALSE(account->shouldAutoUpload);
    EXPECT_FALSE(account->uploadFolderInfo);
    EXPECT_EQ(account->error, nullptr);

    dict["error"] = "storage_quota_reached";
    account = VXCloudAccount::initWithDictionary(dict);
    ASSERT_NE(account, nullptr);
    ASSERT_NE(account->error, nullptr);
    EXPECT_EQ(account->error->errorCode, ErrorCode::storageQuotaReached);
}

TEST(CloudWebDAVAccount, CreationDictionaryAndRoundTrip) {
    auto account = std::make_shared<VXCloudWebDAVAccount>("bob", "https://dav.example.com", "8443");
    EXPECT_EQ(account->cloudService, VXCloudService::webDAV);
    EXPECT_EQ(account->email, "bob");
    EXPECT_EQ(account->displayName, "bob");
    EXPECT_FALSE(account->label);
    EXPECT_EQ(account->userId.size(), 36u);
    EXPECT_EQ(account->userId[14], '4');  // a version 4 UUID
    EXPECT_EQ(account->key(), "VX_WebDAV_" + account->userId);
    EXPECT_NE(VXCloudWebDAVAccount("bob", "u", "1").userId, account->userId);

    account->email = "changed";  // "accountname" is written from username
    account->label = "Office";
    const json dict = account->toDict();
    EXPECT_EQ(dict["accountname"], "bob");
    EXPECT_EQ(dict["url"], "https://dav.example.com");
    EXPECT_EQ(dict["port"], "8443");
    EXPECT_EQ(dict["label"], "Office");

    auto back = VXCloudWebDAVAccount::initWithDictionary(dict);
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->username, "bob");
    EXPECT_EQ(back->email, "bob");
    EXPECT_EQ(back->url, account->url);
    EXPECT_EQ(back->port, "8443");
    EXPECT_EQ(back->label, "Office");
    EXPECT_EQ(back->userId, account->userId);
    EXPECT_EQ(back->toDict(), dict);

    // No label written when none is set.
    account->label.reset();
    EXPECT_FALSE(account->toDict().contains("label"));

    // Each of its own keys is required as a string; so are the base's.
    for (const char* key : {"accountname", "url", "port", "userid", "cloudservicerawvalue"}) {
        json missing = dict;
        missing.erase(key);
        EXPECT_EQ(VXCloudWebDAVAccount::initWithDictionary(missing), nullptr) << key;
    }
    json numericPort = dict;
    numericPort["port"] = 8443;
    EXPECT_EQ(VXCloudWebDAVAccount::initWithDictionary(numericPort), nullptr);
}

std::vector<std::shared_ptr<VXCloudAccount>> gFactoryCalls;
std::shared_ptr<VXCloudSession> recordingFactory(const std::shared_ptr<VXCloudAccount>& account) {
    gFactoryCalls.push_back(account);
    return nullptr;
}

TEST(CloudAccount, SessionForAccountGoesThroughTheInstalledFactory) {
    setCloudSessionFactoryOverride(nullptr);
    auto dropbox = std::make_shared<VXCloudAccount>("1", "e", VXCloudService::dropbox);
    // Without an installed factory the built-in sessions answer, so an account makes its
    // session before anything else of the component has run.
    EXPECT_EQ(sessionFactory(), &initCloudSession);

    gFactoryCalls.clear();
    setCloudSessionFactoryOverride(&recordingFactory);
    dropbox->sessionForAccount();
    dropbox->sessionForAccount();
    ASSERT_EQ(gFactoryCalls.size(), 2u);  // a new session each time, never cached
    EXPECT_EQ(gFactoryCalls[0], dropbox);

    auto webdav = std::make_shared<VXCloudWebDAVAccount>("bob", "u", "1");
    EXPECT_EQ(webdav->sessionForAccount(), nullptr);
    EXPECT_EQ(gFactoryCalls.size(), 2u);  // WebDAV never asks for one

    VXCloudAccount unshared("1", "e", VXCloudService::box);
    EXPECT_EQ(unshared.sessionForAccount(), nullptr);
    EXPECT_EQ(gFactoryCalls.size(), 2u);
    setCloudSessionFactoryOverride(nullptr);
    gFactoryCalls.clear();
}

TEST(CloudAccount, IconsComeFromTheBundle) {
    std::set<std::string> paths;
    for (VXCloudService service : allCloudServices) {
        auto icon = VXCloudAccount("1", "e", service).accountIcon();
        ASSERT_TRUE(icon) << accountType(service);
        EXPECT_NE(icon->find(std::string(accountIconName(service))), std::string::npos);
        paths.insert(*icon);
    }
    EXPECT_EQ(paths.size(), allCloudServices.size());
}

}  // namespace
}  // namespace vxcloud
