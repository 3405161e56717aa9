// The Dropbox session against the sandbox over HTTP: paths, finding stored documents,
// renames and their odd outcomes, move jobs, the settings document, tokens, retries and
// answers that cannot be read.
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <thread>

#include "sessions/DropboxFixture.h"
#include "vxcloud/auth/VXCloudTokenStore.h"
#include "vxcloud/model/VXCloudFileHasher.h"
#include "vxcloud/model/VXCloudUserDefaults.h"
#include "vxcloud/sessions/VXCloudServiceConfig.h"

namespace vxcloud::testing {
namespace {

using Kind = SessionEvent::Kind;

std::string contentHash(const std::string& bytes) {
    return VXCloudFileHasher::dropboxHash(ByteBuffer::copyOf(bytes)).value_or("");
}

class DropboxSession : public SessionTest<DropboxFixture, VXCloudDropboxSession> {
protected:
    std::optional<std::string> remote(const std::string& path) {
        return fx_.sandbox().fileContent("dropbox", path);
    }
};

TEST_F(DropboxSession, FolderPrefixAddressesTheTopFolderAndSubfolders) {
    EXPECT_EQ(VXCloudDropboxSession::folderPrefix(nullptr), "/");
    EXPECT_EQ(VXCloudDropboxSession::folderPrefix(std::make_shared<VXCloudFile>("x", true, false)), "/");
    EXPECT_EQ(VXCloudDropboxSession::folderPrefix(folderRecord("x", "")), "/");
    EXPECT_EQ(VXCloudDropboxSession::folderPrefix(folderRecord("x", "/")), "/");
    EXPECT_EQ(VXCloudDropboxSession::folderPrefix(folderRecord("A", "/A")), "/A/");

    EXPECT_EQ(upload(makeDocument("top.pdf", "%PDF-1"), folderRecord("x", "/"), false).kind, Kind::didUpload);
    EXPECT_EQ(upload(makeDocument("root.pdf", "%PDF-2"), session_->rootFolder(), false).kind, Kind::didUpload);
    EXPECT_EQ(upload(makeDocument("sub.pdf", "%PDF-3"), folderRecord("A", "/A"), false).kind, Kind::didUpload);
    EXPECT_EQ(remote("/top.pdf"), "%PDF-1");
    EXPECT_EQ(remote("/root.pdf"), "%PDF-2");
    EXPECT_EQ(remote("/A/sub.pdf"), "%PDF-3");

    // A document stored in the top folder is found there again.
    auto again = makeStoredDocument(*fx_.account(), "root.pdf", contentHash("%PDF-2"), "%PDF-2", contentHash("%PDF-2"));
    auto event = upload(again, session_->rootFolder(), false);
    EXPECT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_EQ(again->path, "/root.pdf");
}

TEST_F(DropboxSession, SettingsDocumentIsAlwaysWrittenOver) {
    fx_.sandbox().putFile("dropbox", "/.quillosettings", R"({"uploadFolderPath":"/Old"})");
    auto event = upload(makeDocument(".quillosettings", R"({"uploadFolderPath":"/New"})"), session_->rootFolder(), false);
    EXPECT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_EQ(remote("/.quillosettings"), R"({"uploadFolderPath":"/New"})");

    // Any other name already taken is a conflict without overwrite.
    fx_.sandbox().putFile("dropbox", "/taken.pdf", "old");
    event = upload(makeDocument("taken.pdf", "new"), session_->rootFolder(), false);
    EXPECT_TRUE(failedWith(event, Kind::uploadFailed, ErrorCode::fileConflict));
}

TEST_F(DropboxSession, UnchangedContentSendsNoBytesAndReportsItDone) {
    auto folder = fx_.makeFolder("Unchanged");
    const std::string bytes = documentBytes(50000, 1);
    stored("same.pdf", bytes, folder);
    fx_.sandbox().resetStats();

    // The hash matches in any letter case.
    auto again = makeStoredDocument(*fx_.account(), "same.pdf", contentHash(bytes), bytes, upperCase(contentHash(bytes)));
    again->fileIdentifier = Json("doc-7");
    auto event = upload(again, folder, false);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_EQ(event.file, again);
    EXPECT_EQ(again->version, contentHash(bytes));
    EXPECT_EQ(*again->fileIdentifier, "doc-7");
    EXPECT_EQ(fx_.bytesReceived("files/upload"), 0);
    EXPECT_EQ(fx_.requests("files/upload"), 0);
    const auto progress = delegate_->progress();
    ASSERT_EQ(progress.size(), 1u);
    EXPECT_EQ(progress[0].first, 50000);
    EXPECT_EQ(progress[0].second, 50000);

    // In a folder of many pages the stored copy is found wherever its page is (here the last).
    fx_.sandbox().configure("dropbox", Json{{"list_folder_page_size", 2}});
    auto paged = fx_.makeFolder("Paged Lookup");
    for (int i = 0; i < 7; ++i) fx_.sandbox().putFile("dropbox", "/Paged Lookup/other-" + std::to_string(i) + ".pdf", "x");
    stored("late.pdf", bytes, paged);
    fx_.sandbox().resetStats();
    event = upload(makeStoredDocument(*fx_.account(), "late.pdf", contentHash(bytes), bytes, contentHash(bytes)), paged,
                   false);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_EQ(fx_.requests("files/upload"), 0) << "found on a later page, so nothing is sent";
    EXPECT_GE(fx_.requests("files/list_folder/continue"), 3);
}

TEST_F(DropboxSession, KnownDocumentIsFoundByHashOrName) {
    auto folder = fx_.makeFolder("Known");
    const std::string bytes = documentBytes(3000, 2);
    stored("renamed elsewhere.pdf", bytes, folder);

    // Stored under another name, same content: found by hash, nothing sent.
    fx_.sandbox().resetStats();
    auto moved = makeStoredDocument(*fx_.account(), "original.pdf", contentHash(bytes), bytes, contentHash(bytes));
    auto event = upload(moved, folder, false);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_EQ(moved->name, "renamed elsewhere.pdf");
    EXPECT_EQ(fx_.requests("files/upload"), 0);

    // No local fingerprint, the remote hash matches the recorded version: written again.
    auto recorded = makeStoredDocument(*fx_.account(), "renamed elsewhere.pdf", contentHash(bytes), bytes, std::nullopt);
    event = upload(recorded, folder, false);
    EXPECT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_EQ(fx_.requests("files/upload"), 1);

    // Recorded before but gone from the folder: stored anew.
    auto gone = makeStoredDocument(*fx_.account(), "gone.pdf", std::string("0"), "new bytes", contentHash("new bytes"));
    event = upload(gone, folder, false);
    EXPECT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_EQ(remote("/Known/gone.pdf"), "new bytes");
}

TEST_F(DropboxSession, FolderWithoutPathIsNeverListed) {
    session_->loadFoldersInFolder(std::make_shared<VXCloudFile>("No Path", true, false));
    session_->loadFoldersInFolder(nullptr);
    EXPECT_FALSE(delegate_->waitForEvents(1, 500ms));
    EXPECT_EQ(fx_.requests("files/list_folder"), 0);
}

TEST_F(DropboxSession, ListingFollowsEveryPageAndKeepsOnlyFolders) {
    fx_.sandbox().configure("dropbox", Json{{"list_folder_page_size", 2}});
    auto parent = fx_.makeFolder("Paged");
    for (const char* name : {"f1", "f2", "f3", "f4", "f5"}) fx_.makeFolder(name, parent);
    for (const char* name : {"/Paged/a.pdf", "/Paged/b.pdf", "/Paged/c.pdf"}) fx_.sandbox().putFile("dropbox", name, "x");

    auto event = loadFolders(parent);
    ASSERT_EQ(event.kind, Kind::didLoadFolders) << describe(event);
    std::vector<std::string> names;
    for (const auto& f : event.files) {
        names.push_back(f->name);
        EXPECT_TRUE(f->isFolder);
        EXPECT_FALSE(f->version.has_value());
        EXPECT_EQ(f->path, "/Paged/" + f->name);
    }
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"f1", "f2", "f3", "f4", "f5"}));
    EXPECT_GE(fx_.requests("files/list_folder/continue"), 3);

    event = loadFolders(folderRecord("Missing", "/Missing"));
    EXPECT_TRUE(failedWith(event, Kind::loadFoldersFailed, ErrorCode::fileUpload));
}

