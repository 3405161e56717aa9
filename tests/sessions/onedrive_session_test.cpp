// The OneDrive session against the sandbox's Graph over HTTP, on both kinds of drive (one
// that reports only QuickXorHash, as every drive does today, and one that also reports
// SHA-1): finding stored documents by digest then by name, what a same-named file meets,
// the settings document, renames, moves at most four at a time, large documents through
// upload sessions, throttling, and the progress arithmetic.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <fstream>
#include <nlohmann/json.hpp>

#include "../../src/sessions/OneDriveSession.h"
#include "sessions/OneDriveFixture.h"
#include "vxcloud/model/VXCloudFileHasher.h"
#include "vxcloud/model/VXCloudOneDriveVersion.h"

namespace vxcloud::testing {
namespace {

using Kind = SessionEvent::Kind;

class Sha1DriveFixture : public OneDriveFixture {
public:
    Sha1DriveFixture() : OneDriveFixture(true) {}
};

template <typename Fixture>
class OneDriveSession : public SessionTest<Fixture, VXCloudOneDriveSession> {
protected:
    // The local version the engine computes (both digests).
    static std::string localVersion(const std::string& bytes) {
        return VXCloudFileHasher::hash(ByteBuffer::copyOf(bytes), VXCloudService::oneDrive).value_or("");
    }
    // The version the drive reports for the bytes: SHA-1 where it gives one (in upper-case
    // hex, as Graph writes it).
    std::string reported(const std::string& bytes) const {
        const auto data = ByteBuffer::copyOf(bytes);
        return this->fx_.reportsSha1() ? upperCase(VXCloudFileHasher::sha1Hash(data))
                                       : VXCloudFileHasher::quickXorHash(data);
    }
    // A document stored before, as the engine sends it again: its earlier record and the
    // local version of `bytes` (none when `withLocal` is false).
    std::shared_ptr<VXCloudFile> storedBefore(const std::string& name, const std::string& earlier,
                                              const std::string& bytes, bool withLocal = true) {
        return makeStoredDocument(*this->fx_.account(), name, reported(earlier), bytes,
                                  withLocal ? std::optional(localVersion(bytes)) : std::nullopt);
    }
    std::shared_ptr<VXCloudFile> put(const std::string& name, const std::string& bytes,
                                     const std::shared_ptr<VXCloudFile>& folder) {
        auto event = this->upload(makeDocument(name, bytes), folder, false);
        EXPECT_EQ(event.kind, Kind::didUpload) << name << ": " << describe(event);
        return storedBefore(name, bytes, bytes);
    }
    std::int64_t uploads() const {
        return this->fx_.requests("items/upload") + this->fx_.requests("upload/create");
    }
};

using DriveKinds = ::testing::Types<OneDriveFixture, Sha1DriveFixture>;
TYPED_TEST_SUITE(OneDriveSession, DriveKinds);

TYPED_TEST(OneDriveSession, StoredDocumentsAreFoundByTheDigestTheDriveReports) {
    auto folder = this->fx_.makeFolder("Found");
    const std::string bytes = documentBytes(70000, 1);
    auto again = this->put("same.pdf", bytes, folder);
    again->fileIdentifier = Json("doc-1");
    this->fx_.sandbox().resetStats();

    // Unchanged: nothing is sent, one progress report shows it done, and the record keeps
    // the digest the drive reported.
    auto event = this->upload(again, folder, false);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_EQ(this->uploads(), 0);
    EXPECT_EQ(again->version, this->reported(bytes));
    EXPECT_EQ(again->fileIdentifier.value(), Json("doc-1"));
    EXPECT_EQ(this->delegate_->progress(), (std::vector<std::pair<std::int64_t, std::int64_t>>{{70000, 70000}}));

    // Found under another name by its digest: still nothing sent.
    auto renamed = this->storedBefore("old-name.pdf", bytes, bytes);
    event = this->upload(renamed, folder, false);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_EQ(renamed->name, "same.pdf");
    EXPECT_EQ(this->uploads(), 0);

    // Changed elsewhere: a conflict, and the remote copy is left alone; overwriting sends
    // the document with the "fail" behaviour, so the service still refuses to write over it.
    const std::string theirs = documentBytes(5000, 2);
    ASSERT_TRUE(this->fx_.changeRemote(*folder, "same.pdf", theirs));
    const std::string mine = documentBytes(6000, 3);
    event = this->upload(this->storedBefore("same.pdf", bytes, mine), folder, false);
    EXPECT_TRUE(failedWith(event, Kind::uploadFailed, ErrorCode::fileConflict));
    event = this->upload(this->storedBefore("same.pdf", bytes, mine), folder, true);
    EXPECT_TRUE(failedWith(event, Kind::uploadFailed, ErrorCode::renameFailed)) << "the service's nameAlreadyExists";
    EXPECT_TRUE(sameBytes(this->fx_.remoteContent(*folder, "same.pdf"), theirs));

    // A record without a local version but with its stored version replaces that copy.
    auto known = this->storedBefore("same.pdf", theirs, mine, false);
    event = this->upload(known, folder, false);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_TRUE(sameBytes(this->fx_.remoteContent(*folder, "same.pdf"), mine));
    EXPECT_EQ(known->version, this->reported(mine));
}

TYPED_TEST(OneDriveSession, NewDocumentsMeetSameNamedFilesThroughTheService) {
    auto folder = this->fx_.makeFolder("Clash");
    this->put("clash.pdf", "%PDF-first", folder);
    auto event = this->upload(makeDocument("clash.pdf", "%PDF-second"), folder, false);
    EXPECT_TRUE(failedWith(event, Kind::uploadFailed, ErrorCode::renameFailed));
    EXPECT_EQ(this->fx_.remoteContent(*folder, "clash.pdf"), "%PDF-first");
    event = this->upload(makeDocument("clash.pdf", "%PDF-second"), folder, true);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_EQ(this->fx_.remoteContent(*folder, "clash.pdf"), "%PDF-second");

    // The settings document is always replaced, new or stored before, overwrite or not.
    auto root = this->session_->rootFolder();
    ASSERT_TRUE(this->fx_.storeSettings(*folder));
    event = this->upload(makeDocument(".quillosettings", R"({"uploadFolderId": "a"})"), root, false);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    event = this->upload(this->storedBefore(".quillosettings", "old", R"({"uploadFolderId": "b"})"), root, false);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_EQ(this->fx_.remoteContent(*root, ".quillosettings"), R"({"uploadFolderId": "b"})");
    EXPECT_EQ(this->fx_.documentsNamed(".quillosettings"), 1u);

    // A folder is created in its parent.
    auto sub = std::make_shared<VXCloudFile>("Sub", true, false);
    event = this->upload(sub, folder, false);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_TRUE(sub->isFolder);
    EXPECT_TRUE(sub->id && !sub->id->empty());
}

using OneDriveSessionToday = OneDriveSession<OneDriveFixture>;

TEST_F(OneDriveSessionToday, ProgressIsReportedAsBytesSinceThePreviousReport) {
    auto session = std::dynamic_pointer_cast<onedrive_session::OneDriveSession>(session_);
    ASSERT_TRUE(session);
    session->fractionCompleted(0.5);  // no upload in flight: nothing
    session->beginProgress(1000);
    for (const double fraction : {0.25, 0.5, 1.0}) session->fractionCompleted(fraction);
    session->fractionCompleted(std::nan(""));
    session->endProgress();
    EXPECT_EQ(delegate_->progress(), (std::vector<std::pair<std::int64_t, std::int64_t>>{
                                         {250, 1000}, {250, 1000}, {500, 1000}}));
    EXPECT_EQ(session->previousUploadAmount(), 1000);
}

TEST_F(OneDriveSessionToday, RenameRenamesReplacesAClashAndStoresAGoneDocumentAgain) {
    auto folder = fx_.makeFolder("Renames");
    auto doc = put("draft.pdf", "%PDF-draft", folder);
    auto event = rename(doc, "final.pdf", folder);
    ASSERT_EQ(event.kind, Kind::didRename) << describe(event);
    EXPECT_EQ(doc->name, "final.pdf");
    EXPECT_EQ(fx_.remoteContent(*folder, "final.pdf"), "%PDF-draft");
    EXPECT_EQ(fx_.remoteContent(*folder, "draft.pdf"), std::nullopt);

    // The new name is taken: refused without overwrite, the other file deleted with it.
    put("taken.pdf", "%PDF-taken", folder);
    auto again = storedBefore("final.pdf", "%PDF-draft", "%PDF-draft");
    event = rename(again, "taken.pdf", folder);
    EXPECT_TRUE(failedWith(event, Kind::renameFailed, ErrorCode::renameFailed));
    event = rename(again, "taken.pdf", folder, true);
    ASSERT_EQ(event.kind, Kind::didRename) << describe(event);
    EXPECT_EQ(fx_.remoteContent(*folder, "taken.pdf"), "%PDF-draft");
    EXPECT_EQ(fx_.documentsNamed("final.pdf"), 0u);

    // Gone from the folder: stored again from the host's PDF, then given the new name.
    const std::string pdf = ::testing::TempDir() + "onedrive-rebuilt.pdf";
    {
        std::ofstream out(pdf, std::ios::binary);
        out << "%PDF-rebuilt";
    }
    auto gone = storedBefore("vanished.pdf", "%PDF-vanished", "%PDF-vanished");
    event = rename(gone, "back.pdf", folder, false, [pdf] { return std::optional<std::string>(pdf); });
    ASSERT_EQ(event.kind, Kind::didRename) << describe(event);
    EXPECT_EQ(fx_.remoteContent(*folder, "back.pdf"), "%PDF-rebuilt");
    EXPECT_EQ(fx_.remoteContent(*folder, "vanished.pdf"), std::nullopt);
    // ...and without a PDF to give, it fails with fileUpload.
    event = rename(storedBefore("nowhere.pdf", "x", "x"), "y.pdf", folder);
    EXPECT_TRUE(failedWith(event, Kind::renameFailed, ErrorCode::fileUpload));
}

TEST_F(OneDriveSessionToday, MovesRunAtMostFourAtOnceAndAlwaysReport) {
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
    // Every PATCH is held a while, so six would overlap if nothing limited them.
    fault("items/update", "delay=300", 6);
    auto event = move(files, from, to);
    ASSERT_EQ(event.kind, Kind::didMove);
    EXPECT_EQ(event.files.size(), 6u);
    EXPECT_EQ(event.notMoved, (VXCloudFileList{unversioned}));
    EXPECT_EQ(fx_.requests("items/update"), 6);
    EXPECT_LE(fx_.stats("items/update").maxInFlight, 4);
    EXPECT_GE(fx_.stats("items/update").maxInFlight, 2);
    EXPECT_EQ(fx_.remoteContent(*to, "page-3.pdf"), "%PDF-page-3.pdf");

    // A request that fails still counts: that file is reported not moved.
    auto back = VXCloudFileList{files[0], files[1]};
    fault("items/update", "status=404;error=itemNotFound", 1);
    event = move(back, to, from);
    EXPECT_EQ(event.files.size() + event.notMoved.size(), 2u);
    EXPECT_EQ(event.notMoved.size(), 1u);

    // A destination without an id: every file fails and nothing is asked.
    fx_.sandbox().resetStats();
    event = move(back, to, std::make_shared<VXCloudFile>("Nowhere", true, false));
    EXPECT_TRUE(event.files.empty());
    EXPECT_EQ(event.notMoved.size(), 2u);
    EXPECT_EQ(fx_.requests("items/children"), 0);
}

TEST_F(OneDriveSessionToday, SettingsDownloadChecksTheNamedFolder) {
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

    ASSERT_TRUE(fx_.sandbox().removeItem("onedrive", "/Scans Here"));
    auto [orphan, orphanError] = settings();
    EXPECT_NE(orphan, nullptr);
    EXPECT_TRUE(hasErrorCode(orphanError, ErrorCode::missingFolder));

    ASSERT_FALSE(fx_.sandbox().putFile("onedrive", "/.quillosettings", R"({"other": 1})").is_null());
    auto [lacking, lackingError] = settings();
    EXPECT_NE(lacking, nullptr);
    EXPECT_TRUE(hasErrorCode(lackingError, ErrorCode::missingFolder));
}

TEST_F(OneDriveSessionToday, FolderListingFollowsEveryPage) {
    ASSERT_TRUE(fx_.sandbox().configure("onedrive", Json{{"children_page_size", 2}}));
    auto parent = fx_.makeFolder("Many");
    for (int i = 0; i < 5; ++i) fx_.makeFolder("Sub " + std::to_string(i), parent);
    ASSERT_FALSE(fx_.sandbox().putFile("onedrive", "/Many/not-a-folder.pdf", "%PDF").is_null());
    auto event = loadFolders(parent);
    ASSERT_EQ(event.kind, Kind::didLoadFolders) << describe(event);
    EXPECT_EQ(event.files.size(), 5u);
    EXPECT_GE(fx_.requests("items/children"), 3);

    fault("items/children", "status=404;error=itemNotFound");
    event = loadFolders(parent);
    EXPECT_TRUE(failedWith(event, Kind::loadFoldersFailed, ErrorCode::missingFolder));
}

TEST_F(OneDriveSessionToday, LargeDocumentsResumeAfterADroppedFragmentAndThrottlingIsWaitedOut) {
    auto folder = fx_.makeFolder("Large");
    const std::string bytes = documentBytes(40 * 1024 * 1024, 7);
    // The third fragment's connection is cut a little way into its body.
    fault("upload/fragment", "drop-after=100000;skip=2", 1);
    auto file = makeDocument("large.pdf", bytes);
    auto event = upload(file, folder, false);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_EQ(file->version, VXCloudFileHasher::quickXorHash(ByteBuffer::copyOf(bytes)));
    EXPECT_TRUE(sameBytes(fx_.remoteContent(*folder, "large.pdf"), bytes));
    EXPECT_EQ(fx_.requests("upload/create"), 1);
    EXPECT_EQ(fx_.stats("upload/fragment").faultsHit, 1);
    EXPECT_EQ(delegate_->progressSum(), static_cast<std::int64_t>(bytes.size()));

    // Throttled with Retry-After: waited out, and the document stored once.
    fx_.sandbox().resetStats();
    fault("items/upload", "status=429;error=activityLimitReached;retry-after=1", 1);
    const auto started = std::chrono::steady_clock::now();
    event = upload(makeDocument("throttled.pdf", "%PDF-throttled"), folder, false);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_GE(std::chrono::steady_clock::now() - started, std::chrono::milliseconds(900));
    EXPECT_EQ(fx_.requests("items/upload"), 2);
    EXPECT_EQ(fx_.remoteContent(*folder, "throttled.pdf"), "%PDF-throttled");
}

TEST_F(OneDriveSessionToday, AnUploadStoredBehindALostAnswerIsReportedStoredOnce) {
    auto folder = fx_.makeFolder("Lost Answers");
    // A simple upload: processed, then the connection is cut before the answer.
    fault("items/upload", "drop-response-after=0", 1);
    auto small = makeDocument("small.pdf", "%PDF-small");
    auto event = upload(small, folder, false);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_EQ(small->version, VXCloudFileHasher::quickXorHash(ByteBuffer::copyOf(std::string("%PDF-small"))));
    EXPECT_EQ(fx_.requests("items/upload"), 1) << "a create is not repeated blindly";

    // An upload session whose last fragment committed the file but lost its answer.
    fx_.limitUploads(320 * 1024, 320 * 1024);
    ASSERT_TRUE(drive(fx_.makeOneDriveSession()));
    const std::string bytes = documentBytes(3 * 320 * 1024 + 17, 9);
    fault("upload/fragment", "drop-response-after=0;skip=3", 1);
    auto large = makeDocument("large.pdf", bytes);
    event = upload(large, folder, false);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_TRUE(sameBytes(fx_.remoteContent(*folder, "large.pdf"), bytes));
    EXPECT_EQ(fx_.documentsNamed("large.pdf"), 1u);
    EXPECT_EQ(delegate_->progressSum(), static_cast<std::int64_t>(bytes.size()));
}

TEST_F(OneDriveSessionToday, ServiceErrorBodiesBecomeTheTablesCodes) {
    auto folder = fx_.makeFolder("Errors");
    const std::pair<std::string, ErrorCode> cases[] = {
        {"status=507;error=quotaLimitReached", ErrorCode::storageQuotaReached},
        {"status=403;error=accessDenied", ErrorCode::authentication},
        {"status=404;error=itemNotFound", ErrorCode::missingFolder},
    };
    for (const auto& [fault, code] : cases) {
        this->fault("items/upload", fault, 1);
        auto event = upload(makeDocument("e.pdf", "%PDF-e"), folder, false);
        EXPECT_TRUE(failedWith(event, Kind::uploadFailed, code)) << fault;
    }
    fault("items/upload", "body=%7Bnot%20json;content-type=application/json;status=500", 8);
    auto event = upload(makeDocument("e.pdf", "%PDF-e"), folder, false);
    EXPECT_EQ(event.kind, Kind::uploadFailed) << describe(event);
}

TEST_F(OneDriveSessionToday, SessionNeedsStoredAuthorisationAndUnlinkingRemovesIt) {
    EXPECT_TRUE(isAuthorized());
    EXPECT_EQ(session_->rootFolder()->id, "root");
    EXPECT_EQ(session_->rootFolder()->name, "OneDrive");
    auto [account, error] = removeAuthorization();
    EXPECT_EQ(account, fx_.account());
    EXPECT_FALSE(error);
    EXPECT_EQ(fx_.makeOneDriveSession(), nullptr);
}

}  // namespace
}  // namespace vxcloud::testing
