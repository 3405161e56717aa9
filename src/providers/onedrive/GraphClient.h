#pragma once
// Our Microsoft Graph client for OneDrive: the drive items the session uses, over the
// shared request path. Every call blocks and is safe on any thread; failures are
// ProviderErrors read from Graph's error body (`error.code`), for
// errorCodeFromOneDriveError.
//
// Documents up to the simple-upload limit go in one PUT; larger ones through an upload
// session whose fragments are multiples of 320 KiB, sent without the bearer token (the
// upload URL is pre-authenticated) and resumed from the session's nextExpectedRanges after
// a dropped fragment.
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "../ProviderCaller.h"
#include "GraphItem.h"
#include "vxcloud/sessions/VXCloudServiceConfig.h"

namespace vxcloud::onedrive {

template <typename T>
using Result = providers::CallResult<T>;

// Bytes of the document the service holds so far (never decreasing) and its size.
using UploadProgress = std::function<void(std::int64_t uploaded, std::int64_t expected)>;

struct ClientOptions {
    VXCloudServiceEndpoints endpoints = VXCloudServiceConfig::defaultEndpoints(VXCloudService::oneDrive);
    VXCloudUploadLimits limits;
    std::shared_ptr<HttpClient> http;  // the shared client when empty
    RetryPolicy retry = RetryPolicy::standard(4);
    // Resumptions of one upload session.
    int maxResumes = 6;
};

// The older documents' limit of one PUT; the newer say 250 MB, the safe choice is 4 MiB.
inline constexpr std::int64_t kSimpleUploadLimit = 4LL * 1024 * 1024;
// Every fragment but the last is a multiple of this.
inline constexpr std::int64_t kFragmentUnit = 320LL * 1024;
inline constexpr std::int64_t kDefaultFragmentBytes = 32 * kFragmentUnit;  // 10 MiB

class GraphClient {
public:
    GraphClient(std::shared_ptr<oauth::TokenProvider> tokens, ClientOptions options);

    // A client for the authorisation stored under `storageName`; null when none is stored.
    static std::shared_ptr<GraphClient> forStorageName(const std::string& storageName);
    // A client on a token just granted for the service's account, before it is stored,
    // talking to Graph at `apiBase`.
    static std::shared_ptr<GraphClient> withGrantedToken(VXCloudService service, std::string apiBase,
                                                         std::string accessToken);

    Result<Drive> getDrive();
    // The first page of a folder's children, by id ("root" for the top) or by path below
    // the top folder ("" for the top); then the pages that follow.
    Result<ChildrenPage> listChildren(const std::string& folderId);
    Result<ChildrenPage> listChildrenAtPath(const std::string& path);
    Result<ChildrenPage> nextPage(const std::string& nextLink);
    Result<Item> getItem(const std::string& itemId);
    Result<Item> getItemAtPath(const std::string& path);
    // A folder in the parent, with the service's default conflict behaviour.
    Result<Item> createFolder(const std::string& parentId, const std::string& name);
    // Stores the bytes under `name` in the parent folder.
    Result<Item> upload(const std::string& parentId, const std::string& name, const ByteBuffer& data,
                        ConflictBehavior behavior, const UploadProgress& progress = {});
    // Renames and/or moves (PATCH); an empty optional leaves that field as it is.
    Result<Item> update(const std::string& itemId, const std::optional<std::string>& name,
                        const std::optional<std::string>& parentId);
    Result<bool> deleteItem(const std::string& itemId);
    // The content of the file at a path below the top folder.
    Result<ByteBuffer> downloadAtPath(const std::string& path);

    std::int64_t simpleUploadLimit() const;
    std::int64_t fragmentBytes() const;

private:
    providers::ApiRequest request(const std::string& what, const std::string& method, const std::string& path) const;
    Result<Item> itemAnswer(const providers::ApiRequest& request);
    Result<ChildrenPage> pageAnswer(const providers::ApiRequest& request);
    Result<Item> uploadSimple(const std::string& parentId, const std::string& name, const ByteBuffer& data,
                              ConflictBehavior behavior, const UploadProgress& progress);
    Result<Item> uploadInSession(const std::string& parentId, const std::string& name, const ByteBuffer& data,
                                 ConflictBehavior behavior, const UploadProgress& progress);
    Result<std::string> createUploadSession(const std::string& parentId, const std::string& name,
                                            ConflictBehavior behavior, std::int64_t size);
    Result<std::int64_t> nextExpectedByte(const std::string& uploadUrl, std::int64_t total);
    // The file `name` in the parent when it holds exactly `data`: an upload whose answer was
    // lost may have been stored.
    std::optional<Item> storedAlready(const std::string& parentId, const std::string& name, const ByteBuffer& data);

    ClientOptions options_;
    providers::ProviderCaller caller_;
};

// Graph paths: an item by id ("root" is the top folder), and by path below the top folder,
// each segment percent-encoded on its own.
std::string itemPath(const std::string& itemId);
std::string pathBelowRoot(const std::string& path);

}  // namespace vxcloud::onedrive