TEST_F(DropboxSession, FoldersAreCreatedOnceAndAClashIsAConflict) {
    auto parent = fx_.makeFolder("Parent");
    auto folder = std::make_shared<VXCloudFile>("Child", true, false);
    auto event = upload(folder, parent, false);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_TRUE(event.file->isFolder);
    EXPECT_EQ(event.file->path, "/Parent/Child");
    EXPECT_TRUE(event.file->id.has_value());

    event = upload(folder, parent, false);
    EXPECT_TRUE(failedWith(event, Kind::uploadFailed, ErrorCode::fileConflict));
    EXPECT_EQ(event.file, folder);
}

TEST_F(DropboxSession, RenameOutcomesForTakenAndFreeNames) {
    auto folder = fx_.makeFolder("Renames");
    const std::string bytes = documentBytes(2000, 3);
    auto doc = stored("doc.pdf", bytes, folder);
    fx_.sandbox().putFile("dropbox", "/Renames/taken.pdf", "someone else's");

    // Without overwrite a taken name is refused by the move itself.
    auto event = rename(doc, "taken.pdf", folder, false);
    EXPECT_TRUE(failedWith(event, Kind::renameFailed, ErrorCode::renameFailed));
    EXPECT_EQ(event.file, doc);

    // With overwrite, a new name that nobody holds fails: the delete before the move finds
    // nothing to delete.
    event = rename(doc, "free.pdf", folder, true);
    EXPECT_TRUE(failedWith(event, Kind::renameFailed, ErrorCode::renameFailed));
    EXPECT_TRUE(sameBytes(remote("/Renames/doc.pdf"), bytes));
    EXPECT_EQ(remote("/Renames/free.pdf"), std::nullopt);

    // With overwrite, a taken name is cleared first.
    event = rename(doc, "taken.pdf", folder, true);
    ASSERT_EQ(event.kind, Kind::didRename) << describe(event);
    EXPECT_EQ(doc->name, "taken.pdf");
    EXPECT_EQ(doc->version, contentHash(bytes));
    EXPECT_TRUE(sameBytes(remote("/Renames/taken.pdf"), bytes));
    EXPECT_EQ(remote("/Renames/doc.pdf"), std::nullopt);
}

