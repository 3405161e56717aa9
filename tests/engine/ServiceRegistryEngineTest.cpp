// Services whose registry entry has no session maker yet: their accounts get none, and
// the engine files the same "authentication" record it files for any account without one.
#include <gtest/gtest.h>

#include "EngineTestSupport.h"
#include "vxcloud/model/VXCloudServiceRegistry.h"

namespace vxcloud::enginetest {
namespace {

using ServiceRegistryEngineTest = EngineTest;

TEST_F(ServiceRegistryEngineTest, AccountsWhoseSessionCannotBeMadeAreFiledAsNeedingAuthentication) {
    // A scripted session for Dropbox; the built-in ones elsewhere, which no stored
    // authorisation lets the registry's makers build.
    setCloudSessionFactoryOverride([script = script](const std::shared_ptr<VXCloudAccount>& a)
                                       -> std::shared_ptr<VXCloudSession> {
        if (a->cloudService != VXCloudService::dropbox) return builtInCloudSession(a);
        return std::make_shared<ScriptedSession>(a, script);
    });
    VXCloudAccountList accounts = {account("a@example.com", VXCloudService::dropbox)};
    for (VXCloudService service : {VXCloudService::box, VXCloudService::evernote}) {
        accounts.push_back(account(std::string(accountType(service)) + "@example.com", service));
        EXPECT_EQ(accounts.back()->sessionForAccount(), nullptr);
    }

    EXPECT_EQ(upload(document(), accounts).size(), accounts.size());
    ASSERT_TRUE(script->waitForCalls(1));
    answerUpload(script->call(0));
    ASSERT_TRUE(notifications->waitFor(1));
    const Json records = uploadStatusOf(0)["uploadStatusResponse"];
    ASSERT_EQ(records.size(), accounts.size());
    for (const auto& record : records) {
        if (record["accountType"] == "dropbox") {
            EXPECT_EQ(record["status"], "successful");
            continue;
        }
        EXPECT_EQ(record, (Json{{"accountId", record["accountId"]}, {"accountType", record["accountType"]},
                                {"needsRenameUpdate", false}, {"error", "authentication"}, {"status", "error"},
                                {"needsUpdate", true}}));
    }
}

}  // namespace
}  // namespace vxcloud::enginetest
