#include "microsoft/GraphErrors.h"

#include <ctime>

#include "framework/Text.h"

namespace vxcloud::sandbox::microsoft {
namespace {

const char* kGraphScopePrefix = "https://graph.microsoft.com/";

const char* kWwwAuthenticate =
    "Bearer realm=\"\", authorization_uri=\"https://login.microsoftonline.com/common/oauth2/authorize\", "
    "client_id=\"00000003-0000-0000-c000-000000000000\"";

}  // namespace

std::string graphTime(std::int64_t seconds) { return formatUtc(seconds); }

void fail(int status, std::string code, std::string message, std::string innerCode) {
    throw GraphError{status, std::move(code), std::move(message), std::move(innerCode)};
}

void answerGraphError(const Request& request, Response& response, const GraphError& error) {
    std::string requestId = response.header("request-id").value_or("");
    if (requestId.empty()) requestId = randomGuid();
    std::string date = graphTime(std::time(nullptr));
    if (!date.empty() && date.back() == 'Z') date.pop_back();
    nlohmann::json inner = {{"date", date},
                            {"request-id", requestId},
                            {"client-request-id", request.headerOr("client-request-id", requestId)}};
    if (!error.innerCode.empty()) inner["code"] = error.innerCode;
    response.json(error.status, {{"error", {{"code", error.code}, {"message", error.message}, {"innerError", inner}}}});
    response.setHeader("request-id", requestId);
    if (error.status == 401) response.setHeader("WWW-Authenticate", kWwwAuthenticate);
}

void addRequestIds(const Request& request, Response& response) {
    if (!response.header("request-id")) response.setHeader("request-id", randomGuid());
    response.setHeader("client-request-id",
                       request.headerOr("client-request-id", response.header("request-id").value_or("")));
}

void requireValidToken(const Caller& caller) {
    switch (caller.status) {
        case Caller::Status::missing: fail(401, "InvalidAuthenticationToken", "Access token is empty.");
        case Caller::Status::malformed:
            fail(401, "InvalidAuthenticationToken", "CompactToken parsing failed with error code: 80049217");
        case Caller::Status::expired:
            fail(401, "InvalidAuthenticationToken", "Access token has expired or is not yet valid.");
        case Caller::Status::invalid:
            fail(401, "InvalidAuthenticationToken", "CompactToken validation failed with reason code: 80049228.");
        case Caller::Status::valid: break;
    }
}

bool hasScope(const std::string& scope, const std::string& wanted) {
    std::size_t pos = 0;
    while (pos < scope.size()) {
        std::size_t end = scope.find(' ', pos);
        if (end == std::string::npos) end = scope.size();
        std::string one = scope.substr(pos, end - pos);
        if (one.rfind(kGraphScopePrefix, 0) == 0) one = one.substr(std::string(kGraphScopePrefix).size());
        if (asciiLower(one) == asciiLower(wanted)) return true;
        pos = end + 1;
    }
    return false;
}

}  // namespace vxcloud::sandbox::microsoft
