#pragma once
// Our Box Content API client: the items the session uses, over the shared request path.
// Every call blocks and is safe on any thread; failures are ProviderErrors carrying Box's
// JSON error body, for errorCodeFromBoxError.
//
// Documents below Box's chunked-upload minimum go in one multipart request (attributes
// first); larger ones through an upload session whose parts are slices of the document,
// never copies. A part whose answer was lost may have been stored (Box answers 500 after
// storing some), so the session's parts are listed before a part is sent again.
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "../ProviderCaller.h"
#include "BoxItem.h"
#include "vxcloud/sessions/VXCloudServiceConfig.h"

namespace vxcloud::box {

template <typename T>
using Result = providers::CallResult<T>;

// Box's limits are the service's own (VXCloudUploadLimits does not apply): documents from
// the chunked minimum on go through a session, in parts of the size the session names.

// Bytes of the document the service holds so far (never decreasing) and its size.
using UploadProgress = std::function<void(std::int64_t uploaded, std::int64_t expected)>;

struct ClientOptions {
    VXCloudServiceEndpoints endpoints = VXCloudServiceConfig::defaultEndpoints(VXCloudService::box);
    VXCloudUploadLimits limits;
    std::shared_ptr<HttpClient> http;  // the shared client when empty
    RetryPolicy retry = RetryPolicy::standard(4);
    // Times a part or a commit is tried again after a failure that may have reached Box.
    int maxResumes = 6;
    // Folder listings stop after this many pages (a folder of 100,000 items at 1000 a page).
    int maxListPages = 100;
};

// Box takes upload sessions only for documents of at least this size.
inline constexpr std::int64_t kChunkedUploadMinimum = 20'000'000;
// The most items one listing page may hold.
inline constexpr int kListPageLimit = 1000;

class BoxClient {
public:
    BoxClient(std::shared_ptr<oauth::TokenProvider> tokens, ClientOptions options);

    // A client for the authorisation stored under `storageName`; null when none is stored.
    static std::shared_ptr<BoxClient> forStorageName(const std::string& storageName);
    // A client on a token just granted, before it is stored (the sign-in names the user).
    static std::shared_ptr<BoxClient> withGrantedToken(std::string accessToken);

    Result<User> currentUser();
    // Every item of a folder, in Box's order (folders first), all pages.
    Result<std::vector<Item>> listFolder(const std::string& folderId);
    Result<Item> getFolder(const std::string& folderId);
    Result<Item> getFile(const std::string& fileId);
    Result<Item> createFolder(const std::string& parentId, const std::string& name);
    // A new file `name` in the folder.
    Result<Item> uploadNew(const std::string& parentId, const std::string& name, const ByteBuffer& data,
                           const UploadProgress& progress = {});
    // New content for a stored file: same id, a new version.
    Result<Item> uploadVersion(const std::string& fileId, const ByteBuffer& data, const UploadProgress& progress = {});
    // Renames and/or moves a file; an empty optional leaves that field as it is.
    Result<Item> updateFile(const std::string& fileId, const std::optional<std::string>& name,
                            const std::optional<std::string>& parentId);
    Result<bool> deleteFile(const std::string& fileId);
    Result<ByteBuffer> download(const std::string& fileId);

    // Asks the token endpoint for a new pair now, whatever the stored token's age.
    Result<bool> refreshAuthorization();
    // Revokes the stored grant at Box; best effort (the grant dies in 60 days anyway).
    void revokeAuthorization();

    std::int64_t singleRequestLimit() const;

private:
    providers::ApiRequest request(const std::string& what, const std::string& method, const std::string& url) const;
    // The file of an upload's answer.
    Result<Item> fileAnswer(const providers::ApiRequest& request);
    Result<Item> uploadDirect(const std::optional<std::string>& fileId, const std::string& parentId,
                              const std::string& name, const ByteBuffer& data, const UploadProgress& progress);
    Result<Item> uploadChunked(const std::optional<std::string>& fileId, const std::string& parentId,
                               const std::string& name, const ByteBuffer& data, const UploadProgress& progress);
    // The file `name` in the folder when it holds exactly `data`: an upload whose answer
    // was lost may have been stored.
    std::optional<Item> storedAlready(const std::string& parentId, const std::string& name, const std::string& sha1);

    ClientOptions options_;
    std::shared_ptr<oauth::TokenProvider> tokens_;
    providers::ProviderCaller caller_;
};

// The id of the file a 409 item_name_in_use says is in the way; nothing for other errors.
std::optional<std::string> conflictingFileId(const ProviderError& error);

}  // namespace vxcloud::box
