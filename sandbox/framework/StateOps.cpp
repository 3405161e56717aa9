#include "framework/StateOps.h"

#include "framework/ProviderModule.h"
#include "framework/Store.h"

namespace vxcloud::sandbox::state {
namespace {

// Runs `f(tree)` for the account under the store lock; null tree when the account is unknown.
template <class F>
auto withTree(ProviderModule& module, const std::string& account, F&& f) {
    const auto info = module.findAccount(account);
    std::lock_guard lock(module.store().mutex());
    Tree* tree = info ? &module.store().tree(info->id) : nullptr;
    return f(tree);
}

using Change = ProviderModule::AdminChange;

Node* ensureFolders(ProviderModule& module, Tree& tree, const std::vector<std::string>& parts, std::size_t count,
                    std::string& error) {
    Node* folder = &tree.root();
    for (std::size_t i = 0; i < count; ++i) {
        Node* next = tree.child(*folder, parts[i]);
        if (!next) {
            next = &tree.createFolder(*folder, parts[i]);
            module.adminChanged(tree, *next, Change::folderMade);
        } else if (!next->isFolder) {
            error = "a file is in the way: " + tree.displayPath(*next);
            return nullptr;
        }
        folder = next;
    }
    return folder;
}

}  // namespace

nlohmann::json putFile(ProviderModule& module, const std::string& account, const std::string& path,
                       ByteBuffer bytes, std::string& error) {
    return withTree(module, account, [&](Tree* tree) -> nlohmann::json {
        if (!tree) return error = "unknown account \"" + account + "\"", nullptr;
        const auto parts = splitPath(path);
        if (parts.empty()) return error = "a file needs a path below the root", nullptr;
        if (auto refused = module.refuseAdminPath(parts, false)) return error = *refused, nullptr;
        Node* parent = ensureFolders(module, *tree, parts, parts.size() - 1, error);
        if (!parent) return nullptr;
        Node* existing = tree->child(*parent, parts.back());
        if (existing && existing->isFolder) return error = "a folder is at " + path, nullptr;
        if (existing) {
            tree->setContent(*existing, std::move(bytes));
            module.adminChanged(*tree, *existing, Change::fileChanged);
        } else {
            existing = &tree->createFile(*parent, parts.back(), std::move(bytes));
            module.adminChanged(*tree, *existing, Change::fileMade);
        }
        return module.renderNode(*tree, *existing);
    });
}

nlohmann::json putFolder(ProviderModule& module, const std::string& account, const std::string& path,
                         std::string& error) {
    return withTree(module, account, [&](Tree* tree) -> nlohmann::json {
        if (!tree) return error = "unknown account \"" + account + "\"", nullptr;
        const auto parts = splitPath(path);
        if (auto refused = module.refuseAdminPath(parts, true)) return error = *refused, nullptr;
        Node* folder = ensureFolders(module, *tree, parts, parts.size(), error);
        return folder ? module.renderNode(*tree, *folder) : nullptr;
    });
}

nlohmann::json changeFile(ProviderModule& module, const std::string& account, const std::string& path,
                          ByteBuffer bytes, std::string& error) {
    return withTree(module, account, [&](Tree* tree) -> nlohmann::json {
        if (!tree) return error = "unknown account \"" + account + "\"", nullptr;
        Node* node = tree->resolve(path);
        if (!node || node->isFolder) return error = "no file at " + path, nullptr;
        tree->setContent(*node, std::move(bytes));
        module.adminChanged(*tree, *node, Change::fileChanged);
        return module.renderNode(*tree, *node);
    });
}

bool remove(ProviderModule& module, const std::string& account, const std::string& path, std::string& error) {
    return withTree(module, account, [&](Tree* tree) {
        if (!tree) return error = "unknown account \"" + account + "\"", false;
        Node* node = tree->resolve(path);
        if (!node || node == &tree->root()) return error = "nothing to remove at " + path, false;
        module.adminChanged(*tree, *node, Change::removing);
        tree->remove(*node);
        return true;
    });
}

std::optional<ByteBuffer> content(ProviderModule& module, const std::string& account, const std::string& path) {
    return withTree(module, account, [&](Tree* tree) -> std::optional<ByteBuffer> {
        Node* node = tree ? tree->resolve(path) : nullptr;
        if (!node || node->isFolder) return std::nullopt;
        return node->content;
    });
}

nlohmann::json metadata(ProviderModule& module, const std::string& account, const std::string& path) {
    return withTree(module, account, [&](Tree* tree) -> nlohmann::json {
        Node* node = tree ? tree->resolve(path) : nullptr;
        return node ? module.renderNode(*tree, *node) : nullptr;
    });
}

nlohmann::json list(ProviderModule& module, const std::string& account) {
    return withTree(module, account, [&](Tree* tree) -> nlohmann::json {
        if (!tree) return nullptr;
        nlohmann::json items = nlohmann::json::array();
        for (Node* node : tree->descendants(tree->root())) items.push_back(module.renderNode(*tree, *node));
        return {{"used_bytes", tree->usedBytes()},
                {"quota_bytes", tree->quota() ? nlohmann::json(*tree->quota()) : nlohmann::json(nullptr)},
                {"items", items}};
    });
}

bool setQuota(ProviderModule& module, const std::string& account, std::int64_t bytes, bool full) {
    return withTree(module, account, [&](Tree* tree) {
        if (!tree) return false;
        if (full) {
            tree->setQuota(tree->usedBytes());
        } else if (bytes < 0) {
            tree->setQuota(std::nullopt);
        } else {
            tree->setQuota(static_cast<std::uint64_t>(bytes));
        }
        return true;
    });
}

}  // namespace vxcloud::sandbox::state
