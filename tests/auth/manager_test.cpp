// The manager around the flows: credentials from setup, the result dictionary, services
// without a sign-in, linked-account queries, the start-up check and the settings download.
#include <future>

#include "auth/AuthTestSupport.h"
#include "vxcloud/auth/VXCloudTokenStore.h"
#include "vxcloud/model/VXCloudUserDefaults.h"
#include "vxcloud/model/VXCloudWebDAVAccount.h"
#include "vxcloud/sessions/VXCloudServiceConfig.h"

namespace vxcloud::testing {
namespace {

using Action = SandboxBrowser::Action;

std::shared_ptr<VXCloudAccount> reloaded(const VXCloudAccount& account) {
    for (const auto& stored : VXCloudUserDefaults::loadAllAccounts(false)) {
        if (stored->key() == account.key()) return stored;
    }
    return nullptr;
}

TEST(AuthResult, DictionaryFormsCarryOnlyTheStatusAndTheAccount) {
    auto account = std::make_shared<VXCloudAccount>("dbid:1", "ada@example.com", VXCloudService::dropbox);
    account->shouldAutoUpload = true;
    EXPECT_EQ(VXCloudAuthResult::success(account).authResultToDict(),
              json({{"status", "success"}, {"account", account->toDict()}}));
    const auto failed =
        VXCloudAuthResult::error(std::make_shared<VXCloudError>(ErrorCode::connection), "no network");
    EXPECT_EQ(failed.authResultToDict(), json({{"status", "error"}}));
    EXPECT_EQ(failed.cloudError()->errorCode, ErrorCode::connection);
    EXPECT_EQ(failed.message(), "no network");
    EXPECT_EQ(VXCloudAuthResult::cancel().authResultToDict(), json({{"status", "canceled"}}));
    // An error without an error object still has a code.
    EXPECT_EQ(VXCloudAuthResult::error(nullptr, "x").cloudError()->errorCode, ErrorCode::fileUpload);
}

class AuthManager : public AuthTest {};

TEST_F(AuthManager, SetupKeepsTheRecordsAndHandsTheCredentialsToTheServiceClients) {
    auto dropbox = std::make_shared<VXCloudDropboxInfo>("app-key");
    auto google = std::make_shared<VXCloudGoogleDriveInfo>("client.apps", "http://127.0.0.1/",
                                                           std::vector<std::string>{"scope"}, "desktop-secret");
    auto oneDrive = std::make_shared<VXCloudOneDriveInfo>("od-app");
    auto box = std::make_shared<VXCloudBoxInfo>("box-id", "box-secret");
    auto evernote = std::make_shared<VXCloudEvernoteInfo>("en-key", "en-secret");
    manager().setup(dropbox, google, oneDrive, box, evernote);

    EXPECT_EQ(manager().dropboxInfo(), dropbox);
    EXPECT_EQ(manager().googleDriveInfo(), google);
    EXPECT_EQ(manager().oneDriveInfo(), oneDrive);
    EXPECT_EQ(manager().boxInfo(), box);
    EXPECT_EQ(manager().evernoteInfo(), evernote);
    using Creds = VXCloudAppCredentials;
    EXPECT_EQ(VXCloudServiceConfig::credentials(VXCloudService::dropbox), (Creds{"app-key", std::nullopt}));
    EXPECT_EQ(VXCloudServiceConfig::credentials(VXCloudService::googleDrive), (Creds{"client.apps", "desktop-secret"}));
    EXPECT_EQ(VXCloudServiceConfig::credentials(VXCloudService::oneDrive), (Creds{"od-app", std::nullopt}));
    EXPECT_EQ(VXCloudServiceConfig::credentials(VXCloudService::box), (Creds{"box-id", "box-secret"}));
    EXPECT_EQ(VXCloudServiceConfig::credentials(VXCloudService::evernote), (Creds{"en-key", "en-secret"}));

    manager().setup(nullptr, nullptr);
    EXPECT_FALSE(manager().dropboxInfo());
    EXPECT_FALSE(manager().googleDriveInfo());
    EXPECT_FALSE(manager().evernoteInfo());
}

TEST_F(AuthManager, ServicesWithoutASignInPostAnErrorAndNeverOpenAPage) {
    auto browser = std::make_shared<SandboxBrowser>(Action::approve);
    for (VXCloudService service :
         {VXCloudService::webDAV}) {
        SCOPED_TRACE(accountType(service));
        EXPECT_FALSE(VXCloudAuthManager::offersSignIn(service)) << "a host would ask for credentials it cannot use";
        manager().authorize(browser, service);
        const PostedResult posted = expectOneResult();
        EXPECT_EQ(posted.dict, json({{"status", "error"}}));
        ASSERT_TRUE(posted.result.has_value());
        EXPECT_FALSE(posted.result->message().empty());
    }
    EXPECT_TRUE(VXCloudAuthManager::offersSignIn(VXCloudService::dropbox));
    EXPECT_TRUE(VXCloudAuthManager::offersSignIn(VXCloudService::googleDrive));
    EXPECT_TRUE(VXCloudAuthManager::offersSignIn(VXCloudService::oneDrive));
    EXPECT_TRUE(VXCloudAuthManager::offersSignIn(VXCloudService::oneNote));
    // Dropbox before setup: an error, not a crash.
    manager().setup(nullptr, nullptr);
    manager().authorize(browser, VXCloudService::dropbox);
    EXPECT_EQ(expectOneResult().dict, json({{"status", "error"}}));
    // Google without a user agent cannot start.
    manager().authorize(nullptr, VXCloudService::googleDrive);
    EXPECT_EQ(expectOneResult().dict, json({{"status", "error"}}));
    EXPECT_TRUE(browser->openedUrls().empty());
}

class AuthManagerDeathTest : public AuthTest {};

TEST_F(AuthManagerDeathTest, GoogleSignInBeforeSetupStopsTheProgram) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            manager().setup(nullptr, nullptr);
            manager().authorize(std::make_shared<SandboxBrowser>(Action::wait), VXCloudService::googleDrive);
        },
        "Call VXCloudAuthManager\\.sharedInstance\\.setup\\(\\) passing your apps Google Drive integration info "
        "\\(client id, redirectURL, and scopes \\(optional\\)\\)\\.");
}

