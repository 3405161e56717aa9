// Files: get, rename and move, delete, and downloads: /content answers a 302 to a
// pre-authenticated URL that serves one version's bytes (with Range) without a token.
#include "box/BoxItems.h"
#include "box/BoxModule.h"
#include "framework/Text.h"

namespace vxcloud::sandbox::box {
namespace {

const std::string kFile = std::string(kApiPattern) + "/files/([^/]+)";
// Box's download URLs are good for about 15 minutes.
constexpr std::int64_t kDownloadLifetime = 15 * 60;
// Renames and moves list the item in the way in an array, as the folder endpoints do.
constexpr bool kUpdateConflictsAsArray = true;

}  // namespace

std::string BoxModule::downloadUrl(const std::string& accountId, const Node& file, const std::string& rev) {
    const std::string grant = downloads_.add(DownloadGrant{accountId, file.id, rev}, kDownloadLifetime, "", 48);
    return context().baseUrl() + "/box/dl/" + grant;
}

void BoxModule::registerFileRoutes(Router& router) {
    apiRoute(router, "GET", kFile, "box/files/get", [this](BoxCall& call) {
        std::lock_guard lock(store().mutex());
        Tree& tree = store().tree(call.account.id);
        const Node& file = fileById(tree, call.request.captures.at(0), "file");
        if (notModified(file, call.request)) return call.response.empty(304);
        const auto fields = call.request.queryParam("fields");
        call.response.json(200, fields ? projected(fullJson(tree, file), *fields) : fullJson(tree, file));
    });

    apiRoute(router, "PUT", kFile, "box/files/update", [this](BoxCall& call) {
        const json body = bodyObject(call.request);
        const Attributes wanted = readAttributes(body);
        std::lock_guard lock(store().mutex());
        Tree& tree = store().tree(call.account.id);
        Node& file = fileById(tree, call.request.captures.at(0), "file");
        checkIfMatch(file, call.request);
        Node* target = wanted.parentId ? &folderById(tree, *wanted.parentId, "parent") : tree.find(file.parentId);
        const std::string name = wanted.name.value_or(file.name);
        checkName(name);
        if (const Node* clash = nameClash(tree, *target, name, &file)) failNameInUse(*clash, kUpdateConflictsAsArray);
        if (target->id != file.parentId || name != file.name) tree.move(file, *target, name);
        call.response.json(200, fullJson(tree, file));
    });

    apiRoute(router, "DELETE", kFile, "box/files/delete", [this](BoxCall& call) {
        std::lock_guard lock(store().mutex());
        Tree& tree = store().tree(call.account.id);
        Node& file = fileById(tree, call.request.captures.at(0), "file");
        checkIfMatch(file, call.request);
        tree.remove(file);
        call.response.empty(204);
    });

    apiRoute(router, "GET", kFile + "/content", "box/files/content", [this](BoxCall& call) {
        std::lock_guard lock(store().mutex());
        Tree& tree = store().tree(call.account.id);
        const Node& file = fileById(tree, call.request.captures.at(0), "file");
        std::string rev = file.rev;
        if (const auto version = call.request.queryParam("version")) {
            const auto found = tree.findRevision(*version);
            if (!found || found->first != &file) failNotFound("version", *version, false);
            rev = *version;
        }
        if (settings_.downloadRedirect) return call.response.redirect(downloadUrl(call.account.id, file, rev));
        const auto found = tree.findRevision(rev);
        call.response.serveContent(call.request, found->second.content, mimeTypeForName(file.name));
    });

    router.add("GET", "/box/dl/([A-Za-z0-9_-]+)", "box/download", [this](Request& request, Response& response) {
        try {
            std::lock_guard lock(store().mutex());
            const DownloadGrant* grant = downloads_.find(request.captures.at(0));
            if (!grant) fail(404, "not_found", "Not Found");
            Tree& tree = store().tree(grant->accountId);
            const auto found = tree.findRevision(grant->rev);
            if (!found || found->first->id != grant->fileId) fail(404, "not_found", "Not Found");
            response.serveContent(request, found->second.content, mimeTypeForName(found->first->name));
        } catch (const BoxError& error) {
            answerError(response, error);
        }
    });
}

}  // namespace vxcloud::sandbox::box
