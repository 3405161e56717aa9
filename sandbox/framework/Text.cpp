#include "framework/Text.h"

#include <cctype>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <random>

namespace vxcloud::sandbox {
namespace {

// Decodes one UTF-8 sequence at `i`; returns the code point or -1 for an invalid byte.
long decodeUtf8(std::string_view s, std::size_t& i) {
    const auto b0 = static_cast<unsigned char>(s[i]);
    int extra = 0;
    long cp = 0;
    if (b0 < 0x80) { ++i; return b0; }
    if ((b0 & 0xE0) == 0xC0) { extra = 1; cp = b0 & 0x1F; }
    else if ((b0 & 0xF0) == 0xE0) { extra = 2; cp = b0 & 0x0F; }
    else if ((b0 & 0xF8) == 0xF0) { extra = 3; cp = b0 & 0x07; }
    else { ++i; return -1; }
    if (i + extra >= s.size()) { ++i; return -1; }
    for (int k = 1; k <= extra; ++k) {
        const auto b = static_cast<unsigned char>(s[i + k]);
        if ((b & 0xC0) != 0x80) { ++i; return -1; }
        cp = (cp << 6) | (b & 0x3F);
    }
    i += extra + 1;
    return cp;
}

void encodeUtf8(long cp, std::string& out) {
    if (cp < 0x80) {
        out += static_cast<char>(cp);
    } else if (cp < 0x800) {
        out += static_cast<char>(0xC0 | (cp >> 6));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        out += static_cast<char>(0xE0 | (cp >> 12));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (cp >> 18));
        out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    }
}

long lowerCodePoint(long cp) {
    if (cp >= 'A' && cp <= 'Z') return cp + 32;
    if (cp >= 0xC0 && cp <= 0xDE && cp != 0xD7) return cp + 32;           // Latin-1
    if (cp == 0x178) return 0xFF;
    if (cp >= 0x100 && cp <= 0x17F && cp != 0x130 && cp != 0x131 && cp != 0x138 &&
        cp != 0x149 && cp != 0x17F) {                                      // Latin Extended-A
        const bool oddBlock = (cp >= 0x139 && cp <= 0x148) || (cp >= 0x179 && cp <= 0x17E);
        if (oddBlock) return (cp % 2 == 1) ? cp + 1 : cp;
        return (cp % 2 == 0) ? cp + 1 : cp;
    }
    if (cp >= 0x391 && cp <= 0x3AB && cp != 0x3A2) return cp + 32;       // Greek
    if (cp >= 0x410 && cp <= 0x42F) return cp + 32;                       // Cyrillic
    if (cp >= 0x400 && cp <= 0x40F) return cp + 80;
    return cp;
}

std::mt19937_64& rng() {
    static std::mt19937_64 engine{[] {
        std::random_device device;
        return (static_cast<std::uint64_t>(device()) << 32) ^ device();
    }()};
    return engine;
}
std::mutex& rngMutex() {
    static std::mutex m;
    return m;
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

}  // namespace

std::string foldCase(std::string_view utf8) {
    std::string out;
    out.reserve(utf8.size());
    std::size_t i = 0;
    while (i < utf8.size()) {
        const std::size_t start = i;
        const long cp = decodeUtf8(utf8, i);
        if (cp < 0) {
            out += utf8[start];
            i = start + 1;
            continue;
        }
        encodeUtf8(lowerCodePoint(cp), out);
    }
    return out;
}

bool equalsFolded(std::string_view a, std::string_view b) { return foldCase(a) == foldCase(b); }

std::string asciiLower(std::string_view text) {
    std::string out(text);
    for (auto& c : out) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
    }
    return out;
}

std::string urlDecode(std::string_view text, bool plusIsSpace) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '%' && i + 2 < text.size()) {
            const int hi = hexValue(text[i + 1]);
            const int lo = hexValue(text[i + 2]);
            if (hi >= 0 && lo >= 0) {
                out += static_cast<char>(hi * 16 + lo);
                i += 2;
                continue;
            }
        }
        out += (c == '+' && plusIsSpace) ? ' ' : c;
    }
    return out;
}

std::string urlEncode(std::string_view text) {
    static const char* digits = "0123456789ABCDEF";
    std::string out;
    for (const char ch : text) {
        const auto c = static_cast<unsigned char>(ch);
        if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
            c == '-' || c == '.' || c == '_' || c == '~') {
            out += static_cast<char>(c);
        } else {
            out += '%';
            out += digits[c >> 4];
            out += digits[c & 15];
        }
    }
    return out;
}

