#pragma once
// A Google Drive account on an embedded sandbox, with its authorisation in an isolated
// secure store and the component's Google endpoints pointed at the sandbox. The fixture
// looks at Drive through the sandbox's own API with a sign-in of its own, so tests that
// expire or revoke the session's tokens do not blind it.
#include <httplib.h>

#include <memory>
#include <optional>
#include <string>

#include "sessions/ProviderFixture.h"
#include "sessions/SessionTestSupport.h"
#include "vxcloud/sessions/VXCloudGoogleDriveSession.h"
#include "vxcloud_sandbox/Sandbox.h"

namespace vxcloud::testing {

class GoogleDriveFixture : public ProviderFixture {
public:
    static constexpr const char* kProvider = "google";

    GoogleDriveFixture();
    ~GoogleDriveFixture() override;

    bool setUp(std::string& error) override;
    void tearDown() override;

    std::shared_ptr<VXCloudAccount> account() override { return account_; }
    std::shared_ptr<VXCloudSession> makeSession() override { return makeDriveSession(); }
    std::shared_ptr<VXCloudFile> makeFolder(const std::string& name,
                                            const std::shared_ptr<VXCloudFile>& parent = nullptr) override;
    std::optional<std::string> remoteContent(const VXCloudFile& folder, const std::string& name) override;
    bool changeRemote(const VXCloudFile& folder, const std::string& name, const std::string& bytes) override;
    bool storeSettings(const VXCloudFile& folder) override;
    bool keepsSameNamedDocuments() const override { return true; }

    // Stores the account's authorisation and the account itself (auto-upload on, any
    // network, upload folder "Scans" in the top folder, made here), as linking it would.
    std::shared_ptr<VXCloudAccount> linkAccount(const sandbox::SandboxAccount& account, std::string& error);
    std::shared_ptr<VXCloudGoogleDriveSession> makeDriveSession();
    sandbox::Sandbox& sandbox() { return *sandbox_; }
    const sandbox::SandboxAccount& sandboxAccount() const { return sandboxAccount_; }

    // Drive's own answers, with the fixture's token. `folderId` may be "root".
    // The live (not trashed) files named `name` in the folder: [{id, name, md5Checksum}].
    Json liveFiles(const std::string& folderId, const std::string& name);
    // The full metadata of an item, trashed or not; null when there is none.
    Json fileById(const std::string& id);
    std::optional<std::string> contentById(const std::string& id);
    // A new file made through the API (as another device would); its id, empty on failure.
    std::string createFile(const std::string& folderId, const std::string& name, const std::string& bytes);
    bool trash(const std::string& id);
    bool replaceContent(const std::string& id, const std::string& bytes);

    // Queues a fault on a route ("files/update", "upload/create", "oauth2/token", ...).
    bool fault(const std::string& route, const std::string& spec, int times = 1);
    sandbox::RouteStats stats(const std::string& route) const;
    // Lowers the multipart limit and the chunk size of the component's Drive client.
    void limitUploads(std::int64_t multipartLimit, std::int64_t chunkBytes);

private:
    httplib::Headers auth() const;
    std::unique_ptr<httplib::Client> client() const;

    std::unique_ptr<IsolatedStores> stores_;
    std::unique_ptr<sandbox::Sandbox> sandbox_;
    sandbox::SandboxAccount sandboxAccount_;
    std::shared_ptr<VXCloudAccount> account_;
    std::string fixtureToken_;
};

}  // namespace vxcloud::testing
