#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <nlohmann/json.hpp>
#include <thread>

#include "support/TempFolder.h"
#include "vxcloud/model/VXCloudUserDefaults.h"
#include "vxcloud/model/VXCloudWebDAVAccount.h"
#include "vxcloud/platform/PreferencesStore.h"

namespace vxcloud {
namespace {

using nlohmann::json;
using Accounts = VXCloudUserDefaults::AccountList;

class UserDefaultsTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_FALSE(folder_.path().empty());
        PreferencesStore::setStandardPath(folder_.file("preferences.json"));
    }

    static json entry() { return PreferencesStore::standard()->get("vxcloudaccounts").value_or_null(); }
    static std::vector<std::string> emails(const Accounts& accounts) {
        std::vector<std::string> out;
        for (const auto& account : accounts) out.push_back(account->email);
        return out;
    }

    testing::TempFolder folder_;
};

TEST_F(UserDefaultsTest, EmptyStore) {
    EXPECT_EQ(VXCloudUserDefaults::loadAccounts({VXCloudService::dropbox}), std::nullopt);
    EXPECT_TRUE(VXCloudUserDefaults::loadAllAccounts(false).empty());
    EXPECT_TRUE(VXCloudUserDefaults::loadAllAccounts(true).empty());
    EXPECT_FALSE(VXCloudUserDefaults::hasAccountsWithAutoUpload());
    // Removing from an empty store creates nothing.
    EXPECT_TRUE(VXCloudUserDefaults::removeCloudAccount(
        std::make_shared<VXCloudAccount>("1", "e", VXCloudService::box)));
    EXPECT_TRUE(VXCloudUserDefaults::removeCloudAccount(nullptr));
    EXPECT_TRUE(entry().is_null());
}

TEST_F(UserDefaultsTest, SaveReplacesByKeyAndKeepsServicesApart) {
    VXCloudAccount dropbox("42", "a@x", VXCloudService::dropbox);
    VXCloudAccount drive("42", "a@x", VXCloudService::googleDrive);
    ASSERT_TRUE(VXCloudUserDefaults::saveCloudAccount(dropbox));
    ASSERT_TRUE(VXCloudUserDefaults::saveCloudAccount(drive));
    dropbox.displayName = "Renamed";
    ASSERT_TRUE(VXCloudUserDefaults::saveCloudAccount(dropbox));

    const json stored = entry();
    ASSERT_EQ(stored.size(), 2u);
    EXPECT_EQ(stored["VX_Dropbox_42"], dropbox.toDict());
    EXPECT_EQ(stored["VX_Google_Drive_42"], drive.toDict());
    EXPECT_EQ(stored["VX_Dropbox_42"]["displayname"], "Renamed");

    // A non-dictionary entry is replaced by a fresh dictionary on save.
    PreferencesStore::standard()->set("vxcloudaccounts", json("garbage"));
    EXPECT_EQ(VXCloudUserDefaults::loadAccounts({VXCloudService::dropbox}), std::nullopt);
    ASSERT_TRUE(VXCloudUserDefaults::saveCloudAccount(drive));
    EXPECT_EQ(entry(), json({{"VX_Google_Drive_42", drive.toDict()}}));
}

TEST_F(UserDefaultsTest, LoadFiltersSortsAndAlwaysIncludesWebDAV) {
    auto save = [](VXCloudAccount account, bool autoUpload = false) {
        account.shouldAutoUpload = autoUpload;
        ASSERT_TRUE(VXCloudUserDefaults::saveCloudAccount(account));
    };
    save(VXCloudAccount("d1", "b@x", VXCloudService::dropbox), true);
    save(VXCloudAccount("d2", "a@x", VXCloudService::dropbox));
    save(VXCloudAccount("d3", "B@x", VXCloudService::dropbox));
    save(VXCloudAccount("b1", "box@x", VXCloudService::box), true);
    save(VXCloudAccount("g1", "z@x", VXCloudService::googleDrive));
    VXCloudWebDAVAccount webdav("dav-user", "https://dav", "443");
    webdav.label = "NAS";
    ASSERT_TRUE(VXCloudUserDefaults::saveCloudAccount(webdav));

    auto dropboxOnly = VXCloudUserDefaults::loadAccounts({VXCloudService::dropbox});
    ASSERT_TRUE(dropboxOnly);
    // Byte order: "B@x" before "a@x"; WebDAV joins though not asked for.
    EXPECT_EQ(emails(*dropboxOnly), (std::vector<std::string>{"B@x", "a@x", "b@x", "dav-user"}));
    auto loadedDav = std::dynamic_pointer_cast<VXCloudWebDAVAccount>(dropboxOnly->back());
    ASSERT_NE(loadedDav, nullptr);
    EXPECT_EQ(loadedDav->label, "NAS");
    EXPECT_EQ(loadedDav->url, "https://dav");

    auto none = VXCloudUserDefaults::loadAccounts({});
    ASSERT_TRUE(none);
    EXPECT_EQ(emails(*none), std::vector<std::string>{"dav-user"});

    const Accounts all = VXCloudUserDefaults::loadAllAccounts(false);
    EXPECT_EQ(emails(all), (std::vector<std::string>{"z@x", "B@x", "a@x", "b@x", "box@x", "dav-user"}));
    EXPECT_EQ(emails(VXCloudUserDefaults::loadAllAccounts(true)),
              (std::vector<std::string>{"b@x", "box@x"}));
    EXPECT_TRUE(VXCloudUserDefaults::hasAccountsWithAutoUpload());
}

