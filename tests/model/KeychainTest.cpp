#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "../../src/model/KeychainSearch.h"
#include "support/TempFolder.h"
#include "vxcloud/model/VXCloudKeychain.h"
#include "vxcloud/platform/SecureStore.h"

namespace vxcloud {
namespace {

class KeychainTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_FALSE(folder_.path().empty());
        store_ = SecureStore::openFile(folder_.file("secure.json"));
        ASSERT_NE(store_, nullptr);
        SecureStore::setShared(store_);
    }

    std::vector<SecureItem> items(VXCloudService service) const {
        SecureQuery query;
        query.itemClass = VXCloudKeychain::kItemClass;
        query.type = rawValue(service);
        return store_->find(query);
    }

    testing::TempFolder folder_;
    std::shared_ptr<SecureStore> store_;
};

TEST_F(KeychainTest, SetAddsOneItemPerServiceAndEmail) {
    VXCloudKeychain& keychain = VXCloudKeychain::sharedInstance();
    EXPECT_EQ(&keychain, &VXCloudKeychain::sharedInstance());

    VXCloudAccount first("u1", "a@x", VXCloudService::dropbox);
    EXPECT_TRUE(keychain.set(first));
    first.displayName = "changed";
    EXPECT_TRUE(keychain.set(first));  // the duplicate counts as success
    EXPECT_TRUE(keychain.set(VXCloudAccount("u2", "b@x", VXCloudService::dropbox)));
    EXPECT_TRUE(keychain.set(VXCloudAccount("u1", "a@x", VXCloudService::box)));

    const auto dropboxItems = items(VXCloudService::dropbox);
    ASSERT_EQ(dropboxItems.size(), 2u);
    for (const SecureItem& item : dropboxItems) {
        EXPECT_EQ(item.key.itemClass, "internet-password");
        EXPECT_EQ(item.key.type, 1);
        EXPECT_FALSE(item.data);  // no secret is ever attached
    }
    ASSERT_EQ(items(VXCloudService::box).size(), 1u);
    EXPECT_EQ(items(VXCloudService::box)[0].key.account, "a@x");
    EXPECT_TRUE(items(VXCloudService::googleDrive).empty());
}

TEST_F(KeychainTest, GetCloudAccountsYieldsNoAccountsFromItsItems) {
    VXCloudKeychain& keychain = VXCloudKeychain::sharedInstance();
    EXPECT_TRUE(keychain.getCloudAccounts(VXCloudService::dropbox).empty());  // nothing stored
    ASSERT_TRUE(keychain.set(VXCloudAccount("u1", "a@x", VXCloudService::dropbox)));
    ASSERT_TRUE(keychain.set(VXCloudAccount("u2", "b@x", VXCloudService::dropbox)));

    // The items name only the service and the email, which is not enough for an account.
    EXPECT_TRUE(keychain.getCloudAccounts(VXCloudService::dropbox).empty());
    // A search by name finds one item, answered as a single dictionary, not a list.
    EXPECT_TRUE(keychain.getCloudAccounts(VXCloudService::dropbox, "a@x").empty());
    EXPECT_TRUE(keychain.getCloudAccounts(VXCloudService::dropbox, "nobody").empty());
}

// The shape rules on their own: with items that could make accounts, a limited search
// still yields none because its answer is one dictionary, not a list.
TEST_F(KeychainTest, SearchShapesAndWhichAnswersMakeAccounts) {
    using nlohmann::json;
    SecureQuery query;
    query.itemClass = VXCloudKeychain::kItemClass;
    query.type = rawValue(VXCloudService::box);
    EXPECT_EQ(keychain::search(*store_, query), std::nullopt);  // no item: no answer

    for (const char* email : {"b@x", "a@x"})
        ASSERT_EQ(store_->add({{VXCloudKeychain::kItemClass, rawValue(VXCloudService::box), email, {}},
                               std::nullopt}),
                  SecureStatus::success);
    const auto all = keychain::search(*store_, query);
    ASSERT_TRUE(all && all->is_array());
    ASSERT_EQ(all->size(), 2u);
    EXPECT_EQ((*all)[0]["acct"], "b@x");  // the store's order, not sorted
    EXPECT_EQ((*all)[1]["acct"], "a@x");
    EXPECT_EQ((*all)[0]["type"], 4);
    query.account = "a@x";
    query.limit = 1;
    const auto one = keychain::search(*store_, query);
    ASSERT_TRUE(one);
    EXPECT_TRUE(one->is_object());
    EXPECT_EQ((*one)["acct"], "a@x");

    const json first = VXCloudAccount("u1", "b@x", VXCloudService::box).toDict();
    const json second = VXCloudAccount("u2", "a@x", VXCloudService::box).toDict();
    const auto fromList = keychain::accountsFromSearchResult(
        json::array({first, json{{"acct", "c@x"}, {"type", 4}}, 17, second}));
    ASSERT_EQ(fromList.size(), 2u);
    EXPECT_EQ(fromList[0]->userId, "u1");
    EXPECT_EQ(fromList[1]->userId, "u2");
    EXPECT_TRUE(keychain::accountsFromSearchResult(first).empty());
    EXPECT_TRUE(keychain::accountsFromSearchResult(std::nullopt).empty());
    EXPECT_TRUE(keychain::accountsFromSearchResult(json("u1")).empty());
}

TEST_F(KeychainTest, UnwritableStoreAnswersFalse) {
    auto unwritable = SecureStore::openFile("/proc/vxcloud-no-such-dir/secure.json");
    ASSERT_NE(unwritable, nullptr);
    SecureStore::setShared(unwritable);
    EXPECT_FALSE(VXCloudKeychain::sharedInstance().set(VXCloudAccount("u", "e", VXCloudService::box)));
    EXPECT_TRUE(VXCloudKeychain::sharedInstance().getCloudAccounts(VXCloudService::box).empty());
}

}  // namespace
}  // namespace vxcloud
