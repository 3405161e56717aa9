#pragma once
// Box's error answers: the JSON body every 4xx/5xx of the Content API carries, the empty 401
// of a missing or dead token, and the box-request-id header on every answer.
#include <nlohmann/json.hpp>
#include <string>

#include "framework/Http.h"

namespace vxcloud::sandbox::box {

// An answer in Box's error shape, thrown by the handlers and caught by the route wrapper.
struct BoxError {
    int status = 400;
    std::string code;
    std::string message;
    nlohmann::json contextInfo;  // null: none
};
[[noreturn]] void fail(int status, std::string code, std::string message, nlohmann::json contextInfo = nullptr);

// 404 not_found naming the parameter that held the missing id, as Box does:
// `name` "folder"/"file" for an id in the URL, "parent" for one in a body; folder ids are
// shown as "d_<id>", file ids as "f_<id>".
[[noreturn]] void failNotFound(const std::string& name, const std::string& id, bool isFolder);
// 400 bad_request for a parameter that is missing or not of its type.
[[noreturn]] void failParameter(const std::string& name, bool missing, const std::string& code = "bad_request");
// 401 with an empty body and Box's WWW-Authenticate challenge.
[[noreturn]] void failUnauthorized();

// {"type": "error", "status", "code", "message", "context_info"?, "help_url", "request_id"},
// or the empty 401; the request id is also the box-request-id header.
void answerError(Response& response, const BoxError& error);
// The code Box's body carries for a status when nothing more specific is known.
std::string defaultCode(int status);
// Sets box-request-id unless the answer has one.
void addRequestId(Response& response);

}  // namespace vxcloud::sandbox::box