TEST_F(UserDefaultsTest, BadEntriesAreSkippedAndKept) {
    ASSERT_TRUE(VXCloudUserDefaults::saveCloudAccount(VXCloudAccount("1", "ok@x", VXCloudService::box)));
    PreferencesStore::standard()->update("vxcloudaccounts", [](JsonBox& accounts) {
        (*accounts)["future"] = {{"userid", "9"}, {"accountname", "f@x"}, {"cloudservicerawvalue", 9}};
        (*accounts)["stringy"] = {{"userid", "8"}, {"accountname", "s@x"}, {"cloudservicerawvalue", "4"}};
        (*accounts)["scalar"] = 17;
        (*accounts)["brokenDav"] = {{"userid", "7"}, {"accountname", "d@x"}, {"cloudservicerawvalue", 6}};
    });
    const Accounts all = VXCloudUserDefaults::loadAllAccounts(false);
    EXPECT_EQ(emails(all), std::vector<std::string>{"ok@x"});

    // Saving and removing others leaves the unreadable entries where they were.
    ASSERT_TRUE(VXCloudUserDefaults::saveCloudAccount(VXCloudAccount("2", "new@x", VXCloudService::box)));
    ASSERT_TRUE(VXCloudUserDefaults::removeCloudAccount(
        std::make_shared<VXCloudAccount>("1", "ok@x", VXCloudService::box)));
    const json stored = entry();
    for (const char* key : {"future", "stringy", "scalar", "brokenDav", "VX_Box_2"})
        EXPECT_TRUE(stored.contains(key)) << key;
    EXPECT_FALSE(stored.contains("VX_Box_1"));

    // Removing an account that was never saved changes nothing.
    ASSERT_TRUE(VXCloudUserDefaults::removeCloudAccount(
        std::make_shared<VXCloudAccount>("never", "n@x", VXCloudService::box)));
    EXPECT_EQ(entry(), stored);
}

TEST_F(UserDefaultsTest, InitWithEmailFindsStoredAccountButKeepsWifiDefault) {
    VXCloudAccount stored("g-1", "me@x", VXCloudService::googleDrive);
    stored.displayName = "Work";
    stored.onlyWifiUpload = false;
    stored.shouldAutoUpload = true;
    stored.uploadFolderInfo = json{{"uploadFolderId", "f"}, {"uploadFolderName", "n"}, {"uploadFolderPath", "/p"}};
    stored.error = std::make_shared<VXCloudError>(ErrorCode::authentication);
    ASSERT_TRUE(VXCloudUserDefaults::saveCloudAccount(stored));

    EXPECT_EQ(VXCloudAccount::initWithEmail("me@x", "google-drive"), nullptr);
    EXPECT_EQ(VXCloudAccount::initWithEmail("ME@x", "google_drive"), nullptr);
    EXPECT_EQ(VXCloudAccount::initWithEmail("me@x", "dropbox"), nullptr);
    auto found = VXCloudAccount::initWithEmail("me@x", "google_drive");
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->userId, "g-1");
    EXPECT_EQ(found->displayName, "Work");
    EXPECT_EQ(found->cloudService, VXCloudService::googleDrive);
    EXPECT_TRUE(found->shouldAutoUpload);
    EXPECT_EQ(found->uploadFolderInfo, stored.uploadFolderInfo);
    ASSERT_NE(found->error, nullptr);
    EXPECT_EQ(found->error->errorCode, ErrorCode::authentication);
    EXPECT_TRUE(found->onlyWifiUpload);  // deliberately not copied
}

