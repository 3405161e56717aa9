// Notebooks and sections: lists with the OData options clients use, and creation with the
// service's name rules (length, characters, uniqueness within the parent).
#include <algorithm>
#include <cstdlib>
#include <optional>

#include "framework/Text.h"
#include "onenote/OneNoteModule.h"

namespace vxcloud::sandbox::onenote {
namespace {

struct NameRule {
    std::size_t maxLength;
    std::string forbidden;
    const char* forbiddenCode;
};

NameRule ruleFor(const std::string& kind, Flavor flavor) {
    // The two roots' references list different characters for notebooks; sections share one
    // list, Graph's adding the apostrophe.
    if (kind == "notebook") {
        return {128, flavor == Flavor::graph ? "?*\\/:<>|'\"" : "?*\\/:<>|&#\"%", "20115"};
    }
    return {50, flavor == Flavor::graph ? "?*\\/:<>|&#\"%~'" : "?*\\/:<>|&#\"%~", "20153"};
}

std::size_t codePoints(const std::string& text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

void checkName(const std::string& name, const std::string& kind, Flavor flavor) {
    if (name.find_first_not_of(" \t\r\n") == std::string::npos) {
        fail(400, "20152", "The name must be defined and cannot contain whitespace only.");
    }
    const NameRule rule = ruleFor(kind, flavor);
    if (name.front() == ' ') fail(400, "20154", "The entity name cannot start with a space.");
    if (codePoints(name) > rule.maxLength) {
        fail(400, "20155", "The entity name is too long; the limit is " + std::to_string(rule.maxLength) + " characters.");
    }
    if (name.find_first_of(rule.forbidden) != std::string::npos) {
        fail(400, rule.forbiddenCode, "The name contains invalid characters: " + rule.forbidden);
    }
}

// An OData option; the older root also took them without the dollar sign.
std::optional<std::string> option(const NotesCall& call, const std::string& name) {
    if (auto value = call.request.queryParam("$" + name)) return value;
    if (call.flavor == Flavor::legacy) return call.request.queryParam(name);
    return std::nullopt;
}

std::vector<std::string> commaList(const std::string& text) {
    std::vector<std::string> out;
    std::size_t pos = 0;
    while (pos <= text.size()) {
        std::size_t end = text.find(',', pos);
        if (end == std::string::npos) end = text.size();
        std::string item = text.substr(pos, end - pos);
        item.erase(0, item.find_first_not_of(' '));
        item.erase(item.find_last_not_of(' ') + 1);
        if (!item.empty()) out.push_back(item);
        pos = end + 1;
    }
    return out;
}

// "displayName desc" → a comparison of two rendered entities.
void sortEntities(std::vector<json>& entities, const std::string& orderBy, Flavor flavor) {
    std::string property = orderBy.substr(0, orderBy.find(' '));
    const std::string direction = orderBy.size() > property.size() ? asciiLower(orderBy.substr(property.size() + 1)) : "";
    if (property == "name" || property == "displayName") property = flavor == Flavor::graph ? "displayName" : "name";
    if (direction != "" && direction != "asc" && direction != "desc") {
        fail(400, "20128", "Syntax error in $orderby at '" + direction + "'.");
    }
    if (!entities.empty() && !entities.front().contains(property)) {
        fail(400, "20127", "The property '" + property + "' does not exist.");
    }
    const bool descending = direction == "desc";
    std::stable_sort(entities.begin(), entities.end(), [&](const json& a, const json& b) {
        const std::string x = foldCase(a[property].dump()), y = foldCase(b[property].dump());
        return descending ? y < x : x < y;
    });
}

}  // namespace

void OneNoteModule::answerList(NotesCall& call, Tree& tree, const std::vector<Node*>& nodes,
                               const std::string& what) const {
    std::vector<json> entities;
    for (Node* node : nodes) entities.push_back(entityJson(tree, *node, call.flavor, call.root));
    sortEntities(entities, option(call, "orderby").value_or("name asc"), call.flavor);
    if (const auto expand = option(call, "expand")) {
        for (const std::string& item : commaList(*expand)) {
            if (item != "sections" || what != "notebooks") fail(400, "20145", "Invalid $expand term: " + item);
            for (json& notebook : entities) {
                json sections = json::array();
                for (Node* section : childrenOf(tree, *tree.find(notebook["id"].get<std::string>()), "section")) {
                    sections.push_back(entityJson(tree, *section, call.flavor, call.root));
                }
                notebook["sections"] = sections;
            }
        }
    }
    if (const auto top = option(call, "top")) {
        const int n = std::atoi(top->c_str());
        if (n < 1 || std::to_string(n) != *top) fail(400, "20128", "Invalid $top value.");
        if (entities.size() > static_cast<std::size_t>(n)) entities.resize(static_cast<std::size_t>(n));
    }
    if (const auto select = option(call, "select")) {
        const std::vector<std::string> wanted = commaList(*select);
        for (json& entity : entities) {
            json kept = json::object();
            for (const std::string& property : wanted) {
                if (!entity.contains(property)) fail(400, "20145", "Invalid $select term: " + property);
                kept[property] = entity[property];
            }
            if (entity.contains("sections")) kept["sections"] = entity["sections"];
            entity = kept;
        }
    }
    json body = {{"value", entities}};
    if (call.flavor == Flavor::graph) {
        body["@odata.context"] = "https://graph.microsoft.com/v1.0/$metadata#users('" + call.account.id + "')/onenote/" + what;
    } else {
        body["@odata.context"] = "https://www.onenote.com/api/v1.0/$metadata#me/notes/" + what;
    }
    call.response.json(200, body);
}

Node& OneNoteModule::createContainer(NotesCall& call, Tree& tree, Node& parent, const char* kind) {
    const json body = json::parse(call.request.body.view(), nullptr, false);
    if (!body.is_object()) fail(400, "20020", "Encountered malformed JSON in the request body.");
    const char* wanted = call.flavor == Flavor::graph ? "displayName" : "name";
    const char* other = call.flavor == Flavor::graph ? "name" : "displayName";
    if (!body.contains(wanted) && body.contains(other)) {
        fail(400, "20126", std::string("The property '") + other + "' is not supported here; use '" + wanted + "'.");
    }
    const json value = body.contains(wanted) ? body.at(wanted) : json();
    if (!value.is_null() && !value.is_string()) fail(400, "20126", std::string("'") + wanted + "' must be a string.");
    const std::string name = value.is_string() ? value.get<std::string>() : std::string();
    checkName(name, kind, call.flavor);
    for (Node* sibling : childrenOf(tree, parent, kind)) {
        if (equalsFolded(sibling->name, name)) fail(409, "20117", {});
    }
    Node& node = tree.createFolder(parent, name);
    node.attributes["kind"] = kind;
    return node;
}

void OneNoteModule::registerNotebookRoutes(Router& router) {
    notesRoute(router, "GET", "notebooks", "onenote/notebooks/list", Access::read, [this](NotesCall& call) {
        std::lock_guard lock(store().mutex());
        Tree& tree = store().tree(call.account.id);
        answerList(call, tree, childrenOf(tree, tree.root(), "notebook"), "notebooks");
    });
    notesRoute(router, "POST", "notebooks", "onenote/notebooks/create", Access::write, [this](NotesCall& call) {
        std::lock_guard lock(store().mutex());
        Tree& tree = store().tree(call.account.id);
        Node& notebook = createContainer(call, tree, tree.root(), "notebook");
        json out = entityJson(tree, notebook, call.flavor, call.root);
        call.response.json(201, out);
        call.response.setHeader("Location", out["self"].get<std::string>());
    });
    notesRoute(router, "GET", "notebooks/([^/]+)", "onenote/notebooks/get", Access::read, [this](NotesCall& call) {
        std::lock_guard lock(store().mutex());
        Tree& tree = store().tree(call.account.id);
        call.response.json(200, entityJson(tree, entity(tree, call.request.captures[0], "notebook"), call.flavor, call.root));
    });
    notesRoute(router, "GET", "notebooks/([^/]+)/sections", "onenote/sections/list", Access::read, [this](NotesCall& call) {
        std::lock_guard lock(store().mutex());
        Tree& tree = store().tree(call.account.id);
        answerList(call, tree, childrenOf(tree, entity(tree, call.request.captures[0], "notebook"), "section"), "sections");
    });
    notesRoute(router, "GET", "sections", "onenote/sections/list", Access::read, [this](NotesCall& call) {
        std::lock_guard lock(store().mutex());
        Tree& tree = store().tree(call.account.id);
        std::vector<Node*> sections;
        for (Node* node : tree.descendants(tree.root())) {
            if (kindOf(tree, *node) == "section") sections.push_back(node);
        }
        answerList(call, tree, sections, "sections");
    });
    notesRoute(router, "POST", "notebooks/([^/]+)/sections", "onenote/sections/create", Access::write,
               [this](NotesCall& call) {
                   std::lock_guard lock(store().mutex());
                   Tree& tree = store().tree(call.account.id);
                   Node& notebook = entity(tree, call.request.captures[0], "notebook");
                   Node& section = createContainer(call, tree, notebook, "section");
                   json out = entityJson(tree, section, call.flavor, call.root);
                   call.response.json(201, out);
                   call.response.setHeader("Location", out["self"].get<std::string>());
               });
    notesRoute(router, "GET", "sections/([^/]+)", "onenote/sections/get", Access::read, [this](NotesCall& call) {
        std::lock_guard lock(store().mutex());
        Tree& tree = store().tree(call.account.id);
        call.response.json(200, entityJson(tree, entity(tree, call.request.captures[0], "section"), call.flavor, call.root));
    });
}

}  // namespace vxcloud::sandbox::onenote
