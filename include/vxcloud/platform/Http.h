#pragma once
// The one HTTP transport every provider client uses (libcurl underneath). TLS
// verification is always on. Failures come back as values, never as exceptions.
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "vxcloud/platform/ByteBuffer.h"

namespace vxcloud {

// Header list with case-insensitive lookup; order and duplicates are kept.
class HttpHeaders {
public:
    void add(std::string name, std::string value);
    void set(std::string name, std::string value);  // replaces every header of that name
    std::optional<std::string> get(std::string_view name) const;
    bool has(std::string_view name) const { return get(name).has_value(); }
    const std::vector<std::pair<std::string, std::string>>& all() const { return items_; }

private:
    std::vector<std::pair<std::string, std::string>> items_;
};

enum class TransportError {
    none,
    couldNotResolve,
    couldNotConnect,
    timedOut,         // connect or idle timeout
    connectionLost,   // dropped mid-request or mid-answer
    tls,
    tooManyRedirects,
    aborted,          // a callback asked to stop
    other,
};

struct HttpRequest {
    std::string method = "GET";
    std::string url;
    HttpHeaders headers;
    // Sent without copying; the buffer is kept alive for the request.
    ByteBuffer body;
    // Follow 3xx answers only where a client asks for it.
    bool followRedirects = false;
    // Whether repeating the request cannot do harm. A request that creates something
    // (a new file where names may repeat, a new note) is not idempotent: after a
    // failure that may have reached the server it is not repeated; the provider client
    // checks before creating again.
    bool idempotent = true;
    std::chrono::milliseconds connectTimeout{15000};
    // The transfer is abandoned when no byte moves for this long.
    std::chrono::milliseconds idleTimeout{60000};
    // Bytes sent so far and the total, while the body goes out.
    std::function<void(std::int64_t sent, std::int64_t total)> onUploadProgress;
    // When set, a successful (2xx) answer's body is streamed here instead of being
    // collected; returning false aborts the transfer. Other answers are collected in
    // `body` so the caller can read the error. Once bytes have gone here the request
    // is not repeated, whatever the retry policy says.
    std::function<bool(const char* data, std::size_t size)> onBodyChunk;
    // A PEM file of certificate authorities to trust instead of the system's, for a server
    // with a certificate of its own (the sandbox over HTTPS). Verification stays on. Empty:
    // the file registered for the URL's origin (HttpClient::setAuthoritiesByOrigin), else
    // the system's authorities.
    std::string caFile;
};

struct HttpResponse {
    int status = 0;  // 0 when no answer was received
    HttpHeaders headers;
    std::string body;
    TransportError error = TransportError::none;
    std::string errorMessage;  // readable, never holds tokens
    int attempts = 0;          // how many times the request was sent
    bool ok() const { return error == TransportError::none && status >= 200 && status < 300; }
    bool transportFailed() const { return error != TransportError::none; }
};

// Exponential backoff with full jitter, honouring Retry-After, for 429, 5xx and
// dropped connections. A provider client configures one per route family.
//
// What is repeated: a failed connect (the request never left), a status listed in
// retryStatuses, and a lost connection or timeout when the matching flag is on. A
// request that is not idempotent is repeated only when the server provably did not
// act on it: the connection could not be made, or a 429/503 came with Retry-After
// (the server refused it up front and said when to return). A lost connection, a
// timeout or a bare 5xx may come after the server did the work, so such a request
// is handed back and the caller checks before sending it again. A Retry-After longer
// than maxRetryAfter is not waited for: the answer is returned at once.
struct RetryPolicy {
    int maxAttempts = 1;  // 1 = no retry
    std::chrono::milliseconds baseDelay{500};
    std::chrono::milliseconds maxDelay{32000};
    // Retry-After values above this are not waited for; the answer is returned.
    std::chrono::milliseconds maxRetryAfter{60000};
    std::vector<int> retryStatuses{429, 500, 502, 503, 504};
    bool retryOnConnectionLost = true;
    bool retryOnTimeout = true;
    // A provider's own "try again" answers beyond retryStatuses (Drive's 403 rate limits,
    // Dropbox's 409 too_many_write_operations). The provider gives them before acting on
    // the request, so they are repeated whatever the request's idempotency.
    std::function<bool(const HttpResponse&)> refusedBeforeActing;

