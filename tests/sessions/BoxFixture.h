#pragma once
// A Box account on an embedded sandbox, with its authorisation in an isolated secure store
// and the component's Box endpoints pointed at the sandbox. What is stored is read and
// changed through the sandbox's own view, by path.
#include <memory>
#include <optional>
#include <string>

#include "sessions/SandboxProviderFixture.h"
#include "vxcloud/sessions/VXCloudBoxSession.h"

namespace vxcloud::testing {

class BoxFixture : public SandboxProviderFixture {
public:
    static constexpr const char* kProvider = "box";

    BoxFixture();

    std::shared_ptr<VXCloudSession> makeSession() override { return makeBoxSession(); }
    std::shared_ptr<VXCloudFile> makeFolder(const std::string& name,
                                            const std::shared_ptr<VXCloudFile>& parent = nullptr) override;
    std::optional<std::string> remoteContent(const VXCloudFile& folder, const std::string& name) override;
    bool changeRemote(const VXCloudFile& folder, const std::string& name, const std::string& bytes) override;
    bool storeSettings(const VXCloudFile& folder) override;
    // A new document meets a same-named one as Box's 409 item_name_in_use, which reads as a
    // failed rename.
    ErrorCode conflictCode() const override { return ErrorCode::renameFailed; }

    std::shared_ptr<VXCloudBoxSession> makeBoxSession();
    // The path of `name` in `folder`, as the sandbox's admin view takes it.
    static std::string pathIn(const VXCloudFile& folder, const std::string& name);
    // The sandbox's Box item of a path; null when there is none.
    Json item(const std::string& path);

protected:
    std::optional<std::string> clientSecret() const override { return "sandbox-box-secret"; }
    std::string storageName(const VXCloudAccount& account) const override;
    // Box stores into the upload folder by id: "Scans" is made in the top folder.
    std::string uploadFolderId(const sandbox::SandboxAccount& account, std::string& error) override;
};

}  // namespace vxcloud::testing