std::map<std::string, std::string> parseForm(std::string_view body) {
    std::map<std::string, std::string> out;
    std::size_t pos = 0;
    while (pos <= body.size()) {
        std::size_t amp = body.find('&', pos);
        if (amp == std::string_view::npos) amp = body.size();
        const auto pair = body.substr(pos, amp - pos);
        if (!pair.empty()) {
            const auto eq = pair.find('=');
            if (eq == std::string_view::npos) {
                out[urlDecode(pair)] = "";
            } else {
                out[urlDecode(pair.substr(0, eq))] = urlDecode(pair.substr(eq + 1));
            }
        }
        pos = amp + 1;
    }
    return out;
}

std::string base64UrlEncode(std::string_view bytes, bool pad) {
    static const char* alphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
    std::string out;
    std::size_t i = 0;
    while (i + 2 < bytes.size()) {
        const unsigned v = (static_cast<unsigned char>(bytes[i]) << 16) |
                           (static_cast<unsigned char>(bytes[i + 1]) << 8) |
                           static_cast<unsigned char>(bytes[i + 2]);
        out += alphabet[(v >> 18) & 63];
        out += alphabet[(v >> 12) & 63];
        out += alphabet[(v >> 6) & 63];
        out += alphabet[v & 63];
        i += 3;
    }
    const std::size_t rest = bytes.size() - i;
    if (rest > 0) {
        unsigned v = static_cast<unsigned char>(bytes[i]) << 16;
        if (rest == 2) v |= static_cast<unsigned char>(bytes[i + 1]) << 8;
        out += alphabet[(v >> 18) & 63];
        out += alphabet[(v >> 12) & 63];
        if (rest == 2) out += alphabet[(v >> 6) & 63];
        if (pad) out += (rest == 2) ? "=" : "==";
    }
    return out;
}

std::string base64Encode(std::string_view bytes) {
    std::string out = base64UrlEncode(bytes, true);
    for (char& c : out) {
        if (c == '-') c = '+';
        if (c == '_') c = '/';
    }
    return out;
}

std::string base64Decode(std::string_view text, bool* ok) {
    auto value = [](char c) -> int {
        if (c >= 'A' && c <= 'Z') return c - 'A';
        if (c >= 'a' && c <= 'z') return c - 'a' + 26;
        if (c >= '0' && c <= '9') return c - '0' + 52;
        if (c == '+' || c == '-') return 62;
        if (c == '/' || c == '_') return 63;
        return -1;
    };
    std::string out;
    unsigned buffer = 0;
    int bits = 0;
    bool good = true;
    for (const char c : text) {
        if (c == '=' || c == '\n' || c == '\r') continue;
        const int v = value(c);
        if (v < 0) {
            good = false;
            break;
        }
        buffer = (buffer << 6) | static_cast<unsigned>(v);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            out += static_cast<char>((buffer >> bits) & 0xFF);
        }
    }
    if (ok) *ok = good;
    return good ? out : std::string();
}

std::string hexEncode(std::string_view bytes) {
    static const char* digits = "0123456789abcdef";
    std::string out;
    out.reserve(bytes.size() * 2);
    for (const char ch : bytes) {
        const auto c = static_cast<unsigned char>(ch);
        out += digits[c >> 4];
        out += digits[c & 15];
    }
    return out;
}

std::string htmlEscape(std::string_view text) {
    std::string out;
    for (const char c : text) {
        switch (c) {
            case '&': out += "&amp;"; break;
            case '<': out += "&lt;"; break;
            case '>': out += "&gt;"; break;
            case '"': out += "&quot;"; break;
            case '\'': out += "&#39;"; break;
            default: out += c;
        }
    }
    return out;
}

std::string appendQuery(const std::string& url, const std::map<std::string, std::string>& params) {
    std::string out = url;
    const auto hash = out.find('#');
    std::string fragment;
    if (hash != std::string::npos) {
        fragment = out.substr(hash);
        out.resize(hash);
    }
    char sep = out.find('?') == std::string::npos ? '?' : '&';
    if (!out.empty() && (out.back() == '?' || out.back() == '&')) sep = 0;
    for (const auto& [key, value] : params) {
        if (sep) out += sep;
        out += urlEncode(key) + "=" + urlEncode(value);
        sep = '&';
    }
    return out + fragment;
}

