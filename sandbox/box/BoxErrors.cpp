#include "box/BoxErrors.h"

#include "framework/Text.h"

namespace vxcloud::sandbox::box {
namespace {

using nlohmann::json;

const char* kHelpUrl = "https://developer.box.com/guides/api-calls/permissions-and-errors/common-errors/";
const char* kChallenge =
    "Bearer realm=\"Service\", error=\"invalid_token\", error_description=\"The access token provided is invalid.\"";

std::string defaultMessage(int status) {
    switch (status) {
        case 400: return "Bad Request";
        case 403: return "Access denied - insufficient permission";
        case 404: return "Not Found";
        case 405: return "Method Not Allowed";
        case 409: return "Conflict";
        case 410: return "Gone";
        case 412: return "The resource has been modified. Please retrieve the resource again and retry";
        case 413: return "Request Entity Too Large";
        case 416: return "Requested Range Not Satisfiable";
        case 429: return "Request rate limit exceeded, please try again later";
        case 503: return "Unavailable";
        default: return status >= 500 ? "Internal Server Error" : "Error";
    }
}

}  // namespace

void fail(int status, std::string code, std::string message, json contextInfo) {
    throw BoxError{status, std::move(code), std::move(message), std::move(contextInfo)};
}

void failNotFound(const std::string& name, const std::string& id, bool isFolder) {
    const std::string value = (isFolder ? "d_" : "f_") + id;
    fail(404, "not_found", "Not Found",
         {{"errors", json::array({{{"reason", "invalid_parameter"},
                                   {"name", name},
                                   {"message", "Invalid value '" + value + "'. '" + name + "' with value '" + value +
                                                   "' not found"}}})}});
}

void failParameter(const std::string& name, bool missing, const std::string& code) {
    const std::string message = missing ? "'" + name + "' is required" : "Invalid value for '" + name + "'";
    fail(400, code, "Bad Request",
         {{"errors", json::array({{{"reason", missing ? "missing_parameter" : "invalid_parameter"},
                                   {"name", name},
                                   {"message", message}}})}});
}

void failUnauthorized() { throw BoxError{401, "unauthorized", "Unauthorized", nullptr}; }

std::string defaultCode(int status) {
    switch (status) {
        case 400: return "bad_request";
        case 401: return "unauthorized";
        case 403: return "access_denied_insufficient_permissions";
        case 404: return "not_found";
        case 405: return "method_not_allowed";
        case 409: return "conflict";
        case 410: return "session_expired";
        case 412: return "precondition_failed";
        case 413: return "request_entity_too_large";
        case 429: return "rate_limit_exceeded";
        case 502: return "bad_gateway";
        case 503: return "unavailable";
        default: return status >= 500 ? "internal_server_error" : "bad_request";
    }
}

void addRequestId(Response& response) {
    if (!response.header("box-request-id")) response.setHeader("box-request-id", randomHex(16));
}

void answerError(Response& response, const BoxError& error) {
    addRequestId(response);
    if (error.status == 401) {
        // Box says nothing in the body here; the challenge header is all there is.
        response.empty(401);
        response.setHeader("WWW-Authenticate", kChallenge);
        return;
    }
    json body = {{"type", "error"},
                 {"status", error.status},
                 {"code", error.code.empty() ? defaultCode(error.status) : error.code},
                 {"message", error.message.empty() ? defaultMessage(error.status) : error.message}};
    if (!error.contextInfo.is_null()) body["context_info"] = error.contextInfo;
    body["help_url"] = kHelpUrl;
    body["request_id"] = *response.header("box-request-id");
    response.json(error.status, body);
}

}  // namespace vxcloud::sandbox::box
