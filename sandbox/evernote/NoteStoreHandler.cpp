// What every NoteStore call shares: the token gate of this shard, and finding the caller's
// notebooks and notes with the service's refusals.
#include "evernote/EdamHandlers.h"
#include "evernote/NoteRules.h"

namespace vxcloud::sandbox::evernote {

AccountInfo NoteStoreHandler::caller(const std::string& token) const {
    const EdamCaller who = module_.authenticate(token);
    if (who.errorCode) failUser(static_cast<Code>(who.errorCode), "authenticationToken");
    // A working token on another user's shard: the service refuses it as not allowed here.
    if (who.shard != shard_) failUser(edam::EDAMErrorCode::PERMISSION_DENIED, "authenticationToken");
    return who.account;
}

Node& NoteStoreHandler::ownNotebook(Tree& tree, const AccountInfo& account, const std::string& guid,
                                    const Naming& naming) {
    if (!isGuid(guid)) failUser(edam::EDAMErrorCode::BAD_DATA_FORMAT, naming.badFormat);
    if (Node* notebook = notebookByGuid(tree, guid)) return *notebook;
    if (module_.ownerOf(guid, account.id)) failUser(edam::EDAMErrorCode::PERMISSION_DENIED, naming.notYours);
    failNotFound(naming.notFound, guid);
}

Node& NoteStoreHandler::ownNote(Tree& tree, const AccountInfo& account, const std::string& guid, const Naming& naming) {
    if (!isGuid(guid)) failUser(edam::EDAMErrorCode::BAD_DATA_FORMAT, naming.badFormat);
    if (Node* note = noteByGuid(tree, guid)) return *note;
    if (module_.ownerOf(guid, account.id)) failUser(edam::EDAMErrorCode::PERMISSION_DENIED, naming.notYours);
    failNotFound(naming.notFound, guid);
}

Node& NoteStoreHandler::defaultNotebookOf(Tree& tree, const AccountInfo& account) {
    if (Node* notebook = defaultNotebook(tree)) return *notebook;
    Node& made = tree.createFolder(tree.root(), account.givenName + "'s Notebook");
    initNotebook(tree, made, module_.nowMs(), true);
    return made;
}

}  // namespace vxcloud::sandbox::evernote