TEST_F(DropboxSession, RenameRebuildsADocumentThatIsGone) {
    testing::TempFolder temp;
    auto folder = fx_.makeFolder("Rebuild");
    const std::string bytes = documentBytes(5000, 4);
    auto doc = stored("lost.pdf", bytes, folder);
    fx_.sandbox().removeItem("dropbox", "/Rebuild/lost.pdf");

    // The host has nothing to give, or gives a path that cannot be read.
    auto event = rename(doc, "found.pdf", folder, false);
    EXPECT_TRUE(failedWith(event, Kind::renameFailed, ErrorCode::fileUpload));
    event = rename(doc, "found.pdf", folder, false, [&] { return temp.file("missing.pdf"); });
    EXPECT_TRUE(failedWith(event, Kind::renameFailed, ErrorCode::fileUpload));

    const std::string regenerated = documentBytes(6000, 5);
    const std::string pdfPath = temp.file("regenerated.pdf");
    std::ofstream(pdfPath, std::ios::binary) << regenerated;
    int calls = 0;
    event = rename(doc, "found.pdf", folder, false, [&] {
        ++calls;
        return std::optional<std::string>(pdfPath);
    });
    ASSERT_EQ(event.kind, Kind::didRename) << describe(event);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(doc->name, "found.pdf");
    EXPECT_TRUE(sameBytes(remote("/Rebuild/found.pdf"), regenerated));
    EXPECT_EQ(remote("/Rebuild/lost.pdf"), std::nullopt);
}

