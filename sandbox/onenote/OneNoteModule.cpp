#include "onenote/OneNoteModule.h"

#include <ctime>

#include "framework/Hashes.h"
#include "framework/Text.h"
#include "microsoft/Identity.h"

namespace vxcloud::sandbox::onenote {
namespace {

const char* kSeededScope = "Notes.Create Notes.ReadWrite User.Read offline_access";
const char* kGraphRoot = "/onenote/v1.0/me/onenote";
const char* kLegacyRoot = "/onenote/api/v1.0/me/notes";
// Graph's own root, whose /me/drive names a signed-in OneNote user (the notebooks live there).
const char* kGraphUserRoot = "/onenote/v1.0";

IdScheme idScheme() {
    // Ids shaped like the documented ones: "1-" and a GUID. Opaque to clients.
    IdScheme scheme;
    scheme.rootId = "0-" + randomGuid();
    scheme.newId = [] { return "1-" + randomGuid(); };
    scheme.newRev = [] { return randomHex(12); };
    return scheme;
}

std::string defaultCode(int status) {
    switch (status) {
        case 401: return "40001";
        case 403: return "40004";
        case 404: return "20102";
        case 409: return "20117";
        case 413: return "20008";
        case 429: return "20166";
        case 503: return "10002";
        case 507: return "30101";
        default: return status >= 500 ? "10001" : "20100";
    }
}

std::string defaultMessage(const std::string& code) {
    static const std::map<std::string, std::string> texts = {
        {"10001", "An unexpected error occurred and the request failed."},
        {"10002", "The service is not currently available."},
        {"10007", "The server is too busy to handle the incoming request at this moment. Try again later."},
        {"20008", "The size of the request is too large."},
        {"20100", "Something is wrong with the syntax of your request."},
        {"20102", "The requested resource does not exist."},
        {"20117", "An item with this name already exists in this location."},
        {"20166", "The app has issued too many requests on behalf of this user in a short time period."},
        {"30101", "The user account has exceeded its OneDrive quota."},
        {"40001", "The request does not contain a valid authentication token."},
        {"40004", "The OAuth token does not have the required scopes to perform the requested action."},
    };
    const auto it = texts.find(code);
    return it != texts.end() ? it->second : "The request failed.";
}

// Notes.Create is enough to list notebooks and sections and to create them and pages; the
// older API's scopes are accepted on either root.
bool mayWrite(const std::string& scope) {
    for (const char* name : {"Notes.Create", "Notes.ReadWrite", "Notes.ReadWrite.All", "office.onenote_create",
                             "office.onenote_update", "office.onenote_update_by_app"}) {
        if (microsoft::hasScope(scope, name)) return true;
    }
    return false;
}

bool mayRead(const std::string& scope) {
    return mayWrite(scope) || microsoft::hasScope(scope, "Notes.Read") || microsoft::hasScope(scope, "Notes.Read.All") ||
           microsoft::hasScope(scope, "office.onenote");
}

}  // namespace

Flavor flavorOf(const Request& request) {
    return request.path.rfind(kLegacyRoot, 0) == 0 ? Flavor::legacy : Flavor::graph;
}

std::string kindOf(const Tree& tree, const Node& node) {
    if (node.attributes.contains("kind")) return node.attributes["kind"].get<std::string>();
    if (node.parentId.empty()) return "root";
    const Node* parent = tree.find(node.parentId);
    if (!node.isFolder || !parent) return "file";
    const std::string above = kindOf(tree, *parent);
    return above == "root" ? "notebook" : above == "notebook" ? "section" : "folder";
}

std::vector<Node*> childrenOf(Tree& tree, const Node& parent, const std::string& kind) {
    std::vector<Node*> out;
    for (Node* child : tree.children(parent)) {
        if (kindOf(tree, *child) == kind) out.push_back(child);
    }
    return out;
}

void answerError(const Request& request, Response& response, const microsoft::GraphError& error) {
    microsoft::GraphError worded = error;
    if (worded.message.empty()) worded.message = defaultMessage(error.code);
    if (flavorOf(request) == Flavor::graph) return microsoft::answerGraphError(request, response, worded);
    // The older API links each code to its page of the error reference instead.
    response.json(error.status, {{"error",
                                  {{"code", worded.code},
                                   {"message", worded.message},
                                   {"@api.url", "http://aka.ms/onenote-errors#C" + worded.code}}}});
}

OneNoteModule::OneNoteModule(ProviderContext& context)
    : ProviderModule("onenote", context, microsoft::tokenPolicy(), idScheme()), oauth_(*this, microsoft::oauthHooks()) {
    bindSettings(settings_, "OneNote",
                 {setting("max_request_bytes", &Settings::maxRequestBytes, 1),
                  setting("max_part_bytes", &Settings::maxPartBytes, 1),
                  setting("max_parts", &Settings::maxParts, 1, 500)});
    const std::pair<std::string, std::string> people[] = {{"Ada", "Lovelace"}, {"Grace", "Hopper"}};
    for (const auto& [given, surname] : people) {
        AccountInfo account;
        account.email = asciiLower(given) + "@example.com";
        // Personal accounts' ids are 16 hex digits.
        account.id = sha256Hex("vxcloud-sandbox/onenote/" + account.email).substr(0, 16);
        account.givenName = given;
        account.surname = surname;
        const AccountInfo added = addAccount(account, kSeededScope);
        std::lock_guard lock(store().mutex());
        store().tree(added.id).setQuota(static_cast<std::uint64_t>(settings_.defaultQuota));
    }
}

std::map<std::string, std::string> OneNoteModule::endpoints(const std::string& baseUrl) const {
    return {{"api", baseUrl + kGraphRoot},
            {"legacy", baseUrl + kLegacyRoot},
            {"graph", baseUrl + kGraphUserRoot},
            {"authorize", microsoft::authorizeUrl(baseUrl, name())},
            {"token", microsoft::tokenUrl(baseUrl, name())}};
}

std::string OneNoteModule::rootUrl(Flavor flavor) const {
    return context_.baseUrl() + (flavor == Flavor::graph ? kGraphRoot : kLegacyRoot);
}

void OneNoteModule::registerRoutes(Router& router) {
    microsoft::registerSignIn(router, oauth_, name());
    router.add("GET", Router::escape(std::string(kGraphUserRoot) + "/me/drive") + "/?", "onenote/drive/get",
               [this](Request& request, Response& response) {
                   try {
                       const Caller who = caller(request);
                       microsoft::requireValidToken(who);
                       bool files = false;
                       for (const char* scope : {"Files.Read", "Files.ReadWrite", "Files.Read.All", "Files.ReadWrite.All"}) {
                           files = files || microsoft::hasScope(who.scope, scope);
                       }
                       if (!files) fail(403, "accessDenied", "Access denied");
                       const AccountInfo& a = who.account;
                       response.json(200, {{"id", sha256Hex("vxcloud-sandbox/onenote/drive/" + a.id).substr(0, 16)},
                                           {"driveType", "personal"},
                                           {"owner", {{"user", {{"id", a.id}, {"displayName", a.displayName()}}}}}});
                   } catch (const microsoft::GraphError& error) {
                       answerError(request, response, error);
                   }
               });
    registerNotebookRoutes(router);
    registerPageRoutes(router);
}

Settings OneNoteModule::currentSettings() const {
    std::lock_guard lock(store_.mutex());
    return settings_;
}

void OneNoteModule::faultResponse(const FaultSpec& fault, const Request& request, Response& response) const {
    if (microsoft::isSignInRoute(request.routeKey, name())) return microsoft::answerSignInFault(fault, response);
    // OneNote's 429s carry no Retry-After of their own; a fault's retry-after adds one.
    answerError(request, response, {fault.status, fault.error.empty() ? defaultCode(fault.status) : fault.error, {}, {}});
}

void OneNoteModule::decorateResponse(const Request& request, Response& response) const {
    microsoft::addRequestIds(request, response);
    response.setHeader("X-CorrelationId", response.header("request-id").value_or(""));
}

void OneNoteModule::notesRoute(Router& router, const std::string& method, const std::string& below,
                               const std::string& key, Access access, std::function<void(NotesCall&)> handler) {
    auto handle = [this, access, handler = std::move(handler)](Request& request, Response& response) {
        try {
            const Flavor flavor = flavorOf(request);
            const Caller who = caller(request);
            if (flavor == Flavor::legacy && !who.valid()) fail(401, "40001", {});
            microsoft::requireValidToken(who);
            if (!(access == Access::write ? mayWrite(who.scope) : mayRead(who.scope))) fail(403, "40004", {});
            NotesCall call{request, response, who.account, flavor, rootUrl(flavor)};
            handler(call);
        } catch (const microsoft::GraphError& error) {
            answerError(request, response, error);
        }
    };
    for (const char* root : {kGraphRoot, kLegacyRoot}) {
        router.add(method, Router::escape(root) + "/" + below + "/?", key, handle);
    }
}

Node& OneNoteModule::entity(Tree& tree, const std::string& id, const char* kind) const {
    Node* node = tree.find(id);
    if (!node || kindOf(tree, *node) != kind) {
        fail(404, "20102", "The specified resource ID does not exist.");
    }
    return *node;
}

json OneNoteModule::entityJson(Tree& tree, const Node& node, Flavor flavor, const std::string& root) const {
    const bool graph = flavor == Flavor::graph;
    const std::string kind = kindOf(tree, node);
    const std::string ownerId = store_.ownerOf(tree);
    const auto owner = findAccount(ownerId);
    const std::string ownerName = owner ? owner->displayName() : std::string();
    const std::int64_t created = node.attributes.value("created", node.created);
    json out = {{"id", node.id}};
    out[graph ? "createdDateTime" : "createdTime"] = microsoft::graphTime(created);
    out[graph ? "lastModifiedDateTime" : "lastModifiedTime"] = microsoft::graphTime(node.serverModified);
    const std::string webUrl = "https://onedrive.live.com/redir.aspx?cid=" + ownerId + "&resid=" + node.id;
    if (kind == "page") {
        out["title"] = node.attributes.value("title", std::string());
        out["createdByAppId"] = node.attributes.value("createdByAppId", std::string());
        out["self"] = root + "/pages/" + node.id;
        out["contentUrl"] = root + "/pages/" + node.id + "/content";
        out["links"] = {{"oneNoteClientUrl", {{"href", "onenote:" + webUrl + "&page-id=" + node.id}}},
                        {"oneNoteWebUrl", {{"href", webUrl + "&page-id=" + node.id}}}};
        return out;
    }
    out[graph ? "displayName" : "name"] = node.name;
    out["isDefault"] = false;
    out["links"] = {{"oneNoteClientUrl", {{"href", "onenote:" + webUrl}}}, {"oneNoteWebUrl", {{"href", webUrl}}}};
    if (graph) {
        const json user = {{"user", {{"id", ownerId}, {"displayName", ownerName}}}};
        out["createdBy"] = user;
        out["lastModifiedBy"] = user;
    } else {
        out["createdBy"] = ownerName;
        out["lastModifiedBy"] = ownerName;
    }
    if (kind == "notebook") {
        out["self"] = root + "/notebooks/" + node.id;
        out["isShared"] = false;
        out["userRole"] = "Owner";
        out["sectionsUrl"] = root + "/notebooks/" + node.id + "/sections";
        out["sectionGroupsUrl"] = root + "/notebooks/" + node.id + "/sectionGroups";
    } else {
        out["self"] = root + "/sections/" + node.id;
        out["pagesUrl"] = root + "/sections/" + node.id + "/pages";
        if (const Node* notebook = tree.find(node.parentId)) {
            out["parentNotebook"] = {{"id", notebook->id},
                                     {graph ? "displayName" : "name", notebook->name},
                                     {"self", root + "/notebooks/" + notebook->id}};
        }
    }
    return out;
}

json OneNoteModule::renderNode(Tree& tree, const Node& node) const {
    const std::string kind = kindOf(tree, node);
    if (kind == "root") return {{"kind", kind}, {"path", "/"}};
    if (kind == "part" || kind == "file" || kind == "folder") {
        return {{"kind", kind},
                {"name", node.name},
                {"path", tree.displayPath(node)},
                {"size", node.size()},
                {"contentType", node.attributes.value("contentType", std::string())}};
    }
    json out = entityJson(tree, node, Flavor::graph, rootUrl(Flavor::graph));
    out["kind"] = kind;
    out["path"] = tree.displayPath(node);
    if (kind == "page") {
        json parts = json::array();
        for (Node* part : tree.children(node)) parts.push_back(renderNode(tree, *part));
        out["parts"] = parts;
    }
    return out;
}

}  // namespace vxcloud::sandbox::onenote
