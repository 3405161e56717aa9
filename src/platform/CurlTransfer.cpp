#include "platform/CurlTransfer.h"

#include <algorithm>
#include <chrono>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "vxcloud/platform/Log.h"

namespace vxcloud::curl {
namespace {

// The environment's no_proxy list with the loopback names added.
const std::string& noProxyList() {
    static const std::string list = [] {
        std::string l = "localhost,127.0.0.1,::1";
        for (const char* name : {"no_proxy", "NO_PROXY"}) {
            if (const char* v = std::getenv(name); v && *v) {
                l += ',';
                l += v;
                break;
            }
        }
        return l;
    }();
    return list;
}


using Clock = std::chrono::steady_clock;

struct SlistDeleter {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
using Slist = std::unique_ptr<curl_slist, SlistDeleter>;

// State one attempt's callbacks share. Callbacks never let an exception into libcurl:
// they record it and stop the transfer.
struct Attempt {
    Attempt(const HttpRequest& request, CURL* easy, HttpResponse& response)
        : request(request), easy(easy), response(response) {}

    const HttpRequest& request;
    CURL* easy;
    HttpResponse& response;

    bool sendsBody = false;
    std::string caFile;  // libcurl keeps the pointer until the handle is reset
    std::size_t uploadOffset = 0;
    curl_off_t lastReportedUpload = -1;

    curl_off_t lastMoved = -1;
    Clock::time_point lastMoveTime = Clock::now();
    bool idleExpired = false;

    enum class Sink { undecided, stream, collect } sink = Sink::undecided;
    bool deliveredChunks = false;
    bool receiverStopped = false;
    std::string callbackFailure;

    void fail(const char* what, const std::exception* e) {
        callbackFailure = std::string(what) + " failed" + (e ? std::string(": ") + e->what() : "");
    }

    void reportUpload(curl_off_t sent) {
        if (!request.onUploadProgress || !sendsBody || sent == lastReportedUpload) return;
        lastReportedUpload = sent;
        request.onUploadProgress(sent, static_cast<std::int64_t>(request.body.size()));
    }
};

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r' ||
                             text.back() == '\n'))
        text.remove_suffix(1);
    return text;
}

size_t onHeader(char* data, size_t size, size_t count, void* userdata) {
    auto& attempt = *static_cast<Attempt*>(userdata);
    const size_t length = size * count;
    try {
        std::string_view line(data, length);
        auto& headers = attempt.response.headers;
        if (line.starts_with("HTTP/")) {
            // A new answer (after 100 Continue or a followed redirect): only the last counts.
            headers = HttpHeaders();
        } else if (!line.empty() && (line.front() == ' ' || line.front() == '\t')) {
            // Obsolete line folding continues the previous header's value.
            if (!headers.all().empty()) {
                auto items = headers.all();
                items.back().second += ' ';
                items.back().second += trimmed(line);
                headers = HttpHeaders();
                for (auto& [name, value] : items) headers.add(std::move(name), std::move(value));
            }
        } else if (auto colon = line.find(':'); colon != std::string_view::npos && colon > 0) {
            headers.add(std::string(trimmed(line.substr(0, colon))),
                        std::string(trimmed(line.substr(colon + 1))));
        }
        return length;
    } catch (const std::exception& e) {
        attempt.fail("Reading the answer's headers", &e);
    } catch (...) {
        attempt.fail("Reading the answer's headers", nullptr);
    }
    return 0;
}

size_t onBody(char* data, size_t size, size_t count, void* userdata) {
    auto& attempt = *static_cast<Attempt*>(userdata);
    const size_t length = size * count;
    try {
        if (attempt.sink == Attempt::Sink::undecided) {
            // Only a successful answer goes to the receiver; an error document is
            // collected so the caller can read why.
            long status = 0;
            curl_easy_getinfo(attempt.easy, CURLINFO_RESPONSE_CODE, &status);
            attempt.sink = attempt.request.onBodyChunk && status >= 200 && status < 300
                               ? Attempt::Sink::stream
                               : Attempt::Sink::collect;
        }
        if (attempt.sink == Attempt::Sink::collect) {
            attempt.response.body.append(data, length);
            return length;
        }
        attempt.deliveredChunks = true;
        if (attempt.request.onBodyChunk(data, length)) return length;
        attempt.receiverStopped = true;
        return 0;
    } catch (const std::exception& e) {
        attempt.fail("Receiving the answer's body", &e);
    } catch (...) {
        attempt.fail("Receiving the answer's body", nullptr);
    }
    return 0;
}

