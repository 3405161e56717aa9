#pragma once
// Our client for the OneNote notes service: notebooks, sections and page creation below a
// configured base (Graph's "/v1.0/me/onenote" by default, the older "/api/v1.0/me/notes"
// when configured), over the shared request path. Answers come back as bodies: the session
// reads them leniently, as the service's shape differs between the two bases.
#include <memory>
#include <string>

#include "../ProviderCaller.h"
#include "vxcloud/sessions/VXCloudServiceConfig.h"

namespace vxcloud::onenote {

template <typename T>
using Result = providers::CallResult<T>;

class OneNoteClient {
public:
    OneNoteClient(std::shared_ptr<oauth::TokenProvider> tokens, VXCloudServiceEndpoints endpoints);

    // A client for the authorisation stored under `storageName`; null when none is stored.
    static std::shared_ptr<OneNoteClient> forStorageName(const std::string& storageName);

    // GET on a path below the base ("notebooks", "notebooks/{id}/sections").
    Result<std::string> get(const std::string& path);
    // POST of a JSON body, and of a page's multipart body.
    Result<std::string> postJson(const std::string& path, std::string json);
    Result<std::string> postMultipart(const std::string& path, const MultipartBody& body);

    // Whether the base is the older notes host, whose notebooks and sections are named by
    // "name" rather than Graph's "displayName".
    bool legacyBase() const;
    static std::string encodeSegment(const std::string& id) { return HttpClient::urlEncode(id); }

private:
    Result<std::string> send(providers::ApiRequest request);

    VXCloudServiceEndpoints endpoints_;
    providers::ProviderCaller caller_;
};

}  // namespace vxcloud::onenote
