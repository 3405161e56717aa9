#include "auth/RedirectUrl.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <set>

#include "vxcloud/platform/Http.h"

namespace vxcloud::auth {
namespace {

std::string lower(std::string_view text) {
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return out;
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) text.remove_prefix(1);
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) text.remove_suffix(1);
    return text;
}

}  // namespace

std::optional<UrlParts> parseUrl(std::string_view url) {
    const auto schemeEnd = url.find("://");
    if (schemeEnd == std::string_view::npos || schemeEnd == 0) return std::nullopt;
    UrlParts parts;
    parts.scheme = lower(url.substr(0, schemeEnd));
    if (!std::all_of(parts.scheme.begin(), parts.scheme.end(), [](char c) {
            return std::isalnum(static_cast<unsigned char>(c)) || c == '+' || c == '-' || c == '.';
        })) {
        return std::nullopt;
    }
    std::string_view rest = url.substr(schemeEnd + 3);
    if (const auto hash = rest.find('#'); hash != std::string_view::npos) rest = rest.substr(0, hash);
    const auto authorityEnd = rest.find_first_of("/?");
    std::string_view authority = rest.substr(0, authorityEnd);
    rest = authorityEnd == std::string_view::npos ? std::string_view() : rest.substr(authorityEnd);
    if (authority.find('@') != std::string_view::npos) return std::nullopt;  // no user info in a redirect

    // The port follows the last ':' outside an IPv6 literal's brackets.
    const auto bracket = authority.rfind(']');
    const auto colon = authority.rfind(':');
    if (colon != std::string_view::npos && (bracket == std::string_view::npos || colon > bracket)) {
        const std::string_view digits = authority.substr(colon + 1);
        int port = 0;
        const auto [end, ec] = std::from_chars(digits.data(), digits.data() + digits.size(), port);
        if (ec != std::errc() || end != digits.data() + digits.size() || port < 0 || port > 65535) {
            return std::nullopt;
        }
        parts.port = port;
        authority = authority.substr(0, colon);
    }
    if (authority.empty()) return std::nullopt;
    parts.host = std::string(authority);

    const auto question = rest.find('?');
    parts.path = std::string(rest.substr(0, question));
    if (parts.path.empty()) parts.path = "/";
    if (question != std::string_view::npos) parts.query = std::string(rest.substr(question + 1));
    return parts;
}

bool isLoopbackHost(std::string_view host) {
    const std::string h = lower(host);
    return h == "127.0.0.1" || h == "localhost" || h == "[::1]";
}

std::string withQuery(const std::string& base, const std::vector<std::pair<std::string, std::string>>& params) {
    if (params.empty()) return base;
    const char separator = base.find('?') == std::string::npos ? '?' : '&';
    return base + separator + HttpClient::formEncode(params);
}

std::map<std::string, std::string> parseQuery(std::string_view query) {
    std::map<std::string, std::string> params;
    std::set<std::string> repeated;
    while (!query.empty()) {
        const auto amp = query.find('&');
        const std::string_view pair = query.substr(0, amp);
        query = amp == std::string_view::npos ? std::string_view() : query.substr(amp + 1);
        if (pair.empty()) continue;
        const auto eq = pair.find('=');
        // Forms encode spaces as '+'.
        auto decode = [](std::string_view text) {
            std::string plusless(text);
            std::replace(plusless.begin(), plusless.end(), '+', ' ');
            return HttpClient::urlDecode(plusless);
        };
        std::string name = decode(pair.substr(0, eq));
        std::string value = eq == std::string_view::npos ? std::string() : decode(pair.substr(eq + 1));
        if (repeated.count(name)) continue;
        if (!params.emplace(name, std::move(value)).second) {
            params.erase(name);
            repeated.insert(std::move(name));
        }
    }
    return params;
}

std::map<std::string, std::string> redirectParameters(std::string_view redirect) {
    redirect = trimmed(redirect);
    if (const auto hash = redirect.find('#'); hash != std::string_view::npos) redirect = redirect.substr(0, hash);
    const auto question = redirect.find('?');
    if (question != std::string_view::npos) return parseQuery(redirect.substr(question + 1));
    // A bare query has no scheme and no path.
    if (redirect.find("://") != std::string_view::npos || redirect.rfind('/', 0) == 0) return {};
    return parseQuery(redirect);
}

}  // namespace vxcloud::auth
