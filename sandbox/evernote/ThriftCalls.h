#pragma once
// One Thrift call per HTTP request, as the service takes them: a POST whose body is one
// message in the strict binary protocol, answered 200 with application/x-thrift. The
// generated processors do the (de)serialising; this is the plumbing around them.
#include <optional>
#include <string>
#include <string_view>

#include "framework/Http.h"

namespace apache::thrift {
class TProcessor;
}

namespace vxcloud::sandbox::evernote {

// Runs `processor` on the request's body: 200 application/x-thrift with its reply (a declared
// exception in the result, an unknown method as an EXCEPTION message), or 400 when the
// request is not a Thrift call.
void answerThrift(apache::thrift::TProcessor& processor, const Request& request, Response& response);
// The 400 a request that is not a Thrift call gets (a GET, a body of something else).
void answerNotThrift(Response& response);

// The method a call names at the start of `body`: nothing while too little of the body is
// in and more may come; empty when the body is not a Thrift call.
std::optional<std::string> thriftMethod(std::string_view body, bool complete);
// The call's first argument when it is a string (every EDAM method but checkVersion takes
// the authentication token there).
std::optional<std::string> firstStringArgument(std::string_view body);

}  // namespace vxcloud::sandbox::evernote