TEST_F(DropboxSession, RenameOfARemotelyChangedDocument) {
    testing::TempFolder temp;
    auto folder = fx_.makeFolder("Changed");
    const std::string bytes = documentBytes(3000, 6);
    auto doc = stored("mine.pdf", bytes, folder);
    fx_.sandbox().changeFile("dropbox", "/Changed/mine.pdf", "edited on a phone");

    auto event = rename(doc, "ours.pdf", folder, false);
    EXPECT_TRUE(failedWith(event, Kind::renameFailed, ErrorCode::fileConflict));

    // With overwrite the host's copy replaces the edited one, under the new name.
    const std::string pdfPath = temp.file("mine.pdf");
    std::ofstream(pdfPath, std::ios::binary) << bytes;
    event = rename(doc, "ours.pdf", folder, true, [&] { return std::optional<std::string>(pdfPath); });
    ASSERT_EQ(event.kind, Kind::didRename) << describe(event);
    EXPECT_TRUE(sameBytes(remote("/Changed/ours.pdf"), bytes));
    EXPECT_EQ(remote("/Changed/mine.pdf"), std::nullopt);
}

TEST_F(DropboxSession, MoveJobInProgressIsPolledUntilComplete) {
    fx_.sandbox().configure("dropbox", Json{{"move_batch_async", true}, {"move_batch_in_progress_checks", 3}});
    auto from = fx_.makeFolder("From");
    auto to = fx_.makeFolder("To");
    auto a = stored("a.pdf", "%PDF-a", from);
    auto b = stored("b.pdf", "%PDF-b", from);
    auto missing = makeStoredDocument(*fx_.account(), "missing.pdf", contentHash("x"), "x", contentHash("x"));

    const auto started = std::chrono::steady_clock::now();
    auto event = move({a, b, missing}, from, to);
    const auto elapsed = std::chrono::steady_clock::now() - started;
    ASSERT_EQ(event.kind, Kind::didMove);
    EXPECT_EQ(event.files, (VXCloudFileList{a, b}));
    EXPECT_EQ(event.notMoved, (VXCloudFileList{missing}));
    EXPECT_EQ(fx_.requests("files/move_batch/check_v2"), 4);
    EXPECT_GE(elapsed, 3 * DropboxFixture::kTestPollInterval);
    EXPECT_EQ(remote("/To/a.pdf"), "%PDF-a");
    EXPECT_EQ(remote("/From/a.pdf"), std::nullopt);

    EXPECT_EQ(VXCloudDropboxSession::initWithCloudAccount(fx_.account())->movePollInterval(),
              std::chrono::milliseconds(3000));
}

TEST_F(DropboxSession, BatchCompletedAtOnceIsReportedAsNotMoved) {
    fx_.sandbox().configure("dropbox", Json{{"move_batch_async", false}});
    auto from = fx_.makeFolder("Quick From");
    auto to = fx_.makeFolder("Quick To");
    auto a = stored("a.pdf", "%PDF-a", from);

    auto event = move({a}, from, to);
    ASSERT_EQ(event.kind, Kind::didMove);
    EXPECT_TRUE(event.files.empty());
    EXPECT_EQ(event.notMoved, (VXCloudFileList{a}));
    EXPECT_EQ(fx_.requests("files/move_batch/check_v2"), 0);
    EXPECT_EQ(remote("/Quick To/a.pdf"), "%PDF-a") << "the service did move it";
}

