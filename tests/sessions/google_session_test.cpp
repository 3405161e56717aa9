// The Google Drive session against the sandbox over HTTP: quoted names in queries, finding
// stored documents by checksum then by name, updates that keep the id, the settings
// document, renames that store again, moves, large uploads that resume, tokens, and the
// classifier's reason table from the service's own error bodies.
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "sessions/GoogleDriveFixture.h"
#include "vxcloud/auth/VXCloudTokenStore.h"
#include "vxcloud/model/VXCloudFileHasher.h"
#include "vxcloud/model/VXCloudUserDefaults.h"

namespace vxcloud::testing {
namespace {

using Kind = SessionEvent::Kind;

std::string md5(const std::string& bytes) { return VXCloudFileHasher::md5Hash(ByteBuffer::copyOf(bytes)); }

class GoogleDriveSession : public SessionTest<GoogleDriveFixture, VXCloudGoogleDriveSession> {
protected:
    // A fault that answers at once (Retry-After: 0), for every attempt the client makes.
    void fault(const std::string& route, const std::string& desc, int times = 8) {
        SessionTest::fault(route, desc, times);
    }

    std::int64_t uploads() const {
        return fx_.requests("upload/create") + fx_.requests("upload/update") + fx_.requests("upload/session");
    }
    std::string idOf(const VXCloudFile& folder, const std::string& name) {
        const Json files = fx_.liveFiles(folder.id.value_or("root"), name);
        return files.size() == 1 ? files[0]["id"].get<std::string>() : std::string();
    }
};

TEST_F(GoogleDriveSession, NamesAreQuotedSoEveryNameIsFoundAndNoneChangesTheQuery) {
    EXPECT_EQ(VXCloudGoogleDriveSession::documentQuery("1abc", "O'Brien's scan.pdf"),
              R"('1abc' IN parents and name = 'O\'Brien\'s scan.pdf' and trashed = false)");
    EXPECT_EQ(VXCloudGoogleDriveSession::documentQuery("root", R"(a\'b)"),
              R"('root' IN parents and name = 'a\\\'b' and trashed = false)");
    EXPECT_EQ(VXCloudGoogleDriveSession::subfoldersQuery("root"),
              "'root' IN parents and mimeType = 'application/vnd.google-apps.folder' and trashed = false");
    EXPECT_EQ(VXCloudGoogleDriveSession::settingsQuery(),
              "'root' IN parents and name = '.quillosettings' and trashed = false");

    auto folder = fx_.makeFolder("Quotes");
    for (const std::string name : {"O'Brien's scan.pdf", R"(back\slash "and" quotes.pdf)", "x' or name != 'y.pdf"}) {
        const std::string bytes = "%PDF " + name;
        auto again = stored(name, bytes, folder);
        fx_.sandbox().resetStats();
        auto event = upload(again, folder, false);
        EXPECT_EQ(event.kind, Kind::didUpload) << name << ": " << describe(event);
        EXPECT_EQ(uploads(), 0) << name << " was not found again";
        EXPECT_EQ(again->name, name);
    }
    // The name that looks like query syntax matched only itself.
    EXPECT_EQ(fx_.liveFiles(*folder->id, "O'Brien's scan.pdf").size(), 1u);
}

TEST_F(GoogleDriveSession, UnchangedContentIsNotSentAgainAndShowsAsDone) {
    auto folder = fx_.makeFolder("Unchanged");
    const std::string bytes = documentBytes(70000, 1);
    auto again = stored("same.pdf", bytes, folder);
    again->localVersion = upperCase(md5(bytes));  // checksums compare ignoring letter case
    again->fileIdentifier = Json("doc-1");
    fx_.sandbox().resetStats();

    auto event = upload(again, folder, false);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_EQ(event.file, again);
    EXPECT_EQ(again->version, md5(bytes));
    EXPECT_EQ(again->id, idOf(*folder, "same.pdf"));
    EXPECT_EQ(again->fileIdentifier.value(), Json("doc-1"));
    EXPECT_EQ(uploads(), 0);
    EXPECT_EQ(delegate_->progress(), (std::vector<std::pair<std::int64_t, std::int64_t>>{{70000, 70000}}));
}

TEST_F(GoogleDriveSession, OverwriteKeepsTheFilesIdAndStoresANewRevision) {
    auto folder = fx_.makeFolder("Revisions");
    const std::string original = documentBytes(3000, 2);
    auto first = stored("report.pdf", original, folder);
    const std::string id = idOf(*folder, "report.pdf");
    const Json before = fx_.fileById(id);

    const std::string edited = documentBytes(5000, 3);
    auto refused = makeStoredDocument(*fx_.account(), "report.pdf", md5(original), edited, md5(edited));
    auto event = upload(refused, folder, false);
    ASSERT_TRUE(failedWith(event, Kind::uploadFailed, ErrorCode::fileConflict));
    EXPECT_TRUE(sameBytes(fx_.contentById(id), original));

    auto forced = makeStoredDocument(*fx_.account(), "report.pdf", md5(original), edited, md5(edited));
    event = upload(forced, folder, true);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_EQ(forced->id, id);
    EXPECT_EQ(forced->version, md5(edited));
    const Json after = fx_.fileById(id);
    EXPECT_TRUE(sameBytes(fx_.contentById(id), edited));
    EXPECT_NE(after["headRevisionId"], before["headRevisionId"]);
    EXPECT_EQ(fx_.liveFiles(*folder->id, "report.pdf").size(), 1u) << "no second file";

    // A record without a local fingerprint but with its stored version is updated in place.
    const std::string third = documentBytes(4000, 4);
    auto known = makeStoredDocument(*fx_.account(), "report.pdf", md5(edited), third, std::nullopt);
    event = upload(known, folder, false);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_TRUE(sameBytes(fx_.contentById(id), third));
}

TEST_F(GoogleDriveSession, NewDocumentsAreStoredBesideSameNamedOnes) {
    auto folder = fx_.makeFolder("Twice");
    ASSERT_EQ(upload(makeDocument("twice.pdf", "%PDF-1"), folder, false).kind, Kind::didUpload);
    ASSERT_EQ(upload(makeDocument("twice.pdf", "%PDF-2"), folder, false).kind, Kind::didUpload);
    EXPECT_EQ(fx_.liveFiles(*folder->id, "twice.pdf").size(), 2u);

    // Drive's search finds names in any case, but "Case.pdf" is another document than
    // "case.pdf": neither a conflict nor written over, even when overwriting is allowed.
    const std::string otherId = fx_.createFile(*folder->id, "Case.pdf", "someone else's");
    ASSERT_FALSE(otherId.empty());
    auto lower = makeStoredDocument(*fx_.account(), "case.pdf", md5("mine before"), "%PDF-mine", md5("%PDF-mine"));
    auto beside = upload(lower, folder, true);
    ASSERT_EQ(beside.kind, Kind::didUpload) << describe(beside);
    EXPECT_NE(lower->id, otherId);
    EXPECT_EQ(lower->name, "case.pdf");
    EXPECT_EQ(fx_.contentById(otherId), "someone else's");

    // A new folder is created in its parent.
    auto sub = std::make_shared<VXCloudFile>("Sub", true, false);
    auto event = upload(sub, folder, false);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    ASSERT_TRUE(sub->id.has_value());
    EXPECT_EQ(fx_.fileById(*sub->id)["parents"], Json::array({*folder->id}));
    EXPECT_EQ(fx_.fileById(*sub->id)["mimeType"], drive::kFolderMimeType);

    // A document without bytes fails without asking Drive.
    auto empty = std::make_shared<VXCloudFile>("empty.pdf", false, false);
    event = upload(empty, folder, false);
    EXPECT_TRUE(failedWith(event, Kind::uploadFailed, ErrorCode::fileUpload));
}

TEST_F(GoogleDriveSession, RateLimitsAreWaitedOutEvenForACreate) {
    // Drive gives its rate limits before acting, so even a create (never repeated blindly)
    // is sent again after one, and exactly one document results.
    auto folder = fx_.makeFolder("Limited");
    const std::pair<int, std::string> limits[] = {
        {429, "rateLimitExceeded"}, {403, "rateLimitExceeded"}, {403, "userRateLimitExceeded"}};
    int n = 0;
    for (const auto& [status, reason] : limits) {
        const std::string name = "limited-" + std::to_string(++n) + ".pdf";
        SessionTest::fault("upload/create", "status=" + std::to_string(status) + ";retry-after=0;error=" + reason, 2);
        auto event = upload(makeDocument(name, "%PDF-" + name), folder, false);
        EXPECT_EQ(event.kind, Kind::didUpload) << status << " " << reason << ": " << describe(event);
        EXPECT_EQ(fx_.liveFiles(*folder->id, name).size(), 1u) << name;
    }
    EXPECT_EQ(fx_.requests("upload/create"), 9) << "two refusals and the create, three times";

    // A 429 that names no wait is waited out with backoff all the same.
    SessionTest::fault("upload/create", "status=429;error=rateLimitExceeded", 1);
    auto event = upload(makeDocument("limited-bare.pdf", "%PDF-bare"), folder, false);
    EXPECT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_EQ(fx_.liveFiles(*folder->id, "limited-bare.pdf").size(), 1u);
}

TEST_F(GoogleDriveSession, SettingsDocumentIsNeverAConflict) {
    auto root = session_->rootFolder();
    ASSERT_FALSE(fx_.createFile("root", ".quillosettings", R"({"uploadFolderId":"old"})").empty());
    const std::string fresh = R"({"uploadFolderId":"new"})";
    auto settingsFile = makeStoredDocument(*fx_.account(), ".quillosettings", md5("something else"), fresh, md5(fresh));
    auto event = upload(settingsFile, root, false);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_EQ(fx_.remoteContent(*root, ".quillosettings"), fresh);

    // Any other document with other content under its name is a conflict.
    fx_.createFile("root", "taken.pdf", "old");
    auto taken = makeStoredDocument(*fx_.account(), "taken.pdf", md5("older"), "new", md5("new"));
    event = upload(taken, root, false);
    EXPECT_TRUE(failedWith(event, Kind::uploadFailed, ErrorCode::fileConflict));
}

TEST_F(GoogleDriveSession, EmptyParentIdIsSearchedAsTheTopFolder) {
    const std::string bytes = "%PDF top";
    ASSERT_FALSE(fx_.createFile("root", "top.pdf", bytes).empty());
    auto parent = std::make_shared<VXCloudFile>("Top", true, false);
    parent->id = "";
    fx_.sandbox().resetStats();
    auto again = makeStoredDocument(*fx_.account(), "top.pdf", md5(bytes), bytes, md5(bytes));
    auto event = upload(again, parent, false);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_EQ(uploads(), 0) << "found in the top folder, so nothing was sent";

    // A parent without an id stands for the top folder when creating, too.
    event = upload(makeDocument("no-id.pdf", "%PDF"), std::make_shared<VXCloudFile>("Top", true, false), false);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_EQ(fx_.remoteContent(*session_->rootFolder(), "no-id.pdf"), "%PDF");
}

TEST_F(GoogleDriveSession, FolderListingFollowsPagesAndSkipsTrash) {
    ASSERT_TRUE(fx_.sandbox().configure("google", Json{{"list_page_size", 2}}));
    auto parent = fx_.makeFolder("Listed");
    for (const char* name : {"A", "B", "C", "D", "E"}) fx_.makeFolder(name, parent);
    auto gone = fx_.makeFolder("Trashed", parent);
    ASSERT_TRUE(fx_.trash(*gone->id));
    fx_.createFile(*parent->id, "file.pdf", "%PDF");

    auto event = loadFolders(parent);
    ASSERT_EQ(event.kind, Kind::didLoadFolders) << describe(event);
    EXPECT_EQ(event.parent, parent);
    std::vector<std::string> names;
    for (const auto& folder : event.files) {
        EXPECT_TRUE(folder->isFolder);
        names.push_back(folder->name);
    }
    EXPECT_EQ(names, (std::vector<std::string>{"A", "B", "C", "D", "E"}));
    EXPECT_GE(fx_.requests("files/list"), 3) << "five folders in pages of two";

    // Without an id nothing can be listed, and nothing is reported.
    delegate_->clear();
    session_->loadFoldersInFolder(std::make_shared<VXCloudFile>("No id", true, false));
    EXPECT_FALSE(delegate_->waitForEvents(1, 500ms));

    fault("files/list", "status=401;error=authError");
    event = loadFolders(parent);
    EXPECT_TRUE(failedWith(event, Kind::loadFoldersFailed, ErrorCode::authentication));
}

TEST_F(GoogleDriveSession, RenameGivesTheFoundFileItsNewNameAndStoresAGoneOneAgain) {
    auto folder = fx_.makeFolder("Renames");
    const std::string bytes = documentBytes(2000, 5);
    auto file = stored("before.pdf", bytes, folder);
    const std::string id = idOf(*folder, "before.pdf");
    auto event = rename(file, "after.pdf", folder);
    ASSERT_EQ(event.kind, Kind::didRename) << describe(event);
    EXPECT_EQ(file->name, "after.pdf");
    EXPECT_EQ(file->id, id);
    EXPECT_EQ(idOf(*folder, "after.pdf"), id);

    // Gone from the folder: the host's regenerated PDF is stored under the new name and
    // reported as an upload.
    TempFolder temp;
    const std::string rebuilt = documentBytes(3000, 6);
    const std::string path = temp.file("rebuilt.pdf");
    std::ofstream(path, std::ios::binary) << rebuilt;
    auto gone = makeStoredDocument(*fx_.account(), "vanished.pdf", md5("old"), "old", std::nullopt);
    event = rename(gone, "reborn.pdf", folder, false, [path]() -> std::optional<std::string> { return path; });
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_EQ(gone->name, "reborn.pdf");
    EXPECT_TRUE(sameBytes(fx_.remoteContent(*folder, "reborn.pdf"), rebuilt));

    // Changed elsewhere: stored again too, whatever the overwrite flag says.
    fx_.createFile(*folder->id, "changed.pdf", "theirs");
    auto changed = makeStoredDocument(*fx_.account(), "changed.pdf", md5("mine"), "mine", md5("mine"));
    event = rename(changed, "mine.pdf", folder, false, [path]() -> std::optional<std::string> { return path; });
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_EQ(fx_.remoteContent(*folder, "changed.pdf"), "theirs");

    // No PDF, or one that cannot be read: the rename fails.
    auto lost = makeStoredDocument(*fx_.account(), "lost.pdf", md5("x"), "x", std::nullopt);
    event = rename(lost, "found.pdf", folder);
    EXPECT_TRUE(failedWith(event, Kind::renameFailed, ErrorCode::fileUpload));
    event = rename(lost, "found.pdf", folder, false,
                   [&] { return std::optional<std::string>(temp.file("missing.pdf")); });
    EXPECT_TRUE(failedWith(event, Kind::renameFailed, ErrorCode::fileUpload));

    // A refused rename request is classified.
    auto file2 = stored("locked.pdf", "%PDF-locked", folder);
    fault("files/update", "status=403;error=insufficientFilePermissions");
    event = rename(file2, "unlocked.pdf", folder);
    EXPECT_TRUE(failedWith(event, Kind::renameFailed, ErrorCode::authentication));
}

TEST_F(GoogleDriveSession, MoveReportsFilesWithoutAStoredCopyAsNotMoved) {
    auto from = fx_.makeFolder("Move From");
    auto to = fx_.makeFolder("Move To");
    auto present = stored("present.pdf", "%PDF-present", from);
    auto missing = makeStoredDocument(*fx_.account(), "missing.pdf", md5("never stored"), "x", std::nullopt);
    auto event = move({present, missing}, from, to);
    ASSERT_EQ(event.kind, Kind::didMove);
    EXPECT_EQ(event.files, (VXCloudFileList{present}));
    EXPECT_EQ(event.notMoved, (VXCloudFileList{missing}));
    EXPECT_EQ(missing->error, "missing_folder");
    EXPECT_EQ(fx_.remoteContent(*to, "present.pdf"), "%PDF-present");
    EXPECT_EQ(fx_.remoteContent(*from, "present.pdf"), std::nullopt);

    // Two records of the same content are paired with two files, each by its own name.
    auto one = stored("one.pdf", "%PDF-same", from);
    auto two = stored("two.pdf", "%PDF-same", from);
    event = move({two, one}, from, to);
    EXPECT_EQ(event.files.size(), 2u);
    EXPECT_TRUE(event.notMoved.empty());

    // A source whose id is empty is the top folder, where the file is found and which it
    // leaves; a target without an id would leave it with no parent, so nothing moves there.
    auto top = std::make_shared<VXCloudFile>("Top", true, false);
    top->id = "";
    auto atTop = stored("at-top.pdf", "%PDF-top", session_->rootFolder());
    event = move({atTop}, top, to);
    EXPECT_EQ(event.files, (VXCloudFileList{atTop}));
    EXPECT_EQ(fx_.remoteContent(*to, "at-top.pdf"), "%PDF-top");
    EXPECT_EQ(fx_.remoteContent(*session_->rootFolder(), "at-top.pdf"), std::nullopt);
    fx_.sandbox().resetStats();
    event = move({atTop}, to, top);
    EXPECT_TRUE(event.files.empty());
    EXPECT_EQ(event.notMoved, (VXCloudFileList{atTop}));
    EXPECT_EQ(fx_.requests("files/update"), 0);
    EXPECT_EQ(fx_.remoteContent(*to, "at-top.pdf"), "%PDF-top");

    // A lookup that fails ends the request with every file not moved.
    auto back = makeStoredDocument(*fx_.account(), "present.pdf", md5("%PDF-present"), "%PDF-present", std::nullopt);
    fault("files/list", "status=404;error=notFound");
    event = move({back}, to, from);
    EXPECT_TRUE(event.files.empty());
    EXPECT_EQ(event.notMoved, (VXCloudFileList{back}));
}

TEST_F(GoogleDriveSession, SettingsDownloadChecksTheNamedFolder) {
    auto [none, noneError] = settings();
    EXPECT_EQ(none, nullptr);
    EXPECT_TRUE(hasErrorCode(noneError, ErrorCode::missingFolder));

    auto scans = fx_.makeFolder("Scans Here");
    ASSERT_TRUE(fx_.storeSettings(*scans));
    auto [record, error] = settings();
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(error, nullptr);
    EXPECT_EQ(record->name, ".quillosettings");
    ASSERT_TRUE(record->fileData);
    EXPECT_EQ(Json::parse(record->fileData->view())["uploadFolderId"], *scans->id);

    ASSERT_TRUE(fx_.trash(*scans->id));
    auto [trashedRecord, trashedError] = settings();
    EXPECT_NE(trashedRecord, nullptr);
    EXPECT_TRUE(hasErrorCode(trashedError, ErrorCode::missingFolder));

    const std::string settingsId = idOf(*session_->rootFolder(), ".quillosettings");
    ASSERT_TRUE(fx_.replaceContent(settingsId, "not json"));
    auto [garbled, garbledError] = settings();
    EXPECT_NE(garbled, nullptr);
    EXPECT_TRUE(hasErrorCode(garbledError, ErrorCode::missingFolder));

    fault("files/list", "status=500;error=backendError;retry-after=0");
    auto [failed, failedError] = settings();
    EXPECT_EQ(failed, nullptr);
    EXPECT_TRUE(hasErrorCode(failedError, ErrorCode::connection));
    fx_.sandbox().clearFaults();

    fault("files/get", "status=403;error=appNotAuthorizedToFile");
    auto [refused, refusedError] = settings();
    EXPECT_EQ(refused, nullptr);
    EXPECT_TRUE(hasErrorCode(refusedError, ErrorCode::authentication));
}

TEST_F(GoogleDriveSession, OfSeveralSettingsDocumentsTheNewestIsRead) {
    // Left behind by earlier versions, which made a new document per folder choice.
    auto older = fx_.makeFolder("Older Choice");
    auto newer = fx_.makeFolder("Newer Choice");
    const std::string first = fx_.createFile("root", ".quillosettings", Json{{"uploadFolderId", *older->id}}.dump());
    const std::string second = fx_.createFile("root", ".quillosettings", Json{{"uploadFolderId", *newer->id}}.dump());
    ASSERT_FALSE(first.empty() || second.empty());
    auto chosenFolder = [&] {
        auto [record, error] = settings();
        EXPECT_EQ(error, nullptr);
        return record && record->fileData ? Json::parse(record->fileData->view())["uploadFolderId"] : Json();
    };

    // Whichever order Drive lists them in, the later modifiedTime wins.
    ASSERT_TRUE(fx_.setModifiedTime(first, "2030-01-01T10:00:00.000Z"));
    ASSERT_TRUE(fx_.setModifiedTime(second, "2029-12-31T23:59:59.999Z"));
    EXPECT_EQ(chosenFolder(), *older->id);
    ASSERT_TRUE(fx_.setModifiedTime(second, "2030-01-01T10:00:01Z"));
    EXPECT_EQ(chosenFolder(), *newer->id);
}

// The classifier's table, row by row, from the sandbox's error bodies.
TEST_F(GoogleDriveSession, ReasonsOfRealErrorBodiesBecomeTheTablesCodes) {
    struct Row {
        int status;
        std::string reason;  // empty: no structured error at all
        ErrorCode code;
    };
    const Row rows[] = {
        {403, "fieldNotWritable", ErrorCode::fileUpload},
        {404, "notFound", ErrorCode::fileUpload},
        {400, "badRequest", ErrorCode::fileUpload},
        {400, "invalidSharingRequest", ErrorCode::fileUpload},
        {403, "userRateLimitExceeded", ErrorCode::fileUpload},
        {401, "authError", ErrorCode::authentication},
        {403, "appNotAuthorizedToFile", ErrorCode::authentication},
        {403, "insufficientFilePermissions", ErrorCode::authentication},
        {403, "domainPolicy", ErrorCode::authentication},
        {403, "dailyLimitExceeded", ErrorCode::storageQuotaReached},
        {403, "rateLimitExceeded", ErrorCode::storageQuotaReached},
        {429, "rateLimitExceeded", ErrorCode::storageQuotaReached},
        {403, "sharingRateLimitExceeded", ErrorCode::storageQuotaReached},
        {500, "backendError", ErrorCode::connection},
        {403, "storageQuotaExceeded", ErrorCode::fileUpload},
        {400, "somethingNew", ErrorCode::fileUpload},
        {503, "", ErrorCode::connection},
        {409, "", ErrorCode::fileUpload},
    };
    auto folder = fx_.makeFolder("Reasons");
    auto file = makeStoredDocument(*fx_.account(), "doc.pdf", md5("v"), "v", md5("v"));
    for (const auto& row : rows) {
        std::string desc = "status=" + std::to_string(row.status) + ";retry-after=0";
        desc += row.reason.empty() ? ";body=Service%20Unavailable;content-type=text/html" : ";error=" + row.reason;
        fault("files/list", desc);
        auto event = upload(file, folder, false);
        fx_.sandbox().clearFaults();
        EXPECT_EQ(event.kind, Kind::uploadFailed) << row.reason;
        EXPECT_EQ(event.code(), row.code) << row.status << " " << row.reason << " gave " << describe(event);
    }

    // A refused refresh grant: the token endpoint's invalid_grant.
    ASSERT_TRUE(fx_.sandbox().revokeRefreshToken("google", fx_.sandboxAccount().refreshToken));
    auto event = upload(makeDocument("new.pdf", "%PDF"), folder, false);
    EXPECT_TRUE(failedWith(event, Kind::uploadFailed, ErrorCode::authentication));
}

TEST_F(GoogleDriveSession, ExpiredTokenIsRefreshedSavedAndUsed) {
    const std::string storage = VXCloudGoogleDriveSession::storageName(*fx_.account());
    EXPECT_EQ(storage, "VX_Google_Drive_" + fx_.sandboxAccount().userId);
    const auto before = VXCloudTokenStore::load(VXCloudService::googleDrive, storage);
    ASSERT_TRUE(before);
    EXPECT_EQ(fx_.sandbox().expireAccessTokens("google", {}, before->accessToken), 1);
    fx_.sandbox().resetStats();

    EXPECT_TRUE(isAuthorized());
    EXPECT_EQ(fx_.requests("oauth2/token"), 1);
    const auto after = VXCloudTokenStore::load(VXCloudService::googleDrive, storage);
    ASSERT_TRUE(after);
    EXPECT_NE(after->accessToken, before->accessToken);
    EXPECT_EQ(after->refreshToken, before->refreshToken) << "Google keeps its refresh token";

    ASSERT_TRUE(fx_.sandbox().revokeRefreshToken("google", fx_.sandboxAccount().refreshToken));
    EXPECT_FALSE(isAuthorized());
}

TEST_F(GoogleDriveSession, LargeDocumentsGoInChunksAndResumeAfterADroppedConnection) {
    fx_.limitUploads(256 * 1024, 256 * 1024);
    ASSERT_TRUE(drive(fx_.makeDriveSession()));  // the client reads the limits when it is made
    auto folder = fx_.makeFolder("Large");
    const std::string bytes = documentBytes(1024 * 1024 + 123, 7);

    // The second chunk's connection is cut half-way through its body.
    fault("upload/session", "drop-after=100000;skip=1", 1);
    auto file = makeDocument("large.pdf", bytes);
    auto event = upload(file, folder, false);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_EQ(file->version, md5(bytes));
    EXPECT_TRUE(sameBytes(fx_.remoteContent(*folder, "large.pdf"), bytes));
    EXPECT_EQ(fx_.requests("upload/create"), 1) << "one session";
    EXPECT_GE(fx_.requests("upload/session"), 6) << "five chunks, a status query and the repeat";

    const auto progress = delegate_->progress();
    ASSERT_FALSE(progress.empty());
    for (const auto& [current, total] : progress) {
        EXPECT_GE(current, 0);
        EXPECT_EQ(total, static_cast<std::int64_t>(bytes.size()));
    }
    EXPECT_EQ(delegate_->progressSum(), static_cast<std::int64_t>(bytes.size()));
    EXPECT_EQ(session_->previousUploadAmount(), bytes.size());

    // A session the server has forgotten is started again, once.
    fx_.sandbox().resetStats();
    fault("upload/session", "status=404;error=notFound;skip=1", 1);
    auto restarted = makeDocument("restarted.pdf", bytes);
    event = upload(restarted, folder, false);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_EQ(fx_.requests("upload/create"), 2);
    EXPECT_TRUE(sameBytes(fx_.remoteContent(*folder, "restarted.pdf"), bytes));

    // The server keeps less than a chunk sends: the client goes on from where it stopped.
    ASSERT_TRUE(fx_.sandbox().configure("google", Json{{"resumable_keep_max_bytes", 256 * 1024}}));
    fx_.limitUploads(256 * 1024, 1024 * 1024);
    ASSERT_TRUE(drive(fx_.makeDriveSession()));
    const std::string other = documentBytes(2 * 1024 * 1024 + 5, 8);
    auto second = makeStoredDocument(*fx_.account(), "large.pdf", md5(bytes), other, std::nullopt);
    event = upload(second, folder, false);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_TRUE(sameBytes(fx_.remoteContent(*folder, "large.pdf"), other));

    // A session that never keeps a byte is not sent the same chunk for ever.
    fx_.sandbox().resetStats();
    fault("upload/session", "status=308", 40);
    event = upload(makeDocument("stuck.pdf", other), folder, false);
    fx_.sandbox().clearFaults();
    EXPECT_TRUE(failedWith(event, Kind::uploadFailed, ErrorCode::fileUpload));
    EXPECT_LE(fx_.requests("upload/session"), 10);
    EXPECT_EQ(fx_.remoteContent(*folder, "stuck.pdf"), std::nullopt);
}

TEST_F(GoogleDriveSession, UnreadableAnswersAreFailuresNotCrashes) {
    auto folder = fx_.makeFolder("Garbled");
    auto file = makeStoredDocument(*fx_.account(), "doc.pdf", md5("v"), "v", md5("v"));
    for (const std::string body : {"%7Bnot json", R"({"files": "no list"})", R"({"files": [{"name": 7}]})",
                                   R"({"files": [], "nextPageToken": 5})"}) {
        fault("files/list", "status=200;content-type=application/json;body=" + body, 1);
        auto event = upload(file, folder, false);
        fx_.sandbox().clearFaults();
        EXPECT_EQ(event.kind, Kind::uploadFailed) << body;
        EXPECT_EQ(event.code(), ErrorCode::fileUpload) << body;
    }
    fault("upload/create", R"(status=200;content-type=application/json;body={"id": ["x"]})", 1);
    auto event = upload(makeDocument("odd.pdf", "%PDF"), folder, false);
    EXPECT_TRUE(failedWith(event, Kind::uploadFailed, ErrorCode::fileUpload));
}

TEST_F(GoogleDriveSession, SessionNeedsStoredAuthorisationAndUnlinkingRemovesIt) {
    auto stranger = std::make_shared<VXCloudAccount>("000", "nobody@example.com", VXCloudService::googleDrive);
    EXPECT_EQ(VXCloudGoogleDriveSession::initWithCloudAccount(stranger), nullptr);
    auto dropbox = std::make_shared<VXCloudAccount>(fx_.sandboxAccount().userId, "x@example.com", VXCloudService::dropbox);
    EXPECT_EQ(VXCloudGoogleDriveSession::initWithCloudAccount(dropbox), nullptr);
    EXPECT_NE(std::dynamic_pointer_cast<VXCloudGoogleDriveSession>(fx_.account()->sessionForAccount()), nullptr)
        << "the engine's factory makes Drive sessions";
    auto root = session_->rootFolder();
    EXPECT_EQ(root->id, "root");
    EXPECT_TRUE(root->isFolder && root->isRootFolder);

    auto [account, error] = removeAuthorization();
    EXPECT_EQ(account, fx_.account());
    EXPECT_FALSE(error.has_value());
    EXPECT_FALSE(VXCloudTokenStore::contains(VXCloudService::googleDrive,
                                             VXCloudGoogleDriveSession::storageName(*fx_.account())));
    auto left = VXCloudUserDefaults::loadAccounts({VXCloudService::googleDrive});
    EXPECT_TRUE(!left || left->empty());

    auto [_, secondError] = removeAuthorization();
    ASSERT_TRUE(secondError.has_value());
    EXPECT_EQ(secondError->code, 3);
    EXPECT_EQ(secondError->domain, kVXCloudErrorDomain);
}

}  // namespace
}  // namespace vxcloud::testing
