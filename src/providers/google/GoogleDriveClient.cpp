#include "providers/google/GoogleDriveClient.h"

#include <set>

#include "GoogleDriveRequest.h"
#include "providers/oauth/ClientForAccount.h"
#include "vxcloud/platform/Log.h"

namespace vxcloud::drive {

using nlohmann::json;

namespace {

// Drive's rate limits (403 and 429 with a rate-limit reason) are refusals before acting, so
// even a create is sent again, with or without Retry-After.
bool isRateLimit(const HttpResponse& response) {
    if (response.status != 403 && response.status != 429) return false;
    const ProviderError answer = ProviderError::fromGoogleResponse(response.status, response.body);
    return answer.googleReason &&
           (*answer.googleReason == "userRateLimitExceeded" || *answer.googleReason == "rateLimitExceeded");
}

providers::ProviderHooks googleHooks() {
    providers::ProviderHooks hooks;
    hooks.serviceName = "Google Drive";
    hooks.logTag = "google";
    hooks.readError = [](const HttpResponse& response) {
        return ProviderError::fromGoogleResponse(response.status, response.body);
    };
    hooks.refusedBeforeActing = isRateLimit;
    hooks.tokenFailure = [](const oauth::TokenFailure& failure) {
        ProviderError error = failure.error;
        // No usable grant is left (no token, no refresh token): the same outcome as the
        // token endpoint refusing the grant, which only a new sign-in mends.
        if (failure.kind == oauth::TokenFailure::Kind::authentication && !error.oauthError && !error.googleReason) {
            error.oauthError = "invalid_grant";
        }
        return error;
    };
    return hooks;
}

template <typename T, typename Reader>
Result<T> readAnswer(const Result<HttpResponse>& sent, const std::string& what, Reader reader) {
    if (!sent.ok()) return Result<T>::failureOf(sent);
    const json body = json::parse(sent.value().body, nullptr, false);
    if (body.is_discarded()) return Result<T>::failure(malformedAnswer(what + ": the answer is not JSON"));
    return reader(body);
}

Result<File> fileAnswer(const Result<HttpResponse>& sent, const std::string& what) {
    return readAnswer<File>(sent, what, [&](const json& body) {
        auto file = parseFile(body);
        if (!file) return Result<File>::failure(malformedAnswer(what + ": the answer is not a file resource"));
        return Result<File>::success(std::move(*file));
    });
}

}  // namespace

std::string withQuery(std::string url, const std::vector<std::pair<std::string, std::string>>& params) {
    char separator = url.find('?') == std::string::npos ? '?' : '&';
    for (const auto& [key, value] : params) {
        url += separator + HttpClient::urlEncode(key) + "=" + HttpClient::urlEncode(value);
        separator = '&';
    }
    return url;
}

GoogleDriveClient::GoogleDriveClient(std::shared_ptr<oauth::TokenProvider> tokens, ClientOptions options)
    : options_(std::move(options)), caller_(std::move(tokens), options_.http, options_.retry, googleHooks()) {}

std::shared_ptr<GoogleDriveClient> GoogleDriveClient::forStorageName(const std::string& storageName) {
    return oauth::clientForAccount<GoogleDriveClient, ClientOptions>(VXCloudService::googleDrive, storageName);
}

Result<HttpResponse> GoogleDriveClient::send(const Request& request) {
    providers::ApiRequest api = request;
    if (!request.contentType.empty()) api.headers.set("Content-Type", request.contentType);
    return caller_.send(api);
}

Result<json> GoogleDriveClient::aboutGet(const std::string& fields) {
    Request request;
    request.what = "about.get";
    request.url = withQuery(options_.endpoints.apiBase + "/drive/v3/about", {{"fields", fields}});
    return readAnswer<json>(send(request), request.what, [](const json& body) {
        return Result<json>::success(body);
    });
}

Result<std::vector<File>> GoogleDriveClient::listFiles(const std::string& q, const std::string& fields) {
    // The service stops paging silently when a selection leaves the token out.
    std::string selection = fields;
    if (!selection.empty() && selection.find("nextPageToken") == std::string::npos) {
        selection = "nextPageToken," + selection;
    }
    std::vector<File> files;
    std::set<std::string> seenTokens;
    std::optional<std::string> pageToken;
    for (;;) {
        std::vector<std::pair<std::string, std::string>> params = {{"q", q}, {"pageSize", "1000"}};
        if (!selection.empty()) params.emplace_back("fields", selection);
        if (pageToken) params.emplace_back("pageToken", *pageToken);
        Request request;
        request.what = "files.list";
        request.url = withQuery(options_.endpoints.apiBase + "/drive/v3/files", params);
        auto page = readAnswer<std::string>(send(request), request.what, [&](const json& body) {
            const auto list = body.find("files");
            if (!body.is_object() || (list != body.end() && !list->is_array())) {
                return Result<std::string>::failure(malformedAnswer("files.list: the answer holds no file list"));
            }
            if (list != body.end()) {
                for (const auto& item : *list) {
                    auto file = parseFile(item);
                    if (!file) return Result<std::string>::failure(malformedAnswer("files.list: a file cannot be read"));
                    files.push_back(std::move(*file));
                }
            }
            const auto token = body.find("nextPageToken");
            if (token == body.end() || token->is_null()) return Result<std::string>::success({});
            if (!token->is_string() || token->get<std::string>().empty()) {
                return Result<std::string>::failure(malformedAnswer("files.list: unreadable nextPageToken"));
            }
            return Result<std::string>::success(token->get<std::string>());
        });
        if (!page.ok()) return Result<std::vector<File>>::failureOf(page);
        if (page.value().empty()) return Result<std::vector<File>>::success(std::move(files));
        // A server that hands out the same token again would keep this loop going forever.
        if (!seenTokens.insert(page.value()).second) {
            return Result<std::vector<File>>::failure(malformedAnswer("files.list: a page token came back twice"));
        }
        pageToken = page.value();
    }
}

Result<File> GoogleDriveClient::getFile(const std::string& fileId, const std::string& fields) {
    Request request;
    request.what = "files.get";
    request.url = withQuery(options_.endpoints.apiBase + "/drive/v3/files/" + HttpClient::urlEncode(fileId),
                            {{"fields", fields}});
    return fileAnswer(send(request), request.what);
}

Result<File> GoogleDriveClient::createMetadataOnly(const FileMetadata& metadata, const std::string& fields) {
    Request request;
    request.what = "files.create";
    request.method = "POST";
    request.url = withQuery(options_.endpoints.apiBase + "/drive/v3/files", {{"fields", fields}});
    request.contentType = "application/json; charset=UTF-8";
    request.body = ByteBuffer::adopt(metadataJson(metadata).dump());
    // Drive allows duplicate names: a repeat after a lost answer would make a second item.
    request.idempotent = false;
    return fileAnswer(send(request), request.what);
}

Result<File> GoogleDriveClient::updateMetadata(const std::string& fileId, const FileMetadata& metadata,
                                               const std::string& addParents, const std::string& removeParents,
                                               const std::string& fields) {
    std::vector<std::pair<std::string, std::string>> params;
    if (!addParents.empty()) params.emplace_back("addParents", addParents);
    if (!removeParents.empty()) params.emplace_back("removeParents", removeParents);
    params.emplace_back("fields", fields);
    Request request;
    request.what = "files.update";
    request.method = "PATCH";
    request.url = withQuery(options_.endpoints.apiBase + "/drive/v3/files/" + HttpClient::urlEncode(fileId), params);
    request.contentType = "application/json; charset=UTF-8";
    request.body = ByteBuffer::adopt(metadataJson(metadata).dump());
    return fileAnswer(send(request), request.what);
}

Result<ByteBuffer> GoogleDriveClient::fetch(const std::string& pathAndQuery) {
    Request request;
    request.what = "download";
    request.url = options_.endpoints.apiBase + pathAndQuery;
    auto sent = send(request);
    if (!sent.ok()) return Result<ByteBuffer>::failureOf(sent);
    return Result<ByteBuffer>::success(ByteBuffer::adopt(std::move(sent.value().body)));
}

}  // namespace vxcloud::drive