TEST_F(DropboxSession, SettingsDocumentChecks) {
    auto [none, missingError] = settings();
    EXPECT_EQ(none, nullptr);
    EXPECT_TRUE(hasErrorCode(missingError, ErrorCode::fileUpload));

    fx_.sandbox().putFile("dropbox", "/.quillosettings", "not json at all");
    auto [garbled, garbledError] = settings();
    EXPECT_EQ(garbled, nullptr);
    EXPECT_TRUE(hasErrorCode(garbledError, ErrorCode::missingFolder));

    fx_.sandbox().putFile("dropbox", "/.quillosettings", R"({"uploadFolderPath": 7})");
    auto [wrongType, wrongTypeError] = settings();
    EXPECT_EQ(wrongType, nullptr);
    EXPECT_TRUE(hasErrorCode(wrongTypeError, ErrorCode::missingFolder));

    fx_.sandbox().putFile("dropbox", "/.quillosettings", R"({"uploadFolderPath": "/Deleted Folder"})");
    auto [orphan, orphanError] = settings();
    ASSERT_NE(orphan, nullptr);
    EXPECT_TRUE(hasErrorCode(orphanError, ErrorCode::missingFolder));

    auto folder = fx_.makeFolder("Scans");
    ASSERT_TRUE(fx_.storeSettings(*folder));
    auto [record, error] = settings();
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(error, nullptr);
    EXPECT_EQ(record->name, ".quillosettings");
    EXPECT_NE(record->fileData->view().find("/Scans"), std::string_view::npos);

    fx_.sandbox().putFile("dropbox", "/.quillosettings", R"({"uploadFolderPath": ""})");
    auto [top, topError] = settings();
    EXPECT_NE(top, nullptr);
    EXPECT_EQ(topError, nullptr) << "the top folder always exists";
}

TEST_F(DropboxSession, ExpiredAccessTokenIsRefreshedAndSavedTransparently) {
    const auto before = VXCloudTokenStore::load(VXCloudService::dropbox, fx_.sandboxAccount().userId);
    ASSERT_TRUE(before);
    EXPECT_EQ(fx_.sandbox().expireAccessTokens("dropbox", fx_.sandboxAccount().userId), 1);

    auto event = upload(makeDocument("after-expiry.pdf", "%PDF"), session_->rootFolder(), false);
    EXPECT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_EQ(fx_.requests("oauth2/token"), 1);
    const auto after = VXCloudTokenStore::load(VXCloudService::dropbox, fx_.sandboxAccount().userId);
    ASSERT_TRUE(after);
    EXPECT_NE(after->accessToken, before->accessToken);
    EXPECT_EQ(after->refreshToken, before->refreshToken) << "Dropbox does not rotate refresh tokens";
    EXPECT_TRUE(after->expiresAt.has_value());

    // A token the store already knows to be expired is refreshed before it is sent.
    VXCloudOAuthToken stale = *after;
    stale.expiresAt = 1;
    ASSERT_TRUE(VXCloudTokenStore::save(VXCloudService::dropbox, fx_.sandboxAccount().userId, stale));
    fx_.sandbox().resetStats();
    EXPECT_TRUE(isAuthorized());
    EXPECT_EQ(fx_.requests("oauth2/token"), 1);
    EXPECT_EQ(fx_.sandbox().stats("dropbox/users/get_current_account").statuses[401], 0);
}

TEST_F(DropboxSession, RevokedRefreshTokenIsAnAuthenticationFailure) {
    ASSERT_TRUE(fx_.sandbox().revokeRefreshToken("dropbox", fx_.sandboxAccount().refreshToken));
    auto event = upload(makeDocument("revoked.pdf", "%PDF"), session_->rootFolder(), false);
    EXPECT_TRUE(failedWith(event, Kind::uploadFailed, ErrorCode::authentication));

    EXPECT_FALSE(isAuthorized());
}

