#pragma once
// The small amount of URL handling sign-in needs: building the authorisation request's
// address, telling a loopback redirect URI from another one, and reading the parameters
// of the redirect the browser ends on.
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vxcloud::auth {

struct UrlParts {
    std::string scheme;  // lower case
    std::string host;    // as written; "[::1]" keeps its brackets
    std::optional<int> port;
    std::string path;    // "/" when the URL has none
    std::string query;   // without '?', still encoded
};

// Nothing for text that is not "<scheme>://<authority>[/path][?query][#fragment]".
std::optional<UrlParts> parseUrl(std::string_view url);

// 127.0.0.1, localhost and [::1]: addresses that can only reach this machine.
bool isLoopbackHost(std::string_view host);

// `base` with the parameters appended, percent-encoded, after '?' or '&'.
std::string withQuery(const std::string& base, const std::vector<std::pair<std::string, std::string>>& params);

// The decoded parameters of a query. A name given twice is left out: an OAuth response
// never repeats a parameter (RFC 6749 §3.1), so a repeated one is not trusted.
std::map<std::string, std::string> parseQuery(std::string_view query);

// The parameters of a redirect as the person or the host hands it over: a full URL, a
// request target ("/?code=..."), or a bare query ("code=...&state=...").
std::map<std::string, std::string> redirectParameters(std::string_view redirect);

}  // namespace vxcloud::auth
