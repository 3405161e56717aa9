#pragma once
// A Google Drive account on an embedded sandbox, with its authorisation in an isolated
// secure store and the component's Google endpoints pointed at the sandbox. The fixture
// looks at Drive through the sandbox's own API with a sign-in of its own, so tests that
// expire or revoke the session's tokens do not blind it.
#include <httplib.h>

#include <memory>
#include <optional>
#include <string>

#include "../../src/providers/google/DriveFile.h"
#include "sessions/SandboxProviderFixture.h"
#include "vxcloud/sessions/VXCloudGoogleDriveSession.h"

namespace vxcloud::testing {

class GoogleDriveFixture : public SandboxProviderFixture {
public:
    static constexpr const char* kProvider = "google";

    GoogleDriveFixture();

    std::shared_ptr<VXCloudSession> makeSession() override { return makeDriveSession(); }
    std::shared_ptr<VXCloudFile> makeFolder(const std::string& name,
                                            const std::shared_ptr<VXCloudFile>& parent = nullptr) override;
    std::optional<std::string> remoteContent(const VXCloudFile& folder, const std::string& name) override;
    bool changeRemote(const VXCloudFile& folder, const std::string& name, const std::string& bytes) override;
    bool storeSettings(const VXCloudFile& folder) override;
    bool keepsSameNamedDocuments() const override { return true; }

    std::shared_ptr<VXCloudGoogleDriveSession> makeDriveSession();

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
    // Sets an item's modifiedTime (RFC 3339), as a client that keeps file times does.
    bool setModifiedTime(const std::string& id, const std::string& time);

    // Lowers the multipart limit and the chunk size of the component's Drive client.
    void limitUploads(std::int64_t multipartLimit, std::int64_t chunkBytes);

protected:
    // The fixture's own sign-in, approved at once.
    bool prepare(std::string& error) override;
    std::string storageName(const VXCloudAccount& account) const override;
    // Drive finds the upload folder by its id: "Scans" is made in the top folder.
    std::string uploadFolderId(const sandbox::SandboxAccount& account, std::string& error) override;

private:
    httplib::Headers auth() const;
    std::unique_ptr<httplib::Client> client();

    std::string fixtureToken_;
};

}  // namespace vxcloud::testing
