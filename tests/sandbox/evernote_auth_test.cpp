// The EDAM token gate and UserStore on the sandbox: seeded auth tokens, where a user's
// NoteStore is, and the service's refusals of empty, malformed, made-up, expired and revoked
// tokens and of a token on another user's shard.
#include "sandbox/EvernoteWireTest.h"

namespace vxcloud::sandbox::test {
namespace {

using E = edam::EDAMErrorCode;

class EvernoteAuth : public EvernoteWireTest {};

TEST_F(EvernoteAuth, UserStoreSaysWhoAndWhere) {
    EXPECT_TRUE(userStore->checkVersion("vxcloud/test", 1, 28));
    EXPECT_FALSE(userStore->checkVersion("vxcloud/test", 2, 0));

    edam::User user;
    userStore->getUser(user, ada.accessToken);
    EXPECT_EQ(std::to_string(user.id), ada.userId);
    EXPECT_EQ(user.username, "ada");
    EXPECT_EQ(user.name, "Ada Lovelace");
    EXPECT_EQ(user.shardId, "s1");
    EXPECT_FALSE(user.__isset.email) << "apps signed in with OAuth do not see it";

    edam::UserUrls urls;
    userStore->getUserUrls(urls, grace.accessToken);
    const std::string s2 = sandbox.baseUrl() + "/evernote/shard/s2/";
    EXPECT_EQ(urls.noteStoreUrl, s2 + "notestore");
    EXPECT_EQ(urls.webApiUrlPrefix, s2);
    EXPECT_EQ(urls.userStoreUrl, sandbox.endpoint("evernote", "userstore"));
    std::string legacy;
    userStore->getNoteStoreUrl(legacy, grace.accessToken);
    EXPECT_EQ(legacy, urls.noteStoreUrl);

    // The ready line's accounts carry the auth token and where to use it.
    const auto described = sandbox.describe()["accounts"];
    const auto entry = std::find_if(described.begin(), described.end(), [&](const json& a) {
        return a["provider"] == "evernote" && a["user_id"] == grace.userId;
    });
    ASSERT_NE(entry, described.end());
    EXPECT_EQ((*entry)["access_token"], grace.accessToken);
    EXPECT_EQ((*entry)["note_store_url"], urls.noteStoreUrl);
    EXPECT_EQ(grace.accessToken.rfind("S=s2:U=", 0), 0u) << grace.accessToken;
}

TEST_F(EvernoteAuth, BadTokensAreRefusedAsTheServiceDoes) {
    auto refused = [&](const std::string& token, E::type code) {
        expectUserError(
            [&] {
                edam::User u;
                userStore->getUser(u, token);
            },
            code, "authenticationToken");
        expectUserError(
            [&] {
                std::vector<edam::Notebook> n;
                noteStore->listNotebooks(n, token);
            },
            code, "authenticationToken");
    };
    refused("", E::DATA_REQUIRED);
    refused("not a token", E::BAD_DATA_FORMAT);
    std::string forged = ada.accessToken;
    forged[forged.size() - 1] = forged.back() == '0' ? '1' : '0';
    refused(forged, E::INVALID_AUTH);

    // A working token on another user's shard.
    expectUserError(
        [&] {
            std::vector<edam::Notebook> n;
            noteStore->listNotebooks(n, grace.accessToken);
        },
        E::PERMISSION_DENIED, "authenticationToken");

    EXPECT_EQ(sandbox.expireAccessTokens("evernote", ada.userId), 1);
    refused(ada.accessToken, E::AUTH_EXPIRED);
    ASSERT_TRUE(sandbox.revokeAccessToken("evernote", grace.accessToken));
    expectUserError(
        [&] {
            edam::User u;
            userStore->getUser(u, grace.accessToken);
        },
        E::AUTH_EXPIRED, "authenticationToken");
}

TEST_F(EvernoteAuth, TokensLastTheirLifetimeOnTheSandboxClock) {
    edam::User user;
    sandbox.advanceClock(364LL * 24 * 3600);
    userStore->getUser(user, ada.accessToken);
    sandbox.advanceClock(2LL * 24 * 3600);
    expectUserError([&] { userStore->getUser(user, ada.accessToken); }, E::AUTH_EXPIRED, "authenticationToken");

    // The admin API's controls, over HTTP, work on auth tokens too.
    auto revoked = admin("/evernote/tokens/revoke", {{"access_token", grace.accessToken}});
    EXPECT_EQ(revoked->status, 200);
    expectUserError([&] { userStore->getUser(user, grace.accessToken); }, E::AUTH_EXPIRED, "authenticationToken");
    EXPECT_EQ(admin("/evernote/tokens/revoke", {{"access_token", "S=s1:U=1"}})->status, 404);
}

}  // namespace
}  // namespace vxcloud::sandbox::test
