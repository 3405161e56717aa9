#include "evernote/NoteTree.h"

#include <ctime>

#include "framework/Hashes.h"
#include "framework/Text.h"

namespace vxcloud::sandbox::evernote {
namespace {

std::string monthOf(std::int64_t nowMs) {
    const std::time_t seconds = static_cast<std::time_t>(nowMs / 1000);
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    char buffer[16];
    std::strftime(buffer, sizeof buffer, "%Y-%m", &utc);
    return buffer;
}

}  // namespace

std::int32_t nextUsn(Tree& tree) {
    auto& root = tree.root().attributes;
    const std::int32_t next = root.value("usn", 0) + 1;
    root["usn"] = next;
    return next;
}

std::int32_t currentUsn(Tree& tree) { return tree.root().attributes.value("usn", 0); }

std::vector<Node*> notebooksOf(Tree& tree) {
    std::vector<Node*> out;
    for (Node* node : tree.children(tree.root())) {
        if (node->isFolder) out.push_back(node);
    }
    return out;
}

std::vector<Node*> notesOf(Tree& tree) {
    std::vector<Node*> out;
    for (Node* notebook : notebooksOf(tree)) {
        for (Node* node : tree.children(*notebook)) {
            if (!node->isFolder) out.push_back(node);
        }
    }
    return out;
}

bool isNotebook(Tree& tree, const Node& node) { return node.isFolder && node.parentId == tree.root().id; }

Node* notebookByGuid(Tree& tree, const std::string& guid) {
    Node* node = tree.find(guid);
    return node && isNotebook(tree, *node) ? node : nullptr;
}

Node* noteByGuid(Tree& tree, const std::string& guid) {
    Node* node = tree.find(guid);
    return node && !node->isFolder ? node : nullptr;
}

Node* defaultNotebook(Tree& tree) {
    const auto all = notebooksOf(tree);
    for (Node* notebook : all) {
        if (notebook->attributes.value("default", false)) return notebook;
    }
    return all.empty() ? nullptr : all.front();
}

void initNotebook(Tree& tree, Node& notebook, std::int64_t nowMs, bool isDefault) {
    const std::int64_t now = wholeSeconds(nowMs);
    notebook.attributes = {{"usn", nextUsn(tree)}, {"created", now}, {"updated", now}, {"default", false}};
    if (isDefault) makeDefault(tree, notebook, nowMs);
}

void makeDefault(Tree& tree, Node& notebook, std::int64_t nowMs) {
    for (Node* other : notebooksOf(tree)) {
        if (other != &notebook && other->attributes.value("default", false)) {
            other->attributes["default"] = false;
            other->attributes["usn"] = nextUsn(tree);
            other->attributes["updated"] = wholeSeconds(nowMs);
            tree.touch(*other);
        }
    }
    if (!notebook.attributes.value("default", false)) {
        notebook.attributes["default"] = true;
        notebook.attributes["usn"] = nextUsn(tree);
    }
}

std::string enmlShowing(const json& resources) {
    std::string body;
    for (const auto& resource : resources) {
        body += "<en-media type=\"" + htmlEscape(resource.value("mime", "")) + "\" hash=\"" +
                resource.value("hash", "") + "\"/>";
    }
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<!DOCTYPE en-note SYSTEM \"http://xml.evernote.com/pub/enml2.dtd\">\n<en-note>" +
           body + "</en-note>";
}

json storedResource(const std::string& guid, const std::string& mime, const ByteBuffer& body, std::int32_t usn,
                    const std::string& fileName) {
    json out = {{"guid", guid},        {"mime", mime}, {"hash", md5Hex(body.view())},
                {"size", body.size()}, {"usn", usn},   {"attributes", json::object()}};
    if (!fileName.empty()) out["attributes"]["fileName"] = fileName;
    return out;
}

std::int64_t noteSize(const json& note) {
    std::int64_t size = static_cast<std::int64_t>(note.value("content", std::string()).size());
    for (const auto& resource : note.value("resources", json::array())) size += resource.value("size", std::int64_t{0});
    return size;
}

std::int64_t uploadedThisMonth(Tree& tree, std::int64_t nowMs) {
    const auto& root = tree.root().attributes;
    return root.value("uploadMonth", std::string()) == monthOf(nowMs) ? root.value("uploaded", std::int64_t{0}) : 0;
}

void countUpload(Tree& tree, std::int64_t bytes, std::int64_t nowMs) {
    const std::int64_t before = uploadedThisMonth(tree, nowMs);
    auto& root = tree.root().attributes;
    root["uploadMonth"] = monthOf(nowMs);
    root["uploaded"] = before + bytes;
}

}  // namespace vxcloud::sandbox::evernote