TEST_F(DropboxSession, SessionNeedsAStoredTokenAndUnlinkingRemovesIt) {
    auto other = std::make_shared<VXCloudAccount>("dbid:nobody", "nobody@example.com", VXCloudService::dropbox);
    EXPECT_EQ(VXCloudDropboxSession::initWithCloudAccount(other), nullptr);
    auto drive = std::make_shared<VXCloudAccount>(fx_.sandboxAccount().userId, "x@example.com", VXCloudService::googleDrive);
    EXPECT_EQ(VXCloudDropboxSession::initWithCloudAccount(drive), nullptr);
    EXPECT_NE(fx_.account()->sessionForAccount(), nullptr) << "the engine's factory makes Dropbox sessions";

    auto [account, error] = removeAuthorization();
    EXPECT_EQ(account, fx_.account());
    EXPECT_FALSE(error.has_value());
    EXPECT_FALSE(VXCloudTokenStore::contains(VXCloudService::dropbox, fx_.sandboxAccount().userId));
    auto left = VXCloudUserDefaults::loadAccounts({VXCloudService::dropbox});
    EXPECT_TRUE(!left || left->empty());
    EXPECT_EQ(VXCloudDropboxSession::initWithCloudAccount(fx_.account()), nullptr);

    auto [_, secondError] = removeAuthorization();
    ASSERT_TRUE(secondError.has_value());
    EXPECT_EQ(secondError->code, 2);
    EXPECT_EQ(secondError->domain, kVXCloudErrorDomain);
}

TEST_F(DropboxSession, TransientServerAnswersAreRetried) {
    fault("files/upload", "status=429;retry-after=1");
    auto event = upload(makeDocument("limited.pdf", "%PDF-limited"), session_->rootFolder(), false);
    EXPECT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_EQ(fx_.requests("files/upload"), 2);

    fault("files/upload", "status=409;error=too_many_write_operations");
    event = upload(makeDocument("busy.pdf", "%PDF-busy"), session_->rootFolder(), false);
    EXPECT_EQ(event.kind, Kind::didUpload) << describe(event);

    // A connection cut mid-body: the upload is repeated (same bytes, same path), and the
    // progress does not count the repeated bytes twice.
    ASSERT_TRUE(drive(fx_.makeDropboxSession()));
    fx_.sandbox().resetStats();
    fault("files/upload", "drop-after=100");
    event = upload(makeDocument("dropped.pdf", documentBytes(10000, 7)), session_->rootFolder(), false);
    EXPECT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_TRUE(sameBytes(remote("/dropped.pdf"), documentBytes(10000, 7)));
    EXPECT_EQ(fx_.requests("files/upload"), 2);
    EXPECT_EQ(delegate_->progressSum(), 10000);
    for (const auto& [current, total] : delegate_->progress()) EXPECT_GE(current, 0);

    // The answer is lost after the file was stored: sending the same bytes again in "add"
    // mode finds them there and succeeds instead of conflicting.
    fault("files/upload", "drop-response-after=10");
    event = upload(makeDocument("answer-lost.pdf", "%PDF-lost"), session_->rootFolder(), false);
    EXPECT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_EQ(remote("/answer-lost.pdf"), "%PDF-lost");
}

TEST_F(DropboxSession, PersistentServerTroubleIsAConnectionFailure) {
    fault("files/upload", "status=503", 4);
    auto event = upload(makeDocument("down.pdf", "%PDF"), session_->rootFolder(), false);
    EXPECT_TRUE(failedWith(event, Kind::uploadFailed, ErrorCode::connection));
    EXPECT_EQ(event.file->name, "down.pdf");
}

