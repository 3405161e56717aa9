// The Evernote session against the sandbox's EDAM emulator: the note it writes (ENML the
// emulator validates, the attachment's MD5 in en-media), finding notes by attachment hash then
// title, rewriting in place, renames that change only the title, notes gone and stored anew,
// moves, the settings note, and EDAM exceptions read as the error table says.
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "../../src/providers/evernote/EvernoteItem.h"
#include "sessions/EvernoteFixture.h"
#include "vxcloud/engine/UploadStatus.h"
#include "vxcloud/model/VXCloudFileHasher.h"

namespace vxcloud::testing {
namespace {

using Kind = SessionEvent::Kind;

class EvernoteSession : public SessionTest<EvernoteFixture, VXCloudEvernoteSession> {
protected:
    std::string md5(const std::string& bytes) const { return VXCloudFileHasher::md5Hash(ByteBuffer::copyOf(bytes)); }
    std::shared_ptr<VXCloudFile> storedBefore(const std::string& name, const std::string& earlier,
                                              const std::string& bytes, bool withLocal = true) {
        return makeStoredDocument(*fx_.account(), name, md5(earlier), bytes,
                                  withLocal ? std::optional(md5(bytes)) : std::nullopt);
    }
    std::shared_ptr<VXCloudFile> put(const std::string& name, const std::string& bytes,
                                     const std::shared_ptr<VXCloudFile>& folder) {
        auto event = upload(makeDocument(name, bytes), folder, false);
        EXPECT_EQ(event.kind, Kind::didUpload) << name << ": " << describe(event);
        return storedBefore(name, bytes, bytes);
    }
    std::int64_t requests(const std::string& method) const { return fx_.requests("notestore/" + method); }
};

TEST(EvernoteRecord, TheVersionIsTheFirstAttachmentsMd5InLowerCaseHex) {
    evernote::Item item;
    item.kind = evernote::Item::Kind::note;
    item.note.guid = "g";
    item.note.title = "Scan.pdf";
    EXPECT_FALSE(VXCloudFile::initWithEvernoteItem(item)->version) << "a note without resources has no version";
    item.note.resources.push_back({std::nullopt, std::string("\x0a\xff", 2), std::nullopt, "application/pdf", {}});
    item.note.resources.push_back({std::nullopt, std::string("\x01", 1), std::nullopt, "image/png", {}});
    const auto record = VXCloudFile::initWithEvernoteItem(item);
    ASSERT_TRUE(record);
    EXPECT_EQ(record->version, "0aff");
    EXPECT_EQ(record->id, "g");
    EXPECT_FALSE(record->isFolder);
    item.kind = evernote::Item::Kind::other;
    EXPECT_EQ(VXCloudFile::initWithEvernoteItem(item), nullptr);
}

TEST_F(EvernoteSession, ADocumentBecomesAValidNoteCarryingItAndIsFoundByItsHash) {
    auto folder = fx_.makeFolder("Receipts");
    const std::string pdf = "%PDF-1.4 " + documentBytes(40000, 1);
    auto first = makeDocument("Scan 1.pdf", pdf);
    auto event = upload(first, folder, false);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_EQ(first->version, md5(pdf));
    // The emulator validated the ENML; the note holds the document as its one attachment.
    const Json note = fx_.note("Receipts", "Scan 1.pdf");
    ASSERT_TRUE(note.is_object()) << note.dump();
    EXPECT_NE(note.value("content", "").find("<en-media type=\"application/pdf\" hash=\"" + md5(pdf) + "\"/>"),
              std::string::npos)
        << note.dump();
    ASSERT_EQ(note["resources"].size(), 1u);
    EXPECT_EQ(note["resources"][0].value("fileName", ""), "Scan 1.pdf");
    EXPECT_TRUE(sameBytes(fx_.remoteContent(*folder, "Scan 1.pdf"), pdf));
    const std::string guid = note.value("guid", "");

    // Unchanged (the hash in any letter case): nothing is sent, one progress report.
    fx_.sandbox().resetStats();
    auto again = makeStoredDocument(*fx_.account(), "Scan 1.pdf", upperCase(md5(pdf)), pdf, upperCase(md5(pdf)));
    event = upload(again, folder, false);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_EQ(requests("createNote") + requests("updateNote"), 0);
    EXPECT_EQ(delegate_->progress().size(), 1u);

    // Changed elsewhere: a conflict; overwriting rewrites the same note in place.
    ASSERT_TRUE(fx_.changeRemote(*folder, "Scan 1.pdf", "%PDF-theirs"));
    const std::string mine = "%PDF-mine " + documentBytes(1000, 2);
    event = upload(storedBefore("Scan 1.pdf", pdf, mine), folder, false);
    EXPECT_TRUE(failedWith(event, Kind::uploadFailed, ErrorCode::fileConflict));
    EXPECT_EQ(fx_.remoteContent(*folder, "Scan 1.pdf"), "%PDF-theirs");
    auto overwrite = storedBefore("Scan 1.pdf", pdf, mine);
    event = upload(overwrite, folder, true);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_EQ(overwrite->id, guid);
    EXPECT_TRUE(sameBytes(fx_.remoteContent(*folder, "Scan 1.pdf"), mine));
    EXPECT_EQ(fx_.notesTitled("Scan 1.pdf"), 1u);

    // Notes are looked for in their notebook only: the same document in another notebook is new.
    auto other = fx_.makeFolder("Elsewhere");
    event = upload(storedBefore("Scan 1.pdf", mine, mine), other, false);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_EQ(fx_.notesTitled("Scan 1.pdf"), 2u);

    // A folder becomes a notebook.
    auto notebook = std::make_shared<VXCloudFile>("Made Here", true, false);
    event = upload(notebook, nullptr, false);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_TRUE(notebook->id && !notebook->id->empty());
    event = loadFolders(session_->rootFolder());
    ASSERT_EQ(event.kind, Kind::didLoadFolders) << describe(event);
    EXPECT_GE(event.files.size(), 4u) << "the default notebook, Scans, Receipts, Elsewhere, Made Here";
}

TEST_F(EvernoteSession, RenamingChangesOnlyTheTitleAndAGoneNoteIsStoredAnewAsAnUpload) {
    auto folder = fx_.makeFolder("Renames");
    auto doc = put("draft.pdf", "%PDF-draft", folder);
    auto event = rename(doc, "final.pdf", folder);
    ASSERT_EQ(event.kind, Kind::didRename) << describe(event);
    EXPECT_EQ(doc->name, "final.pdf");
    const Json note = fx_.note("Renames", "final.pdf");
    ASSERT_TRUE(note.is_object());
    EXPECT_EQ(note["resources"][0].value("fileName", ""), "draft.pdf") << "the attachment keeps its name";
    EXPECT_EQ(fx_.notesTitled("draft.pdf"), 0u);

    const std::string pdf = ::testing::TempDir() + "evernote-rebuilt.pdf";
    {
        std::ofstream out(pdf, std::ios::binary);
        out << "%PDF-rebuilt";
    }
    auto gone = storedBefore("vanished.pdf", "%PDF-vanished", "%PDF-vanished");
    event = rename(gone, "back.pdf", folder, false, [pdf] { return std::optional<std::string>(pdf); });
    ASSERT_EQ(event.kind, Kind::didUpload) << "stored anew, reported as an upload: " << describe(event);
    EXPECT_EQ(fx_.remoteContent(*folder, "back.pdf"), "%PDF-rebuilt");
    event = rename(storedBefore("nowhere.pdf", "x", "x"), "y.pdf", folder);
    EXPECT_TRUE(failedWith(event, Kind::renameFailed, ErrorCode::fileUpload));
}

TEST_F(EvernoteSession, MovesChangeTheNotebookAtMostFourAtOnce) {
    auto from = fx_.makeFolder("From");
    auto to = fx_.makeFolder("To");
    VXCloudFileList files;
    for (int i = 0; i < 6; ++i) files.push_back(put("page-" + std::to_string(i) + ".pdf", "%PDF-" + std::to_string(i), from));
    auto unversioned = makeStoredDocument(*fx_.account(), "page-0.pdf", std::nullopt, "x", std::nullopt);
    files.push_back(unversioned);
    fx_.sandbox().resetStats();
    fault("notestore/updateNote", "delay=300", 6);
    auto event = move(files, from, to);
    ASSERT_EQ(event.kind, Kind::didMove);
    EXPECT_EQ(event.files.size(), 6u);
    EXPECT_EQ(event.notMoved, (VXCloudFileList{unversioned}));
    EXPECT_LE(fx_.stats("notestore/updateNote").maxInFlight, 4);
    EXPECT_EQ(fx_.remoteContent(*to, "page-4.pdf"), "%PDF-4");

    // A notebook without an id: every file fails, nothing is asked.
    fx_.sandbox().resetStats();
    event = move(files, to, std::make_shared<VXCloudFile>("Nowhere", true, false));
    EXPECT_TRUE(event.files.empty());
    EXPECT_EQ(event.notMoved.size(), files.size());
    EXPECT_EQ(fx_.stats("*").requests, 0);
}

TEST_F(EvernoteSession, TheSettingsNoteIsFoundInAnyNotebookAndItsNotebookChecked) {
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

    // Uploading it again rewrites the one note, wherever it is, whatever folder is named.
    auto event = upload(makeDocument(".quillosettings", R"({"uploadFolderId": "x"})"), scans, false);
    ASSERT_EQ(event.kind, Kind::didUpload) << describe(event);
    EXPECT_EQ(fx_.notesTitled(".quillosettings"), 1u);
    auto [orphan, orphanError] = settings();
    EXPECT_NE(orphan, nullptr);
    EXPECT_TRUE(hasErrorCode(orphanError, ErrorCode::missingFolder));
}

TEST_F(EvernoteSession, EdamExceptionsBecomeTheTablesCodes) {
    auto folder = fx_.makeFolder("Errors");
    const std::pair<std::string, ErrorCode> cases[] = {
        {"error=4:Notebook.guid", ErrorCode::missingFolder},
        {"error=4:Note.title", ErrorCode::connection},
        {"error=7:Accounting.uploadLimit", ErrorCode::monthlyQuotaReached},
        {"error=9:authenticationToken", ErrorCode::authentication},
        {"error=10:Note.title", ErrorCode::fileConflict},
        {"error=19", ErrorCode::storageQuotaReached},
        {"status=503", ErrorCode::fileUpload},
    };
    for (const auto& [instruction, code] : cases) {
        fault("notestore/createNote", instruction, 1);
        auto event = upload(makeDocument("e.pdf", "%PDF-e"), folder, false);
        EXPECT_TRUE(failedWith(event, Kind::uploadFailed, code)) << instruction;
    }
    // A rate limit names its wait; the client does not wait it out itself.
    fault("notestore/createNote", "error=19:1800", 1);
    auto event = upload(makeDocument("e.pdf", "%PDF-e"), folder, false);
    ASSERT_TRUE(failedWith(event, Kind::uploadFailed, ErrorCode::storageQuotaReached));
    EXPECT_EQ(event.error->retryAfterSeconds, 1800);
    EXPECT_EQ(fx_.requests("notestore/createNote"), 8) << "nothing was repeated";
    EXPECT_EQ(fx_.notesTitled("e.pdf"), 0u);
}

TEST_F(EvernoteSession, AuthorisationIsTheStoredTokenAndUnlinkingForgetsIt) {
    EXPECT_TRUE(isAuthorized());
    EXPECT_FALSE(session_->rootFolder()->id);
    EXPECT_EQ(session_->rootFolder()->name, "Evernote");
    auto [account, error] = removeAuthorization();
    EXPECT_EQ(account, fx_.account());
    EXPECT_FALSE(error);
    EXPECT_FALSE(isAuthorized());
    EXPECT_EQ(fx_.makeEvernoteSession(), nullptr);
}

}  // namespace
}  // namespace vxcloud::testing
