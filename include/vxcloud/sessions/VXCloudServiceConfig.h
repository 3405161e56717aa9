#pragma once
// Where each service is reached and which app credentials sign its requests. Process-wide:
// the host (or the authorisation manager) sets them once at start-up; tests and the demo
// point them at the sandbox. Every provider client reads them when it is made.
#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "vxcloud/model/VXCloudService.h"

namespace vxcloud {

// A service's URLs. Services that have a single API host leave contentBase empty; anything
// a provider needs beyond these (a second API host, a notes host) goes in `extra`.
struct VXCloudServiceEndpoints {
    std::string apiBase;       // e.g. "https://api.dropboxapi.com"
    std::string contentBase;   // e.g. "https://content.dropboxapi.com"
    std::string authorizeUrl;  // the browser sign-in page
    std::string tokenUrl;      // the OAuth 2 token endpoint
    std::map<std::string, std::string> extra;
    // A PEM file of the authorities that sign these hosts' certificates, for a server with a
    // certificate of its own (the sandbox over HTTPS); empty: the system's. Every request to
    // these URLs' origins trusts it, with verification on.
    std::string caFile;

    friend bool operator==(const VXCloudServiceEndpoints&, const VXCloudServiceEndpoints&) = default;
};

// The app's registration at a service. The secret is only for apps that have one; native
// sign-in uses PKCE without it.
struct VXCloudAppCredentials {
    std::string clientId;  // Dropbox's app key, Google's client id, ...
    std::optional<std::string> clientSecret;

    friend bool operator==(const VXCloudAppCredentials&, const VXCloudAppCredentials&) = default;
};

// How large one upload request may be, and the piece size of chunked uploads. Zero means
// the service's own limit (Dropbox: 150 MiB per request). A lower value makes documents
// above it go through the chunked protocol, as the sandbox's lowered limits expect.
struct VXCloudUploadLimits {
    std::int64_t maxSingleRequestBytes = 0;
    std::int64_t chunkBytes = 0;

    friend bool operator==(const VXCloudUploadLimits&, const VXCloudUploadLimits&) = default;
};

// How long a request may wait before anything moves: to connect, and between two moments
// when bytes move either way (a stall). There is no limit on a whole request: a large
// upload that keeps progressing may take as long as it takes.
struct VXCloudNetworkTimeouts {
    std::chrono::milliseconds connect{15000};
    std::chrono::milliseconds stall{60000};

    friend bool operator==(const VXCloudNetworkTimeouts&, const VXCloudNetworkTimeouts&) = default;
};

class VXCloudServiceConfig {
public:
    VXCloudServiceConfig() = delete;

    // The real service's URLs (empty strings where a service has none yet).
    static VXCloudServiceEndpoints defaultEndpoints(VXCloudService service);

    // All accessors are safe to call from any thread.
    static VXCloudServiceEndpoints endpoints(VXCloudService service);
    static void setEndpoints(VXCloudService service, VXCloudServiceEndpoints endpoints);

    static VXCloudAppCredentials credentials(VXCloudService service);
    static void setCredentials(VXCloudService service, VXCloudAppCredentials credentials);

    static VXCloudUploadLimits uploadLimits(VXCloudService service);
    static void setUploadLimits(VXCloudService service, VXCloudUploadLimits limits);

    // For every service's requests; values below one millisecond are taken as one.
    static VXCloudNetworkTimeouts networkTimeouts();
    static void setNetworkTimeouts(VXCloudNetworkTimeouts timeouts);

    // Back to the real URLs, no credentials and the services' own limits.
    static void reset(VXCloudService service);
    static void resetAll();
};

}  // namespace vxcloud
