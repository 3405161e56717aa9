// Evernote's notes on the sandbox: what createNote answers and stores, getNote's flags,
// updateNote's "unset means unchanged", resource checks, sizes and the monthly allowance,
// and notes seen through the admin API.
#include "sandbox/EvernoteWireTest.h"

namespace vxcloud::sandbox::test {
namespace {

using E = edam::EDAMErrorCode;

class EvernoteNotes : public EvernoteWireTest {};

TEST_F(EvernoteNotes, CreateAnswersServerFieldsAndGetNoteHonoursItsFlags) {
    const std::string scan = "%PDF-1.4 scan", photo(3000, 'p');
    edam::Note wanted = note("Scan 2024-05-01", {scan, photo});
    const edam::Note made = create(wanted);
    EXPECT_EQ(made.guid.size(), 36u);
    EXPECT_EQ(made.guid, sandbox.metadata("evernote", "/Ada's Notebook/Scan 2024-05-01")["guid"]);
    EXPECT_FALSE(made.__isset.content);
    EXPECT_EQ(made.contentHash, md5Raw(wanted.content));
    EXPECT_EQ(made.contentLength, static_cast<int32_t>(wanted.content.size()));
    EXPECT_EQ(made.created % 1000, 0);
    EXPECT_EQ(made.updated, made.created);
    EXPECT_TRUE(made.active);
    ASSERT_EQ(made.resources.size(), 2u);
    for (std::size_t i = 0; i < 2; ++i) {
        const auto& r = made.resources[i];
        EXPECT_EQ(r.noteGuid, made.guid);
        EXPECT_EQ(r.guid.size(), 36u);
        EXPECT_EQ(r.data.bodyHash, md5Raw(i == 0 ? scan : photo));
        EXPECT_EQ(r.data.size, static_cast<int32_t>((i == 0 ? scan : photo).size()));
        EXPECT_FALSE(r.data.__isset.body) << "replies to createNote carry no bodies";
        EXPECT_EQ(r.attributes.fileName, "scan.pdf");
    }
    EXPECT_NE(made.resources[0].guid, made.resources[1].guid);

    edam::Note bare, full;
    noteStore->getNote(bare, ada.accessToken, made.guid, false, false, false, false);
    EXPECT_FALSE(bare.__isset.content);
    EXPECT_FALSE(bare.resources[0].data.__isset.body);
    EXPECT_EQ(bare.resources[1].data.bodyHash, md5Raw(photo));
    noteStore->getNote(full, ada.accessToken, made.guid, true, true, false, false);
    EXPECT_EQ(full.content, wanted.content);
    EXPECT_EQ(full.resources[0].data.body, scan);
    EXPECT_EQ(full.resources[1].data.body, photo);
    EXPECT_EQ(full.updateSequenceNum, made.updateSequenceNum);

    // The admin view: the note by title, its first resource as its bytes.
    EXPECT_EQ(sandbox.fileContent("evernote", "/Ada's Notebook/Scan 2024-05-01"), scan);
    const auto meta = sandbox.metadata("evernote", "/Ada's Notebook/Scan 2024-05-01");
    EXPECT_EQ(meta["contentHash"], hex(md5Raw(wanted.content)));
    EXPECT_EQ(meta["resources"][1]["hash"], hex(md5Raw(photo)));

    expectUserError(
        [&] {
            edam::Note n;
            noteStore->getNote(n, ada.accessToken, "", false, false, false, false);
        },
        E::BAD_DATA_FORMAT, "Note.guid");
    auto graceStore = noteStoreOver("s2");
    expectUserError(
        [&] {
            edam::Note n;
            graceStore->getNote(n, grace.accessToken, made.guid, false, false, false, false);
        },
        E::PERMISSION_DENIED, "Note");
}

TEST_F(EvernoteNotes, UpdateChangesOnlyWhatIsSet) {
    const edam::Note made = create(note("Draft", {"first body"}));
    edam::Note change;
    change.__set_guid(made.guid);
    change.__set_title("Final");
    edam::Note renamed;
    noteStore->updateNote(renamed, ada.accessToken, change);
    EXPECT_EQ(renamed.title, "Final");
    EXPECT_EQ(renamed.contentHash, made.contentHash) << "content left unset stays";
    ASSERT_EQ(renamed.resources.size(), 1u) << "resources left unset stay";
    EXPECT_EQ(renamed.resources[0].guid, made.resources[0].guid);
    EXPECT_GT(renamed.updateSequenceNum, made.updateSequenceNum);
    EXPECT_FALSE(sandbox.fileContent("evernote", "/Ada's Notebook/Draft"));
    EXPECT_EQ(sandbox.fileContent("evernote", "/Ada's Notebook/Final"), "first body");

    // A set resource list is the new list: a kept resource by GUID alone, a new one with its body.
    edam::Resource kept;
    kept.__set_guid(made.resources[0].guid);
    change.__set_resources({kept, resource("second body", "image/png", "b.png")});
    change.__set_content(enml(media("first body") + media("second body", "image/png")));
    edam::Note both;
    noteStore->updateNote(both, ada.accessToken, change);
    ASSERT_EQ(both.resources.size(), 2u);
    EXPECT_EQ(both.resources[0].guid, made.resources[0].guid);
    EXPECT_EQ(both.resources[0].updateSequenceNum, made.resources[0].updateSequenceNum) << "unchanged resource";
    EXPECT_EQ(both.resources[1].updateSequenceNum, both.updateSequenceNum);
    EXPECT_EQ(both.resources[1].mime, "image/png");

    change.__set_resources({resource("third body")});
    change.__set_content(enml(media("third body")));
    edam::Note replaced, read;
    noteStore->updateNote(replaced, ada.accessToken, change);
    noteStore->getNote(read, ada.accessToken, made.guid, true, true, false, false);
    ASSERT_EQ(read.resources.size(), 1u);
    EXPECT_EQ(read.resources[0].data.body, "third body");
    EXPECT_EQ(sandbox.fileContent("evernote", "/Ada's Notebook/Final"), "third body");

    // Moving to the trash, and back.
    change.__isset.resources = change.__isset.content = false;
    change.__set_active(false);
    noteStore->updateNote(read, ada.accessToken, change);
    EXPECT_FALSE(read.active);
    EXPECT_GT(read.deleted, 0);

    edam::Note unknown;
    unknown.__set_guid("00000000-0000-0000-0000-000000000000");
    unknown.__set_title("x");
    EXPECT_THROW(noteStore->updateNote(read, ada.accessToken, unknown), edam::EDAMNotFoundException);
    unknown.__isset.title = false;
    unknown.__set_guid(made.guid);
    expectUserError([&] { noteStore->updateNote(read, ada.accessToken, unknown); }, E::BAD_DATA_FORMAT, "Note.title");
}

TEST_F(EvernoteNotes, CreateChecksTitlesNotebooksAndResources) {
    auto refused = [&](const edam::Note& n, E::type code, const std::string& parameter) {
        expectUserError([&] { create(n); }, code, parameter);
    };
    for (const std::string& title :
         std::vector<std::string>{"", " padded", "padded ", "line\nbreak", std::string(256, 't')}) {
        refused(note(title), E::BAD_DATA_FORMAT, "Note.title");
    }
    EXPECT_EQ(create(note(std::string(255, 't'))).title.size(), 255u);
    edam::Note noContent = note("No content");
    noContent.__isset.content = false;
    refused(noContent, E::BAD_DATA_FORMAT, "Note.content");

    refused(note("Elsewhere", {}, "not-a-guid"), E::BAD_DATA_FORMAT, "Note.notebookGuid");
    EXPECT_THROW(create(note("Elsewhere", {}, "00000000-0000-0000-0000-000000000000")), edam::EDAMNotFoundException);
    edam::Notebook graces;
    noteStoreOver("s2")->getDefaultNotebook(graces, grace.accessToken);
    refused(note("Elsewhere", {}, graces.guid), E::PERMISSION_DENIED, "Note.notebookGuid");

    edam::Note withResource = note("Resource", {"bytes"});
    withResource.resources[0].data.__set_bodyHash(md5Raw("other bytes"));
    refused(withResource, E::BAD_DATA_FORMAT, "Resource.data.bodyHash");
    withResource = note("Resource", {"bytes"});
    withResource.resources[0].__isset.data = false;
    refused(withResource, E::DATA_REQUIRED, "Resource.data");
    withResource = note("Resource", {"bytes"});
    withResource.resources[0].__set_mime("pdf");
    refused(withResource, E::BAD_DATA_FORMAT, "Resource.mime");
}

TEST_F(EvernoteNotes, SizesAndTheMonthlyAllowanceAreEnforced) {
    ASSERT_TRUE(sandbox.configure("evernote", {{"resource_size_max", 1000}, {"note_size_max", 2000}}));
    expectUserError([&] { create(note("Big", {std::string(1001, 'b')})); }, E::LIMIT_REACHED, "Resource.data.size");
    expectUserError(
        [&] {
            create(note("Big", {std::string(900, 'b'), std::string(900, 'c')}));
        },
        E::LIMIT_REACHED, "Note.size");

    ASSERT_TRUE(sandbox.configure(
        "evernote", {{"note_size_max", 26214400}, {"resource_size_max", 26214400}, {"monthly_upload_limit", 5000}}));
    create(note("First", {std::string(3000, 'a')}));
    expectUserError([&] { create(note("Second", {std::string(3000, 'b')})); }, E::QUOTA_REACHED,
                    "Accounting.uploadLimit");
    // Refused calls count nothing; the allowance starts again with the next month.
    create(note("Small", {std::string(1000, 's')}));
    sandbox.advanceClock(32LL * 24 * 3600);
    create(note("Next month", {std::string(3000, 'n')}));

    noteStore.transport->fault = "quota-full";
    expectUserError([&] { create(note("Any")); }, E::QUOTA_REACHED, "Accounting.uploadLimit");
}

TEST_F(EvernoteNotes, AdminWritesAreNotesWithOneResource) {
    const auto put = sandbox.putFile("evernote", "/Scans/receipt.pdf", "%PDF receipt");
    ASSERT_TRUE(put.is_object());
    EXPECT_EQ(put["id"], put["guid"]);
    edam::Note read;
    noteStore->getNote(read, ada.accessToken, put["guid"].get<std::string>(), true, true, false, false);
    EXPECT_EQ(read.title, "receipt.pdf");
    ASSERT_EQ(read.resources.size(), 1u);
    EXPECT_EQ(read.resources[0].mime, "application/pdf");
    EXPECT_EQ(read.resources[0].attributes.fileName, "receipt.pdf");
    EXPECT_NE(read.content.find(media("%PDF receipt")), std::string::npos);

    // Another device changes it: new hash and USN, and the ENML follows.
    const auto changed = sandbox.changeFile("evernote", "/Scans/receipt.pdf", "%PDF receipt v2");
    edam::Note after;
    noteStore->getNote(after, ada.accessToken, read.guid, true, false, false, false);
    EXPECT_EQ(after.resources[0].guid, read.resources[0].guid);
    EXPECT_EQ(after.resources[0].data.bodyHash, md5Raw("%PDF receipt v2"));
    EXPECT_GT(after.updateSequenceNum, read.updateSequenceNum);
    EXPECT_NE(after.content.find(media("%PDF receipt v2")), std::string::npos);
    EXPECT_EQ(changed["resources"][0]["hash"], hex(md5Raw("%PDF receipt v2")));

    std::string error;
    EXPECT_TRUE(sandbox.putFile("evernote", "/a/b/c.pdf", "x", {}, &error).is_null());
    EXPECT_FALSE(error.empty());
    EXPECT_TRUE(sandbox.removeItem("evernote", "/Scans/receipt.pdf"));
    EXPECT_THROW(noteStore->getNote(after, ada.accessToken, read.guid, false, false, false, false),
                 edam::EDAMNotFoundException);
}

}  // namespace
}  // namespace vxcloud::sandbox::test
