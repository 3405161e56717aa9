// Pages: creation from an HTML or multipart body (onenote/PageBody.h), stored as a folder
// holding the Presentation HTML and each data part with its content type; and the list of a
// section's pages.
#include <algorithm>

#include "framework/Text.h"
#include "onenote/OneNoteModule.h"
#include "onenote/PageBody.h"

namespace vxcloud::sandbox::onenote {
namespace {

Node& storePart(Tree& tree, Node& page, const std::string& name, const ByteBuffer& content,
                const std::string& contentType) {
    Node& part = tree.createFile(page, name, content);
    part.attributes["kind"] = "part";
    part.attributes["contentType"] = contentType;
    return part;
}

}  // namespace

void OneNoteModule::registerPageRoutes(Router& router) {
    notesRoute(router, "POST", "sections/([^/]+)/pages", "onenote/pages/create", Access::write, [this](NotesCall& call) {
        const Settings settings = currentSettings();
        // Read and checked before the store is locked: the body may be large.
        const PageBody body = readPageBody(call.request, {settings.maxRequestBytes, settings.maxPartBytes, settings.maxParts});
        std::lock_guard lock(store().mutex());
        Tree& tree = store().tree(call.account.id);
        Node& section = entity(tree, call.request.captures[0], "section");
        std::int64_t bytes = static_cast<std::int64_t>(body.html.size());
        for (const DataPart& part : body.parts) bytes += static_cast<std::int64_t>(part.content.size());
        if (call.request.quotaFull || !tree.fits(bytes)) fail(507, "30101", {});

        // Named by its id, so the admin API finds a page by what the create answered.
        Node& page = tree.createFolder(section, randomToken(16));
        tree.move(page, section, page.id);
        page.attributes["kind"] = "page";
        page.attributes["title"] = body.title;
        if (body.created >= 0) page.attributes["created"] = body.created;
        storePart(tree, page, kPresentationName, body.html, body.htmlType);
        for (const DataPart& part : body.parts) storePart(tree, page, part.name, part.content, part.contentType);

        json out = entityJson(tree, page, call.flavor, call.root);
        out["@odata.context"] = call.flavor == Flavor::graph
                                    ? "https://graph.microsoft.com/v1.0/$metadata#users('" + call.account.id +
                                          "')/onenote/sections('" + section.id + "')/pages/$entity"
                                    : "https://www.onenote.com/api/v1.0/$metadata#me/notes/pages/$entity";
        if (body.createdUnreadable) {
            // The page is made anyway, with the time of the request; the service says why.
            out["@api.diagnostics"] = json::array(
                {{{"code", "20007"},
                  {"message", "The created date/time in the \"Presentation\" part did not match any allowed format."},
                  {"url", "http://aka.ms/onenote-errors#C20007"}}});
        }
        call.response.json(201, out);
        call.response.setHeader("Location", out["self"].get<std::string>());
    });
    notesRoute(router, "GET", "sections/([^/]+)/pages", "onenote/pages/list", Access::read, [this](NotesCall& call) {
        std::lock_guard lock(store().mutex());
        Tree& tree = store().tree(call.account.id);
        json pages = json::array();
        for (Node* page : childrenOf(tree, entity(tree, call.request.captures[0], "section"), "page")) {
            pages.push_back(entityJson(tree, *page, call.flavor, call.root));
        }
        call.response.json(200, {{"value", pages}});
    });
}

}  // namespace vxcloud::sandbox::onenote
