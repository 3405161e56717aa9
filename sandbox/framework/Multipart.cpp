#include "framework/Multipart.h"

#include "framework/Text.h"

namespace vxcloud::sandbox {
namespace {

std::string_view trim(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
    return text;
}

std::string unquote(std::string_view text) {
    text = trim(text);
    if (text.size() >= 2 && text.front() == '"' && text.back() == '"') text = text.substr(1, text.size() - 2);
    return std::string(text);
}

}  // namespace

std::optional<std::string> MultipartPart::header(std::string_view name) const {
    for (const auto& [key, value] : headers) {
        if (asciiLower(key) == asciiLower(name)) return value;
    }
    return std::nullopt;
}

std::string multipartBoundary(std::string_view contentType) {
    return headerParameter(contentType, "boundary").value_or("");
}

std::optional<std::string> headerParameter(std::string_view value, std::string_view parameter) {
    std::size_t pos = value.find(';');
    while (pos != std::string_view::npos) {
        // Quoted values may hold ';'.
        std::size_t end = pos + 1;
        bool quoted = false;
        while (end < value.size() && (quoted || value[end] != ';')) {
            if (value[end] == '"') quoted = !quoted;
            ++end;
        }
        const std::string_view item = value.substr(pos + 1, end - pos - 1);
        const auto equals = item.find('=');
        if (equals != std::string_view::npos && asciiLower(trim(item.substr(0, equals))) == asciiLower(parameter)) {
            return unquote(item.substr(equals + 1));
        }
        pos = end < value.size() ? end : std::string_view::npos;
    }
    return std::nullopt;
}

std::string mediaTypeOf(std::string_view contentType) {
    return asciiLower(trim(contentType.substr(0, contentType.find(';'))));
}

std::optional<std::vector<MultipartPart>> parseMultipart(const ByteBuffer& body, const std::string& boundary) {
    if (boundary.empty()) return std::nullopt;
    const std::string_view text = body.view();
    const std::string delimiter = "--" + boundary;
    std::size_t pos = text.find(delimiter);
    if (pos == std::string_view::npos || (pos != 0 && (pos < 2 || text.substr(pos - 2, 2) != "\r\n"))) {
        return std::nullopt;
    }
    std::vector<MultipartPart> parts;
    for (;;) {
        pos += delimiter.size();
        if (text.substr(pos, 2) == "--") break;  // the closing delimiter; an epilogue may follow
        if (text.substr(pos, 2) != "\r\n") return std::nullopt;
        pos += 2;
        std::size_t contentStart = 0;
        std::string_view headers;
        if (text.substr(pos, 2) == "\r\n") {  // a part without headers
            contentStart = pos + 2;
        } else {
            const std::size_t headersEnd = text.find("\r\n\r\n", pos);
            if (headersEnd == std::string_view::npos) return std::nullopt;
            headers = text.substr(pos, headersEnd - pos);
            contentStart = headersEnd + 4;
        }
        const std::size_t next = text.find("\r\n" + delimiter, contentStart);
        if (next == std::string_view::npos) return std::nullopt;
        MultipartPart part;
        std::size_t line = 0;
        while (line < headers.size()) {
            std::size_t end = headers.find("\r\n", line);
            if (end == std::string_view::npos) end = headers.size();
            const std::string_view header = headers.substr(line, end - line);
            const auto colon = header.find(':');
            if (colon == std::string_view::npos || colon == 0) return std::nullopt;
            part.headers.emplace_back(std::string(trim(header.substr(0, colon))),
                                      std::string(trim(header.substr(colon + 1))));
            line = end + 2;
        }
        part.content = body.slice(contentStart, next - contentStart);
        parts.push_back(std::move(part));
        pos = next + 2;
    }
    return parts;
}

}  // namespace vxcloud::sandbox
