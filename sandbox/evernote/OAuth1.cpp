#include "evernote/OAuth1.h"

#include <algorithm>

#include "framework/Hashes.h"
#include "framework/Text.h"

namespace vxcloud::sandbox::evernote {

std::optional<OAuthParameters> parseOAuthHeader(std::string_view header) {
    if (header.size() < 6 || asciiLower(header.substr(0, 6)) != "oauth ") return std::nullopt;
    OAuthParameters out;
    std::size_t pos = 6;
    while (pos < header.size()) {
        while (pos < header.size() && (header[pos] == ' ' || header[pos] == ',' || header[pos] == '\t')) ++pos;
        if (pos >= header.size()) break;
        const auto eq = header.find('=', pos);
        if (eq == std::string_view::npos || eq + 1 >= header.size() || header[eq + 1] != '"') return std::nullopt;
        const auto close = header.find('"', eq + 2);
        if (close == std::string_view::npos) return std::nullopt;
        std::string name(header.substr(pos, eq - pos));
        while (!name.empty() && name.back() == ' ') name.pop_back();
        const std::string value = urlDecode(header.substr(eq + 2, close - eq - 2), false);
        if (name != "realm") out.emplace_back(urlDecode(name, false), value);
        pos = close + 1;
    }
    return out;
}

OAuthParameters parseFormParameters(std::string_view text) {
    OAuthParameters out;
    std::size_t pos = 0;
    while (pos < text.size()) {
        auto amp = text.find('&', pos);
        if (amp == std::string_view::npos) amp = text.size();
        const auto pair = text.substr(pos, amp - pos);
        if (!pair.empty()) {
            const auto eq = pair.find('=');
            out.emplace_back(urlDecode(pair.substr(0, eq)),
                             eq == std::string_view::npos ? std::string() : urlDecode(pair.substr(eq + 1)));
        }
        pos = amp + 1;
    }
    return out;
}

std::string oauthEncode(std::string_view text) { return urlEncode(text); }

std::string baseStringUri(std::string_view scheme, std::string_view hostHeader, std::string_view path) {
    const std::string lowerScheme = asciiLower(scheme);
    std::string host = asciiLower(hostHeader);
    const auto colon = host.rfind(':');
    if (colon != std::string::npos && host.find(']', colon) == std::string::npos) {
        const std::string port = host.substr(colon + 1);
        if ((lowerScheme == "http" && port == "80") || (lowerScheme == "https" && port == "443")) host.erase(colon);
    }
    return lowerScheme + "://" + host + std::string(path);
}

std::string signatureBaseString(std::string_view method, std::string_view uri, const OAuthParameters& parameters) {
    std::vector<std::pair<std::string, std::string>> encoded;
    for (const auto& [name, value] : parameters) {
        if (name != "oauth_signature") encoded.emplace_back(oauthEncode(name), oauthEncode(value));
    }
    std::sort(encoded.begin(), encoded.end());
    std::string normalized;
    for (const auto& [name, value] : encoded) normalized += (normalized.empty() ? "" : "&") + name + "=" + value;
    std::string upper(method);
    for (char& c : upper) c = static_cast<char>(c >= 'a' && c <= 'z' ? c - 32 : c);
    return upper + "&" + oauthEncode(uri) + "&" + oauthEncode(normalized);
}

std::string hmacSha1Signature(std::string_view baseString, std::string_view consumerSecret,
                              std::string_view tokenSecret) {
    return base64Encode(hmacSha1Raw(plaintextSignature(consumerSecret, tokenSecret), baseString));
}

std::string plaintextSignature(std::string_view consumerSecret, std::string_view tokenSecret) {
    return oauthEncode(consumerSecret) + "&" + oauthEncode(tokenSecret);
}

bool NonceLedger::firstUse(const std::string& key, std::int64_t now, std::int64_t window) {
    for (auto it = seen_.begin(); it != seen_.end();) it = now - it->second > window ? seen_.erase(it) : std::next(it);
    return seen_.emplace(key, now).second;
}

}  // namespace vxcloud::sandbox::evernote
