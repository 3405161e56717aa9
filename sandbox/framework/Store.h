#pragma once
// The emulators' in-memory storage: one tree of folders and files per account, bytes held
// in shared immutable buffers, revisions, ids and a change sequence. Names are matched
// case-insensitively but kept as given; the tree does not forbid duplicate names (Drive
// allows them), the provider modules enforce their own uniqueness rules.
//
// Not synchronised by itself: a provider module holds Store::mutex() for each operation,
// so a check-then-write (conflict detection, quota) is atomic.
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "framework/Clock.h"
#include "vxcloud/platform/ByteBuffer.h"

namespace vxcloud::sandbox {

struct Revision {
    std::string rev;
    ByteBuffer content;
    std::int64_t clientModified = 0;
    std::int64_t serverModified = 0;
};

struct Node {
    std::string id;
    std::string parentId;                 // empty for the root
    std::string name;                     // empty for the root
    bool isFolder = false;
    ByteBuffer content;                   // files only
    std::string rev;                      // changes with every content change
    std::int64_t created = 0;
    std::int64_t clientModified = 0;
    std::int64_t serverModified = 0;
    std::uint64_t changeSeq = 0;          // tree-wide sequence of the last change
    std::vector<std::string> children;    // ids, in insertion order
    std::vector<Revision> history;        // earlier revisions, oldest first
    nlohmann::json attributes = nlohmann::json::object();  // provider-specific fields

    std::uint64_t size() const { return content.size(); }
    // A digest of the current content, computed once per revision.
    const std::string& cachedHash(const std::string& kind,
                                  const std::function<std::string(std::string_view)>& compute) const;
    // Records a digest already computed for the current content (outside the store lock).
    void primeHash(const std::string& kind, std::string value) const;

private:
    mutable std::map<std::string, std::string> hashCache_;
    friend class Tree;
};

// How a provider names things.
struct IdScheme {
    std::string rootId;
    std::function<std::string()> newId;
    std::function<std::string()> newRev;
    std::size_t keptRevisions = 10;
};

class Tree {
public:
    Tree(const IdScheme& scheme, const Clock& clock);

    Node& root() { return *find(scheme_.rootId); }
    Node* find(std::string_view id);
    const Node* find(std::string_view id) const;
    // A child by name, compared case-insensitively (the first one when names repeat).
    Node* child(const Node& folder, std::string_view name);
    std::vector<Node*> children(const Node& folder);
    // Every node below `folder`, parents before their children.
    std::vector<Node*> descendants(const Node& folder);

    // "/a/b" from the root, case-insensitively; "" and "/" are the root. Null when missing.
    Node* resolve(std::string_view path);
    // Walks `path` as far as it exists: the deepest existing node and the names left over.
    struct Walk {
        Node* deepest = nullptr;
        std::vector<std::string> missing;
    };
    Walk walk(std::string_view path);
    std::string displayPath(const Node& node) const;  // "/A/b.pdf", "" for the root
    bool isAncestor(const Node& ancestor, const Node& node) const;

    Node& createFolder(Node& parent, const std::string& name);
    Node& createFile(Node& parent, const std::string& name, ByteBuffer content,
                     std::int64_t clientModified = 0);
    // New content: a new revision; the previous one stays findable by rev for a while.
    void setContent(Node& file, ByteBuffer content, std::int64_t clientModified = 0);
    void move(Node& node, Node& newParent, const std::string& newName);
    void touch(Node& node);  // a metadata change
    void remove(Node& node);  // with everything below it
    // The node holding revision `rev` (current or earlier) and that revision.
    std::optional<std::pair<Node*, Revision>> findRevision(std::string_view rev);

    std::uint64_t usedBytes() const { return usedBytes_; }
    std::optional<std::uint64_t> quota() const { return quota_; }
    void setQuota(std::optional<std::uint64_t> bytes) { quota_ = bytes; }
    // Whether `growth` more bytes fit in the quota.
    bool fits(std::int64_t growth) const;
    std::uint64_t changeSeq() const { return changeSeq_; }

private:
    Node& add(Node& parent, Node node);
    void markChanged(Node& node);

    IdScheme scheme_;
    const Clock& clock_;
    std::map<std::string, std::unique_ptr<Node>, std::less<>> nodes_;
    std::uint64_t usedBytes_ = 0;
    std::optional<std::uint64_t> quota_;
    std::uint64_t changeSeq_ = 0;
};

// The trees of one provider, one per account.
class Store {
public:
    Store(IdScheme scheme, const Clock& clock) : scheme_(std::move(scheme)), clock_(clock) {}
    std::mutex& mutex() const { return mutex_; }
    Tree& tree(const std::string& accountId);  // created on first use
    // The account a tree belongs to (empty when it is not this store's), for a module that
    // renders a node without a request at hand.
    std::string ownerOf(const Tree& tree) const;
    const IdScheme& scheme() const { return scheme_; }

private:
    IdScheme scheme_;
    const Clock& clock_;
    mutable std::mutex mutex_;
    std::map<std::string, std::unique_ptr<Tree>> trees_;
};

// Splits "/a/b/" into {"a", "b"}, dropping empty components.
std::vector<std::string> splitPath(std::string_view path);

}  // namespace vxcloud::sandbox
