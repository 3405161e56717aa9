#pragma once
// The session for OneNote accounts. Notebooks and sections are the folders (the top level
// stands for the list of notebooks); each document becomes a new page in a section, an HTML
// page whose only content is the document attached. OneNote only creates: rename, move and
// the settings document are accepted and never answered, and the settings download
// completes at once with nothing. The session holds its delegates strongly.
#include <ctime>
#include <memory>
#include <string>

#include "vxcloud/sessions/VXCloudSession.h"

namespace vxcloud {

// Delegate callbacks arrive on global-queue threads.
class VXCloudOneNoteSession : public VXCloudSession {
public:
    static constexpr const char* kSettingsFileName = ".quillosettings";

    // Nothing when no authorisation is stored under the account's storage name.
    static std::shared_ptr<VXCloudOneNoteSession> initWithCloudAccount(std::shared_ptr<VXCloudAccount> account);

    // "VX_OneNote_" + the account's user id: where its authorisation is kept.
    static std::string storageName(const VXCloudAccount& account);

    // The page that carries a document: its title, its creation time
    // ("yyyy-MM-dd'T'HH:mm:ssZ" in local time) and the document attached as the form part
    // named like the document (attachmentPartName). The name is escaped for HTML, so a
    // name with quotes or "<" or "&" still makes a well-formed page titled exactly so.
    static std::string pageHtml(const std::string& name, const std::string& mimeType, std::time_t created);
    // The form name of the part holding the document: its name, with the characters a
    // quoted form name cannot hold (quotes, backslashes, control characters) as "_".
    static std::string attachmentPartName(const std::string& name);

    ~VXCloudOneNoteSession() override;

protected:
    explicit VXCloudOneNoteSession(std::shared_ptr<VXCloudAccount> account);
};

}  // namespace vxcloud
