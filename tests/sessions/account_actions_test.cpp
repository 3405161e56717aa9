// The account screens' actions, run against every provider's session on the sandbox:
// choosing an upload folder (saved, settings document written, announced), the auto-upload
// switch, and unlinking (authorisation removed, account removed, announced).
#include <gtest/gtest.h>

#include <mutex>
#include <nlohmann/json.hpp>

#include "sessions/ProviderFixture.h"
#include "sessions/SandboxProviderFixture.h"
#include "sessions/SessionTestSupport.h"
#include "support/IsolatedStores.h"
#include "vxcloud/engine/VXCloudAccountActions.h"
#include "vxcloud/engine/VXCloudSessionFactory.h"
#include "vxcloud/model/VXCloudConstants.h"
#include "vxcloud/model/VXCloudServiceRegistry.h"
#include "vxcloud/model/VXCloudUserDefaults.h"
#include "vxcloud/platform/Dispatch.h"
#include "vxcloud/platform/NotificationCenter.h"

namespace vxcloud::testing {
namespace {

// What one notification name carried, as posted.
class Posted {
public:
    explicit Posted(const char* name) {
        token_ = NotificationCenter::defaultCenter().addObserver(name, nullptr, [this](const Notification& n) {
            std::lock_guard lock(mutex_);
            userInfos_.push_back(n.userInfo.value_or_null());
        });
    }
    ~Posted() { NotificationCenter::defaultCenter().removeObserver(token_); }
    std::vector<Json> userInfos() const {
        std::lock_guard lock(mutex_);
        return userInfos_;
    }

private:
    mutable std::mutex mutex_;
    std::vector<Json> userInfos_;
    NotificationCenter::ObserverToken token_;
};

// Runs an action and drives the main queue, where it answers, until it has.
template <typename Outcome, typename Start>
std::optional<Outcome> onMainQueue(Start start) {
    auto answer = std::make_shared<std::optional<Outcome>>();
    auto onMain = std::make_shared<bool>(false);
    start([answer, onMain](Outcome outcome) {
        *onMain = DispatchQueue::main()->isCurrentThread();
        *answer = std::move(outcome);
    });
    DispatchQueue::main()->runUntil([&] { return answer->has_value(); }, 60s);
    EXPECT_TRUE(*onMain) << "the completion runs on the main queue";
    return *answer;
}

std::optional<VXCloudUploadFolderChange> chooseFolder(const std::shared_ptr<VXCloudAccount>& account, const Json& info,
                                                      bool moveFiles) {
    return onMainQueue<VXCloudUploadFolderChange>([&](auto done) {
        VXCloudAccountActions::selectUploadFolder(account, info, moveFiles, done);
    });
}

std::shared_ptr<VXCloudAccount> stored(const VXCloudAccount& account) {
    for (const auto& candidate : VXCloudUserDefaults::loadAllAccounts(false))
        if (candidate->key() == account.key()) return candidate;
    return nullptr;
}

Json folderInfo(const VXCloudFile& folder) {
    return Json{{VXCloudFile::kUploadFolderIdKey, folder.id.value_or("")},
                {VXCloudFile::kUploadFolderNameKey, folder.name},
                {VXCloudFile::kUploadFolderPathKey, folder.path.value_or("/" + folder.name)}};
}

class AccountActions : public ::testing::TestWithParam<ProviderCase>, public SessionDriver<> {
protected:
    void SetUp() override {
        fixture_ = GetParam().make();
        std::string error;
        ASSERT_TRUE(fixture_->setUp(error)) << error;
    }
    void TearDown() override {
        session_.reset();
        if (fixture_) fixture_->tearDown();
    }

    // The settings document as the account's session reads it back.
    Json downloadedSettings() {
        EXPECT_TRUE(drive(fixture_->makeSession()));
        const auto [file, error] = settings();
        EXPECT_FALSE(error) << "settings download failed";
        if (!file || !file->fileData) return Json();
        return Json::parse(file->fileData->toString(), nullptr, false);
    }