TEST_F(DropboxSession, MalformedAnswersAreFailuresNotCrashes) {
    fault("files/upload", "status=200;body=%7Bnot json;content-type=application/json");
    auto event = upload(makeDocument("garbled.pdf", "%PDF"), session_->rootFolder(), false);
    EXPECT_TRUE(failedWith(event, Kind::uploadFailed, ErrorCode::fileUpload));

    fault("files/list_folder", R"(status=200;body={"entries":[{"name":7}],"has_more":false};content-type=application/json)");
    event = loadFolders(session_->rootFolder());
    EXPECT_EQ(event.kind, Kind::loadFoldersFailed);

    // A listing that hands out the same cursor again ends instead of going round for ever.
    fx_.sandbox().resetStats();
    const std::string again = R"(status=200;body={"entries":[],"cursor":"c1","has_more":true};content-type=application/json)";
    fault("files/list_folder", again);
    fault("files/list_folder/continue", again, 50);
    event = loadFolders(session_->rootFolder());
    fx_.sandbox().clearFaults();
    EXPECT_TRUE(failedWith(event, Kind::loadFoldersFailed, ErrorCode::fileUpload));
    EXPECT_LE(fx_.requests("files/list_folder/continue"), 2);

    auto a = stored("a.pdf", "%PDF-a", session_->rootFolder());
    fault("files/move_batch_v2", R"(status=200;body={".tag":"surprise"};content-type=application/json)");
    event = move({a}, session_->rootFolder(), fx_.makeFolder("Target"));
    EXPECT_EQ(event.kind, Kind::didMove);
    EXPECT_EQ(event.notMoved.size(), 1u);

    fault("files/upload", "status=400;body=Error in call to API function;content-type=text/plain");
    event = upload(makeDocument("bad-input.pdf", "%PDF"), session_->rootFolder(), false);
    EXPECT_TRUE(failedWith(event, Kind::uploadFailed, ErrorCode::fileUpload));
}

TEST_F(DropboxSession, LargeDocumentGoesThroughAnUploadSession) {
    fx_.limitUploadRequests(64 * 1024);
    ASSERT_TRUE(drive(fx_.makeDropboxSession()));

    const std::string bytes = documentBytes(300 * 1024, 8);
    auto doc = makeDocument("large.pdf", bytes);
    auto event = upload(doc, session_->rootFolder(), false);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_TRUE(sameBytes(remote("/large.pdf"), bytes));
    EXPECT_EQ(doc->version, contentHash(bytes));
    EXPECT_EQ(fx_.requests("files/upload"), 0);
    EXPECT_EQ(fx_.requests("files/upload_session/start"), 1);
    EXPECT_EQ(fx_.requests("files/upload_session/append_v2"), 3);
    EXPECT_EQ(fx_.requests("files/upload_session/finish"), 1);
    EXPECT_EQ(delegate_->progressSum(), static_cast<std::int64_t>(bytes.size()));
    EXPECT_EQ(session_->previousUploadAmount(), static_cast<std::int64_t>(bytes.size()));

    // A conflict at the end of a session is the same conflict as a single upload's.
    event = upload(makeDocument("large.pdf", documentBytes(300 * 1024, 9)), session_->rootFolder(), false);
    EXPECT_TRUE(failedWith(event, Kind::uploadFailed, ErrorCode::fileConflict));
}

