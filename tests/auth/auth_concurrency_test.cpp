// Sign-ins whose endings race: the browser's redirect, the host's pasted redirect and the
// person's cancel arriving together still end each sign-in exactly once.
#include <set>
#include <thread>

#include "auth/AuthTestSupport.h"
#include "vxcloud/model/VXCloudUserDefaults.h"

namespace vxcloud::testing {
namespace {

using Action = SandboxBrowser::Action;

class AuthConcurrency : public AuthTest {};

TEST_F(AuthConcurrency, RedirectPasteAndCancelRacingEndTheSignInOnce) {
    int successes = 0;
    for (int round = 0; round < 4; ++round) {
        SCOPED_TRACE(round);
        auto browser = std::make_shared<SandboxBrowser>(Action::wait);
        manager().authorize(browser, VXCloudService::dropbox);
        const std::string url = browser->lastUrl();
        const std::string location =
            SandboxBrowser::decide(url, true, {}, false).headers.get("Location").value_or("");
        ASSERT_FALSE(location.empty());

        std::atomic<int> taken{0};
        std::thread viaListener([&] {
            if (SandboxBrowser::get(location).status == 200) ++taken;
        });
        std::thread viaPaste([&] {
            if (manager().handleRedirectURL(location)) ++taken;
        });
        std::thread viaCancel([&] {
            if (manager().cancelAuthorization(VXCloudService::dropbox)) ++taken;
        });
        viaListener.join();
        viaPaste.join();
        viaCancel.join();

        EXPECT_EQ(taken.load(), 1) << "exactly one ending wins";
        const PostedResult posted = expectOneResult();
        const std::string status = posted.dict.value("status", "");
        EXPECT_TRUE(status == "success" || status == "canceled") << posted.dict.dump();
        if (status == "success") ++successes;
        EXPECT_FALSE(manager().isAuthorizing(VXCloudService::dropbox));
    }
    EXPECT_EQ(requests("dropbox/oauth2/token"), successes) << "a code is exchanged only by the winner";
    const auto stored = VXCloudUserDefaults::loadAccounts({VXCloudService::dropbox});
    EXPECT_EQ(stored ? stored->size() : 0u, successes > 0 ? 1u : 0u);
}

TEST_F(AuthConcurrency, TwoServicesSignInSideBySide) {
    auto dropbox = std::make_shared<SandboxBrowser>(Action::wait);
    auto google = std::make_shared<SandboxBrowser>(Action::wait);
    manager().authorize(dropbox, VXCloudService::dropbox);
    manager().authorize(google, VXCloudService::googleDrive);
    ASSERT_TRUE(manager().isAuthorizing(VXCloudService::dropbox));
    ASSERT_TRUE(manager().isAuthorizing(VXCloudService::googleDrive));

    // One person approves in the browser, the other pastes: each redirect finds its flow.
    const std::string pasted =
        SandboxBrowser::decide(google->lastUrl(), true, {}, false).headers.get("Location").value_or("");
    std::thread viaBrowser([&] { SandboxBrowser::decide(dropbox->lastUrl(), true); });
    std::thread viaPaste([&] { EXPECT_TRUE(manager().handleRedirectURL(pasted)); });
    viaBrowser.join();
    viaPaste.join();

    ASSERT_TRUE(waitForResults(2));
    std::set<int> linked;
    for (const PostedResult& posted : results()) {
        ASSERT_EQ(posted.dict.value("status", ""), "success") << posted.dict.dump();
        linked.insert(posted.dict["account"]["cloudservicerawvalue"].get<int>());
    }
    EXPECT_EQ(linked, (std::set<int>{rawValue(VXCloudService::googleDrive), rawValue(VXCloudService::dropbox)}));
    EXPECT_EQ(VXCloudUserDefaults::loadAllAccounts(false).size(), 2u);
}

}  // namespace
}  // namespace vxcloud::testing
