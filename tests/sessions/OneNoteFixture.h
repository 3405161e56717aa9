#pragma once
// A OneNote account on an embedded sandbox, with its authorisation in an isolated secure
// store and the component's notes base pointed at the sandbox: Graph's, or the older
// host's. Folders the tests make are sections of one notebook, where pages can go.
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "sessions/SandboxProviderFixture.h"
#include "vxcloud/sessions/VXCloudOneNoteSession.h"

namespace vxcloud::testing {

class OneNoteFixture : public SandboxProviderFixture {
public:
    static constexpr const char* kProvider = "onenote";
    static constexpr const char* kNotebook = "Fixture Notebook";

    // `legacyBase`: the component talks to the older notes host instead of Graph.
    explicit OneNoteFixture(bool legacyBase = false);

    std::shared_ptr<VXCloudSession> makeSession() override { return VXCloudOneNoteSession::initWithCloudAccount(account()); }
    // A section of the fixture's notebook (or of `parent`, a notebook).
    std::shared_ptr<VXCloudFile> makeFolder(const std::string& name,
                                            const std::shared_ptr<VXCloudFile>& parent = nullptr) override;
    // The attachment of the page titled `name` in the section.
    std::optional<std::string> remoteContent(const VXCloudFile& folder, const std::string& name) override;
    bool changeRemote(const VXCloudFile&, const std::string&, const std::string&) override { return false; }
    bool storeSettings(const VXCloudFile&) override { return true; }
    std::size_t documentsNamed(const std::string& name) override;

    // Only creation answers: rename, move and the settings document are silent by design.
    bool expectsSilence(Operation operation) const override {
        return operation == Operation::rename || operation == Operation::move || operation == Operation::uploadSettings;
    }
    bool reportsProgress() const override { return false; }
    bool offersVersion() const override { return false; }
    bool storesEveryUploadAsNew() const override { return true; }
    // A notebook at the top level: it holds sections, never pages.
    std::shared_ptr<VXCloudFile> makeParentFolder(const std::string& name) override;
    bool parentFoldersHoldDocuments() const override { return false; }

    // The sandbox's record of the page titled `title` (with its parts), null when none.
    Json page(const std::string& title);
    std::vector<Json> pages(const std::string& title);
    // A stored part of a page: its HTML ("Presentation") or an attachment's bytes.
    std::optional<std::string> pagePart(const Json& page, const std::string& part);
    bool legacyBase() const { return legacyBase_; }

protected:
    bool prepare(std::string& error) override;
    std::string storageName(const VXCloudAccount& account) const override;
    std::string uploadFolderId(const sandbox::SandboxAccount& account, std::string& error) override;

private:
    bool legacyBase_;
};

}  // namespace vxcloud::testing
