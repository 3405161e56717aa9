#pragma once
// An Evernote account on an embedded sandbox: its token and NoteStore address in an
// isolated secure store, the component's Evernote endpoints pointed at the sandbox. Notebooks
// are reached through the sandbox's own view by name ("/Scans"), notes by their title.
#include <memory>
#include <optional>
#include <string>

#include "sessions/SandboxProviderFixture.h"
#include "vxcloud/sessions/VXCloudEvernoteSession.h"

namespace vxcloud::testing {

class EvernoteFixture : public SandboxProviderFixture {
public:
    static constexpr const char* kProvider = "evernote";

    EvernoteFixture();

    std::shared_ptr<VXCloudSession> makeSession() override { return makeEvernoteSession(); }
    std::shared_ptr<VXCloudFile> makeFolder(const std::string& name,
                                            const std::shared_ptr<VXCloudFile>& parent = nullptr) override;
    std::optional<std::string> remoteContent(const VXCloudFile& folder, const std::string& name) override;
    bool changeRemote(const VXCloudFile& folder, const std::string& name, const std::string& bytes) override;
    bool storeSettings(const VXCloudFile& folder) override;
    std::size_t documentsNamed(const std::string& name) override;
    // A note is made for every new document: a same-titled one is not in the way.
    bool keepsSameNamedDocuments() const override { return true; }
    bool foldersAreOneLevel() const override { return true; }
    // Only a look-up that finds the content already stored reports progress.
    bool reportsProgress() const override { return false; }

    std::shared_ptr<VXCloudEvernoteSession> makeEvernoteSession();
    // The sandbox's view of the note titled `title` in the notebook; null when none.
    Json note(const std::string& notebook, const std::string& title);
    // Notes titled `title` in every notebook.
    std::size_t notesTitled(const std::string& title);

protected:
    std::string storageName(const VXCloudAccount& account) const override;
    std::string uploadFolderId(const sandbox::SandboxAccount& account, std::string& error) override;
    void completeToken(VXCloudOAuthToken& token, const sandbox::SandboxAccount& account) override;
    std::optional<std::string> clientSecret() const override { return "vxcloud-sandbox-secret"; }
};

}  // namespace vxcloud::testing
