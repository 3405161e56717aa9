#include "DropboxWire.h"
#include "providers/oauth/ClientForAccount.h"
#include "vxcloud/platform/Log.h"

namespace vxcloud::dropbox {
namespace {

json parseBody(const std::string& body) { return json::parse(body, nullptr, false); }

// A 401 whose token a refresh can replace.
bool refreshable(const HttpResponse& response) {
    const json body = parseBody(response.body);
    if (!body.is_object()) return false;
    auto it = body.find("error");
    if (it == body.end()) return false;
    const std::string tag = tagOf(*it);
    return tag == "expired_access_token" || tag == "invalid_access_token";
}

// A 409 that says "try again": the namespace was busy or the server hiccupped.
bool transientRouteError(const HttpResponse& response) {
    if (response.status != 409) return false;
    const json body = parseBody(response.body);
    if (!body.is_object() || !body.contains("error")) return false;
    const std::string tag = innermostTag(body["error"]);
    return tag == "too_many_write_operations" || tag == "internal_error";
}

CallErrorKind kindForStatus(int status) {
    if (status == 400) return CallErrorKind::badInput;
    if (status == 401) return CallErrorKind::auth;
    if (status == 403) return CallErrorKind::access;
    if (status == 409) return CallErrorKind::route;
    if (status == 429) return CallErrorKind::rateLimit;
    if (status >= 500 && status <= 599) return CallErrorKind::internalServer;
    return CallErrorKind::http;
}

// A failed answer with the route's error union read into the provider error.
ProviderError readRouteError(const DropboxClient::Request& request, const HttpResponse& response) {
    ProviderError error = request.errors == ErrorUnion::relocation
                              ? ProviderError::fromDropboxRelocationResponse(response.status, response.body)
                              : ProviderError::fromDropboxUploadResponse(response.status, response.body);
    if (request.errors == ErrorUnion::none) error.dropboxUploadError.reset();
    if (response.status != 409) return error;
    const json body = parseBody(response.body);
    if (!body.is_object() || !body.contains("error")) return error;
    const json& routeError = body["error"];
    error.dropboxRouteTags = routeTags(routeError);
    if (!request.writeErrorMember.empty() && tagOf(routeError) == request.writeErrorMember &&
        routeError.contains(request.writeErrorMember)) {
        error.dropboxWriteError = DropboxWriteError::fromJson(routeError[request.writeErrorMember]);
    }
    if (routeError.is_object() && routeError.contains("correct_offset") &&
        routeError["correct_offset"].is_number_integer()) {
        error.dropboxCorrectOffset = routeError["correct_offset"].get<std::int64_t>();
    }
    return error;
}

providers::ProviderHooks dropboxHooks() {
    providers::ProviderHooks hooks;
    hooks.serviceName = "Dropbox";
    hooks.logTag = "dropbox";
    hooks.readError = [](const HttpResponse& response) {
        return ProviderError::fromDropboxUploadResponse(response.status, response.body);
    };
    hooks.refreshable = refreshable;
    // A token that cannot be had reads like the answer it stands for: a refused grant like
    // a 401, a failing token endpoint like server trouble.
    hooks.tokenFailure = [](const oauth::TokenFailure& failure) {
        ProviderError error = failure.error;
        switch (failure.kind) {
            case oauth::TokenFailure::Kind::authentication: error.httpStatus = 401; break;
            case oauth::TokenFailure::Kind::server: error.httpStatus = 500; break;
            case oauth::TokenFailure::Kind::connection:
            case oauth::TokenFailure::Kind::malformed: break;
        }
        return error;
    };
    hooks.refusedBeforeActing = transientRouteError;
    hooks.onAnswer = [](const providers::ApiRequest& request, const HttpResponse& response) {
        if (!log::enabled(log::Level::debug)) return;
        if (auto id = response.headers.get("X-Dropbox-Request-Id")) {
            log::debug("dropbox", request.what + " request id " + *id);
        }
    };
    return hooks;
}

template <typename T, typename Reader>
Result<T> readAnswer(const Result<HttpResponse>& sent, const std::string& route, Reader reader) {
    if (!sent.ok()) return Result<T>::failure(sent.error());
    try {
        const json body = parseBody(sent.value().body);
        if (body.is_discarded()) return Result<T>::failure(malformedAnswer(route, "the answer is not JSON"));
        return reader(body);
    } catch (const std::exception& e) {
        return Result<T>::failure(malformedAnswer(route, e.what()));
    }
}

Result<Metadata> metadataAnswer(const json& value, std::optional<Metadata::Tag> implicitTag,
                                const std::string& route) {
    Metadata m;
    if (parseMetadata(value, implicitTag, m) != ParseStatus::ok) {
        return Result<Metadata>::failure(malformedAnswer(route, "the answer holds no readable metadata"));
    }
    return Result<Metadata>::success(std::move(m));
}

// {"metadata": {...}}, the result shape of create_folder_v2, move_v2 and delete_v2.
Result<Metadata> wrappedMetadata(const json& body, std::optional<Metadata::Tag> implicitTag,
                                 const std::string& route) {
    if (!body.is_object() || !body.contains("metadata")) {
        return Result<Metadata>::failure(malformedAnswer(route, "the answer holds no metadata"));
    }
    return metadataAnswer(body["metadata"], implicitTag, route);
}

Result<ListFolderResult> listAnswer(const json& body, const std::string& route) {
    if (!body.is_object()) return Result<ListFolderResult>::failure(malformedAnswer(route, "not an object"));
    auto entries = body.find("entries");
    auto cursor = body.find("cursor");
    auto hasMore = body.find("has_more");
    if (entries == body.end() || !entries->is_array() || hasMore == body.end() || !hasMore->is_boolean()) {
        return Result<ListFolderResult>::failure(malformedAnswer(route, "entries or has_more missing"));
    }
    ListFolderResult result;
    result.hasMore = hasMore->get<bool>();
    if (cursor != body.end() && cursor->is_string()) result.cursor = cursor->get<std::string>();
    if (result.hasMore && result.cursor.empty()) {
        return Result<ListFolderResult>::failure(malformedAnswer(route, "more entries but no cursor"));
    }
    for (const json& entry : *entries) {
        Metadata m;
        switch (parseMetadata(entry, std::nullopt, m)) {
            case ParseStatus::ok: result.entries.push_back(std::move(m)); break;
            case ParseStatus::unknownTag: break;  // a subtype this client does not know
            case ParseStatus::malformed:
                return Result<ListFolderResult>::failure(malformedAnswer(route, "an entry cannot be read"));
        }
    }
    return Result<ListFolderResult>::success(std::move(result));
}

Result<std::vector<RelocationBatchEntry>> batchEntries(const json& body, const std::string& route) {
    auto entries = body.find("entries");
    if (entries == body.end() || !entries->is_array()) {
        return Result<std::vector<RelocationBatchEntry>>::failure(malformedAnswer(route, "entries missing"));
    }
    std::vector<RelocationBatchEntry> out;
    for (const json& entry : *entries) {
        RelocationBatchEntry parsed;
        if (!parseBatchEntry(entry, parsed)) {
            return Result<std::vector<RelocationBatchEntry>>::failure(
                malformedAnswer(route, "a batch entry cannot be read"));
        }
        out.push_back(std::move(parsed));
    }
    return Result<std::vector<RelocationBatchEntry>>::success(std::move(out));
}

}  // namespace

CallErrorKind callErrorKind(const ProviderError& error) {
    if (error.transport != TransportErrorKind::none || !error.httpStatus) return CallErrorKind::client;
    return kindForStatus(*error.httpStatus);
}

DropboxClient::DropboxClient(std::shared_ptr<oauth::TokenProvider> tokens, ClientOptions options)
    : options_(std::move(options)), caller_(std::move(tokens), options_.http, options_.retry, dropboxHooks()) {}

std::shared_ptr<DropboxClient> DropboxClient::forUser(const std::string& userId) {
    return oauth::clientForAccount<DropboxClient, ClientOptions>(VXCloudService::dropbox, userId);
}

Result<HttpResponse> DropboxClient::send(const Request& request) {
    providers::ApiRequest api;
    api.what = request.route;
    api.method = "POST";
    const std::string& base =
        request.style == Style::rpc ? options_.endpoints.apiBase : options_.endpoints.contentBase;
    api.url = base + "/2/" + request.route;
    api.idempotent = request.idempotent;
    switch (request.style) {
        case Style::rpc:
            // Routes without an argument take the JSON null, as the official clients send.
            api.headers.set("Content-Type", "application/json");
            api.body = ByteBuffer::adopt(request.arg.dump());
            break;
        case Style::upload:
            api.headers.set("Content-Type", "application/octet-stream");
            api.headers.set("Dropbox-API-Arg", headerSafeJson(request.arg));
            api.body = request.body;
            api.onSent = request.onSent;
            break;
        case Style::download:
            // No body and no Content-Type: a form default would be refused.
            api.headers.set("Dropbox-API-Arg", headerSafeJson(request.arg));
            break;
    }
    api.readError = [&request](const HttpResponse& response) { return readRouteError(request, response); };
    return caller_.send(api);
}

Result<std::string> DropboxClient::getCurrentAccount() {
    Request request;
    request.route = "users/get_current_account";
    request.arg = nullptr;
    return readAnswer<std::string>(send(request), request.route, [&](const json& body) {
        if (body.is_object() && body.contains("account_id") && body["account_id"].is_string()) {
            return Result<std::string>::success(body["account_id"].get<std::string>());
        }
        return Result<std::string>::failure(malformedAnswer(request.route, "no account_id"));
    });
}

Result<FullAccount> DropboxClient::getFullAccount() {
    Request request;
    request.route = "users/get_current_account";
    request.arg = nullptr;
    return readAnswer<FullAccount>(send(request), request.route, [&](const json& body) {
        const auto text = [&](const json& object, const char* key) -> std::optional<std::string> {
            if (!object.is_object()) return std::nullopt;
            auto it = object.find(key);
            if (it == object.end() || !it->is_string()) return std::nullopt;
            return it->get<std::string>();
        };
        auto id = text(body, "account_id");
        auto email = text(body, "email");
        if (!id || id->empty() || !email) {
            return Result<FullAccount>::failure(malformedAnswer(request.route, "no account_id or email"));
        }
        FullAccount account{*id, *email, {}};
        if (body.contains("name")) account.displayName = text(body["name"], "display_name").value_or("");
        return Result<FullAccount>::success(std::move(account));
    });
}

Result<ListFolderResult> DropboxClient::listFolder(const std::string& path) {
    Request request;
    request.route = "files/list_folder";
    request.arg = json{
        {"path", path},
        {"recursive", false},
        {"include_deleted", false},
        {"include_has_explicit_shared_members", false},
        {"include_mounted_folders", true},
        {"include_non_downloadable_files", true},
    };
    return readAnswer<ListFolderResult>(send(request), request.route,
                                        [&](const json& body) { return listAnswer(body, request.route); });
}

Result<ListFolderResult> DropboxClient::listFolderContinue(const std::string& cursor) {
    Request request;
    request.route = "files/list_folder/continue";
    request.arg = json{{"cursor", cursor}};
    return readAnswer<ListFolderResult>(send(request), request.route,
                                        [&](const json& body) { return listAnswer(body, request.route); });
}

Result<Metadata> DropboxClient::getMetadata(const std::string& path) {
    Request request;
    request.route = "files/get_metadata";
    request.arg = json{{"path", path}};
    return readAnswer<Metadata>(send(request), request.route, [&](const json& body) {
        return metadataAnswer(body, std::nullopt, request.route);
    });
}

Result<Metadata> DropboxClient::createFolderV2(const std::string& path, bool autorename) {
    Request request;
    request.route = "files/create_folder_v2";
    request.arg = json{{"path", path}, {"autorename", autorename}};
    request.idempotent = false;  // a repeat would meet the folder it made
    request.writeErrorMember = "path";
    return readAnswer<Metadata>(send(request), request.route, [&](const json& body) {
        return wrappedMetadata(body, Metadata::Tag::folder, request.route);
    });
}

Result<Metadata> DropboxClient::moveV2(const std::string& fromPath, const std::string& toPath) {
    Request request;
    request.route = "files/move_v2";
    request.arg = json{{"from_path", fromPath}, {"to_path", toPath}, {"autorename", false},
                       {"allow_ownership_transfer", false}};
    request.idempotent = false;  // a repeat would not find the source any more
    request.errors = ErrorUnion::relocation;
    return readAnswer<Metadata>(send(request), request.route, [&](const json& body) {
        return wrappedMetadata(body, std::nullopt, request.route);
    });
}

Result<Metadata> DropboxClient::deleteV2(const std::string& path) {
    Request request;
    request.route = "files/delete_v2";
    request.arg = json{{"path", path}};
    request.idempotent = false;
    request.writeErrorMember = "path_write";
    return readAnswer<Metadata>(send(request), request.route, [&](const json& body) {
        return wrappedMetadata(body, std::nullopt, request.route);
    });
}

Result<MoveBatchLaunch> DropboxClient::moveBatchV2(const std::vector<RelocationPath>& entries) {
    Request request;
    request.route = "files/move_batch_v2";
    json list = json::array();
    for (const auto& entry : entries) list.push_back({{"from_path", entry.fromPath}, {"to_path", entry.toPath}});
    request.arg = json{{"entries", std::move(list)}, {"autorename", false}, {"allow_ownership_transfer", false}};
    request.idempotent = false;
    request.errors = ErrorUnion::relocation;
    return readAnswer<MoveBatchLaunch>(send(request), request.route, [&](const json& body) {
        const std::string tag = tagOf(body);
        MoveBatchLaunch launch;
        if (tag == "async_job_id") {
            if (!body.contains("async_job_id") || !body["async_job_id"].is_string()) {
                return Result<MoveBatchLaunch>::failure(malformedAnswer(request.route, "no job id"));
            }
            launch.asyncJobId = body["async_job_id"].get<std::string>();
            return Result<MoveBatchLaunch>::success(std::move(launch));
        }
        if (tag == "complete") {
            auto parsed = batchEntries(body, request.route);
            if (!parsed.ok()) return Result<MoveBatchLaunch>::failureOf(parsed);
            launch.complete = true;
            launch.entries = std::move(parsed.value());
            return Result<MoveBatchLaunch>::success(std::move(launch));
        }
        return Result<MoveBatchLaunch>::failure(malformedAnswer(request.route, "unknown launch tag \"" + tag + "\""));
    });
}

Result<MoveBatchJobStatus> DropboxClient::moveBatchCheckV2(const std::string& asyncJobId) {
    Request request;
    request.route = "files/move_batch/check_v2";
    request.arg = json{{"async_job_id", asyncJobId}};
    return readAnswer<MoveBatchJobStatus>(send(request), request.route, [&](const json& body) {
        const std::string tag = tagOf(body);
        MoveBatchJobStatus status;
        if (tag == "in_progress") {
            status.state = MoveBatchJobStatus::State::inProgress;
        } else if (tag == "complete") {
            auto parsed = batchEntries(body, request.route);
            if (!parsed.ok()) return Result<MoveBatchJobStatus>::failureOf(parsed);
            status.state = MoveBatchJobStatus::State::complete;
            status.entries = std::move(parsed.value());
        } else if (tag == "failed") {
            status.state = MoveBatchJobStatus::State::failed;
        } else {
            return Result<MoveBatchJobStatus>::failure(
                malformedAnswer(request.route, "unknown job status \"" + tag + "\""));
        }
        return Result<MoveBatchJobStatus>::success(std::move(status));
    });
}

Result<DownloadResult> DropboxClient::download(const std::string& path) {
    Request request;
    request.style = Style::download;
    request.route = "files/download";
    request.arg = json{{"path", path}};
    auto sent = send(request);
    if (!sent.ok()) return Result<DownloadResult>::failureOf(sent);
    HttpResponse& response = sent.value();
    auto header = response.headers.get("Dropbox-API-Result");
    if (!header) return Result<DownloadResult>::failure(malformedAnswer(request.route, "no Dropbox-API-Result"));
    const json result = parseBody(*header);
    Metadata metadata;
    if (parseMetadata(result, Metadata::Tag::file, metadata) != ParseStatus::ok) {
        return Result<DownloadResult>::failure(malformedAnswer(request.route, "unreadable Dropbox-API-Result"));
    }
    return Result<DownloadResult>::success(
        DownloadResult{std::move(metadata), ByteBuffer::adopt(std::move(response.body))});
}

}  // namespace vxcloud::dropbox
