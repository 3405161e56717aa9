// Microsoft's sign-in for OneNote against the sandbox: an account of its own beside a OneDrive
// account, the notes scopes, the account named by the drive's owner on Graph's root (not the
// notes base), and a token that cannot read the drive stores nothing.
#include "auth/AuthTestSupport.h"
#include "vxcloud/auth/VXCloudTokenStore.h"
#include "vxcloud/model/VXCloudUserDefaults.h"
#include "vxcloud/sessions/VXCloudServiceConfig.h"

namespace vxcloud::testing {
namespace {

using Action = SandboxBrowser::Action;
constexpr VXCloudService kService = VXCloudService::oneNote;

class OneNoteLink : public AuthTest {
protected:
    void SetUp() override {
        AuthTest::SetUp();
        if (HasFatalFailure()) return;
        ASSERT_TRUE(fx_.pointAt(kService)) << "the sandbox does not emulate OneNote";
    }

    static std::size_t storedCount(VXCloudService service) {
        const auto accounts = VXCloudUserDefaults::loadAccounts({service});
        return accounts ? accounts->size() : 0;
    }
};

TEST_F(OneNoteLink, AnAccountOfItsOwnNamedByTheDriveOwnerWithTheNotesScopes) {
    const auto oneDrive = link(VXCloudService::oneDrive);
    ASSERT_NE(oneDrive, nullptr);

    // Asked for scopes that cannot read the drive, the account cannot be named: nothing kept.
    setUpManager("http://127.0.0.1/", {"Notes.Create"});
    manager().authorize(std::make_shared<SandboxBrowser>(Action::approve), kService);
    const PostedResult refused = expectOneResult();
    EXPECT_EQ(refused.dict, json({{"status", "error"}}));
    EXPECT_EQ(storedCount(kService), 0u);
    EXPECT_TRUE(VXCloudTokenStore::storageNames(kService).empty());

    // With no Graph root to ask, the same, before any request names the account.
    auto endpoints = VXCloudServiceConfig::endpoints(kService);
    const auto root = endpoints.extra.at("graph");
    endpoints.extra.erase("graph");
    VXCloudServiceConfig::setEndpoints(kService, endpoints);
    setUpManager();
    manager().authorize(std::make_shared<SandboxBrowser>(Action::approve), kService);
    const PostedResult unnamed = expectOneResult();
    EXPECT_EQ(codeOf(unnamed), ErrorCode::fileUpload);
    EXPECT_EQ(storedCount(kService), 0u);
    endpoints.extra["graph"] = root;
    VXCloudServiceConfig::setEndpoints(kService, endpoints);

    auto browser = std::make_shared<SandboxBrowser>(Action::approve);
    manager().authorize(browser, kService);
    const PostedResult posted = expectOneResult();
    ASSERT_EQ(posted.dict.value("status", ""), "success") << posted.dict.dump();
    EXPECT_EQ(queryParam(browser->lastUrl(), "scope"), "Notes.Create Files.Read User.Read offline_access");
    EXPECT_EQ(queryParam(browser->lastUrl(), "client_id"), kOneDriveApplicationId);

    const auto account = posted.result->account();
    EXPECT_EQ(account->cloudService, kService);
    EXPECT_EQ(account->userId, sandbox_->account("onenote").userId);
    EXPECT_EQ(account->email, "Ada Lovelace");
    EXPECT_TRUE(VXCloudTokenStore::load(kService, account->key()).has_value());
    EXPECT_TRUE(sessionIsAuthorized(account)) << "the session lists notebooks with the stored token";

    // Both accounts stay: OneNote is not OneDrive's one account.
    EXPECT_EQ(storedCount(kService), 1u);
    EXPECT_EQ(storedCount(VXCloudService::oneDrive), 1u);
    EXPECT_TRUE(VXCloudTokenStore::load(VXCloudService::oneDrive, oneDrive->key()).has_value());
}

}  // namespace
}  // namespace vxcloud::testing
