#include "evernote/NoteRules.h"

#include <vector>

namespace vxcloud::sandbox::evernote {
namespace {

// The code points of UTF-8 text; an invalid byte stands for itself.
std::vector<char32_t> codePoints(std::string_view text) {
    std::vector<char32_t> out;
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        const int length = lead < 0x80 ? 1 : (lead >> 5) == 6 ? 2 : (lead >> 4) == 14 ? 3 : (lead >> 3) == 30 ? 4 : 0;
        if (length <= 1 || i + static_cast<std::size_t>(length) > text.size()) {
            out.push_back(lead);
            ++i;
            continue;
        }
        char32_t c = lead & (0x7F >> length);
        for (int k = 1; k < length; ++k) c = (c << 6) | (static_cast<unsigned char>(text[i + k]) & 0x3F);
        out.push_back(c);
        i += static_cast<std::size_t>(length);
    }
    return out;
}

bool isControl(char32_t c) { return c < 0x20 || (c >= 0x7F && c < 0xA0); }
bool isLineOrParagraphSeparator(char32_t c) { return c == 0x2028 || c == 0x2029; }
bool isSpace(char32_t c) {
    return c == 0x20 || c == 0xA0 || c == 0x1680 || (c >= 0x2000 && c <= 0x200A) || c == 0x202F || c == 0x205F ||
           c == 0x3000 || isLineOrParagraphSeparator(c);
}

}  // namespace

bool isGuid(std::string_view text) {
    if (text.size() != 36) return false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (c != '-') return false;
        } else if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'))) {
            return false;
        }
    }
    return true;
}

std::size_t characterCount(std::string_view utf8) { return codePoints(utf8).size(); }

bool validName(std::string_view utf8, std::size_t maxLength, bool noCommas) {
    const auto chars = codePoints(utf8);
    if (chars.empty() || chars.size() > maxLength) return false;
    if (isSpace(chars.front()) || isSpace(chars.back())) return false;
    for (const char32_t c : chars) {
        if (isControl(c) || isLineOrParagraphSeparator(c) || (noCommas && c == ',')) return false;
    }
    return true;
}

bool validMime(std::string_view mime) {
    if (mime.size() < 3 || mime.size() > 255) return false;
    const auto slash = mime.find('/');
    if (slash == std::string_view::npos || slash == 0 || slash + 1 == mime.size()) return false;
    for (std::size_t i = 0; i < mime.size(); ++i) {
        const char c = mime[i];
        const bool letter = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
        const bool digit = c >= '0' && c <= '9';
        if (i < slash ? !letter : i > slash && !(letter || digit || c == '.' || c == '_' || c == '+' || c == '-')) {
            return false;
        }
    }
    return true;
}

}  // namespace vxcloud::sandbox::evernote
