// The pieces below the session that the sandbox cannot show directly: the header-safe
// argument encoding, reading Dropbox's JSON shapes, and the stored token record.
#include <gtest/gtest.h>

#include <limits>

#include "../../src/providers/dropbox/DropboxWire.h"
#include "sessions/SessionTestSupport.h"
#include "support/IsolatedStores.h"
#include "vxcloud/auth/VXCloudTokenStore.h"
#include "vxcloud/sessions/VXCloudServiceConfig.h"

namespace vxcloud::testing {
namespace {

using dropbox::json;

TEST(DropboxWire, ArgumentHeaderIsPureAsciiWithUtf16Escapes) {
    EXPECT_EQ(dropbox::headerSafeJson(json{{"path", "/Scans/Résumé 📄.pdf"}}),
              R"({"path":"/Scans/R\u00e9sum\u00e9 \ud83d\udcc4.pdf"})");
    EXPECT_EQ(dropbox::headerSafeJson(json{{"path", "/a\"b\\c\x7f\x01"}}), R"({"path":"/a\"b\\c\u007f\u0001"})");
    // Bytes that are not UTF-8 cannot make a header that is not JSON.
    const std::string encoded = dropbox::headerSafeJson(json{{"path", std::string("/bad\xff.pdf")}});
    EXPECT_TRUE(json::parse(encoded, nullptr, false).is_object()) << encoded;
}

TEST(DropboxWire, MetadataAndErrorShapes) {
    dropbox::Metadata m;
    // Leaf results carry no tag; lists do; unknown subtypes are tolerated, broken ones not.
    EXPECT_EQ(dropbox::parseMetadata(json{{"name", "a.pdf"}, {"size", 3}, {"content_hash", "ab"}},
                                     dropbox::Metadata::Tag::file, m),
              dropbox::ParseStatus::ok);
    EXPECT_EQ(m.contentHash, "ab");
    EXPECT_EQ(m.size, 3);
    EXPECT_EQ(dropbox::parseMetadata(json{{".tag", "folder"}, {"name", "F"}, {"id", "id:1"}}, std::nullopt, m),
              dropbox::ParseStatus::ok);
    EXPECT_EQ(m.tag, dropbox::Metadata::Tag::folder);
    EXPECT_EQ(dropbox::parseMetadata(json{{".tag", "symlink"}, {"name", "x"}}, std::nullopt, m),
              dropbox::ParseStatus::unknownTag);
    EXPECT_EQ(dropbox::parseMetadata(json{{".tag", "file"}}, std::nullopt, m), dropbox::ParseStatus::malformed);
    EXPECT_EQ(dropbox::parseMetadata(json{{".tag", "file"}, {"name", "x"}, {"size", "big"}}, std::nullopt, m),
              dropbox::ParseStatus::malformed);
    EXPECT_EQ(dropbox::parseMetadata(json::array(), std::nullopt, m), dropbox::ParseStatus::malformed);

    const json uploadConflict = json::parse(
        R"({".tag": "path", "reason": {".tag": "conflict", "conflict": {".tag": "file"}}, "upload_session_id": "x"})");
    EXPECT_EQ(dropbox::routeTags(uploadConflict), "path/conflict/file");
    const json busy = json::parse(R"({".tag": "path", "path": {".tag": "too_many_write_operations"}})");
    EXPECT_EQ(dropbox::innermostTag(busy), "too_many_write_operations");

    dropbox::RelocationBatchEntry entry;
    ASSERT_TRUE(dropbox::parseBatchEntry(json::parse(R"({".tag": "failure", "failure": {".tag": "relocation_error",
        "relocation_error": {".tag": "from_lookup", "from_lookup": {".tag": "not_found"}}}})"), entry));
    ASSERT_TRUE(entry.failure);
    EXPECT_EQ(entry.failure->tag, DropboxRelocationError::Tag::fromLookup);
    EXPECT_FALSE(dropbox::parseBatchEntry(json::parse(R"({".tag": "success"})"), entry));
}

TEST(DropboxRecord, FilesCarryTheirHashFoldersNone) {
    dropbox::Metadata file;
    file.name = "a.pdf";
    file.id = "id:a";
    file.pathDisplay = "/Scans/a.pdf";
    file.contentHash = "abc";
    auto record = VXCloudFile::initWithMetadata(file);
    ASSERT_NE(record, nullptr);
    EXPECT_FALSE(record->isFolder);
    EXPECT_FALSE(record->isRootFolder);
    EXPECT_EQ(record->version, "abc");
    EXPECT_EQ(record->path, "/Scans/a.pdf");
    EXPECT_EQ(record->id, "id:a");

    dropbox::Metadata folder = file;
    folder.tag = dropbox::Metadata::Tag::folder;
    record = VXCloudFile::initWithMetadata(folder);
    ASSERT_NE(record, nullptr);
    EXPECT_TRUE(record->isFolder);
    EXPECT_FALSE(record->version.has_value());

    dropbox::Metadata deleted = file;
    deleted.tag = dropbox::Metadata::Tag::deleted;
    EXPECT_EQ(VXCloudFile::initWithMetadata(deleted), nullptr);
}

TEST(OAuthTokenRecord, TokenAnswersAndStoredForm) {
    VXCloudOAuthToken previous;
    previous.accessToken = "old";
    previous.refreshToken = "refresh-1";
    previous.scope = "files.content.write";

    // Dropbox's refresh answer has no refresh token: the old one is kept.
    auto refreshed = VXCloudOAuthToken::fromTokenResponse(
        R"({"access_token": "new", "token_type": "bearer", "expires_in": 14400})", 1000, &previous);
    ASSERT_TRUE(refreshed);
    EXPECT_EQ(refreshed->accessToken, "new");
    EXPECT_EQ(refreshed->refreshToken, "refresh-1");
    EXPECT_EQ(refreshed->expiresAt, 15400);
    EXPECT_EQ(refreshed->scope, "files.content.write");
    EXPECT_TRUE(refreshed->expiresWithin(15200, 300));
    EXPECT_FALSE(refreshed->expiresWithin(15000, 300));

    // A rotating service's new refresh token replaces the old; expires_in may be text.
    auto rotated = VXCloudOAuthToken::fromTokenResponse(
        R"({"access_token": "a2", "refresh_token": "refresh-2", "expires_in": "60"})", 0, &previous);
    ASSERT_TRUE(rotated);
    EXPECT_EQ(rotated->refreshToken, "refresh-2");
    EXPECT_EQ(rotated->expiresAt, 60);

    EXPECT_FALSE(VXCloudOAuthToken::fromTokenResponse(R"({"error": "invalid_grant"})", 0));
    EXPECT_FALSE(VXCloudOAuthToken::fromTokenResponse("<html>", 0));
    EXPECT_FALSE(VXCloudOAuthToken::fromTokenResponse(R"({"access_token": 5})", 0));

    auto back = VXCloudOAuthToken::fromStoredText(rotated->toStoredText());
    ASSERT_TRUE(back);
    EXPECT_EQ(*back, *rotated);
    EXPECT_FALSE(VXCloudOAuthToken::fromStoredText("{\"access_tok"));
    VXCloudOAuthToken forever;
    forever.accessToken = "legacy";
    EXPECT_FALSE(forever.expiresWithin(1LL << 40, 300)) << "a token without expiry never expires";
}

// Found by fuzzing: times and lifetimes at the ends of the int64 clock, or beyond it.
TEST(OAuthTokenRecord, LifetimesAtTheEndsOfTheClockAreReadWithoutOverflow) {
    constexpr auto kMax = std::numeric_limits<std::int64_t>::max();
    auto endless = VXCloudOAuthToken::fromTokenResponse(R"({"access_token": "a", "expires_in": 9223372036854775807})", 1000);
    ASSERT_TRUE(endless);
    EXPECT_EQ(endless->expiresAt, kMax);
    EXPECT_FALSE(endless->expiresWithin(1000, 300));
    // Numbers no int64 holds are no lifetime at all.
    for (const char* answer : {R"({"access_token": "a", "expires_in": 1e300})",
                               R"({"access_token": "a", "expires_in": 18446744073709551615})"}) {
        auto token = VXCloudOAuthToken::fromTokenResponse(answer, 1000);
        ASSERT_TRUE(token) << answer;
        EXPECT_FALSE(token->expiresAt) << answer;
    }
    auto longAgo = VXCloudOAuthToken::fromStoredText(R"({"access_token": "a", "expires_at": -9223372036854775808})");
    ASSERT_TRUE(longAgo);
    EXPECT_TRUE(longAgo->expiresWithin(1000, 300));
    EXPECT_FALSE(endless->expiresWithin(1000, -300)) << "a negative skew cannot wrap the end of the clock";
    auto unreadable = VXCloudOAuthToken::fromStoredText(R"({"access_token": "a", "expires_at": -1e300})");
    ASSERT_TRUE(unreadable);
    EXPECT_FALSE(unreadable->expiresAt);
}

TEST(OAuthTokenStore, SavesPerServiceAndStorageName) {
    IsolatedStores stores;
    VXCloudOAuthToken token;
    token.accessToken = "access";
    token.refreshToken = "refresh";
    ASSERT_TRUE(VXCloudTokenStore::save(VXCloudService::dropbox, "dbid:one", token));
    ASSERT_TRUE(VXCloudTokenStore::save(VXCloudService::googleDrive, "VX_Google_Drive_one", token));
    token.accessToken = "replaced";
    ASSERT_TRUE(VXCloudTokenStore::save(VXCloudService::dropbox, "dbid:one", token));

    EXPECT_EQ(VXCloudTokenStore::load(VXCloudService::dropbox, "dbid:one")->accessToken, "replaced");
    EXPECT_FALSE(VXCloudTokenStore::load(VXCloudService::dropbox, "VX_Google_Drive_one"));
    EXPECT_EQ(VXCloudTokenStore::storageNames(VXCloudService::dropbox), std::vector<std::string>{"dbid:one"});
    EXPECT_TRUE(VXCloudTokenStore::remove(VXCloudService::dropbox, "dbid:one"));
    EXPECT_FALSE(VXCloudTokenStore::remove(VXCloudService::dropbox, "dbid:one"));
    EXPECT_FALSE(VXCloudTokenStore::contains(VXCloudService::dropbox, "dbid:one"));
    EXPECT_TRUE(VXCloudTokenStore::contains(VXCloudService::googleDrive, "VX_Google_Drive_one"));
}

TEST(ServiceConfig, RealHostsByDefaultAndResettable) {
    const auto real = VXCloudServiceConfig::defaultEndpoints(VXCloudService::dropbox);
    EXPECT_EQ(real.apiBase, "https://api.dropboxapi.com");
    EXPECT_EQ(real.contentBase, "https://content.dropboxapi.com");
    EXPECT_EQ(real.authorizeUrl, "https://www.dropbox.com/oauth2/authorize");
    EXPECT_EQ(real.tokenUrl, "https://api.dropboxapi.com/oauth2/token");

    VXCloudServiceEndpoints local = real;
    local.apiBase = "http://127.0.0.1:1/dropbox/api";
    VXCloudServiceConfig::setEndpoints(VXCloudService::dropbox, local);
    VXCloudServiceConfig::setCredentials(VXCloudService::dropbox, {"key", "secret"});
    EXPECT_EQ(VXCloudServiceConfig::endpoints(VXCloudService::dropbox).apiBase, local.apiBase);
    EXPECT_EQ(VXCloudServiceConfig::credentials(VXCloudService::dropbox).clientSecret, "secret");
    VXCloudServiceConfig::reset(VXCloudService::dropbox);
    EXPECT_EQ(VXCloudServiceConfig::endpoints(VXCloudService::dropbox), real);
    EXPECT_TRUE(VXCloudServiceConfig::credentials(VXCloudService::dropbox).clientId.empty());
}

}  // namespace
}  // namespace vxcloud::testing
