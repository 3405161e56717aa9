// NoteStore's notebook calls: list, get, the default one, create.
#include <mutex>

#include "evernote/EdamForms.h"
#include "evernote/EdamHandlers.h"
#include "evernote/NoteRules.h"

namespace vxcloud::sandbox::evernote {
namespace {

const char* kNotebookGuid = "Notebook.guid";

bool nothingSet(const edam::Notebook& n) {
    const auto& s = n.__isset;
    return !s.guid && !s.name && !s.updateSequenceNum && !s.defaultNotebook && !s.serviceCreated && !s.serviceUpdated &&
           !s.published && !s.stack;
}

}  // namespace

void NoteStoreHandler::listNotebooks(std::vector<edam::Notebook>& out, const std::string& token) {
    const AccountInfo account = caller(token);
    std::lock_guard lock(module_.store().mutex());
    for (Node* notebook : notebooksOf(module_.store().tree(account.id))) out.push_back(notebookForm(*notebook));
}

void NoteStoreHandler::getNotebook(edam::Notebook& out, const std::string& token, const edam::Guid& guid) {
    const AccountInfo account = caller(token);
    std::lock_guard lock(module_.store().mutex());
    Tree& tree = module_.store().tree(account.id);
    out = notebookForm(ownNotebook(tree, account, guid, {kNotebookGuid, "Notebook", kNotebookGuid}));
}

void NoteStoreHandler::getDefaultNotebook(edam::Notebook& out, const std::string& token) {
    const AccountInfo account = caller(token);
    std::lock_guard lock(module_.store().mutex());
    out = notebookForm(defaultNotebookOf(module_.store().tree(account.id), account));
}

void NoteStoreHandler::createNotebook(edam::Notebook& out, const std::string& token, const edam::Notebook& notebook) {
    const AccountInfo account = caller(token);
    if (nothingSet(notebook)) failUser(edam::EDAMErrorCode::DATA_REQUIRED, "Notebook");
    if (!notebook.__isset.name || !validName(notebook.name, kNotebookNameLengthMax)) {
        failUser(edam::EDAMErrorCode::BAD_DATA_FORMAT, "Notebook.name");
    }
    if (notebook.__isset.stack && !validName(notebook.stack, kNotebookNameLengthMax)) {
        failUser(edam::EDAMErrorCode::BAD_DATA_FORMAT, "Notebook.stack");
    }
    const Settings settings = module_.currentSettings();
    std::lock_guard lock(module_.store().mutex());
    Tree& tree = module_.store().tree(account.id);
    // Names are unique ignoring case (the tree compares names case-folded).
    if (tree.child(tree.root(), notebook.name)) failUser(edam::EDAMErrorCode::DATA_CONFLICT, "Notebook.name");
    if (notebooksOf(tree).size() >= static_cast<std::size_t>(settings.notebooksMax)) {
        failUser(edam::EDAMErrorCode::LIMIT_REACHED, "Notebook");
    }
    Node& made = tree.createFolder(tree.root(), notebook.name);
    initNotebook(tree, made, module_.nowMs(), notebook.__isset.defaultNotebook && notebook.defaultNotebook);
    if (notebook.__isset.stack) made.attributes["stack"] = notebook.stack;
    out = notebookForm(made);
}

}  // namespace vxcloud::sandbox::evernote
