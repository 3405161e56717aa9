#pragma once
// Microsoft Graph's error envelope and bearer-token gate, shared by the Graph emulators.
#include <string>

#include "framework/Http.h"
#include "framework/ProviderModule.h"

namespace vxcloud::sandbox::microsoft {

// An answer in Graph's error shape, thrown by the handlers.
struct GraphError {
    int status = 400;
    std::string code;
    std::string message;
    std::string innerCode;  // a more specific code, or empty
};
[[noreturn]] void fail(int status, std::string code, std::string message, std::string innerCode = {});

// {"error": {"code", "message", "innerError": {["code",] "date", "request-id", "client-request-id"}}},
// with the request-id header set to match, and WWW-Authenticate on a 401.
void answerGraphError(const Request& request, Response& response, const GraphError& error);
// The request-id and client-request-id headers every Graph answer carries.
void addRequestIds(const Request& request, Response& response);

// Throws Graph's 401 InvalidAuthenticationToken for every caller but a valid one.
void requireValidToken(const Caller& caller);
// Whether a token's scopes hold `wanted`, with or without the Graph resource prefix.
bool hasScope(const std::string& scope, const std::string& wanted);

// Graph's times: "2024-05-01T10:00:00Z".
std::string graphTime(std::int64_t seconds);

}  // namespace vxcloud::sandbox::microsoft
