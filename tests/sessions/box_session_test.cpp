// The Box session against the sandbox's Box API over HTTP: finding stored documents by
// SHA-1 then by name, new versions for changed content, renames, moves at most four at a
// time, large documents through upload sessions whose parts may be stored behind a failed
// answer, the settings document, the service's error bodies, and the authorisation check.
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "sessions/BoxFixture.h"
#include "vxcloud/model/VXCloudFileHasher.h"

namespace vxcloud::testing {
namespace {

using Kind = SessionEvent::Kind;

class BoxSession : public SessionTest<BoxFixture, VXCloudBoxSession> {
protected:
    std::string sha1(const std::string& bytes) const { return VXCloudFileHasher::sha1Hash(ByteBuffer::copyOf(bytes)); }
    // A document stored before, as the engine sends it again.
    std::shared_ptr<VXCloudFile> storedBefore(const std::string& name, const std::string& earlier,
                                              const std::string& bytes, bool withLocal = true) {
        return makeStoredDocument(*fx_.account(), name, sha1(earlier), bytes,
                                  withLocal ? std::optional(sha1(bytes)) : std::nullopt);
    }
    std::shared_ptr<VXCloudFile> put(const std::string& name, const std::string& bytes,
                                     const std::shared_ptr<VXCloudFile>& folder) {
        auto event = upload(makeDocument(name, bytes), folder, false);
        EXPECT_EQ(event.kind, Kind::didUpload) << name << ": " << describe(event);
        return storedBefore(name, bytes, bytes);
    }
    std::int64_t uploads() const {
        return fx_.requests("upload/new") + fx_.requests("upload/version") + fx_.requests("sessions/create");
    }
    std::string idAt(const VXCloudFile& folder, const std::string& name) {
        return fx_.item(BoxFixture::pathIn(folder, name)).value("id", "");
    }
};

TEST_F(BoxSession, StoredDocumentsAreFoundBySha1AndChangesBecomeNewVersions) {
    auto folder = fx_.makeFolder("Found");
    const std::string bytes = documentBytes(70000, 1);
    auto first = makeDocument("same.pdf", bytes);
    ASSERT_EQ(upload(first, folder, false).kind, Kind::didUpload);
    EXPECT_EQ(first->version, sha1(bytes));
    const std::string id = idAt(*folder, "same.pdf");
    ASSERT_FALSE(id.empty());
    fx_.sandbox().resetStats();

    // Unchanged, its digest in any letter case: nothing sent, one progress report.
    auto again = makeStoredDocument(*fx_.account(), "same.pdf", upperCase(sha1(bytes)), bytes, upperCase(sha1(bytes)));
    auto event = upload(again, folder, false);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_EQ(uploads(), 0);
    EXPECT_EQ(delegate_->progress(), (std::vector<std::pair<std::int64_t, std::int64_t>>{{70000, 70000}}));

    // Changed elsewhere: a conflict that leaves the remote copy alone; overwriting makes a
    // new version of the same file.
    const std::string theirs = documentBytes(5000, 2);
    ASSERT_TRUE(fx_.changeRemote(*folder, "same.pdf", theirs));
    const std::string mine = documentBytes(6000, 3);
    event = upload(storedBefore("same.pdf", bytes, mine), folder, false);
    EXPECT_TRUE(failedWith(event, Kind::uploadFailed, ErrorCode::fileConflict));
    EXPECT_TRUE(sameBytes(fx_.remoteContent(*folder, "same.pdf"), theirs));
    auto overwrite = storedBefore("same.pdf", bytes, mine);
    event = upload(overwrite, folder, true);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_TRUE(sameBytes(fx_.remoteContent(*folder, "same.pdf"), mine));
    EXPECT_EQ(overwrite->id, id);
    EXPECT_EQ(overwrite->version, sha1(mine));

    // Found by its recorded version without a local one: the content is sent as a version.
    const std::string later = documentBytes(7000, 4);
    auto known = storedBefore("same.pdf", mine, later, false);
    event = upload(known, folder, false);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_EQ(known->id, id);
    EXPECT_TRUE(sameBytes(fx_.remoteContent(*folder, "same.pdf"), later));
    EXPECT_EQ(fx_.documentsNamed("same.pdf"), 1u);

    // A new document meets a same-named one: Box's item_name_in_use.
    event = upload(makeDocument("same.pdf", "%PDF-other"), folder, false);
    EXPECT_TRUE(failedWith(event, Kind::uploadFailed, ErrorCode::renameFailed));

    // A folder is created in its parent.
    auto sub = std::make_shared<VXCloudFile>("Sub", true, false);
    event = upload(sub, folder, false);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_TRUE(sub->id && !sub->id->empty());
}

TEST_F(BoxSession, RenameRenamesReplacesAClashAndStoresAGoneDocumentAgain) {
    auto folder = fx_.makeFolder("Renames");
    auto doc = put("draft.pdf", "%PDF-draft", folder);
    auto event = rename(doc, "final.pdf", folder);
    ASSERT_EQ(event.kind, Kind::didRename) << describe(event);
    EXPECT_EQ(doc->name, "final.pdf");
    EXPECT_EQ(fx_.remoteContent(*folder, "final.pdf"), "%PDF-draft");

    // The new name is taken: Box refuses (item_name_in_use is renameFailed); with overwrite
    // the other file is deleted first.
    put("taken.pdf", "%PDF-taken", folder);
    auto again = storedBefore("final.pdf", "%PDF-draft", "%PDF-draft");
    event = rename(again, "taken.pdf", folder);
    EXPECT_TRUE(failedWith(event, Kind::renameFailed, ErrorCode::renameFailed));
    event = rename(again, "taken.pdf", folder, true);
    ASSERT_EQ(event.kind, Kind::didRename) << describe(event);
    EXPECT_EQ(fx_.remoteContent(*folder, "taken.pdf"), "%PDF-draft");
    EXPECT_EQ(fx_.documentsNamed("final.pdf"), 0u);

    // Gone: stored again from the host's PDF and renamed, reported as a rename.
    const std::string pdf = ::testing::TempDir() + "box-rebuilt.pdf";
    {
        std::ofstream out(pdf, std::ios::binary);
        out << "%PDF-rebuilt";
    }
    auto gone = storedBefore("vanished.pdf", "%PDF-vanished", "%PDF-vanished");
    event = rename(gone, "back.pdf", folder, false, [pdf] { return std::optional<std::string>(pdf); });
    ASSERT_EQ(event.kind, Kind::didRename) << describe(event);
    EXPECT_EQ(fx_.remoteContent(*folder, "back.pdf"), "%PDF-rebuilt");
    EXPECT_EQ(fx_.remoteContent(*folder, "vanished.pdf"), std::nullopt);
    // Changed elsewhere without overwrite: the conflict is the answer.
    ASSERT_TRUE(fx_.changeRemote(*folder, "back.pdf", "%PDF-theirs"));
    event = rename(storedBefore("back.pdf", "%PDF-rebuilt", "%PDF-rebuilt"), "x.pdf", folder);
    EXPECT_TRUE(failedWith(event, Kind::renameFailed, ErrorCode::fileConflict));
}

TEST_F(BoxSession, MovesRunAtMostFourAtOnceAndEveryFileEndsInOneList) {
    auto from = fx_.makeFolder("From");
    auto to = fx_.makeFolder("To");
    VXCloudFileList files;
    for (int i = 0; i < 6; ++i) {
        const std::string name = "page-" + std::to_string(i) + ".pdf";
        files.push_back(put(name, "%PDF-" + name, from));
    }
    auto unversioned = makeStoredDocument(*fx_.account(), "page-0.pdf", std::nullopt, "x", std::nullopt);
    files.push_back(unversioned);
    fx_.sandbox().resetStats();
    fault("files/update", "delay=300", 6);
    auto event = move(files, from, to);
    ASSERT_EQ(event.kind, Kind::didMove);
    EXPECT_EQ(event.files.size(), 6u);
    EXPECT_EQ(event.notMoved, (VXCloudFileList{unversioned}));
    EXPECT_LE(fx_.stats("files/update").maxInFlight, 4);
    EXPECT_GE(fx_.stats("files/update").maxInFlight, 2);
    EXPECT_EQ(fx_.remoteContent(*to, "page-5.pdf"), "%PDF-page-5.pdf");

    // A failed request: that file is not moved; a failed listing: none is.
    fault("files/update", "status=409;error=item_name_in_use", 1);
    event = move({files[0], files[1]}, to, from);
    EXPECT_EQ(event.files.size(), 1u);
    EXPECT_EQ(event.notMoved.size(), 1u);
    fault("folders/items", "status=500", 8);
    event = move({files[2]}, to, from);
    EXPECT_TRUE(event.files.empty());
    EXPECT_EQ(event.notMoved.size(), 1u);
}

TEST_F(BoxSession, LargeDocumentsGoThroughSessionsAndAPartStoredBehindAFailureIsNotSentAgain) {
    auto folder = fx_.makeFolder("Large");
    const std::string bytes = documentBytes(60 * 1000 * 1000, 7);
    // The third part is stored, then answered with a 500.
    fault("sessions/part", "status=500;processed;skip=2", 1);
    auto file = makeDocument("large.pdf", bytes);
    auto event = upload(file, folder, false);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_EQ(file->version, sha1(bytes));
    EXPECT_TRUE(sameBytes(fx_.remoteContent(*folder, "large.pdf"), bytes));
    EXPECT_EQ(fx_.stats("sessions/part").faultsHit, 1);
    EXPECT_GE(fx_.requests("sessions/parts"), 1) << "the parts were listed after the failure";
    EXPECT_EQ(fx_.requests("sessions/commit"), 1);
    EXPECT_EQ(fx_.requests("upload/new"), 0);
    EXPECT_EQ(delegate_->progressSum(), static_cast<std::int64_t>(bytes.size()));

    // A new version of it goes through a session of the file, and keeps the id.
    const std::string id = idAt(*folder, "large.pdf");
    std::string changed = bytes;
    changed[12345] ^= 1;
    auto version = makeStoredDocument(*fx_.account(), "large.pdf", sha1(bytes), changed, sha1(changed));
    ASSERT_TRUE(fx_.changeRemote(*folder, "large.pdf", bytes + "x"));
    event = upload(version, folder, true);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_EQ(version->id, id);
    EXPECT_TRUE(sameBytes(fx_.remoteContent(*folder, "large.pdf"), changed));
}

TEST_F(BoxSession, SettingsDownloadChecksTheNamedFolder) {
    auto [none, noneError] = settings();
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(noneError, nullptr);

    auto scans = fx_.makeFolder("Scans Here");
    ASSERT_TRUE(fx_.storeSettings(*scans));
    auto [record, error] = settings();
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(error, nullptr);
    ASSERT_TRUE(record->fileData);
    EXPECT_EQ(Json::parse(record->fileData->view())["uploadFolderId"], *scans->id);

    ASSERT_TRUE(fx_.sandbox().removeItem("box", "/Scans Here"));
    auto [orphan, orphanError] = settings();
    EXPECT_NE(orphan, nullptr);
    EXPECT_TRUE(hasErrorCode(orphanError, ErrorCode::missingFolder));

    ASSERT_FALSE(fx_.sandbox().putFile("box", "/.quillosettings", "[1, 2]").is_null());
    auto [lacking, lackingError] = settings();
    EXPECT_NE(lacking, nullptr);
    EXPECT_TRUE(hasErrorCode(lackingError, ErrorCode::missingFolder));

    // The settings document is one: uploading it again replaces its content in place.
    auto root = session_->rootFolder();
    auto event = upload(makeDocument(".quillosettings", R"({"uploadFolderId": "0"})"), root, false);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_EQ(fx_.documentsNamed(".quillosettings"), 1u);
    EXPECT_EQ(fx_.remoteContent(*root, ".quillosettings"), R"({"uploadFolderId": "0"})");
}

TEST_F(BoxSession, ServiceErrorBodiesBecomeTheTablesCodes) {
    auto folder = fx_.makeFolder("Errors");
    // A listing of a folder that is gone names the folder: missingFolder.
    auto gone = fx_.makeFolder("Gone");
    ASSERT_TRUE(fx_.sandbox().removeItem("box", "/Gone"));
    auto event = loadFolders(gone);
    EXPECT_TRUE(failedWith(event, Kind::loadFoldersFailed, ErrorCode::missingFolder));

    const std::pair<std::string, ErrorCode> cases[] = {
        {"status=403;error=access_denied_insufficient_permissions", ErrorCode::authentication},
        {"status=404;error=not_found", ErrorCode::fileUpload},
        {"status=409;error=conflict", ErrorCode::fileConflict},
        {"quota-full", ErrorCode::storageQuotaReached},
    };
    for (const auto& [instruction, code] : cases) {
        fault("upload/new", instruction, 1);
        event = upload(makeDocument("e.pdf", "%PDF-e"), folder, false);
        EXPECT_TRUE(failedWith(event, Kind::uploadFailed, code)) << instruction;
    }
    EXPECT_EQ(fx_.documentsNamed("e.pdf"), 0u);
}

TEST_F(BoxSession, AuthorisationIsARefreshAndUnlinkingForgetsIt) {
    EXPECT_TRUE(isAuthorized());
    EXPECT_EQ(fx_.requests("oauth2/token"), 1);
    // Any refresh failure answers false, a lost connection as well as a refused grant.
    fault("oauth2/token", "drop", 8);
    EXPECT_FALSE(isAuthorized());
    fx_.sandbox().clearFaults();
    fault("oauth2/token", "status=400;error=invalid_grant", 1);
    EXPECT_FALSE(isAuthorized());
    EXPECT_TRUE(isAuthorized()) << "the grant itself still stands";

    EXPECT_EQ(session_->rootFolder()->id, "0");
    auto [account, error] = removeAuthorization();
    EXPECT_EQ(account, fx_.account());
    EXPECT_FALSE(error);
    EXPECT_EQ(fx_.makeBoxSession(), nullptr) << "no signed-in user matches the account any more";
    auto stranger = std::make_shared<VXCloudAccount>("999999", "nobody@example.com", VXCloudService::box);
    EXPECT_EQ(VXCloudBoxSession::initWithCloudAccount(stranger), nullptr);
}

}  // namespace
}  // namespace vxcloud::testing
