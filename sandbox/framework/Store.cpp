#include "framework/Store.h"

#include <algorithm>

#include "framework/Text.h"

namespace vxcloud::sandbox {

const std::string& Node::cachedHash(const std::string& kind,
                                    const std::function<std::string(std::string_view)>& compute) const {
    const std::string key = kind + "@" + rev;
    auto it = hashCache_.find(key);
    if (it == hashCache_.end()) it = hashCache_.emplace(key, compute(content.view())).first;
    return it->second;
}

void Node::primeHash(const std::string& kind, std::string value) const {
    hashCache_[kind + "@" + rev] = std::move(value);
}

std::vector<std::string> splitPath(std::string_view path) {
    std::vector<std::string> parts;
    std::size_t pos = 0;
    while (pos <= path.size()) {
        std::size_t slash = path.find('/', pos);
        if (slash == std::string_view::npos) slash = path.size();
        if (slash > pos) parts.emplace_back(path.substr(pos, slash - pos));
        pos = slash + 1;
    }
    return parts;
}

Tree::Tree(const IdScheme& scheme, const Clock& clock) : scheme_(scheme), clock_(clock) {
    auto root = std::make_unique<Node>();
    root->id = scheme_.rootId;
    root->isFolder = true;
    root->created = root->serverModified = clock_.nowSeconds();
    root->rev = scheme_.newRev();
    nodes_.emplace(root->id, std::move(root));
}

Node* Tree::find(std::string_view id) {
    const auto it = nodes_.find(id);
    return it == nodes_.end() ? nullptr : it->second.get();
}

const Node* Tree::find(std::string_view id) const {
    const auto it = nodes_.find(id);
    return it == nodes_.end() ? nullptr : it->second.get();
}

Node* Tree::child(const Node& folder, std::string_view name) {
    const std::string folded = foldCase(name);
    for (const auto& id : folder.children) {
        Node* node = find(id);
        if (node && foldCase(node->name) == folded) return node;
    }
    return nullptr;
}

std::vector<Node*> Tree::children(const Node& folder) {
    std::vector<Node*> out;
    for (const auto& id : folder.children) {
        if (Node* node = find(id)) out.push_back(node);
    }
    return out;
}

std::vector<Node*> Tree::descendants(const Node& folder) {
    std::vector<Node*> out;
    for (Node* node : children(folder)) {
        out.push_back(node);
        if (node->isFolder) {
            auto below = descendants(*node);
            out.insert(out.end(), below.begin(), below.end());
        }
    }
    return out;
}

Tree::Walk Tree::walk(std::string_view path) {
    Walk result;
    result.deepest = &root();
    const auto parts = splitPath(path);
    for (std::size_t i = 0; i < parts.size(); ++i) {
        Node* next = result.deepest->isFolder ? child(*result.deepest, parts[i]) : nullptr;
        if (!next) {
            result.missing.assign(parts.begin() + static_cast<std::ptrdiff_t>(i), parts.end());
            break;
        }
        result.deepest = next;
    }
    return result;
}

Node* Tree::resolve(std::string_view path) {
    const Walk w = walk(path);
    return w.missing.empty() ? w.deepest : nullptr;
}

std::string Tree::displayPath(const Node& node) const {
    std::vector<const Node*> chain;
    for (const Node* n = &node; n && n->id != scheme_.rootId; n = find(n->parentId)) {
        chain.push_back(n);
    }
    std::string out;
    for (auto it = chain.rbegin(); it != chain.rend(); ++it) out += "/" + (*it)->name;
    return out;
}

bool Tree::isAncestor(const Node& ancestor, const Node& node) const {
    for (const Node* n = find(node.parentId); n; n = n->id == scheme_.rootId ? nullptr : find(n->parentId)) {
        if (n == &ancestor) return true;
    }
    return false;
}

Node& Tree::add(Node& parent, Node node) {
    node.id = scheme_.newId();
    node.parentId = parent.id;
    node.rev = scheme_.newRev();
    node.created = node.serverModified = clock_.nowSeconds();
    if (node.clientModified == 0) node.clientModified = node.serverModified;
    auto owned = std::make_unique<Node>(std::move(node));
    Node& ref = *owned;
    parent.children.push_back(ref.id);
    nodes_.emplace(ref.id, std::move(owned));
    usedBytes_ += ref.size();
    markChanged(ref);
    return ref;
}

Node& Tree::createFolder(Node& parent, const std::string& name) {
    Node node;
    node.name = name;
    node.isFolder = true;
    return add(parent, std::move(node));
}

Node& Tree::createFile(Node& parent, const std::string& name, ByteBuffer content,
                       std::int64_t clientModified) {
    Node node;
    node.name = name;
    node.content = std::move(content);
    node.clientModified = clientModified;
    return add(parent, std::move(node));
}

void Tree::setContent(Node& file, ByteBuffer content, std::int64_t clientModified) {
    file.history.push_back(Revision{file.rev, file.content, file.clientModified, file.serverModified});
    if (file.history.size() > scheme_.keptRevisions) file.history.erase(file.history.begin());
    usedBytes_ -= file.size();
    file.content = std::move(content);
    usedBytes_ += file.size();
    file.rev = scheme_.newRev();
    file.hashCache_.clear();
    file.serverModified = clock_.nowSeconds();
    file.clientModified = clientModified ? clientModified : file.serverModified;
    markChanged(file);
}

void Tree::move(Node& node, Node& newParent, const std::string& newName) {
    if (Node* oldParent = find(node.parentId)) {
        auto& list = oldParent->children;
        list.erase(std::remove(list.begin(), list.end(), node.id), list.end());
        markChanged(*oldParent);
    }
    newParent.children.push_back(node.id);
    node.parentId = newParent.id;
    node.name = newName;
    markChanged(node);
}

void Tree::touch(Node& node) { markChanged(node); }

void Tree::remove(Node& node) {
    if (node.id == scheme_.rootId) return;
    for (const auto& childId : std::vector<std::string>(node.children)) {
        if (Node* c = find(childId)) remove(*c);
    }
    if (Node* parent = find(node.parentId)) {
        auto& list = parent->children;
        list.erase(std::remove(list.begin(), list.end(), node.id), list.end());
        markChanged(*parent);
    }
    usedBytes_ -= node.size();
    nodes_.erase(node.id);
}

std::optional<std::pair<Node*, Revision>> Tree::findRevision(std::string_view rev) {
    for (auto& [id, node] : nodes_) {
        if (node->isFolder) continue;
        if (node->rev == rev) {
            return std::make_pair(node.get(), Revision{node->rev, node->content, node->clientModified,
                                                       node->serverModified});
        }
        for (const auto& r : node->history) {
            if (r.rev == rev) return std::make_pair(node.get(), r);
        }
    }
    return std::nullopt;
}

bool Tree::fits(std::int64_t growth) const {
    if (!quota_ || growth <= 0) return true;
    return usedBytes_ + static_cast<std::uint64_t>(growth) <= *quota_;
}

void Tree::markChanged(Node& node) { node.changeSeq = ++changeSeq_; }

std::string Store::ownerOf(const Tree& tree) const {
    for (const auto& [accountId, owned] : trees_) {
        if (owned.get() == &tree) return accountId;
    }
    return {};
}

Tree& Store::tree(const std::string& accountId) {
    auto& slot = trees_[accountId];
    if (!slot) slot = std::make_unique<Tree>(scheme_, clock_);
    return *slot;
}

}  // namespace vxcloud::sandbox