TEST_F(DropboxSession, ASlowUploadThatKeepsMovingOutlastsTheStallLimitButAStallEndsIt) {
    VXCloudServiceConfig::setNetworkTimeouts({std::chrono::milliseconds(5000), std::chrono::milliseconds(1000)});
    // 20 MiB read by the service at 5 MiB/s: four times the stall limit, always moving.
    const std::string bytes = documentBytes(20 * 1024 * 1024, 21);
    ASSERT_TRUE(fx_.fault("files/upload", "read-rate=5242880"));
    auto event = upload(makeDocument("slow.pdf", bytes), session_->rootFolder(), false);
    EXPECT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_TRUE(sameBytes(remote("/slow.pdf"), bytes));
    EXPECT_EQ(delegate_->progressSum(), static_cast<std::int64_t>(bytes.size()));

    // An answer that does not come for three stall limits ends the attempt; the service had
    // not read the document when the client gave up, so the next attempt stores it once.
    const auto before = fx_.requests("files/upload");
    ASSERT_TRUE(fx_.fault("files/upload", "delay=3000"));
    event = upload(makeDocument("stalled once.pdf", documentBytes(4096, 22)), session_->rootFolder(), false);
    EXPECT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_EQ(fx_.requests("files/upload") - before, 2);

    // Every attempt stalled: the upload fails. The service may still do the work of a request
    // whose client went away; the person's retry then finds the copy instead of adding one.
    const std::string stalled = documentBytes(4096, 23);
    ASSERT_TRUE(fx_.fault("files/upload", "delay=3000", 8));
    event = upload(makeDocument("stalled.pdf", stalled), session_->rootFolder(), false);
    VXCloudServiceConfig::setNetworkTimeouts({});
    fx_.sandbox().clearFaults();
    EXPECT_EQ(event.kind, Kind::uploadFailed) << describe(event);
    // Dropbox's rules give a failure without an answer the catch-all code.
    EXPECT_EQ(event.code(), ErrorCode::fileUpload);
    std::this_thread::sleep_for(std::chrono::milliseconds(3500));
    auto retried = makeDocument("stalled.pdf", stalled);
    retried->localVersion = contentHash(stalled);
    event = upload(retried, session_->rootFolder(), false);
    EXPECT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_EQ(fx_.documentsNamed("stalled.pdf"), 1u);
    EXPECT_TRUE(sameBytes(remote("/stalled.pdf"), stalled));
    EXPECT_EQ(fx_.documentsNamed("stalled once.pdf"), 1u);
}

TEST_F(DropboxSession, NamesWithUnusualCharactersAreStoredExactly) {
    for (const std::string name : {"Résumé 📄.pdf", "He said \"hi\" \\ ok.pdf", "tab\tand\x7f" "del.pdf"}) {
        auto event = upload(makeDocument(name, "%PDF-" + name), session_->rootFolder(), false);
        ASSERT_EQ(event.kind, Kind::didUpload) << name << ": " << describe(event);
        EXPECT_EQ(event.file->name, name);
        EXPECT_EQ(remote("/" + name), "%PDF-" + name);
    }

    // A "/" would address a sub-folder, which Dropbox makes on the way: such names are
    // refused before anything is sent, for documents, folders and renames alike.
    fx_.sandbox().resetStats();
    auto slashed = upload(makeDocument("2024/05 receipt.pdf", "%PDF-slash"), session_->rootFolder(), false);
    EXPECT_TRUE(failedWith(slashed, Kind::uploadFailed, ErrorCode::fileUpload));
    EXPECT_EQ(slashed.file->name, "2024/05 receipt.pdf");
    slashed = upload(std::make_shared<VXCloudFile>("a/b", true, false), session_->rootFolder(), false);
    EXPECT_TRUE(failedWith(slashed, Kind::uploadFailed, ErrorCode::fileUpload));
    auto doc = stored("plain.pdf", "%PDF-plain", session_->rootFolder());
    fx_.sandbox().resetStats();
    slashed = rename(doc, "sub/plain.pdf", session_->rootFolder(), false);
    EXPECT_TRUE(failedWith(slashed, Kind::renameFailed, ErrorCode::fileUpload));
    EXPECT_EQ(fx_.requests("files/list_folder") + fx_.requests("files/move_v2"), 0);
    EXPECT_EQ(remote("/plain.pdf"), "%PDF-plain");
    const auto top = fx_.sandbox().listState("dropbox").dump();
    EXPECT_EQ(top.find("2024"), std::string::npos) << top;
    EXPECT_EQ(top.find("\"sub\""), std::string::npos) << top;
}

}  // namespace
}  // namespace vxcloud::testing
