#pragma once
// Injected EDAM exceptions (a fault's error=): the call in the request's body answered the
// way the service answers it when it fails that way.
#include <string>

#include "evernote/EdamErrors.h"
#include "framework/Http.h"

namespace vxcloud::sandbox::evernote {

// 200 application/x-thrift: the reply to the request's call carrying the exception
// `errorText` names (parseInjectedError), in the result's slot for its kind. A method that
// does not declare that exception answers it as a Thrift EXCEPTION message, as generated
// servers do.
void answerInjectedError(const std::string& errorText, const Request& request, Response& response);

}  // namespace vxcloud::sandbox::evernote
