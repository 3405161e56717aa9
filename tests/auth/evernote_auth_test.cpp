// Evernote's OAuth 1.0a sign-in against the sandbox: the signed requests, the person's
// approval and refusal, a wrong secret refused by the signature check, and the account named
// by UserStore.getUser with its token and NoteStore address stored for the session.
#include "../../src/providers/evernote/EvernoteClient.h"
#include "auth/AuthTestSupport.h"
#include "vxcloud/auth/VXCloudTokenStore.h"
#include "vxcloud/model/VXCloudUserDefaults.h"
#include "vxcloud/sessions/VXCloudEvernoteSession.h"

namespace vxcloud::testing {
namespace {

using Action = SandboxBrowser::Action;
constexpr VXCloudService kService = VXCloudService::evernote;

class EvernoteLink : public AuthTest {
protected:
    void SetUp() override {
        AuthTest::SetUp();
        if (HasFatalFailure()) return;
        ASSERT_TRUE(fx_.pointAt(kService)) << "the sandbox does not emulate Evernote";
    }
    std::vector<std::shared_ptr<VXCloudAccount>> stored() const {
        const auto accounts = VXCloudUserDefaults::loadAccounts({kService});
        return accounts ? *accounts : std::vector<std::shared_ptr<VXCloudAccount>>{};
    }
};

TEST_F(EvernoteLink, ApprovalLinksTheUserWithTheTokenAndNoteStoreTheSessionUses) {
    auto browser = std::make_shared<SandboxBrowser>(Action::approve);
    manager().authorize(browser, kService);
    const PostedResult posted = expectOneResult();
    ASSERT_EQ(posted.dict.value("status", ""), "success")
        << posted.dict.dump() << (posted.result ? posted.result->message() : "");
    const std::string url = browser->lastUrl();
    EXPECT_EQ(url.rfind(sandbox_->endpoint("evernote", "authorize") + "?", 0), 0u) << url;
    EXPECT_FALSE(queryParam(url, "oauth_token").empty());

    const auto account = posted.result->account();
    const auto seeded = sandbox_->account("evernote");
    EXPECT_EQ(account->userId, seeded.userId);
    // Apps signed in with OAuth are not told the e-mail: the username names the account.
    EXPECT_FALSE(account->email.empty());
    EXPECT_EQ(account->displayName, seeded.displayName);
    const auto token = VXCloudTokenStore::load(kService, VXCloudEvernoteSession::storageName(*account));
    ASSERT_TRUE(token.has_value());
    EXPECT_FALSE(token->extra.at("noteStoreUrl").empty());
    EXPECT_TRUE(token->expiresAt.has_value());
    EXPECT_TRUE(sessionIsAuthorized(account));
    auto client = evernote::EvernoteClient::forStorageName(VXCloudEvernoteSession::storageName(*account));
    ASSERT_TRUE(client);
    EXPECT_TRUE(client->listNotebooks().ok()) << "the stored token reaches the user's NoteStore";
    EXPECT_TRUE(manager().hasEvernoteAccountLinked());
    EXPECT_EQ(requests("evernote/oauth/temporary"), 1);
    EXPECT_EQ(requests("evernote/oauth/token"), 1);
}

TEST_F(EvernoteLink, ARefusalAndAWrongSecretStoreNothing) {
    manager().authorize(std::make_shared<SandboxBrowser>(Action::deny), kService);
    EXPECT_EQ(expectOneResult().dict, json({{"status", "canceled"}}));
    EXPECT_EQ(requests("evernote/oauth/token"), 0);

    // Signed with another secret: the service refuses the first request.
    manager().setup(nullptr, nullptr, nullptr, nullptr,
                    std::make_shared<VXCloudEvernoteInfo>(kEvernoteConsumerKey, "not-the-secret"));
    auto unseen = std::make_shared<SandboxBrowser>(Action::approve);
    manager().authorize(unseen, kService);
    const PostedResult refused = expectOneResult();
    EXPECT_EQ(refused.dict, json({{"status", "error"}}));
    EXPECT_EQ(codeOf(refused), ErrorCode::authentication);
    EXPECT_TRUE(unseen->openedUrls().empty()) << "no page without temporary credentials";
    EXPECT_TRUE(stored().empty());
    EXPECT_TRUE(VXCloudTokenStore::storageNames(kService).empty());
}

}  // namespace
}  // namespace vxcloud::testing
