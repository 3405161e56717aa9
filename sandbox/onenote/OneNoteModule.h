#pragma once
// The OneNote emulator under /onenote, with the Microsoft identity platform's sign-in. One set
// of handlers serves both of the service's roots:
//   /onenote/v1.0/me/onenote/...      Microsoft Graph (names in "displayName")
//   /onenote/api/v1.0/me/notes/...    the older onenote.com API ("name", createdTime, ...)
// below which: notebooks (GET, POST), notebooks/{id}, notebooks/{id}/sections (GET, POST),
// sections, sections/{id}, sections/{id}/pages (GET, POST: HTML or multipart/form-data).
//   /onenote/common/oauth2/v2.0/authorize|token   sign-in (microsoft/Identity.h)
// Storage: notebooks are folders under an account's root, sections folders in them, a page a
// folder named by its id in its section holding the "Presentation" HTML and one file per
// data part, so the admin API reaches them by path: /Notebook/Section/<page id>/<part>.
#include <cstdint>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <string>

#include "framework/OAuthEndpoints.h"
#include "framework/ProviderModule.h"
#include "microsoft/GraphErrors.h"

namespace vxcloud::sandbox::onenote {

using nlohmann::json;
using microsoft::fail;


struct Settings {
    std::int64_t maxRequestBytes = 70LL * 1024 * 1024;  // a whole page POST
    std::int64_t maxPartBytes = 25LL * 1024 * 1024;     // one part, its headers included
    int maxParts = 6;                                   // parts of a page POST, Presentation included
    std::int64_t defaultQuota = 5LL * 1024 * 1024 * 1024;
};

// Which root a request came in on: the two differ in property names and error bodies.
enum class Flavor { graph, legacy };

enum class Access { read, write };

// One authenticated request as the handlers see it.
struct NotesCall {
    Request& request;
    Response& response;
    AccountInfo account;
    Flavor flavor;
    std::string root;  // absolute URL of the root the request used, for self links
};

class OneNoteModule : public ProviderModule {
public:
    explicit OneNoteModule(ProviderContext& context);

    void registerRoutes(Router& router) override;
    std::map<std::string, std::string> endpoints(const std::string& baseUrl) const override;
    void faultResponse(const FaultSpec& fault, const Request& request, Response& response) const override;
    void decorateResponse(const Request& request, Response& response) const override;
    json renderNode(Tree& tree, const Node& node) const override;

    Settings currentSettings() const;

private:
    // A route on both roots: bearer token, Notes scopes, errors in the root's shape.
    // `below` is the pattern after the root ("notebooks/([^/]+)/sections").
    void notesRoute(Router& router, const std::string& method, const std::string& below, const std::string& key,
                    Access access, std::function<void(NotesCall&)> handler);
    void registerNotebookRoutes(Router& router);  // OneNoteNotebooks.cpp
    void registerPageRoutes(Router& router);      // OneNotePages.cpp

    // A notebook, section or page as the API shows it. Store lock held.
    json entityJson(Tree& tree, const Node& node, Flavor flavor, const std::string& root) const;
    // The node of that kind with that id, else 404 20102. Store lock held.
    Node& entity(Tree& tree, const std::string& id, const char* kind) const;
    // GET answers for a collection: $select, $orderby, $top, $expand=sections (notebooks).
    void answerList(NotesCall& call, Tree& tree, const std::vector<Node*>& nodes, const std::string& what) const;
    // A notebook or section named in a create request's body, under `parent`.
    Node& createContainer(NotesCall& call, Tree& tree, Node& parent, const char* kind);

    std::string rootUrl(Flavor flavor) const;

    OAuthEndpoints oauth_;
    Settings settings_;  // guarded by store().mutex()
};

// Which root a request's path is under.
Flavor flavorOf(const Request& request);
// The error body of that root: Graph's envelope, or the older API's with "@api.url".
void answerError(const Request& request, Response& response, const microsoft::GraphError& error);
// What a node is: "notebook", "section", "page", "part" as made through the API, or for what
// the admin API or a seed file put in, what its place makes it (a folder at the top is a
// notebook, one in a notebook a section); "root", "folder" or "file" otherwise.
std::string kindOf(const Tree& tree, const Node& node);
// The nodes of one kind directly in `parent`.
std::vector<Node*> childrenOf(Tree& tree, const Node& parent, const std::string& kind);

}  // namespace vxcloud::sandbox::onenote
