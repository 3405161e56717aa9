#pragma once
// OAuth 1.0a request signing (RFC 5849 §3.4): the signature base string from the method, the
// base URI and every parameter (query, form body and oauth_* alike), signed with HMAC-SHA1
// under "consumer secret&token secret", and the Authorization header that carries it.
#include <string>
#include <utility>
#include <vector>

namespace vxcloud::auth::oauth1 {

using Parameters = std::vector<std::pair<std::string, std::string>>;

// RFC 3986 percent-encoding of everything but the unreserved characters (§3.6).
std::string percentEncode(const std::string& text);
// "https://Example.COM:443/path?q" -> "https://example.com/path" (§3.4.1.2).
std::string baseStringUri(const std::string& url);
// The parameters of the URL's query, decoded.
Parameters queryParameters(const std::string& url);
// METHOD&encoded base URI&encoded normalised parameters (§3.4.1). `parameters` holds the
// form body's and the oauth_* ones; the URL's query is read from `url`.
std::string signatureBaseString(const std::string& method, const std::string& url, const Parameters& parameters);
// Base64 of HMAC-SHA1(key = encoded consumer secret & encoded token secret, base string).
std::string hmacSha1(const std::string& baseString, const std::string& consumerSecret, const std::string& tokenSecret);

struct Credentials {
    std::string consumerKey;
    std::string consumerSecret;
    std::string token;        // empty for the temporary-credentials request
    std::string tokenSecret;  // may be empty
};

// The oauth_* parameters of a request, signed: `extra` adds protocol parameters such as
// oauth_callback or oauth_verifier; `formParameters` are the request body's, signed too.
Parameters signedParameters(const std::string& method, const std::string& url, const Credentials& credentials,
                            const Parameters& extra, const Parameters& formParameters = {},
                            const std::string& nonce = {}, const std::string& timestamp = {});
// "OAuth k1="v1", k2="v2"" with the values percent-encoded (§3.5.1).
std::string authorizationHeader(const Parameters& oauthParameters);

}  // namespace vxcloud::auth::oauth1