size_t onRead(char* buffer, size_t size, size_t count, void* userdata) {
    auto& attempt = *static_cast<Attempt*>(userdata);
    const auto& body = attempt.request.body;
    const size_t n = std::min(size * count, body.size() - attempt.uploadOffset);
    if (n > 0) std::memcpy(buffer, body.data() + attempt.uploadOffset, n);
    attempt.uploadOffset += n;
    return n;
}

// libcurl rewinds the body when it must send it again (a reused connection that turned
// out closed, a 307 or 308 redirect).
int onSeek(void* userdata, curl_off_t offset, int origin) {
    auto& attempt = *static_cast<Attempt*>(userdata);
    if (origin != SEEK_SET || offset < 0 ||
        static_cast<std::uint64_t>(offset) > attempt.request.body.size())
        return CURL_SEEKFUNC_FAIL;
    attempt.uploadOffset = static_cast<std::size_t>(offset);
    return CURL_SEEKFUNC_OK;
}

int onProgress(void* userdata, curl_off_t, curl_off_t received, curl_off_t, curl_off_t sent) {
    auto& attempt = *static_cast<Attempt*>(userdata);
    try {
        const auto now = Clock::now();
        const curl_off_t moved = received + sent;
        if (moved != attempt.lastMoved) {
            attempt.lastMoved = moved;
            attempt.lastMoveTime = now;
        } else if (now - attempt.lastMoveTime >= attempt.request.idleTimeout) {
            attempt.idleExpired = true;
            return 1;
        }
        attempt.reportUpload(sent);
        return 0;
    } catch (const std::exception& e) {
        attempt.fail("The upload progress callback", &e);
    } catch (...) {
        attempt.fail("The upload progress callback", nullptr);
    }
    return 1;
}

bool hasLineBreakOrNul(std::string_view text) {
    return text.find_first_of(std::string_view("\r\n\0", 3)) != std::string_view::npos;
}

// The header list for libcurl, or an explanation of why the headers cannot be sent.
Slist buildHeaders(const HttpRequest& request, bool sendsBody, std::string& problem) {
    curl_slist* list = nullptr;
    auto append = [&](const std::string& line) {
        if (curl_slist* grown = curl_slist_append(list, line.c_str())) {
            list = grown;
            return true;
        }
        problem = "Out of memory while preparing the request headers";
        return false;
    };
    for (const auto& [name, value] : request.headers.all()) {
        if (name.empty() || name.find_first_of(": \t") != std::string::npos ||
            hasLineBreakOrNul(name) || hasLineBreakOrNul(value)) {
            problem = "The request header \"" + log::redact(name) + "\" is malformed";
            curl_slist_free_all(list);
            return nullptr;
        }
        // "Name;" is libcurl's spelling of a header sent with an empty value.
        if (!append(value.empty() ? name + ";" : name + ": " + value)) break;
    }
    // Waiting for "100 Continue" only delays uploads to servers that never send it.
    if (problem.empty() && !request.headers.has("Expect")) append("Expect:");
    // libcurl would label a body without a type as a form; say nothing instead.
    if (problem.empty() && sendsBody && !request.headers.has("Content-Type")) append("Content-Type:");
    if (!problem.empty()) {
        curl_slist_free_all(list);
        return nullptr;
    }
    return Slist(list);
}

