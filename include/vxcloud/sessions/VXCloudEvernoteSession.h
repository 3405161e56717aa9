#pragma once
// The session for Evernote accounts. Notebooks are the folders (one flat level) and each
// document is a note whose only content is the document attached as a resource; a note
// stored before is recognised by the MD5 of its attachment, then by its title. Moves change
// each note's notebook, at most four at a time. The session is made by initWithCloudAccount;
// its steps are private to the library.
#include <memory>
#include <string>

#include "vxcloud/sessions/VXCloudSession.h"

namespace vxcloud {

// Delegate callbacks arrive on global-queue threads; the authorisation completions on the
// calling thread.
class VXCloudEvernoteSession : public VXCloudSession {
public:
    static constexpr const char* kSettingsFileName = ".quillosettings";
    // The search prefix that finds a note by words of its title, and how many notes a
    // look-up reads at most (a stored note beyond them counts as absent).
    static constexpr const char* kTitleSearchPrefix = "intitle:";
    static constexpr int kMaxNotes = 1000;
    // ENML 2's document type, as the service publishes it.
    static constexpr const char* kEnmlDtd = "http://xml.evernote.com/pub/enml2.dtd";

    // Nothing when no authorisation (token and NoteStore) is stored for the account.
    static std::shared_ptr<VXCloudEvernoteSession> initWithCloudAccount(std::shared_ptr<VXCloudAccount> account);

    // "VX_Evernote_" + the account's user id: where its authorisation is kept.
    static std::string storageName(const VXCloudAccount& account);

    ~VXCloudEvernoteSession() override;

protected:
    explicit VXCloudEvernoteSession(std::shared_ptr<VXCloudAccount> account);
};

}  // namespace vxcloud
