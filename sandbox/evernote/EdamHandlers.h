#pragma once
// The UserStore and NoteStore services of one request: each call checks its authentication
// token, then works on the caller's tree under the store lock. Refusals are thrown as EDAM's
// exceptions (EdamErrors.h); the generated processors answer them.
#include <string>

#include "NoteStore.h"
#include "UserStore.h"
#include "evernote/EdamErrors.h"
#include "evernote/EvernoteModule.h"

namespace vxcloud::sandbox::evernote {

class UserStoreHandler : public edam::UserStoreIf {
public:
    explicit UserStoreHandler(EvernoteModule& module) : module_(module) {}

    bool checkVersion(const std::string& clientName, int16_t major, int16_t minor) override;
    void getUser(edam::User& out, const std::string& token) override;
    void getUserUrls(edam::UserUrls& out, const std::string& token) override;
    void getNoteStoreUrl(std::string& out, const std::string& token) override;

private:
    EdamCaller caller(const std::string& token) const;

    EvernoteModule& module_;
};

class NoteStoreHandler : public edam::NoteStoreIf {
public:
    NoteStoreHandler(EvernoteModule& module, const Request& request, std::string shard)
        : module_(module), request_(request), shard_(std::move(shard)) {}

    // Notebooks.cpp
    void listNotebooks(std::vector<edam::Notebook>& out, const std::string& token) override;
    void getNotebook(edam::Notebook& out, const std::string& token, const edam::Guid& guid) override;
    void getDefaultNotebook(edam::Notebook& out, const std::string& token) override;
    void createNotebook(edam::Notebook& out, const std::string& token, const edam::Notebook& notebook) override;
    // FindNotes.cpp
    void findNotes(edam::NoteList& out, const std::string& token, const edam::NoteFilter& filter, int32_t offset,
                   int32_t maxNotes) override;
    void findNotesMetadata(edam::NotesMetadataList& out, const std::string& token, const edam::NoteFilter& filter,
                           int32_t offset, int32_t maxNotes, const edam::NotesMetadataResultSpec& wanted) override;
    // Notes.cpp
    void getNote(edam::Note& out, const std::string& token, const edam::Guid& guid, bool withContent,
                 bool withResourcesData, bool withResourcesRecognition, bool withResourcesAlternateData) override;
    void createNote(edam::Note& out, const std::string& token, const edam::Note& note) override;
    void updateNote(edam::Note& out, const std::string& token, const edam::Note& note) override;

private:
    // The account a token speaks for, on this shard (NoteStoreHandler.cpp); throws the refusal.
    AccountInfo caller(const std::string& token) const;
    // How a call names a notebook or note it refers to, for its refusals.
    struct Naming {
        const char* badFormat;  // BAD_DATA_FORMAT parameter when it is not a GUID
        const char* notYours;   // PERMISSION_DENIED parameter when another account has it
        const char* notFound;   // EDAMNotFoundException identifier
    };
    // Store lock held.
    Node& ownNotebook(Tree& tree, const AccountInfo& account, const std::string& guid, const Naming& naming);
    Node& ownNote(Tree& tree, const AccountInfo& account, const std::string& guid, const Naming& naming);
    // The notebook notes go to without one named; made when the account has none left.
    Node& defaultNotebookOf(Tree& tree, const AccountInfo& account);
    // The notes a filter selects, in its order (FindNotes.cpp).
    std::vector<Node*> select(Tree& tree, const AccountInfo& account, const edam::NoteFilter& filter);
    // A createNote or updateNote's resources, checked and made ready to store (Notes.cpp);
    // store lock held.
    struct Incoming;
    std::vector<Incoming> incomingResources(const std::vector<edam::Resource>& resources,
                                            const nlohmann::json& existing, std::int32_t usn, const Settings& settings);

    EvernoteModule& module_;
    const Request& request_;
    std::string shard_;
};

}  // namespace vxcloud::sandbox::evernote
