// NoteStore's searches: findNotesMetadata and the older findNotes. A filter selects notes (a
// notebook, the words, in or out of the trash) in its order; a call answers at most
// find_max_notes of them from `offset`, whatever maxNotes asks, with the total.
#include <algorithm>
#include <mutex>

#include "evernote/EdamForms.h"
#include "evernote/EdamHandlers.h"
#include "evernote/NoteRules.h"
#include "evernote/NoteSearch.h"
#include "framework/Text.h"

namespace vxcloud::sandbox::evernote {
namespace {

using E = edam::EDAMErrorCode;

void checkPaging(int32_t offset, int32_t maxNotes) {
    if (offset < 0 || offset > static_cast<int32_t>(kNotesPerAccountMax)) failUser(E::BAD_DATA_FORMAT, "offset");
    if (maxNotes < 0 || maxNotes > static_cast<int32_t>(kNotesPerAccountMax)) failUser(E::BAD_DATA_FORMAT, "maxNotes");
}

// The sort key of a note for a NoteSortOrder; RELEVANCE sorts as UPDATED.
std::pair<std::int64_t, std::string> sortKey(const Node& note, int32_t order) {
    const json& a = note.attributes;
    switch (order) {
        case edam::NoteSortOrder::CREATED: return {a.value("created", std::int64_t{0}), {}};
        case edam::NoteSortOrder::UPDATE_SEQUENCE_NUMBER: return {a.value("usn", 0), {}};
        case edam::NoteSortOrder::TITLE: return {0, foldCase(note.name)};
        default: return {a.value("updated", std::int64_t{0}), {}};
    }
}

// The page of `selected` from `offset`: at most the smaller of maxNotes and the cap.
std::vector<Node*> page(const std::vector<Node*>& selected, int32_t offset, int32_t maxNotes, int cap) {
    const std::size_t start = std::min(selected.size(), static_cast<std::size_t>(offset));
    const std::size_t count = std::min<std::size_t>(
        {selected.size() - start, static_cast<std::size_t>(maxNotes), static_cast<std::size_t>(cap)});
    return std::vector<Node*>(selected.begin() + static_cast<std::ptrdiff_t>(start),
                              selected.begin() + static_cast<std::ptrdiff_t>(start + count));
}

}  // namespace

std::vector<Node*> NoteStoreHandler::select(Tree& tree, const AccountInfo& account, const edam::NoteFilter& filter) {
    if (filter.__isset.words && filter.words.size() > kSearchQueryLengthMax) {
        failUser(E::BAD_DATA_FORMAT, "NoteFilter.words");
    }
    const Node* notebook = nullptr;
    if (filter.__isset.notebookGuid) {
        if (!isGuid(filter.notebookGuid)) failUser(E::BAD_DATA_FORMAT, "NoteFilter.notebookGuid");
        notebook =
            &ownNotebook(tree, account, filter.notebookGuid, {"NoteFilter.notebookGuid", "Notebook", "Notebook.guid"});
    }
    if (filter.__isset.tagGuids) {
        for (const auto& guid : filter.tagGuids) {
            if (!isGuid(guid)) failUser(E::BAD_DATA_FORMAT, "NoteFilter.tagGuids");
            failNotFound("Tag.guid", guid);  // tags are kept by name only
        }
    }
    const NoteQuery query = NoteQuery::parse(filter.__isset.words ? filter.words : std::string());
    const bool trashed = filter.__isset.inactive && filter.inactive;
    const std::int64_t now = module_.nowMs();
    std::vector<Node*> out;
    for (Node* note : notesOf(tree)) {
        const json& a = note->attributes;
        if (a.value("active", true) == trashed) continue;
        if (notebook && note->parentId != notebook->id) continue;
        SearchableNote searchable;
        searchable.title = note->name;
        searchable.content = a.value("content", std::string());
        searchable.notebookName = tree.find(note->parentId)->name;
        searchable.tags = a.value("tagNames", std::vector<std::string>{});
        for (const auto& resource : a.value("resources", json::array()))
            searchable.mimes.push_back(resource.value("mime", ""));
        searchable.created = a.value("created", std::int64_t{0});
        searchable.updated = a.value("updated", std::int64_t{0});
        if (query.matches(searchable, now)) out.push_back(note);
    }
    const int32_t order = filter.__isset.order ? filter.order : static_cast<int32_t>(edam::NoteSortOrder::UPDATED);
    const bool ascending = filter.__isset.ascending && filter.ascending;
    // Ties go by update sequence number, unique in an account, so pages never overlap.
    std::stable_sort(out.begin(), out.end(), [&](const Node* a, const Node* b) {
        const auto ka = sortKey(*a, order), kb = sortKey(*b, order);
        if (ka != kb) return ascending ? ka < kb : kb < ka;
        const int ua = a->attributes.value("usn", 0), ub = b->attributes.value("usn", 0);
        return ascending ? ua < ub : ub < ua;
    });
    return out;
}

void NoteStoreHandler::findNotesMetadata(edam::NotesMetadataList& out, const std::string& token,
                                         const edam::NoteFilter& filter, int32_t offset, int32_t maxNotes,
                                         const edam::NotesMetadataResultSpec& wanted) {
    const AccountInfo account = caller(token);
    checkPaging(offset, maxNotes);
    const int cap = module_.currentSettings().findMaxNotes;
    std::lock_guard lock(module_.store().mutex());
    Tree& tree = module_.store().tree(account.id);
    const auto selected = select(tree, account, filter);
    out.startIndex = offset;
    out.totalNotes = static_cast<int32_t>(selected.size());
    for (const Node* note : page(selected, offset, maxNotes, cap)) out.notes.push_back(metadataForm(*note, wanted));
    out.__set_updateCount(currentUsn(tree));
}

void NoteStoreHandler::findNotes(edam::NoteList& out, const std::string& token, const edam::NoteFilter& filter,
                                 int32_t offset, int32_t maxNotes) {
    const AccountInfo account = caller(token);
    checkPaging(offset, maxNotes);
    const int cap = module_.currentSettings().findMaxNotes;
    std::lock_guard lock(module_.store().mutex());
    Tree& tree = module_.store().tree(account.id);
    const auto selected = select(tree, account, filter);
    out.startIndex = offset;
    out.totalNotes = static_cast<int32_t>(selected.size());
    // Full metadata, but neither the ENML nor resource bodies.
    for (const Node* note : page(selected, offset, maxNotes, cap)) out.notes.push_back(noteForm(*note, false, nullptr));
    out.__set_updateCount(currentUsn(tree));
}

}  // namespace vxcloud::sandbox::evernote