TransportError classify(CURLcode code, const Attempt& attempt) {
    switch (code) {
        case CURLE_OK: return TransportError::none;
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_COULDNT_RESOLVE_PROXY: return TransportError::couldNotResolve;
        case CURLE_COULDNT_CONNECT: return TransportError::couldNotConnect;
        case CURLE_OPERATION_TIMEDOUT: return TransportError::timedOut;
        case CURLE_RECV_ERROR:
        case CURLE_SEND_ERROR:
        case CURLE_PARTIAL_FILE:
        case CURLE_GOT_NOTHING:
        case CURLE_HTTP2:
        case CURLE_HTTP2_STREAM:
        case CURLE_HTTP3:
        case CURLE_SEND_FAIL_REWIND: return TransportError::connectionLost;
        case CURLE_SSL_CONNECT_ERROR:
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_SSL_CERTPROBLEM:
        case CURLE_SSL_CIPHER:
        case CURLE_SSL_CACERT_BADFILE:
        case CURLE_SSL_CRL_BADFILE:
        case CURLE_SSL_ISSUER_ERROR:
        case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
        case CURLE_SSL_INVALIDCERTSTATUS:
        case CURLE_SSL_ENGINE_NOTFOUND:
        case CURLE_SSL_ENGINE_SETFAILED:
        case CURLE_SSL_ENGINE_INITFAILED:
        case CURLE_SSL_SHUTDOWN_FAILED:
        case CURLE_SSL_CLIENTCERT:
        case CURLE_USE_SSL_FAILED: return TransportError::tls;
        case CURLE_TOO_MANY_REDIRECTS: return TransportError::tooManyRedirects;
        case CURLE_ABORTED_BY_CALLBACK:
            return attempt.idleExpired ? TransportError::timedOut : TransportError::aborted;
        case CURLE_WRITE_ERROR:
        case CURLE_READ_ERROR:
            return attempt.receiverStopped || !attempt.callbackFailure.empty()
                       ? TransportError::aborted
                       : TransportError::other;
        default: return TransportError::other;
    }
}

std::string describe(TransportError error) {
    switch (error) {
        case TransportError::couldNotResolve: return "Could not resolve the server's name";
        case TransportError::couldNotConnect: return "Could not connect to the server";
        case TransportError::timedOut: return "The server did not answer in time";
        case TransportError::connectionLost: return "The connection to the server was lost";
        case TransportError::tls: return "The secure connection could not be established";
        case TransportError::tooManyRedirects: return "The server redirected too many times";
        case TransportError::aborted: return "The transfer was stopped";
        default: return "The request failed";
    }
}

bool isMethod(const std::string& method, const char* name) {
    return method.size() == std::strlen(name) &&
           std::equal(method.begin(), method.end(), name,
                      [](char a, char b) { return std::toupper(static_cast<unsigned char>(a)) == b; });
}

// Sets every option of this attempt. Returns a problem text when the request cannot be
// sent at all.
std::string configure(CURL* easy, Attempt& attempt, char* errorBuffer, Slist& headers) {
    const HttpRequest& request = attempt.request;
    const std::string& method = request.method;
    const bool isGet = isMethod(method, "GET");
    const bool isHead = isMethod(method, "HEAD");
    attempt.sendsBody = !request.body.empty() || isMethod(method, "POST") ||
                        isMethod(method, "PUT") || isMethod(method, "PATCH");
    if (isHead && !request.body.empty()) return "A HEAD request cannot carry a body";

    std::string problem;
    headers = buildHeaders(request, attempt.sendsBody, problem);
    if (!problem.empty()) return problem;

    curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, errorBuffer);
    curl_easy_setopt(easy, CURLOPT_URL, request.url.c_str());
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(easy, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 2L);
    if (attempt.caFile = HttpClient::authoritiesFor(request); !attempt.caFile.empty())
        curl_easy_setopt(easy, CURLOPT_CAINFO, attempt.caFile.c_str());
    curl_easy_setopt(easy, CURLOPT_TCP_KEEPALIVE, 1L);
    // Loopback (the sandbox, sign-in redirects) never goes through a proxy, whatever
    // the environment says; other hosts follow the usual proxy variables.
    curl_easy_setopt(easy, CURLOPT_NOPROXY, noProxyList().c_str());
    curl_easy_setopt(easy, CURLOPT_USERAGENT, "VXCloud/1.0");
    curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS,
                     static_cast<long>(std::max<std::int64_t>(1, request.connectTimeout.count())));
    // The progress callback enforces the idle timeout to the millisecond; the low-speed
    // limit backs it up in whole seconds. No total timeout: a large upload may take long.
    const auto idleSeconds = std::max<std::int64_t>(1, (request.idleTimeout.count() + 999) / 1000);
    curl_easy_setopt(easy, CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(easy, CURLOPT_LOW_SPEED_TIME, static_cast<long>(idleSeconds + 1));
    curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, request.followRedirects ? 1L : 0L);
    curl_easy_setopt(easy, CURLOPT_MAXREDIRS, 10L);
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers.get());

    curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, &onHeader);
    curl_easy_setopt(easy, CURLOPT_HEADERDATA, &attempt);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &onBody);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, &attempt);
    curl_easy_setopt(easy, CURLOPT_XFERINFOFUNCTION, &onProgress);
    curl_easy_setopt(easy, CURLOPT_XFERINFODATA, &attempt);
    curl_easy_setopt(easy, CURLOPT_NOPROGRESS, 0L);

    if (isHead) {
        curl_easy_setopt(easy, CURLOPT_NOBODY, 1L);
    } else if (attempt.sendsBody) {
        // POST mechanics with the body read straight from the buffer; any other method
        // name goes on the request line. Content-Length comes from the size.
        curl_easy_setopt(easy, CURLOPT_POST, 1L);
        curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE,
                         static_cast<curl_off_t>(request.body.size()));
        curl_easy_setopt(easy, CURLOPT_READFUNCTION, &onRead);
        curl_easy_setopt(easy, CURLOPT_READDATA, &attempt);
        curl_easy_setopt(easy, CURLOPT_SEEKFUNCTION, &onSeek);
        curl_easy_setopt(easy, CURLOPT_SEEKDATA, &attempt);
        if (!isMethod(method, "POST")) curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, method.c_str());
    } else {
        curl_easy_setopt(easy, CURLOPT_HTTPGET, 1L);
        if (!isGet) curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, method.c_str());
    }
    return {};
}

}  // namespace

