#include "evernote/EdamFaults.h"

#include "NoteStore.h"
#include "UserStore.h"
#include "evernote/ThriftCalls.h"

namespace vxcloud::sandbox::evernote {
namespace {

// Every method fails with the injected exception.
class FailingUserStore : public edam::UserStoreIf {
public:
    explicit FailingUserStore(InjectedError error) : error_(std::move(error)) {}
    bool checkVersion(const std::string&, int16_t, int16_t) override { error_.raise(); }
    void getUser(edam::User&, const std::string&) override { error_.raise(); }
    void getUserUrls(edam::UserUrls&, const std::string&) override { error_.raise(); }
    void getNoteStoreUrl(std::string&, const std::string&) override { error_.raise(); }

private:
    InjectedError error_;
};

class FailingNoteStore : public edam::NoteStoreIf {
public:
    explicit FailingNoteStore(InjectedError error) : error_(std::move(error)) {}
    void listNotebooks(std::vector<edam::Notebook>&, const std::string&) override { error_.raise(); }
    void getNotebook(edam::Notebook&, const std::string&, const edam::Guid&) override { error_.raise(); }
    void getDefaultNotebook(edam::Notebook&, const std::string&) override { error_.raise(); }
    void createNotebook(edam::Notebook&, const std::string&, const edam::Notebook&) override { error_.raise(); }
    void findNotes(edam::NoteList&, const std::string&, const edam::NoteFilter&, int32_t, int32_t) override {
        error_.raise();
    }
    void findNotesMetadata(edam::NotesMetadataList&, const std::string&, const edam::NoteFilter&, int32_t, int32_t,
                           const edam::NotesMetadataResultSpec&) override {
        error_.raise();
    }
    void getNote(edam::Note&, const std::string&, const edam::Guid&, bool, bool, bool, bool) override {
        error_.raise();
    }
    void createNote(edam::Note&, const std::string&, const edam::Note&) override { error_.raise(); }
    void updateNote(edam::Note&, const std::string&, const edam::Note&) override { error_.raise(); }

private:
    InjectedError error_;
};

}  // namespace

void answerInjectedError(const std::string& errorText, const Request& request, Response& response) {
    std::string problem;
    const auto error = parseInjectedError(errorText, problem);
    if (!error) return response.text(500, "Sandbox failure: " + problem + "\n");
    if (request.routeKey.rfind("evernote/userstore/", 0) == 0) {
        edam::UserStoreProcessor processor(std::make_shared<FailingUserStore>(*error));
        return answerThrift(processor, request, response);
    }
    edam::NoteStoreProcessor processor(std::make_shared<FailingNoteStore>(*error));
    answerThrift(processor, request, response);
}

}  // namespace vxcloud::sandbox::evernote
