#pragma once
// Local emulators of the cloud providers' HTTP APIs, served on loopback. Tests embed a
// Sandbox in-process on an ephemeral port; `vxcloud-sandbox` runs the same server for
// people and for `vxcloud demo`.
//
// Every emulator speaks its provider's real wire format under a path prefix named after the
// provider ("/dropbox/..."). Besides the provider routes the server offers test controls:
// queued faults per route, counters per route, and direct access to the stored state, both
// through this class and over HTTP under "/admin/".
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "vxcloud/platform/Json.h"

namespace vxcloud::sandbox {

// One seeded (or signed-in) account of a provider, with tokens valid at seeding time.
struct SandboxAccount {
    std::string provider;      // "dropbox"
    std::string userId;        // the provider's account id ("dbid:...")
    std::string email;
    std::string displayName;
    std::string accessToken;
    std::string refreshToken;
    std::map<std::string, std::string> details;  // the provider's own fields (Evernote: note_store_url)
};

// A fault to inject into one request of a route. Faults are queued per route, each is used
// by exactly one request (after `skip` requests have passed it by) and counted as hit.
//
// Text form (the X-Sandbox-Fault request header, the "fault" admin field), ';'-separated,
// values percent-decoded:
//   status=503;retry-after=1            answer 503 with the provider's error body
//   status=409;error=too_many_write_operations
//   status=500;body=oops;content-type=text/plain
//   drop                                 cut the connection without answering
//   drop-after=1024                      cut after 1024 bytes of the request body (or of
//                                        the response body when the request has none)
//   drop-response-after=10               handle the request, then cut the answer after 10 bytes
//   delay=250                            wait 250 ms first (combines with anything)
//   expire-token                         the request's access token expires just before use
//   quota-full                           the account's storage is full for this request
//   skip=2                               let two requests pass before this fault applies
//   status=503;processed                 handle the request first (bytes stored, ...), then
//                                        answer the injected status instead
//   header=retry-after:31                an extra answer header, name kept as written
//                                        (repeatable; with status)
struct FaultSpec {
    int status = 0;                      // 0: no injected answer
    std::string body;                    // empty: the provider's own error body for `status`
    std::string contentType;             // for `body`; guessed when empty
    std::string error;                   // provider error tag/code for the generated body
    int retryAfterSeconds = -1;          // Retry-After header when >= 0
    bool drop = false;
    std::int64_t dropAfterBytes = -1;
    std::int64_t dropResponseAfterBytes = -1;
    int delayMs = 0;
    std::int64_t readBytesPerSecond = 0;  // > 0: the request's body is read no faster (a slow uplink)
    bool expireToken = false;
    bool processed = false;              // with status: handled before the injected answer
    bool quotaFull = false;
    int skip = 0;
    std::vector<std::pair<std::string, std::string>> headers;  // added to the injected answer

    static std::optional<FaultSpec> parse(std::string_view text, std::string* error = nullptr);
    // Accepts the JSON object form ({"status": 503, "retry_after": 1, "drop_after": 10, ...})
    // or {"fault": "<text form>"}.
    static std::optional<FaultSpec> fromJson(const Json& value, std::string* error = nullptr);
    Json toJson() const;
    std::string toString() const;
};

// What one route (or, for "<provider>/*", all routes of a provider) has seen.
struct RouteStats {
    std::string route;
    std::int64_t requests = 0;
    std::int64_t faultsHit = 0;
    std::int64_t faultsPending = 0;
    std::int64_t bytesReceived = 0;      // request body bytes
    std::int64_t bytesSent = 0;          // response body bytes handed to the connection
    int inFlight = 0;
    int maxInFlight = 0;                 // most requests handled at the same time
    std::map<int, std::int64_t> statuses;
};

class Sandbox {
public:
    struct Options {
        // Serve hosts other than loopback (people only; tests never need it).
        bool allowRemote = false;
        // Approve every authorization request at once as the provider's first account, so
        // non-interactive sign-ins (the demo) complete without a person.
        bool autoApprove = false;
        // Serve HTTPS with a certificate made at start for 127.0.0.1, ::1 and localhost,
        // signed by a throwaway authority whose PEM file caFile() names.
        bool tls = false;
    };

    Sandbox();
    explicit Sandbox(Options options);
    ~Sandbox();
    Sandbox(const Sandbox&) = delete;
    Sandbox& operator=(const Sandbox&) = delete;

    // Binds and starts serving on its own threads. Port 0 picks a free port. Refuses a
    // non-loopback host unless Options::allowRemote. On failure returns false and says why.
    bool start(int port = 0, const std::string& host = "127.0.0.1", std::string* error = nullptr);
    void stop();
    bool running() const;

    int port() const;
    std::string host() const;
    std::string baseUrl() const;   // "http://127.0.0.1:PORT" ("https://..." with TLS)
    std::string adminUrl() const;  // baseUrl() + "/admin"
    // With TLS, the PEM file of the authority that signed the server's certificate, for
    // clients to trust (it lives as long as this object); empty for plain HTTP.
    std::string caFile() const;

