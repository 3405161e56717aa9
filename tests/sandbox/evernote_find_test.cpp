// Evernote's searches on the sandbox: findNotesMetadata with the search grammar and a
// notebook filter, only the fields asked for, the per-call cap and paging by offset, the trash, and
// the older findNotes.
#include <set>

#include "evernote/NoteSearch.h"
#include "sandbox/EvernoteWireTest.h"

namespace vxcloud::sandbox::test {
namespace {

using E = edam::EDAMErrorCode;

class EvernoteFind : public EvernoteWireTest {
protected:
    edam::NotesMetadataList find(const std::string& words, int32_t offset = 0, int32_t maxNotes = 100,
                                 const std::string& notebookGuid = {}) {
        edam::NoteFilter filter;
        if (!words.empty()) filter.__set_words(words);
        if (!notebookGuid.empty()) filter.__set_notebookGuid(notebookGuid);
        edam::NotesMetadataResultSpec wanted;
        wanted.__set_includeTitle(true);
        edam::NotesMetadataList found;
        noteStore->findNotesMetadata(found, ada.accessToken, filter, offset, maxNotes, wanted);
        return found;
    }
    std::set<std::string> titles(const std::string& words, const std::string& notebookGuid = {}) {
        std::set<std::string> out;
        for (const auto& n : find(words, 0, 100, notebookGuid).notes) out.insert(n.title);
        return out;
    }
};

TEST_F(EvernoteFind, IntitleMatchesWholeTitleWordsAndPhrases) {
    create(note("Scan 2024-05-01"));
    create(note("Scans of May"));
    create(note("Receipt scan"));
    edam::Note body = note("Other");
    body.__set_content(enml("<div>a scan of a receipt</div>"));
    create(body);

    using S = std::set<std::string>;
    EXPECT_EQ(titles("intitle:scan"), (S{"Scan 2024-05-01", "Receipt scan"})) << "whole words, any case";
    EXPECT_EQ(titles("intitle:\"scan 2024\""), (S{"Scan 2024-05-01"}));
    EXPECT_EQ(titles("intitle:\"2024 scan\""), S{}) << "a phrase keeps its order";
    EXPECT_EQ(titles("intitle:scan*"), (S{"Scan 2024-05-01", "Scans of May", "Receipt scan"}));
    EXPECT_EQ(titles("scan"), (S{"Scan 2024-05-01", "Receipt scan", "Other"})) << "plain words: title and content";
    EXPECT_EQ(titles("scan receipt"), (S{"Receipt scan", "Other"})) << "terms intersect";
    EXPECT_EQ(titles("intitle:scan -receipt"), (S{"Scan 2024-05-01"}));
    EXPECT_EQ(titles("any: intitle:may intitle:receipt"), (S{"Scans of May", "Receipt scan"}));
}

TEST_F(EvernoteFind, FiltersByNotebookAndAnswersOnlyWhatTheSpecAsks) {
    edam::Notebook scans, made;
    scans.__set_name("Scans");
    noteStore->createNotebook(made, ada.accessToken, scans);
    create(note("In scans", {"pdf bytes"}, made.guid));
    create(note("In default"));
    EXPECT_EQ(titles("", made.guid), std::set<std::string>{"In scans"});
    EXPECT_EQ(titles("notebook:scans"), std::set<std::string>{"In scans"});

    edam::NoteFilter filter;
    filter.__set_notebookGuid(made.guid);
    edam::NotesMetadataResultSpec wanted;
    wanted.__set_includeLargestResourceSize(true);
    edam::NotesMetadataList found;
    noteStore->findNotesMetadata(found, ada.accessToken, filter, 0, 10, wanted);
    ASSERT_EQ(found.notes.size(), 1u);
    const auto& meta = found.notes[0];
    EXPECT_EQ(meta.guid.size(), 36u) << "the GUID always";
    EXPECT_FALSE(meta.__isset.title);
    EXPECT_FALSE(meta.__isset.notebookGuid);
    EXPECT_FALSE(meta.__isset.updated);
    EXPECT_EQ(meta.largestResourceSize, 9);
    EXPECT_FALSE(meta.__isset.largestResourceMime);
    EXPECT_GT(found.updateCount, 0);

    filter.__set_notebookGuid("00000000-0000-0000-0000-000000000000");
    EXPECT_THROW(noteStore->findNotesMetadata(found, ada.accessToken, filter, 0, 10, wanted),
                 edam::EDAMNotFoundException);
    filter.__set_notebookGuid("nope");
    expectUserError([&] { noteStore->findNotesMetadata(found, ada.accessToken, filter, 0, 10, wanted); },
                    E::BAD_DATA_FORMAT, "NoteFilter.notebookGuid");
    expectUserError([&] { find("", -1); }, E::BAD_DATA_FORMAT, "offset");
    expectUserError([&] { find("", 0, -1); }, E::BAD_DATA_FORMAT, "maxNotes");
    expectUserError([&] { find(std::string(1025, 'w')); }, E::BAD_DATA_FORMAT, "NoteFilter.words");
}

TEST_F(EvernoteFind, AnswersAtMostTheCapAndPagesByOffset) {
    for (int i = 0; i < 260; ++i)
        ASSERT_TRUE(sandbox.putFile("evernote", "/Bulk/note " + std::to_string(i), "x").is_object());
    const auto first = find("", 0, 1000);
    EXPECT_EQ(first.totalNotes, 260);
    EXPECT_EQ(first.startIndex, 0);
    EXPECT_EQ(first.notes.size(), 250u) << "whatever maxNotes asks";
    const auto rest = find("", 250, 1000);
    EXPECT_EQ(rest.startIndex, 250);
    EXPECT_EQ(rest.notes.size(), 10u);
    std::set<std::string> seen;
    for (const auto& n : first.notes) seen.insert(n.guid);
    for (const auto& n : rest.notes) seen.insert(n.guid);
    EXPECT_EQ(seen.size(), 260u) << "pages neither overlap nor skip";
    EXPECT_EQ(find("", 300).notes.size(), 0u);
    EXPECT_EQ(find("", 0, 0).totalNotes, 260);

    ASSERT_TRUE(sandbox.configure("evernote", {{"find_max_notes", 7}}));
    edam::NoteList legacy;
    noteStore->findNotes(legacy, ada.accessToken, edam::NoteFilter(), 5, 100);
    EXPECT_EQ(legacy.notes.size(), 7u);
    EXPECT_EQ(legacy.startIndex, 5);
    EXPECT_EQ(legacy.totalNotes, 260);
    EXPECT_FALSE(legacy.notes[0].__isset.content);
    EXPECT_FALSE(legacy.notes[0].resources[0].data.__isset.body);
    EXPECT_EQ(legacy.notes[0].resources[0].data.bodyHash, md5Raw("x"));
}

TEST_F(EvernoteFind, TrashedNotesAreFoundOnlyWhenAskedFor) {
    const edam::Note kept = create(note("Kept"));
    edam::Note trashed = note("Trashed");
    trashed.__set_active(false);
    create(trashed);
    edam::NoteFilter filter;
    edam::NotesMetadataResultSpec wanted;
    wanted.__set_includeTitle(true);
    wanted.__set_includeDeleted(true);
    edam::NotesMetadataList found;
    noteStore->findNotesMetadata(found, ada.accessToken, filter, 0, 10, wanted);
    ASSERT_EQ(found.notes.size(), 1u);
    EXPECT_EQ(found.notes[0].guid, kept.guid);
    filter.__set_inactive(true);
    noteStore->findNotesMetadata(found, ada.accessToken, filter, 0, 10, wanted);
    ASSERT_EQ(found.notes.size(), 1u);
    EXPECT_EQ(found.notes[0].title, "Trashed");
    EXPECT_GT(found.notes[0].deleted, 0);
}

TEST(EvernoteSearch, ReadsTheLabelsAndDates) {
    using evernote::NoteQuery;
    evernote::SearchableNote note;
    note.title = "Tax return";
    note.content = "<en-note><en-todo checked=\"true\"/>Paid &amp; filed</en-note>";
    note.notebookName = "Finance 2024";
    note.tags = {"Taxes"};
    note.mimes = {"application/pdf"};
    const std::int64_t may2 = 1714608000000;  // 2024-05-02T00:00:00Z
    note.created = note.updated = may2;
    const auto matches = [&](const std::string& words) {
        return NoteQuery::parse(words).matches(note, may2 + 3600000);
    };
    EXPECT_TRUE(matches("notebook:\"finance 2024\" tag:taxes resource:application/*"));
    EXPECT_FALSE(matches("tag:tax"));
    EXPECT_TRUE(matches("todo:true filed"));
    EXPECT_FALSE(matches("todo:false"));
    EXPECT_TRUE(matches("created:20240501 -created:20240503"));
    EXPECT_TRUE(matches("updated:day"));
    EXPECT_FALSE(matches("updated:day+1"));
    EXPECT_TRUE(matches("created:month"));
    EXPECT_TRUE(matches("tax:return")) << "an unknown label is text to find";
    EXPECT_EQ(evernote::searchDate("20240501T120000Z", 0), 1714564800000);
    EXPECT_EQ(evernote::searchDate("week", may2), 1714262400000) << "Sunday 2024-04-28";
}

}  // namespace
}  // namespace vxcloud::sandbox::test
