#pragma once
// EDAM's three exceptions as the handlers throw them (the generated processors put them in
// the reply's result struct), and the EDAM exception a fault's error= text names.
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "Edam_types.h"

namespace vxcloud::sandbox::evernote {

namespace edam = ::evernote::edam;
using Code = edam::EDAMErrorCode::type;

[[noreturn]] void failUser(Code code, const std::string& parameter);
[[noreturn]] void failNotFound(const std::string& identifier, const std::string& key);

// Which codes the service reports as EDAMSystemException (a fault on its side, or a limit
// on calls) rather than EDAMUserException: UNKNOWN, INTERNAL_ERROR, SHARD_UNAVAILABLE,
// TAKEN_DOWN, RATE_LIMIT_REACHED, BUSINESS_SECURITY_LOGIN_REQUIRED and ACCOUNT_CLEAR.
bool isSystemCode(int code);

// The exception a fault names:
//   4, INTERNAL_ERROR, internal_error    by number or name: a system or user exception by
//                                        the code (isSystemCode)
//   4:Notebook.guid                      a user exception naming that parameter (only user
//                                        exceptions name one)
//   19:1800                              RATE_LIMIT_REACHED with rateLimitDuration 1800
//   system:4:message, user:19            the kind forced (a system exception's message)
//   notfound:Note.guid[:<key>]           EDAMNotFoundException
struct InjectedError {
    std::variant<edam::EDAMUserException, edam::EDAMSystemException, edam::EDAMNotFoundException> exception;
    [[noreturn]] void raise() const;
};
std::optional<InjectedError> parseInjectedError(std::string_view text, std::string& error);

}  // namespace vxcloud::sandbox::evernote
