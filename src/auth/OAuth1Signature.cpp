#include "auth/OAuth1Signature.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <algorithm>
#include <chrono>

#include "auth/Pkce.h"
#include "vxcloud/platform/Http.h"

namespace vxcloud::auth::oauth1 {

std::string percentEncode(const std::string& text) { return HttpClient::urlEncode(text); }

std::string baseStringUri(const std::string& url) {
    std::string base = url.substr(0, url.find_first_of("?#"));
    const auto schemeEnd = base.find("://");
    if (schemeEnd == std::string::npos) return base;
    const auto authorityEnd = base.find('/', schemeEnd + 3);
    std::string scheme = base.substr(0, schemeEnd);
    std::string authority = base.substr(schemeEnd + 3, authorityEnd == std::string::npos ? std::string::npos
                                                                                          : authorityEnd - schemeEnd - 3);
    const std::string path = authorityEnd == std::string::npos ? "/" : base.substr(authorityEnd);
    std::transform(scheme.begin(), scheme.end(), scheme.begin(), [](unsigned char c) { return std::tolower(c); });
    std::transform(authority.begin(), authority.end(), authority.begin(),
                   [](unsigned char c) { return std::tolower(c); });
    // The default port is left out, any other kept.
    const auto colon = authority.rfind(':');
    if (colon != std::string::npos && authority.find(']', colon) == std::string::npos) {
        const std::string port = authority.substr(colon + 1);
        if ((scheme == "http" && port == "80") || (scheme == "https" && port == "443")) authority.resize(colon);
    }
    return scheme + "://" + authority + path;
}

Parameters queryParameters(const std::string& url) {
    Parameters out;
    const auto question = url.find('?');
    if (question == std::string::npos) return out;
    std::string query = url.substr(question + 1);
    query = query.substr(0, query.find('#'));
    std::size_t start = 0;
    while (start <= query.size()) {
        const auto end = std::min(query.find('&', start), query.size());
        const std::string pair = query.substr(start, end - start);
        if (!pair.empty()) {
            const auto equals = pair.find('=');
            // '+' is a space in a form-encoded query (§3.4.1.3.1).
            auto decode = [](std::string text) {
                std::replace(text.begin(), text.end(), '+', ' ');
                return HttpClient::urlDecode(text);
            };
            out.emplace_back(decode(pair.substr(0, equals)),
                             equals == std::string::npos ? std::string() : decode(pair.substr(equals + 1)));
        }
        start = end + 1;
    }
    return out;
}

std::string signatureBaseString(const std::string& method, const std::string& url, const Parameters& parameters) {
    Parameters all = queryParameters(url);
    all.insert(all.end(), parameters.begin(), parameters.end());
    std::vector<std::pair<std::string, std::string>> encoded;
    for (const auto& [name, value] : all) {
        if (name == "oauth_signature" || name == "realm") continue;
        encoded.emplace_back(percentEncode(name), percentEncode(value));
    }
    std::sort(encoded.begin(), encoded.end());
    std::string normalised;
    for (const auto& [name, value] : encoded) {
        if (!normalised.empty()) normalised += '&';
        normalised += name + "=" + value;
    }
    std::string upper = method;
    std::transform(upper.begin(), upper.end(), upper.begin(), [](unsigned char c) { return std::toupper(c); });
    return upper + "&" + percentEncode(baseStringUri(url)) + "&" + percentEncode(normalised);
}

std::string hmacSha1(const std::string& baseString, const std::string& consumerSecret, const std::string& tokenSecret) {
    const std::string key = percentEncode(consumerSecret) + "&" + percentEncode(tokenSecret);
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    HMAC(EVP_sha1(), key.data(), static_cast<int>(key.size()), reinterpret_cast<const unsigned char*>(baseString.data()),
         baseString.size(), digest, &length);
    unsigned char text[4 * ((EVP_MAX_MD_SIZE + 2) / 3) + 1];
    const int written = EVP_EncodeBlock(text, digest, static_cast<int>(length));
    return std::string(reinterpret_cast<const char*>(text), static_cast<std::size_t>(written));
}

Parameters signedParameters(const std::string& method, const std::string& url, const Credentials& credentials,
                            const Parameters& extra, const Parameters& formParameters, const std::string& nonce,
                            const std::string& timestamp) {
    Parameters oauth = {
        {"oauth_consumer_key", credentials.consumerKey},
        {"oauth_nonce", nonce.empty() ? randomUnreserved(32) : nonce},
        {"oauth_signature_method", "HMAC-SHA1"},
        {"oauth_timestamp",
         timestamp.empty() ? std::to_string(std::chrono::duration_cast<std::chrono::seconds>(
                                                 std::chrono::system_clock::now().time_since_epoch())
                                                 .count())
                           : timestamp},
        {"oauth_version", "1.0"},
    };
    if (!credentials.token.empty()) oauth.emplace_back("oauth_token", credentials.token);
    oauth.insert(oauth.end(), extra.begin(), extra.end());
    Parameters signedOver = oauth;
    signedOver.insert(signedOver.end(), formParameters.begin(), formParameters.end());
    oauth.emplace_back("oauth_signature", hmacSha1(signatureBaseString(method, url, signedOver),
                                                   credentials.consumerSecret, credentials.tokenSecret));
    return oauth;
}

std::string authorizationHeader(const Parameters& oauthParameters) {
    std::string header = "OAuth ";
    bool first = true;
    for (const auto& [name, value] : oauthParameters) {
        if (!first) header += ", ";
        first = false;
        header += percentEncode(name) + "=\"" + percentEncode(value) + "\"";
    }
    return header;
}

}  // namespace vxcloud::auth::oauth1
