#pragma once
// OAuth 1.0a request signing (RFC 5849) from the server's side: the parameters of a request
// from its Authorization header, query and form body; the signature base string; and the
// HMAC-SHA1 and PLAINTEXT signatures to check a request's against.
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vxcloud::sandbox::evernote {

using OAuthParameters = std::vector<std::pair<std::string, std::string>>;  // decoded, in order

// The parameters of `Authorization: OAuth name="value", ...` (realm left out); nothing when
// the header is not of that form.
std::optional<OAuthParameters> parseOAuthHeader(std::string_view header);
// application/x-www-form-urlencoded text (a query or a form body).
OAuthParameters parseFormParameters(std::string_view text);

// RFC 3986 percent-encoding, as the signature base string wants it.
std::string oauthEncode(std::string_view text);
// The base string URI: lower-case scheme and host, the port only when not the scheme's
// default, the path; no query.
std::string baseStringUri(std::string_view scheme, std::string_view hostHeader, std::string_view path);
// METHOD&uri&parameters, the parameters (oauth_signature left out) encoded, sorted by name
// then value and joined.
std::string signatureBaseString(std::string_view method, std::string_view uri, const OAuthParameters& parameters);
std::string hmacSha1Signature(std::string_view baseString, std::string_view consumerSecret,
                              std::string_view tokenSecret);
std::string plaintextSignature(std::string_view consumerSecret, std::string_view tokenSecret);

// A refusal in OAuth's problem reporting: `oauth_problem=<problem>` and details such as
// oauth_parameters_absent, in a form body with the status (400 malformed, 401 refused).
struct OAuthProblem {
    int status = 401;
    std::string problem;
    std::vector<std::pair<std::string, std::string>> details;
};

// Nonces seen lately (RFC 5849 3.3): a request may not use one again while its timestamp
// could still be accepted.
class NonceLedger {
public:
    // False when `key` (consumer key, token, timestamp and nonce) was seen in the last
    // `window` seconds; forgets what is older.
    bool firstUse(const std::string& key, std::int64_t now, std::int64_t window);

private:
    std::map<std::string, std::int64_t> seen_;
};

}  // namespace vxcloud::sandbox::evernote