TEST_F(AuthManager, LinkedAccountQueriesCountWebDAVAccountsForEveryService) {
    EXPECT_FALSE(manager().hasOneDriveAccountLinked());
    EXPECT_FALSE(manager().hasEvernoteAccountLinked());

    VXCloudAccount oneDrive("od-1", "ada@example.com", VXCloudService::oneDrive);
    ASSERT_TRUE(VXCloudUserDefaults::saveCloudAccount(oneDrive));
    EXPECT_TRUE(manager().hasOneDriveAccountLinked());
    EXPECT_FALSE(manager().hasEvernoteAccountLinked());
    ASSERT_TRUE(VXCloudUserDefaults::removeCloudAccount(std::make_shared<VXCloudAccount>(oneDrive)));

    VXCloudWebDAVAccount webDAV("ada", "https://dav.example.com", "443");
    ASSERT_TRUE(VXCloudUserDefaults::saveCloudAccount(webDAV));
    EXPECT_TRUE(manager().hasOneDriveAccountLinked());
    EXPECT_TRUE(manager().hasEvernoteAccountLinked());
}

class StartupCheck : public AuthTest {};

TEST_F(StartupCheck, MarksAccountsWhoseSessionCannotBeMadeAndKeepsTheOthers) {
    auto dropbox = link(VXCloudService::dropbox);
    auto google = link(VXCloudService::googleDrive);
    ASSERT_TRUE(dropbox && google);
    dropbox->shouldAutoUpload = true;
    ASSERT_TRUE(VXCloudUserDefaults::saveCloudAccount(*dropbox));
    // Accounts whose token is gone cannot have a session at all.
    VXCloudAccount orphan("dbid:orphan", "orphan@example.com", VXCloudService::dropbox);
    ASSERT_TRUE(VXCloudUserDefaults::saveCloudAccount(orphan));
    ASSERT_TRUE(VXCloudTokenStore::remove(VXCloudService::googleDrive, google->key()));

    ASSERT_TRUE(runPostSetup());
    const auto dropboxNow = reloaded(*dropbox);
    const auto googleNow = reloaded(*google);
    const auto orphanNow = reloaded(orphan);
    ASSERT_TRUE(dropboxNow && googleNow && orphanNow);
    EXPECT_FALSE(dropboxNow->error);
    EXPECT_TRUE(dropboxNow->shouldAutoUpload);
    ASSERT_TRUE(googleNow->error);
    EXPECT_EQ(googleNow->error->errorCode, ErrorCode::authentication);
    ASSERT_TRUE(orphanNow->error);
    EXPECT_EQ(orphanNow->error->errorCode, ErrorCode::authentication);
    EXPECT_TRUE(waitUntil([] { return manager().pendingSessionCount() == 0; }));
}

