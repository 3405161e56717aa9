#pragma once
// A OneDrive account on an embedded sandbox, with its authorisation in an isolated secure
// store and the component's Graph endpoints pointed at the sandbox. What is stored is read
// and changed through the sandbox's own view, by path.
#include <memory>
#include <optional>
#include <string>

#include "sessions/SandboxProviderFixture.h"
#include "vxcloud/sessions/VXCloudOneDriveSession.h"

namespace vxcloud::testing {

class OneDriveFixture : public SandboxProviderFixture {
public:
    static constexpr const char* kProvider = "onedrive";

    // `reportsSha1`: the drive reports SHA-1 beside QuickXorHash, as personal drives once did.
    explicit OneDriveFixture(bool reportsSha1 = false);

    std::shared_ptr<VXCloudSession> makeSession() override { return makeOneDriveSession(); }
    std::shared_ptr<VXCloudFile> makeFolder(const std::string& name,
                                            const std::shared_ptr<VXCloudFile>& parent = nullptr) override;
    std::optional<std::string> remoteContent(const VXCloudFile& folder, const std::string& name) override;
    bool changeRemote(const VXCloudFile& folder, const std::string& name, const std::string& bytes) override;
    bool storeSettings(const VXCloudFile& folder) override;
    // A new document meets a same-named one through the service's "fail" behaviour, whose
    // answer (nameAlreadyExists) reads as a failed rename.
    ErrorCode conflictCode() const override { return ErrorCode::renameFailed; }
    // Overwriting a copy changed elsewhere sends the document with the "fail" behaviour.
    bool overwritesChangedCopy() const override { return false; }
    // SHA-1 (upper-case hex) where the drive reports it, else QuickXorHash.
    std::optional<std::string> reportedVersion(const std::string& bytes) override;

    std::shared_ptr<VXCloudOneDriveSession> makeOneDriveSession();
    // The path of `name` in `folder`, as the sandbox's admin view takes it.
    static std::string pathIn(const VXCloudFile& folder, const std::string& name);
    // The sandbox's driveItem of a path; null when there is none.
    Json item(const std::string& path);
    bool reportsSha1() const { return reportsSha1_; }
    // Lowers the simple-upload limit and the fragment size, at the sandbox and in the client.
    void limitUploads(std::int64_t simpleLimit, std::int64_t fragmentBytes);

protected:
    bool prepare(std::string& error) override;
    std::string storageName(const VXCloudAccount& account) const override;
    // OneDrive stores into the upload folder by id: "Scans" is made in the top folder.
    std::string uploadFolderId(const sandbox::SandboxAccount& account, std::string& error) override;

private:
    bool reportsSha1_;
};

}  // namespace vxcloud::testing