    static RetryPolicy none() { return {}; }
    static RetryPolicy standard(int attempts = 4) {
        RetryPolicy p;
        p.maxAttempts = attempts;
        return p;
    }
    // Whether attempt number `attempt` (1-based) that ended in `response` should be
    // repeated for a request of the given idempotency.
    bool shouldRetry(const HttpResponse& response, int attempt, bool idempotent) const;
    // Whether the answer says "try again later" (a dropped connection, a timeout, a listed
    // status, a provider's own such answer), whatever the attempts left.
    bool isTransient(const HttpResponse& response) const;
    // The wait before the next attempt: Retry-After when the answer has one, else
    // backoff with jitter.
    std::chrono::milliseconds delayBefore(int nextAttempt, const HttpResponse& last) const;
};

class HttpClient {
public:
    // The shared client (one connection cache for the process).
    static std::shared_ptr<HttpClient> shared();
    HttpClient();
    ~HttpClient();
    HttpClient(const HttpClient&) = delete;
    HttpClient& operator=(const HttpClient&) = delete;

    // Blocking; safe to call from many threads at once.
    HttpResponse perform(const HttpRequest& request,
                         const RetryPolicy& policy = RetryPolicy::none());

    // Requests performed by every client of the process, and the attempts that repeated one
    // (after a dropped connection, a 429, ...): for diagnostics and soak figures.
    struct Counters {
        std::int64_t performed = 0;
        std::int64_t repeated = 0;
    };
    static Counters counters();

    // Called once per attempt with method, URL (tokens redacted) and status, for -v.
    using RequestLogger = std::function<void(const std::string& method,
                                             const std::string& redactedUrl, int status,
                                             TransportError error)>;
    void setRequestLogger(RequestLogger logger);

    // CA files (PEM) to trust instead of the system's authorities, by origin
    // ("https://127.0.0.1:8443"), for requests that name none themselves. Process-wide and
    // replaced as a whole; the service configuration keeps it in step with the endpoints
    // it is given (VXCloudServiceEndpoints::caFile).
    static void setAuthoritiesByOrigin(std::map<std::string, std::string> caFileByOrigin);
    // The CA file a request to `url` uses: its own, else its origin's, else empty.
    static std::string authoritiesFor(const HttpRequest& request);
    // "https://host:port" of a URL, lower-cased; empty when it is not an absolute URL.
    static std::string originOf(std::string_view url);

    // Percent-encoding helpers for URLs and forms.
    static std::string urlEncode(std::string_view text);
    static std::string urlDecode(std::string_view text);
    static std::string formEncode(const std::vector<std::pair<std::string, std::string>>& fields);

    struct State;

private:
    std::shared_ptr<State> state_;
};

// A multipart body (multipart/related or multipart/form-data) whose bytes tests can
// read back exactly.
class MultipartBody {
public:
    explicit MultipartBody(std::string subtype = "form-data", std::string boundary = {});
    // A part with explicit headers (e.g. Content-Type, Content-Disposition).
    void addPart(HttpHeaders headers, ByteBuffer content);
    void addFormField(const std::string& name, const std::string& value);
    void addFile(const std::string& name, const std::string& filename,
                 const std::string& contentType, ByteBuffer content);
    const std::string& boundary() const { return boundary_; }
    // e.g. "multipart/related; boundary=..."
    std::string contentType() const;
    // The encoded body. Large parts are copied once here; callers that must not copy
    // a large document use a protocol that sends it alone.
    ByteBuffer encode() const;

private:
    std::string subtype_;
    std::string boundary_;
    std::vector<std::pair<HttpHeaders, ByteBuffer>> parts_;
};

}  // namespace vxcloud
