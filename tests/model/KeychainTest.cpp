#include <gtest/gtest.h>

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

TEST_F(KeychainTest, UnwritableStoreAnswersFalse) {
    auto unwritable = SecureStore::openFile("/proc/vxcloud-no-such-dir/secure.json");
    ASSERT_NE(unwritable, nullptr);
    SecureStore::setShared(unwritable);
    EXPECT_FALSE(VXCloudKeychain::sharedInstance().set(VXCloudAccount("u", "e", VXCloudService::box)));
    EXPECT_TRUE(VXCloudKeychain::sharedInstance().getCloudAccounts(VXCloudService::box).empty());
}

}  // namespace
}  // namespace vxcloud