namespace {

// Messages may quote what the server or libcurl said; nothing that looks like a
// credential survives.
std::string safeMessage(const std::string& message) {
    try {
        return log::redact(message);
    } catch (...) {
        return "The request failed";
    }
}

}  // namespace

TransferResult transfer(const std::shared_ptr<Share>& share, const HttpRequest& request) {
    TransferResult result;
    HttpResponse& response = result.response;
    auto fail = [&](TransportError error, const std::string& message) {
        response.error = error;
        response.errorMessage = safeMessage(message);
        return std::move(result);
    };
    try {
        // Declared before the handle: the handle still points at them until it is reset.
        char errorBuffer[CURL_ERROR_SIZE] = {};
        Slist headers;
        BorrowedEasy easy(share);
        if (!easy.get()) return fail(TransportError::other, "Could not create an HTTP handle");

        Attempt attempt(request, easy.get(), response);
        if (auto problem = configure(easy.get(), attempt, errorBuffer, headers); !problem.empty())
            return fail(TransportError::other, problem);

        const CURLcode code = curl_easy_perform(easy.get());

        long status = 0;
        curl_easy_getinfo(easy.get(), CURLINFO_RESPONSE_CODE, &status);
        response.status = static_cast<int>(status);
        result.deliveredChunks = attempt.deliveredChunks;

        if (code == CURLE_OK) {
            // The last progress call may come before the final bytes are counted.
            curl_off_t uploaded = 0;
            curl_easy_getinfo(easy.get(), CURLINFO_SIZE_UPLOAD_T, &uploaded);
            if (attempt.sendsBody && uploaded == static_cast<curl_off_t>(request.body.size()))
                attempt.reportUpload(uploaded);
            return result;
        }

        const TransportError error = classify(code, attempt);
        std::string detail;
        if (!attempt.callbackFailure.empty()) {
            detail = attempt.callbackFailure;
        } else if (attempt.idleExpired) {
            detail = "no data moved for " + std::to_string(request.idleTimeout.count()) + " ms";
        } else if (attempt.receiverStopped) {
            detail = "the receiver of the answer's body asked to stop";
        } else {
            detail = errorBuffer[0] ? std::string(errorBuffer) : curl_easy_strerror(code);
            while (!detail.empty() && (detail.back() == '\n' || detail.back() == '\r'))
                detail.pop_back();
        }
        return fail(error, describe(error) + ": " + detail);
    } catch (const std::exception& e) {
        return fail(TransportError::other, std::string("The request failed: ") + e.what());
    } catch (...) {
        return fail(TransportError::other, "The request failed");
    }
}

}  // namespace vxcloud::curl