std::string randomToken(std::size_t length) {
    static const char* alphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
    std::lock_guard lock(rngMutex());
    std::string out;
    for (std::size_t i = 0; i < length; ++i) out += alphabet[rng()() % 64];
    return out;
}

std::string randomGuid() {
    const std::string hex = randomHex(32);
    return hex.substr(0, 8) + "-" + hex.substr(8, 4) + "-" + hex.substr(12, 4) + "-" + hex.substr(16, 4) + "-" +
           hex.substr(20);
}

std::string randomHex(std::size_t length) {
    static const char* digits = "0123456789abcdef";
    std::lock_guard lock(rngMutex());
    std::string out;
    for (std::size_t i = 0; i < length; ++i) out += digits[rng()() % 16];
    return out;
}

std::uint64_t randomNumber() {
    std::lock_guard lock(rngMutex());
    return rng()();
}

std::string formatUtc(std::int64_t seconds) {
    const std::time_t t = static_cast<std::time_t>(seconds);
    std::tm tm{};
    gmtime_r(&t, &tm);
    char buffer[32];
    std::strftime(buffer, sizeof buffer, "%Y-%m-%dT%H:%M:%SZ", &tm);
    return buffer;
}

std::int64_t parseRfc3339(std::string_view text) {
    if (text.size() < 19 || text[4] != '-' || text[7] != '-' || (text[10] != 'T' && text[10] != 't') ||
        text[13] != ':' || text[16] != ':') {
        return -1;
    }
    auto number = [&](std::size_t pos, std::size_t len) -> int {
        int v = 0;
        for (std::size_t i = pos; i < pos + len; ++i) {
            if (!std::isdigit(static_cast<unsigned char>(text[i]))) return -1;
            v = v * 10 + (text[i] - '0');
        }
        return v;
    };
    std::tm tm{};
    const int year = number(0, 4), month = number(5, 2), day = number(8, 2);
    const int hour = number(11, 2), minute = number(14, 2), second = number(17, 2);
    if (year < 1970 || month < 1 || month > 12 || day < 1 || day > 31 || hour < 0 || hour > 23 || minute < 0 ||
        minute > 59 || second < 0 || second > 60) {
        return -1;
    }
    std::size_t i = 19;
    if (i < text.size() && text[i] == '.') {
        ++i;
        const std::size_t digits = i;
        while (i < text.size() && std::isdigit(static_cast<unsigned char>(text[i]))) ++i;
        if (i == digits) return -1;
    }
    std::int64_t offset = 0;
    if (i < text.size()) {
        if (text[i] == 'Z' || text[i] == 'z') {
            ++i;
        } else if ((text[i] == '+' || text[i] == '-') && i + 6 == text.size() && text[i + 3] == ':') {
            const int h = number(i + 1, 2), m = number(i + 4, 2);
            if (h < 0 || m < 0) return -1;
            offset = (text[i] == '+' ? 1 : -1) * (h * 3600 + m * 60);
            i += 6;
        } else {
            return -1;
        }
    }
    if (i != text.size()) return -1;
    tm.tm_year = year - 1900;
    tm.tm_mon = month - 1;
    tm.tm_mday = day;
    tm.tm_hour = hour;
    tm.tm_min = minute;
    tm.tm_sec = second;
    return static_cast<std::int64_t>(timegm(&tm)) - offset;
}

std::int64_t parseUtc(std::string_view text) {
    // Exactly YYYY-MM-DDTHH:MM:SSZ.
    if (text.size() != 20 || text[10] != 'T' || text[19] != 'Z') return -1;
    return parseRfc3339(text);
}

std::string mimeTypeForName(std::string_view name) {
    static const std::map<std::string, std::string> types = {
        {"pdf", "application/pdf"},   {"json", "application/json"}, {"txt", "text/plain"},
        {"jpg", "image/jpeg"},        {"jpeg", "image/jpeg"},       {"png", "image/png"},
        {"tif", "image/tiff"},        {"tiff", "image/tiff"},
    };
    const auto dot = name.rfind('.');
    if (dot == std::string_view::npos) return "application/octet-stream";
    const auto it = types.find(asciiLower(name.substr(dot + 1)));
    return it == types.end() ? "application/octet-stream" : it->second;
}

}  // namespace vxcloud::sandbox