TEST_F(UserDefaultsTest, UpdateChangesOneStoredAccountInPlace) {
    VXCloudWebDAVAccount webdav("dav-user", "https://dav", "443");
    webdav.label = "NAS";
    ASSERT_TRUE(VXCloudUserDefaults::saveCloudAccount(webdav));
    const json before = entry();

    // Nothing stored under the key: nothing is written, and the change never runs.
    bool ran = false;
    EXPECT_EQ(VXCloudUserDefaults::updateCloudAccount("VX_Box_none", [&](VXCloudAccount&) { ran = true; }), nullptr);
    EXPECT_FALSE(ran);
    EXPECT_EQ(entry(), before);

    // The change sees the account of its own class, and the rest of the entry survives.
    const auto renamed = VXCloudUserDefaults::updateCloudAccount(webdav.key(), [](VXCloudAccount& account) {
        ASSERT_NE(dynamic_cast<VXCloudWebDAVAccount*>(&account), nullptr);
        account.displayName = "Basement";
    });
    ASSERT_NE(renamed, nullptr);
    EXPECT_EQ(renamed->displayName, "Basement");
    const auto loaded = std::dynamic_pointer_cast<VXCloudWebDAVAccount>(VXCloudUserDefaults::loadAllAccounts(false).at(0));
    ASSERT_NE(loaded, nullptr);
    EXPECT_EQ(loaded->label, "NAS");
    EXPECT_EQ(loaded->displayName, "Basement");

    // A change of the key would make another account: refused, nothing written.
    const json renamedEntry = entry();
    EXPECT_EQ(VXCloudUserDefaults::updateCloudAccount(webdav.key(), [](VXCloudAccount& a) { a.userId = "other"; }),
              nullptr);
    EXPECT_EQ(entry(), renamedEntry);
}

// A process renaming an account while another keeps choosing its folder: each change is
// made to the account as stored at that moment, so neither undoes the other.
TEST_F(UserDefaultsTest, TwoProcessesChangingOneAccountKeepBothChanges) {
    constexpr int kChanges = 30;
    VXCloudAccount account("1", "ada@x", VXCloudService::dropbox);
    ASSERT_TRUE(VXCloudUserDefaults::saveCloudAccount(account));
    const std::string key = account.key();
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        int failures = 0;
        for (int i = 0; i < kChanges; ++i) {
            const std::string name = "name " + std::to_string(i);
            if (!VXCloudUserDefaults::updateCloudAccount(key, [&](VXCloudAccount& a) { a.displayName = name; })) ++failures;
        }
        _exit(failures == 0 ? 0 : 1);
    }
    int failures = 0;
    for (int i = 0; i < kChanges; ++i) {
        const json folder = {{"uploadFolderId", std::to_string(i)}, {"uploadFolderName", "f"}, {"uploadFolderPath", "/f"}};
        if (!VXCloudUserDefaults::updateCloudAccount(key, [&](VXCloudAccount& a) { a.uploadFolderInfo = folder; }))
            ++failures;
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(failures, 0);
    const auto stored = VXCloudUserDefaults::loadAllAccounts(false);
    ASSERT_EQ(stored.size(), 1u);
    EXPECT_EQ(stored[0]->displayName, "name " + std::to_string(kChanges - 1));
    EXPECT_EQ(stored[0]->uploadFolderInfo.value_or_null()["uploadFolderId"], std::to_string(kChanges - 1));
}

// Many accounts saved by this process and a forked child at the same time: each
// read-modify-write sees the other's saves, so every account survives.
TEST_F(UserDefaultsTest, TwoProcessesSavingAtOnceLoseNothing) {
    constexpr int kPerProcess = 40;
    auto saveMany = [](const char* prefix) {
        int failures = 0;
        for (int i = 0; i < kPerProcess; ++i) {
            VXCloudAccount account(prefix + std::to_string(i), prefix + std::to_string(i) + "@x",
                                   VXCloudService::dropbox);
            if (!VXCloudUserDefaults::saveCloudAccount(account)) ++failures;
        }
        return failures;
    };
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) _exit(saveMany("child-") == 0 ? 0 : 1);
    const int parentFailures = saveMany("parent-");
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(parentFailures, 0);
    EXPECT_EQ(VXCloudUserDefaults::loadAllAccounts(false).size(), 2u * kPerProcess);
}

class UserDefaultsConcurrency : public UserDefaultsTest {};

TEST_F(UserDefaultsConcurrency, ThreadsSavingAndLoadingAtOnceLoseNothing) {
    constexpr int kThreads = 4;
    constexpr int kPerThread = 10;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < kPerThread; ++i) {
                const std::string id = std::to_string(t) + "-" + std::to_string(i);
                VXCloudUserDefaults::saveCloudAccount(VXCloudAccount(id, id + "@x", VXCloudService::box));
                VXCloudUserDefaults::loadAllAccounts(false);
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(VXCloudUserDefaults::loadAllAccounts(false).size(),
              static_cast<std::size_t>(kThreads * kPerThread));
}

}  // namespace
}  // namespace vxcloud
