#include "evernote/EdamErrors.h"

#include "framework/Text.h"

namespace vxcloud::sandbox::evernote {
namespace {

std::optional<int> codeNamed(const std::string& text) {
    if (!text.empty() && text.size() <= 3 && text.find_first_not_of("0123456789") == std::string::npos) {
        const int code = std::stoi(text);
        if (edam::_EDAMErrorCode_VALUES_TO_NAMES.count(code)) return code;
        return std::nullopt;
    }
    for (const auto& [code, name] : edam::_EDAMErrorCode_VALUES_TO_NAMES) {
        if (asciiLower(name) == asciiLower(text)) return code;
    }
    return std::nullopt;
}

}  // namespace

void failUser(Code code, const std::string& parameter) {
    edam::EDAMUserException e;
    e.__set_errorCode(code);
    e.__set_parameter(parameter);
    throw e;
}

void failNotFound(const std::string& identifier, const std::string& key) {
    edam::EDAMNotFoundException e;
    e.__set_identifier(identifier);
    if (!key.empty()) e.__set_key(key);
    throw e;
}

bool isSystemCode(int code) {
    using E = edam::EDAMErrorCode;
    return code == E::UNKNOWN || code == E::INTERNAL_ERROR || code == E::SHARD_UNAVAILABLE || code == E::TAKEN_DOWN ||
           code == E::RATE_LIMIT_REACHED || code == E::BUSINESS_SECURITY_LOGIN_REQUIRED || code == E::ACCOUNT_CLEAR;
}

void InjectedError::raise() const {
    std::visit([](const auto& e) { throw e; }, exception);
    throw std::logic_error("unreachable");
}

std::optional<InjectedError> parseInjectedError(std::string_view text, std::string& error) {
    std::string rest(text);
    auto take = [&rest]() {
        const auto colon = rest.find(':');
        std::string head = rest.substr(0, colon);
        rest = colon == std::string::npos ? std::string() : rest.substr(colon + 1);
        return head;
    };
    std::string head = take();
    InjectedError out;
    if (asciiLower(head) == "notfound") {
        edam::EDAMNotFoundException e;
        if (!rest.empty()) e.__set_identifier(take());
        if (!rest.empty()) e.__set_key(rest);
        out.exception = e;
        return out;
    }
    std::optional<bool> forceSystem;
    if (asciiLower(head) == "user" || asciiLower(head) == "system") {
        forceSystem = asciiLower(head) == "system";
        head = take();
    }
    const auto code = codeNamed(head);
    if (!code) {
        error = "error= names an EDAMErrorCode (1 to 28 or its name), user:/system: and a code, or notfound; got \"" +
                std::string(text) + "\"";
        return std::nullopt;
    }
    const bool number = !rest.empty() && rest.size() < 10 && rest.find_first_not_of("0123456789") == std::string::npos;
    const bool rateLimit = *code == edam::EDAMErrorCode::RATE_LIMIT_REACHED;
    // Only user exceptions name a parameter: one given makes a user exception, except a
    // rate limit's duration in seconds.
    const bool system = forceSystem.value_or(isSystemCode(*code) && (rest.empty() || (rateLimit && number)));
    if (system) {
        edam::EDAMSystemException e;
        e.__set_errorCode(static_cast<Code>(*code));
        if (rateLimit && number) {
            e.__set_rateLimitDuration(std::stoi(rest));
        } else if (!rest.empty()) {
            e.__set_message(rest);
        }
        out.exception = e;
    } else {
        edam::EDAMUserException e;
        e.__set_errorCode(static_cast<Code>(*code));
        if (!rest.empty()) e.__set_parameter(rest);
        out.exception = e;
    }
    return out;
}

}  // namespace vxcloud::sandbox::evernote
