#pragma once
// A Dropbox account on an embedded sandbox, with its token in an isolated secure store and
// the component's Dropbox endpoints pointed at the sandbox.
#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "sessions/SandboxProviderFixture.h"
#include "vxcloud/sessions/VXCloudDropboxSession.h"

namespace vxcloud::testing {

class DropboxFixture : public SandboxProviderFixture {
public:
    static constexpr std::chrono::milliseconds kTestPollInterval{50};

    explicit DropboxFixture(sandbox::Sandbox::Options options = {});

    std::shared_ptr<VXCloudSession> makeSession() override { return makeDropboxSession(); }
    std::shared_ptr<VXCloudFile> makeFolder(const std::string& name,
                                            const std::shared_ptr<VXCloudFile>& parent = nullptr) override;
    std::optional<std::string> remoteContent(const VXCloudFile& folder, const std::string& name) override;
    bool changeRemote(const VXCloudFile& folder, const std::string& name, const std::string& bytes) override;
    bool storeSettings(const VXCloudFile& folder) override;

    std::shared_ptr<VXCloudDropboxSession> makeDropboxSession(
        std::chrono::milliseconds movePollInterval = kTestPollInterval);
    // The remote path of `name` in `folder`.
    static std::string pathIn(const VXCloudFile& folder, const std::string& name);
    // Lowers the sandbox's per-request upload limit and tells the client about it.
    void limitUploadRequests(std::int64_t bytes);

protected:
    // Dropbox finds the upload folder by its path; the id is only recorded.
    std::string uploadFolderId(const sandbox::SandboxAccount&, std::string&) override { return "id:scans"; }
};

// Both folders' records carry `id` and `path` as the folder picker stores them.
std::shared_ptr<VXCloudFile> folderRecord(const std::string& name, const std::string& path);

}  // namespace vxcloud::testing
