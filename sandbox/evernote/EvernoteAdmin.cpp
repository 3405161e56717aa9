// The admin view of Evernote data: notebooks as top folders, notes as items named by title
// in them. A note put in through the admin API holds the bytes as its one resource, shown by
// an en-media; changing it replaces the first resource's bytes, as another device would.
// Admin writes do not count toward the monthly upload allowance.
#include "evernote/EvernoteModule.h"
#include "evernote/NoteRules.h"
#include "framework/Hashes.h"
#include "framework/Text.h"

namespace vxcloud::sandbox::evernote {
namespace {

json notebookJson(Tree& tree, const Node& notebook) {
    const json& a = notebook.attributes;
    json out = {{"kind", "notebook"},
                {"id", notebook.id},
                {"guid", notebook.id},
                {"path", tree.displayPath(notebook)},
                {"name", notebook.name},
                {"defaultNotebook", a.value("default", false)},
                {"updateSequenceNum", a.value("usn", 0)},
                {"serviceCreated", a.value("created", std::int64_t{0})},
                {"serviceUpdated", a.value("updated", std::int64_t{0})}};
    if (a.contains("stack")) out["stack"] = a["stack"];
    return out;
}

json noteJson(Tree& tree, const Node& note) {
    const json& a = note.attributes;
    const std::string content = a.value("content", std::string());
    json resources = json::array();
    for (const auto& r : a.value("resources", json::array())) {
        const json attributes = r.value("attributes", json::object());
        json resource = {{"guid", r.value("guid", "")},
                         {"mime", r.value("mime", "")},
                         {"hash", r.value("hash", "")},
                         {"size", r.value("size", 0)},
                         {"updateSequenceNum", r.value("usn", 0)},
                         {"fileName", attributes.value("fileName", "")}};
        if (attributes.contains("attachment")) resource["attachment"] = attributes["attachment"];
        resources.push_back(resource);
    }
    json out = {{"kind", "note"},
                {"id", note.id},
                {"guid", note.id},
                {"path", tree.displayPath(note)},
                {"title", note.name},
                {"notebookGuid", note.parentId},
                {"content", content},
                {"contentHash", md5Hex(content)},
                {"contentLength", characterCount(content)},
                {"created", a.value("created", std::int64_t{0})},
                {"updated", a.value("updated", std::int64_t{0})},
                {"active", a.value("active", true)},
                {"updateSequenceNum", a.value("usn", 0)},
                {"resources", resources},
                {"tagNames", a.value("tagNames", json::array())},
                {"attributes", a.value("attributes", json::object())}};
    if (a.contains("deleted")) out["deleted"] = a["deleted"];
    return out;
}

void replaceAll(std::string& text, const std::string& from, const std::string& to) {
    if (from.empty()) return;
    for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
}

}  // namespace

json EvernoteModule::renderNode(Tree& tree, const Node& node) const {
    if (&node == &tree.root()) return {{"kind", "account"}, {"id", node.id}, {"updateCount", currentUsn(tree)}};
    return node.isFolder ? notebookJson(tree, node) : noteJson(tree, node);
}

std::optional<std::string> EvernoteModule::refuseAdminPath(const std::vector<std::string>& parts, bool folder) const {
    if (folder ? parts.size() > 1 : parts.size() != 2) {
        return "Evernote paths are /Notebook (a notebook) and /Notebook/Note title (a note)";
    }
    if (!parts.empty() && !validName(parts[0], kNotebookNameLengthMax))
        return "not a notebook name: \"" + parts[0] + "\"";
    if (!folder && !validName(parts[1], kTitleLengthMax)) return "not a note title: \"" + parts[1] + "\"";
    return std::nullopt;
}

void EvernoteModule::adminChanged(Tree& tree, Node& node, AdminChange change) {
    const std::int64_t now = wholeSeconds(nowMs());
    switch (change) {
        case AdminChange::folderMade: {
            bool anyDefault = false;
            for (Node* notebook : notebooksOf(tree)) anyDefault |= notebook->attributes.value("default", false);
            initNotebook(tree, node, now, !anyDefault);
            break;
        }
        case AdminChange::fileMade: {
            const std::string guid = randomGuid();
            const std::int32_t usn = nextUsn(tree);
            const json resources =
                json::array({storedResource(guid, mimeTypeForName(node.name), node.content, usn, node.name)});
            node.attributes = {{"usn", usn},
                               {"created", now},
                               {"updated", now},
                               {"active", true},
                               {"content", enmlShowing(resources)},
                               {"resources", resources},
                               {"attributes", json::object()},
                               {"tagNames", json::array()}};
            bodies_[guid] = node.content;
            break;
        }
        case AdminChange::fileChanged: {
            const std::int32_t usn = nextUsn(tree);
            json& resources = node.attributes["resources"];
            if (!resources.is_array() || resources.empty()) {
                resources = json::array(
                    {storedResource(randomGuid(), mimeTypeForName(node.name), node.content, usn, node.name)});
                node.attributes["content"] = enmlShowing(resources);
            } else {
                json& first = resources[0];
                const std::string oldHash = first.value("hash", "");
                first["hash"] = md5Hex(node.content.view());
                first["size"] = node.content.size();
                first["usn"] = usn;
                std::string content = node.attributes.value("content", std::string());
                replaceAll(content, "hash=\"" + oldHash + "\"", "hash=\"" + first["hash"].get<std::string>() + "\"");
                node.attributes["content"] = content;
            }
            bodies_[resources[0].value("guid", "")] = node.content;
            node.attributes["usn"] = usn;
            node.attributes["updated"] = now;
            break;
        }
        case AdminChange::removing: {
            std::vector<Node*> notes = node.isFolder ? tree.children(node) : std::vector<Node*>{&node};
            for (Node* note : notes) {
                for (const auto& resource : note->attributes.value("resources", json::array())) {
                    bodies_.erase(resource.value("guid", ""));
                }
            }
            if (node.isFolder && node.attributes.value("default", false)) {
                for (Node* other : notebooksOf(tree)) {
                    if (other != &node) {
                        makeDefault(tree, *other, now);
                        break;
                    }
                }
            }
            break;
        }
    }
}

}  // namespace vxcloud::sandbox::evernote