    std::unique_ptr<ProviderFixture> fixture_;
};

TEST_P(AccountActions, ChoosingAFolderSavesTheAccountWritesTheSettingsAndAnnouncesIt) {
    const auto account = fixture_->account();
    const Json before = account->uploadFolderInfo.value_or_null();
    const auto folder = fixture_->makeFolder("Filed");
    ASSERT_TRUE(folder);
    const Json info = folderInfo(*folder);
    Posted posted(VXCloudSelectedUploadFolderNotification);

    const auto change = chooseFolder(account, info, /*moveFiles=*/true);
    ASSERT_TRUE(change.has_value());
    const bool keepsSettings = serviceDescriptor(account->cloudService).keepsSettingsDocument;
    EXPECT_EQ(change->settings, keepsSettings ? VXCloudUploadFolderChange::Settings::written
                                              : VXCloudUploadFolderChange::Settings::notKept);
    EXPECT_FALSE(change->error);

    const auto saved = stored(*account);
    ASSERT_TRUE(saved);
    EXPECT_EQ(saved->uploadFolderInfo.value_or_null(), info);

    // Announced once, before the completion, with exactly the four keys.
    const auto infos = posted.userInfos();
    ASSERT_EQ(infos.size(), 1u);
    EXPECT_EQ(infos[0], (Json{{"account", saved->toDict()}, {"fromFolder", before}, {"toFolder", info},
                              {"moveFiles", true}}));

    if (!keepsSettings) {
        EXPECT_EQ(fixture_->documentsNamed(VXCloudAccountActions::kSettingsFileName), 0u);
        return;
    }
    // The document names the folder the way the sessions read it back.
    const Json settings = downloadedSettings();
    ASSERT_TRUE(settings.is_object()) << settings.dump();
    EXPECT_EQ(settings.value(VXCloudFile::kUploadFolderIdKey, ""), info[VXCloudFile::kUploadFolderIdKey]);
    EXPECT_EQ(settings.value(VXCloudFile::kUploadFolderPathKey, ""), info[VXCloudFile::kUploadFolderPathKey]);
}

// Choosing again must replace the settings document, not add one beside it: a second copy
// could be the one read back after linking anew.
class SettingsDocument : public AccountActions {};

TEST_P(SettingsDocument, ChoosingAFolderThreeTimesLeavesOneSettingsDocumentNamingTheLast) {
    auto* sandboxed = dynamic_cast<SandboxProviderFixture*>(fixture_.get());
    ASSERT_TRUE(sandboxed);
    // Where the service keeps none, the first test shows that none is sent.
    if (!serviceDescriptor(fixture_->account()->cloudService).keepsSettingsDocument) return;
    Json last;
    for (const char* name : {"First", "Second", "Third"}) {
        const auto folder = fixture_->makeFolder(name);
        ASSERT_TRUE(folder) << name;
        last = folderInfo(*folder);
        const auto change = chooseFolder(fixture_->account(), last, false);
        ASSERT_TRUE(change.has_value() && change->settingsWritten()) << name;
    }

    EXPECT_EQ(fixture_->documentsNamed(VXCloudAccountActions::kSettingsFileName), 1u)
        << sandboxed->sandbox().listState(sandboxed->provider().name).dump(1);
    const Json settings = downloadedSettings();
    EXPECT_EQ(settings.value(VXCloudFile::kUploadFolderIdKey, ""), last[VXCloudFile::kUploadFolderIdKey]);
    EXPECT_EQ(settings.value(VXCloudFile::kUploadFolderPathKey, ""), last[VXCloudFile::kUploadFolderPathKey]);
}

TEST_P(AccountActions, UnlinkingRemovesTheAuthorisationAndTheAccountAndAnnouncesIt) {
    const auto account = fixture_->account();
    ASSERT_TRUE(initCloudSession(account));
    const Json dictionary = account->toDict();
    Posted posted(VXCloudAccountUnlinkedNotification);

    const auto outcome = onMainQueue<VXCloudUnlinkOutcome>(
        [&](auto done) { VXCloudAccountActions::unlinkAccount(account, done); });
    ASSERT_TRUE(outcome.has_value());
    EXPECT_EQ(outcome->result, VXCloudUnlinkOutcome::Result::unlinked);
    EXPECT_TRUE(outcome->unlinked());
    EXPECT_FALSE(stored(*account));
    // The tokens are gone: no session can be made for the account any more.
    EXPECT_FALSE(initCloudSession(account));
    const auto infos = posted.userInfos();
    ASSERT_EQ(infos.size(), 1u);
    EXPECT_EQ(infos[0], (Json{{"account", dictionary}}));

    // Unlinking it again finds no sign-in and removes nothing more.
    const auto again = onMainQueue<VXCloudUnlinkOutcome>(
        [&](auto done) { VXCloudAccountActions::unlinkAccount(account, done); });
    ASSERT_TRUE(again.has_value());
    EXPECT_EQ(again->result, VXCloudUnlinkOutcome::Result::signInWasGone);
}

std::string caseName(const ::testing::TestParamInfo<ProviderCase>& info) { return info.param.name; }

INSTANTIATE_TEST_SUITE_P(Providers, AccountActions, ::testing::ValuesIn(contractProviders()), caseName);
INSTANTIATE_TEST_SUITE_P(Providers, SettingsDocument, ::testing::ValuesIn(contractProviders()), caseName);

// Actions on accounts of services that have no session, or never upload automatically.
class AccountActionsWithoutSession : public ::testing::Test {
protected:
    IsolatedStores stores_;
};

TEST_F(AccountActionsWithoutSession, FolderIsChosenAndAnnouncedWithoutASettingsDocument) {
    auto account = std::make_shared<VXCloudAccount>("od-1", "ada@example.com", VXCloudService::oneDrive);
    account->error = std::make_shared<VXCloudError>(ErrorCode::missingFolder);
    ASSERT_TRUE(VXCloudUserDefaults::saveCloudAccount(*account));
    Posted posted(VXCloudSelectedUploadFolderNotification);
    const Json info = {{"uploadFolderId", "f1"}, {"uploadFolderName", "Scans"}, {"uploadFolderPath", "/Scans"}};

    const auto change = chooseFolder(account, info, false);
    ASSERT_TRUE(change.has_value());
    EXPECT_EQ(change->settings, VXCloudUploadFolderChange::Settings::noSession);
    EXPECT_TRUE(change->chosen());
    const auto saved = stored(*account);
    ASSERT_TRUE(saved);
    EXPECT_EQ(saved->uploadFolderInfo.value_or_null(), info);
    EXPECT_FALSE(saved->error) << "a chosen folder is no longer missing";
    ASSERT_EQ(posted.userInfos().size(), 1u);
    EXPECT_EQ(posted.userInfos()[0]["fromFolder"], Json());
    EXPECT_EQ(posted.userInfos()[0]["moveFiles"], false);

    // OneNote keeps no settings document: its folder is chosen without asking the session,
    // whose settings upload would never answer.
    auto notes = std::make_shared<VXCloudAccount>("on-1", "ada@example.com", VXCloudService::oneNote);
    ASSERT_TRUE(VXCloudUserDefaults::saveCloudAccount(*notes));
    const auto section = chooseFolder(notes, info, false);
    ASSERT_TRUE(section.has_value());
    EXPECT_EQ(section->settings, VXCloudUploadFolderChange::Settings::notKept);
    EXPECT_TRUE(section->chosen());
    EXPECT_EQ(stored(*notes)->uploadFolderInfo.value_or_null(), info);
    EXPECT_EQ(posted.userInfos().size(), 2u);
}

TEST_F(AccountActionsWithoutSession, AutoUploadSwitchSavesAndAnnouncesOnlyChangesItCanMake) {
    VXCloudAccount dropbox("dbid:1", "ada@example.com", VXCloudService::dropbox);
    ASSERT_TRUE(VXCloudUserDefaults::saveCloudAccount(dropbox));
    Posted posted(VXCloudAutoUploadFlagChangedNotification);

    EXPECT_EQ(VXCloudAccountActions::setAutoUpload(dropbox, true), VXCloudAutoUploadChange::changed);
    EXPECT_TRUE(stored(dropbox)->shouldAutoUpload);
    EXPECT_EQ(VXCloudAccountActions::setAutoUpload(dropbox, true), VXCloudAutoUploadChange::unchanged);
    EXPECT_EQ(VXCloudAccountActions::setAutoUpload(dropbox, false), VXCloudAutoUploadChange::changed);
    EXPECT_FALSE(stored(dropbox)->shouldAutoUpload);
    const auto infos = posted.userInfos();
    ASSERT_EQ(infos.size(), 2u);
    EXPECT_EQ(infos[0], (Json{{"account", infos[0]["account"]}, {"shouldAutoUpload", true}}));
    EXPECT_EQ(infos[0]["account"]["userid"], "dbid:1");
    EXPECT_EQ(infos[1]["shouldAutoUpload"], false);

    // OneNote and WebDAV accounts never upload automatically; switching off is allowed.
    VXCloudAccount oneNote("on-1", "ada@example.com", VXCloudService::oneNote);
    ASSERT_TRUE(VXCloudUserDefaults::saveCloudAccount(oneNote));
    EXPECT_EQ(VXCloudAccountActions::setAutoUpload(oneNote, true), VXCloudAutoUploadChange::refused);
    EXPECT_FALSE(oneNote.shouldAutoUpload);
    EXPECT_FALSE(stored(oneNote)->shouldAutoUpload);
    EXPECT_EQ(VXCloudAccountActions::setAutoUpload(oneNote, false), VXCloudAutoUploadChange::unchanged);
    EXPECT_EQ(posted.userInfos().size(), 2u);
}

}  // namespace
}  // namespace vxcloud::testing