    // Providers served ("dropbox", ...) and their endpoints by role, e.g. for Dropbox
    // "api" (serves /2/... and /oauth2/token), "content" (serves /2/files/upload, ...),
    // "authorize" (the browser page) and "token". Empty when the provider is unknown.
    std::vector<std::string> providers() const;
    std::map<std::string, std::string> endpoints(const std::string& provider) const;
    std::string endpoint(const std::string& provider, const std::string& role) const;

    // Accounts of one provider (all providers when empty), seeded ones first.
    std::vector<SandboxAccount> accounts(const std::string& provider = {}) const;
    // The provider's first seeded account; an empty account when the provider is unknown.
    SandboxAccount account(const std::string& provider) const;

    // {"sandbox": ..., "base": ..., "admin": ..., ["ca_file": ...,] "providers": {...},
    // "accounts": [...]} and
    // the same as one compact line, which `vxcloud-sandbox` prints when it is ready.
    Json describe() const;
    std::string readyLine() const;

    // Route keys are "<provider>/<route>" ("dropbox/files/upload", "dropbox/oauth2/token"),
    // "<provider>/*" for any route of a provider, "*" for any route at all.
    std::vector<std::string> routes(const std::string& provider = {}) const;
    bool enqueueFault(const std::string& route, const FaultSpec& fault, int times = 1,
                      std::string* error = nullptr);
    void clearFaults(const std::string& route = {});
    // Faults drawn at random for `rate` (0 to 1) of the requests that have none queued, in
    // an order fixed by `seed`: 429 and 503 with and without Retry-After, connections
    // dropped before and during bodies, delays, expired access tokens. 0 turns it off.
    void setRandomFaults(double rate, std::uint64_t seed);
    std::int64_t randomFaultsDrawn() const;
    RouteStats stats(const std::string& route) const;
    std::vector<RouteStats> allStats() const;
    void resetStats();

    // Stored state, addressed by path ("/Scans/a.pdf"). `account` is a user id or e-mail;
    // empty means the provider's first account. Results are the provider's own metadata
    // JSON; an empty (null) value and `error` on failure.
    Json putFile(const std::string& provider, const std::string& path, std::string_view bytes,
                 const std::string& account = {}, std::string* error = nullptr);
    Json putFolder(const std::string& provider, const std::string& path,
                   const std::string& account = {}, std::string* error = nullptr);
    // Replaces a stored file's bytes as another device would: a new revision.
    Json changeFile(const std::string& provider, const std::string& path, std::string_view bytes,
                    const std::string& account = {}, std::string* error = nullptr);
    bool removeItem(const std::string& provider, const std::string& path,
                    const std::string& account = {}, std::string* error = nullptr);
    std::optional<std::string> fileContent(const std::string& provider, const std::string& path,
                                           const std::string& account = {}) const;
    Json metadata(const std::string& provider, const std::string& path,
                  const std::string& account = {}) const;
    // Every item of the account's tree, parents before children.
    Json listState(const std::string& provider, const std::string& account = {}) const;
    // Storage quota of an account: a byte count, or full (no byte more fits).
    bool setQuota(const std::string& provider, std::int64_t bytes, const std::string& account = {});
    bool fillQuota(const std::string& provider, const std::string& account = {});

    // Tokens. Lifetimes apply to tokens issued afterwards.
    bool setAccessTokenLifetime(const std::string& provider, std::int64_t seconds);
    // Expires one access token, or every access token of the account (all accounts when
    // both are empty). Returns how many were expired.
    int expireAccessTokens(const std::string& provider, const std::string& account = {},
                           const std::string& accessToken = {});
    // A revoked refresh token (and every access token minted from it) stops working; an
    // expired one only refuses further refreshes. Both answer invalid_grant.
    bool revokeRefreshToken(const std::string& provider, const std::string& refreshToken);
    // A revoked access token stops working at once (with its refresh token and the access
    // tokens minted from that); for providers without refresh tokens (Evernote).
    bool revokeAccessToken(const std::string& provider, const std::string& accessToken);
    bool expireRefreshToken(const std::string& provider, const std::string& refreshToken);
    // Authorization requests waiting for a decision (for tests driving the browser step).
    Json pendingAuthorizations(const std::string& provider) const;
    void setAutoApprove(bool enabled);

    // Provider-specific settings (Dropbox: "max_upload_request_bytes", "list_folder_page_size",
    // "move_batch_async", "move_batch_in_progress_checks", ...). configure() changes only
    // the keys given; settings() shows them all.
    bool configure(const std::string& provider, const Json& settings, std::string* error = nullptr);
    Json settings(const std::string& provider) const;

    // Moves the sandbox clock forward (token, code and upload-session expiry).
    void advanceClock(std::int64_t seconds);

    struct Impl;

private:
    std::unique_ptr<Impl> impl_;
};

}  // namespace vxcloud::sandbox
