#pragma once
// What the session contract suite needs from a provider: an emulated account with a
// session, a way to look at and change what is stored remotely, and the provider's
// declared exceptions to the contract. Every session implements one and adds its factory
// to contractProviders() (ProviderRegistry.cpp); a provider the sandbox emulates builds it
// on SandboxProviderFixture, which does the setup they all share.
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/model/VXCloudError.h"
#include "vxcloud/model/VXCloudFile.h"
#include "vxcloud/model/VXCloudFileHasher.h"
#include "vxcloud/sessions/VXCloudSession.h"

namespace vxcloud::testing {

enum class Operation { isAuthorized, loadFolders, upload, uploadSettings, rename, move, downloadSettings };

class ProviderFixture {
public:
    virtual ~ProviderFixture() = default;

    // Starts the provider's emulator, stores a linked account with its credentials and
    // points the component at the emulator. False, with the reason, when it cannot.
    virtual bool setUp(std::string& error) = 0;
    virtual void tearDown() = 0;

    virtual std::shared_ptr<VXCloudAccount> account() = 0;
    // A fresh session for the account, as the engine would make one.
    virtual std::shared_ptr<VXCloudSession> makeSession() = 0;
    // Creates a folder remotely (in `parent`, or the top level) and returns its record as
    // the folder picker would give it.
    virtual std::shared_ptr<VXCloudFile> makeFolder(const std::string& name,
                                                    const std::shared_ptr<VXCloudFile>& parent = nullptr) = 0;
    // The bytes stored under `name` in `folder`; nothing when no such document exists.
    virtual std::optional<std::string> remoteContent(const VXCloudFile& folder, const std::string& name) = 0;
    // Replaces a stored document's bytes, as another device would.
    virtual bool changeRemote(const VXCloudFile& folder, const std::string& name, const std::string& bytes) = 0;
    // Stores the account's settings document naming `folder` as the upload folder.
    virtual bool storeSettings(const VXCloudFile& folder) = 0;
    // How many live documents of the account, in any folder, are called `name`.
    virtual std::size_t documentsNamed(const std::string& name) = 0;

    // Declared exceptions. An operation that is silent by design must stay silent; the
    // suite checks that instead of skipping it.
    virtual bool expectsSilence(Operation) const { return false; }
    virtual bool reportsProgress() const { return true; }
    // Whether successful outcomes carry a version (the service's revision or hash).
    virtual bool offersVersion() const { return true; }
    // The version the service reports for a document holding `bytes`; by default the
    // fingerprint the engine computes for the service.
    virtual std::optional<std::string> reportedVersion(const std::string& bytes) {
        return VXCloudFileHasher::hash(ByteBuffer::copyOf(bytes), account()->cloudService);
    }
    // Whether overwriting replaces a stored copy that was changed elsewhere; a service that
    // stores such a document with a behaviour that refuses a clash reports `conflictCode`.
    virtual bool overwritesChangedCopy() const { return true; }
    // The code of an upload that may not replace a same-named document.
    virtual ErrorCode conflictCode() const { return ErrorCode::fileConflict; }
    // Whether a new document (no fingerprint, no earlier record) is stored beside a
    // same-named one, as Drive allows; such a service shows the clash once the document
    // carries its local fingerprint, as the engine sends it when comparing hashes.
    virtual bool keepsSameNamedDocuments() const { return false; }
    // Whether every upload is stored as a new document (a OneNote page): nothing is looked
    // up, replaced or refused for its name, and the service hands back a record of its own.
    virtual bool storesEveryUploadAsNew() const { return false; }
    // A folder that can hold folders (a OneNote notebook); by default any folder can.
    virtual std::shared_ptr<VXCloudFile> makeParentFolder(const std::string& name) { return makeFolder(name); }
    // Whether folders are one flat level (Evernote's notebooks): listing any folder lists
    // them all.
    virtual bool foldersAreOneLevel() const { return false; }
    // Whether a folder that holds folders can also hold documents (not a OneNote notebook).
    virtual bool parentFoldersHoldDocuments() const { return true; }
};

struct ProviderCase {
    std::string name;  // used in test names: letters and digits only
    std::function<std::unique_ptr<ProviderFixture>()> make;
};

// Every provider the contract suite runs against.
std::vector<ProviderCase> contractProviders();

}  // namespace vxcloud::testing
