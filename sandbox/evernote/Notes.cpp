// NoteStore's note calls: getNote, createNote and updateNote, with the service's checks of
// titles, ENML, resources, sizes and the monthly upload allowance.
#include <mutex>

#include "evernote/EdamForms.h"
#include "evernote/EdamHandlers.h"
#include "evernote/Enml.h"
#include "evernote/NoteRules.h"
#include "framework/Hashes.h"
#include "framework/Text.h"

namespace vxcloud::sandbox::evernote {

using E = edam::EDAMErrorCode;

// One resource of a createNote or updateNote, checked: what will be stored, and its bytes
// when they came with the call (new data, which counts as uploaded).
struct NoteStoreHandler::Incoming {
    json stored;
    ByteBuffer body;
    bool newData = false;
};

namespace {

void checkTitle(const edam::Note& note) {
    if (!note.__isset.title || !validName(note.title, kTitleLengthMax)) failUser(E::BAD_DATA_FORMAT, "Note.title");
}

void checkContent(const std::string& content) {
    if (characterCount(content) > kContentLengthMax) failUser(E::BAD_DATA_FORMAT, "Note.content");
    if (auto problem = enmlProblem(content)) failUser(E::ENML_VALIDATION, *problem);
}

void checkTags(const edam::Note& note) {
    // The sandbox keeps tags by name only; GUIDs name tags it never made.
    if (note.__isset.tagGuids) {
        for (const auto& guid : note.tagGuids) {
            if (!isGuid(guid)) failUser(E::BAD_DATA_FORMAT, "Note.tagGuids");
            failNotFound("Tag.guid", guid);
        }
    }
    if (note.__isset.tagNames) {
        if (note.tagNames.size() > kTagsPerNoteMax) failUser(E::LIMIT_REACHED, "Note.tagGuids");
        for (const auto& name : note.tagNames) {
            if (!validName(name, kTagNameLengthMax, true)) failUser(E::BAD_DATA_FORMAT, "Tag.name");
        }
    }
}

std::int64_t checkedTime(bool given, std::int64_t value, std::int64_t fallback, const char* parameter) {
    if (!given) return fallback;
    if (value < kTimestampMin || value > kTimestampMax) failUser(E::BAD_DATA_FORMAT, parameter);
    return wholeSeconds(value);
}

const json* resourceWithGuid(const json& resources, const std::string& guid) {
    for (const auto& resource : resources) {
        if (resource.value("guid", "") == guid) return &resource;
    }
    return nullptr;
}

}  // namespace

std::vector<NoteStoreHandler::Incoming> NoteStoreHandler::incomingResources(
    const std::vector<edam::Resource>& resources, const json& existing, std::int32_t usn, const Settings& settings) {
    if (resources.size() > kResourcesPerNoteMax) failUser(E::LIMIT_REACHED, "Note.resources");
    std::vector<Incoming> out;
    for (const auto& resource : resources) {
        const json* kept = resource.__isset.guid ? resourceWithGuid(existing, resource.guid) : nullptr;
        const bool hasBody = resource.__isset.data && resource.data.__isset.body;
        if (!kept && !hasBody) failUser(E::DATA_REQUIRED, "Resource.data");
        if (resource.__isset.mime ? !validMime(resource.mime) : !kept) failUser(E::BAD_DATA_FORMAT, "Resource.mime");
        Incoming in;
        in.stored = kept ? *kept : json{{"guid", randomGuid()}, {"usn", usn}};
        if (resource.__isset.mime) in.stored["mime"] = resource.mime;
        if (hasBody) {
            const std::string& body = resource.data.body;
            if (static_cast<std::int64_t>(body.size()) > settings.resourceSizeMax) {
                failUser(E::LIMIT_REACHED, "Resource.data.size");
            }
            if (resource.data.__isset.bodyHash && resource.data.bodyHash != md5Raw(body)) {
                failUser(E::BAD_DATA_FORMAT, "Resource.data.bodyHash");
            }
            if (resource.data.__isset.size && resource.data.size != static_cast<std::int32_t>(body.size())) {
                failUser(E::BAD_DATA_FORMAT, "Resource.data.size");
            }
            const std::string hash = md5Hex(body);
            in.newData = !kept || kept->value("hash", "") != hash;
            in.body = ByteBuffer::copyOf(body);
            in.stored["hash"] = hash;
            in.stored["size"] = body.size();
        } else {
            in.body = module_.bodies()[in.stored.value("guid", "")];
        }
        if (in.newData || resource.__isset.mime || resource.__isset.attributes) in.stored["usn"] = usn;
        if (resource.__isset.width) in.stored["width"] = resource.width;
        if (resource.__isset.height) in.stored["height"] = resource.height;
        if (resource.__isset.attributes) in.stored["attributes"] = resourceAttributesJson(resource.attributes);
        if (!in.stored.contains("attributes")) in.stored["attributes"] = json::object();
        out.push_back(std::move(in));
    }
    return out;
}

void NoteStoreHandler::getNote(edam::Note& out, const std::string& token, const edam::Guid& guid, bool withContent,
                               bool withResourcesData, bool, bool) {
    const AccountInfo account = caller(token);
    std::lock_guard lock(module_.store().mutex());
    Tree& tree = module_.store().tree(account.id);
    const Node& note = ownNote(tree, account, guid, {"Note.guid", "Note", "Note.guid"});
    // The sandbox makes no recognition or alternate data, so those flags add nothing.
    out = noteForm(note, withContent, withResourcesData ? &module_.bodies() : nullptr);
}

void NoteStoreHandler::createNote(edam::Note& out, const std::string& token, const edam::Note& note) {
    const AccountInfo account = caller(token);
    checkTitle(note);
    if (!note.__isset.content) failUser(E::BAD_DATA_FORMAT, "Note.content");
    checkContent(note.content);
    checkTags(note);
    const Settings settings = module_.currentSettings();
    const std::int64_t now = module_.nowMs();
    std::lock_guard lock(module_.store().mutex());
    Tree& tree = module_.store().tree(account.id);
    if (notesOf(tree).size() >= kNotesPerAccountMax) failUser(E::LIMIT_REACHED, "Note");
    Node& notebook = note.__isset.notebookGuid
                         ? ownNotebook(tree, account, note.notebookGuid,
                                       {"Note.notebookGuid", "Note.notebookGuid", "Note.notebookGuid"})
                         : defaultNotebookOf(tree, account);
    const std::int32_t usn = currentUsn(tree) + 1;
    const auto resources = incomingResources(note.__isset.resources ? note.resources : std::vector<edam::Resource>{},
                                             json::array(), usn, settings);
    json stored = {{"content", note.content},
                   {"created", checkedTime(note.__isset.created, note.created, wholeSeconds(now), "Note.created")},
                   {"updated", checkedTime(note.__isset.updated, note.updated, wholeSeconds(now), "Note.updated")},
                   {"active", !note.__isset.active || note.active},
                   {"resources", json::array()},
                   {"attributes", note.__isset.attributes ? noteAttributesJson(note.attributes) : json::object()},
                   {"tagNames", note.__isset.tagNames ? note.tagNames : std::vector<std::string>{}}};
    for (const auto& resource : resources) stored["resources"].push_back(resource.stored);
    if (!stored["active"].get<bool>()) {
        stored["deleted"] = checkedTime(note.__isset.deleted, note.deleted, wholeSeconds(now), "Note.deleted");
    }
    const std::int64_t size = noteSize(stored);
    if (size > settings.noteSizeMax) failUser(E::LIMIT_REACHED, "Note.size");
    if (request_.quotaFull || uploadedThisMonth(tree, now) + size > settings.monthlyUploadLimit) {
        failUser(E::QUOTA_REACHED, "Accounting.uploadLimit");
    }
    stored["usn"] = nextUsn(tree);
    Node& made = tree.createFile(notebook, note.title, resources.empty() ? ByteBuffer() : resources.front().body);
    made.attributes = std::move(stored);
    for (const auto& resource : resources) module_.bodies()[resource.stored.value("guid", "")] = resource.body;
    countUpload(tree, size, now);
    out = noteForm(made, false, nullptr);
}

void NoteStoreHandler::updateNote(edam::Note& out, const std::string& token, const edam::Note& note) {
    const AccountInfo account = caller(token);
    if (!note.__isset.guid) failUser(E::BAD_DATA_FORMAT, "Note.guid");
    checkTitle(note);
    if (note.__isset.content) checkContent(note.content);
    checkTags(note);
    const Settings settings = module_.currentSettings();
    const std::int64_t now = module_.nowMs();
    std::lock_guard lock(module_.store().mutex());
    Tree& tree = module_.store().tree(account.id);
    Node& node = ownNote(tree, account, note.guid, {"Note.guid", "Note", "Note.guid"});
    Node* notebook = note.__isset.notebookGuid
                         ? &ownNotebook(tree, account, note.notebookGuid,
                                        {"Note.notebookGuid", "Note.notebookGuid", "Note.notebookGuid"})
                         : tree.find(node.parentId);
    const std::int32_t usn = currentUsn(tree) + 1;
    json stored = node.attributes;
    std::int64_t uploaded = 0;
    // Unset content, resources and attributes mean "unchanged".
    if (note.__isset.content) {
        stored["content"] = note.content;
        uploaded += static_cast<std::int64_t>(note.content.size());
    }
    std::vector<Incoming> resources;
    if (note.__isset.resources) {
        resources = incomingResources(note.resources, stored.value("resources", json::array()), usn, settings);
        stored["resources"] = json::array();
        for (const auto& resource : resources) {
            stored["resources"].push_back(resource.stored);
            if (resource.newData) uploaded += static_cast<std::int64_t>(resource.body.size());
        }
    }
    if (note.__isset.attributes) stored["attributes"] = noteAttributesJson(note.attributes);
    if (note.__isset.tagNames) stored["tagNames"] = note.tagNames;
    if (note.__isset.created) stored["created"] = checkedTime(true, note.created, 0, "Note.created");
    stored["updated"] = checkedTime(note.__isset.updated, note.updated, wholeSeconds(now), "Note.updated");
    if (note.__isset.active) {
        stored["active"] = note.active;
        if (note.active) {
            stored.erase("deleted");
        } else if (note.__isset.deleted || !stored.contains("deleted")) {
            stored["deleted"] = checkedTime(note.__isset.deleted, note.deleted, wholeSeconds(now), "Note.deleted");
        }
    }
    if (noteSize(stored) > settings.noteSizeMax) failUser(E::LIMIT_REACHED, "Note.size");
    if (request_.quotaFull || uploadedThisMonth(tree, now) + uploaded > settings.monthlyUploadLimit) {
        failUser(E::QUOTA_REACHED, "Accounting.uploadLimit");
    }

    stored["usn"] = nextUsn(tree);
    if (notebook != tree.find(node.parentId) || note.title != node.name) tree.move(node, *notebook, note.title);
    if (note.__isset.resources) {
        for (const auto& old : node.attributes.value("resources", json::array())) {
            if (!resourceWithGuid(stored["resources"], old.value("guid", "")))
                module_.bodies().erase(old.value("guid", ""));
        }
        for (const auto& resource : resources) module_.bodies()[resource.stored.value("guid", "")] = resource.body;
        const ByteBuffer first = resources.empty() ? ByteBuffer() : resources.front().body;
        if (first.view() != node.content.view()) tree.setContent(node, first);
    }
    node.attributes = std::move(stored);
    tree.touch(node);
    countUpload(tree, uploaded, now);
    out = noteForm(node, false, nullptr);
}

}  // namespace vxcloud::sandbox::evernote