TEST_F(StartupCheck, AnAccountUnlinkedDuringTheCheckStaysUnlinked) {
    auto ada = linkDropbox();
    ASSERT_TRUE(ada);
    // Every answer of Dropbox is slow: the account is removed while the check waits.
    sandbox::FaultSpec slow;
    slow.delayMs = 500;
    ASSERT_TRUE(sandbox_->enqueueFault("dropbox/users/get_current_account", slow, 1));
    auto done = std::make_shared<std::promise<void>>();
    manager().postSetup([done] { done->set_value(); });
    ASSERT_TRUE(waitUntil([] { return manager().pendingSessionCount() == 1; }));
    ASSERT_TRUE(VXCloudUserDefaults::removeCloudAccount(ada));
    ASSERT_EQ(done->get_future().wait_for(20s), std::future_status::ready);
    EXPECT_FALSE(reloaded(*ada));
}

class SettingsDownload : public AuthTest {};

TEST_F(SettingsDownload, HandsOverTheSettingsObjectOrAnError) {
    auto ada = linkDropbox();
    ASSERT_TRUE(ada);
    using Answer = std::pair<JsonBox, std::shared_ptr<VXCloudError>>;
    auto download = [](std::shared_ptr<VXCloudAccount> account) {
        auto answer = std::make_shared<std::promise<Answer>>();
        auto future = answer->get_future();
        manager().downloadSettingsFile(std::move(account), [answer](JsonBox settings, std::shared_ptr<VXCloudError> error) {
            answer->set_value({std::move(settings), std::move(error)});
        });
        EXPECT_EQ(future.wait_for(20s), std::future_status::ready);
        return future.get();
    };

    const json settings = {{"uploadFolderPath", ""}, {"uploadFolderName", "Dropbox"}};
    std::string error;
    ASSERT_FALSE(sandbox_->putFile("dropbox", "/.quillosettings", settings.dump(), ada->userId, &error).is_null())
        << error;
    Answer answer = download(ada);
    EXPECT_FALSE(answer.second);
    ASSERT_TRUE(answer.first.has_value());
    EXPECT_EQ(*answer.first, settings);

    // No session can be made for an account without a token.
    answer = download(std::make_shared<VXCloudAccount>("dbid:none", "x@example.com", VXCloudService::dropbox));
    EXPECT_FALSE(answer.first.has_value());
    ASSERT_TRUE(answer.second);
    EXPECT_EQ(answer.second->errorCode, ErrorCode::authentication);

    // A missing document is the session's error.
    ASSERT_TRUE(sandbox_->removeItem("dropbox", "/.quillosettings", ada->userId));
    answer = download(ada);
    EXPECT_FALSE(answer.first.has_value());
    EXPECT_TRUE(answer.second);
    EXPECT_TRUE(waitUntil([] { return manager().pendingSessionCount() == 0; }));
}

}  // namespace
}  // namespace vxcloud::testing
