#pragma once
// A Dropbox account on an embedded sandbox, with its token in an isolated secure store and
// the component's Dropbox endpoints pointed at the sandbox.
#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "sessions/ProviderFixture.h"
#include "sessions/SessionTestSupport.h"
#include "vxcloud/sessions/VXCloudDropboxSession.h"
#include "vxcloud_sandbox/Sandbox.h"

namespace vxcloud::testing {

class DropboxFixture : public ProviderFixture {
public:
    static constexpr std::chrono::milliseconds kTestPollInterval{50};

    DropboxFixture();
    ~DropboxFixture() override;

    bool setUp(std::string& error) override;
    void tearDown() override;

    std::shared_ptr<VXCloudAccount> account() override { return account_; }
    std::shared_ptr<VXCloudSession> makeSession() override { return makeDropboxSession(); }
    std::shared_ptr<VXCloudFile> makeFolder(const std::string& name,
                                            const std::shared_ptr<VXCloudFile>& parent = nullptr) override;
    std::optional<std::string> remoteContent(const VXCloudFile& folder, const std::string& name) override;
    bool changeRemote(const VXCloudFile& folder, const std::string& name, const std::string& bytes) override;
    bool storeSettings(const VXCloudFile& folder) override;

    // Stores a token for the sandbox account and the account itself (auto-upload on, any
    // network, upload folder "/Scans"), as linking it would.
    std::shared_ptr<VXCloudAccount> linkAccount(const sandbox::SandboxAccount& account, std::string& error);

    std::shared_ptr<VXCloudDropboxSession> makeDropboxSession(
        std::chrono::milliseconds movePollInterval = kTestPollInterval);
    sandbox::Sandbox& sandbox() { return *sandbox_; }
    const sandbox::SandboxAccount& sandboxAccount() const { return sandboxAccount_; }
    // The remote path of `name` in `folder`.
    static std::string pathIn(const VXCloudFile& folder, const std::string& name);
    // Lowers the sandbox's per-request upload limit and tells the client about it.
    void limitUploadRequests(std::int64_t bytes);
    // Requests and body bytes the sandbox has seen on a route ("files/upload").
    std::int64_t requests(const std::string& route) const;
    std::int64_t bytesReceived(const std::string& route) const;

private:
    std::unique_ptr<IsolatedStores> stores_;
    std::unique_ptr<sandbox::Sandbox> sandbox_;
    sandbox::SandboxAccount sandboxAccount_;
    std::shared_ptr<VXCloudAccount> account_;
};

// Both folders' records carry `id` and `path` as the folder picker stores them.
std::shared_ptr<VXCloudFile> folderRecord(const std::string& name, const std::string& path);

}  // namespace vxcloud::testing
