#include "framework/Http.h"

#include <algorithm>
#include <cctype>

#include "framework/Text.h"

namespace vxcloud::sandbox {

bool CaseInsensitiveLess::operator()(const std::string& a, const std::string& b) const {
    return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        return std::tolower(static_cast<unsigned char>(x)) < std::tolower(static_cast<unsigned char>(y));
    });
}

std::optional<std::string> Request::header(std::string_view name) const {
    const auto it = headers.find(std::string(name));
    if (it == headers.end()) return std::nullopt;
    return it->second;
}

std::string Request::headerOr(std::string_view name, std::string fallback) const {
    auto value = header(name);
    return value ? *value : std::move(fallback);
}

std::optional<std::string> Request::queryParam(std::string_view name) const {
    const auto it = query.find(std::string(name));
    if (it == query.end()) return std::nullopt;
    return it->second;
}

std::optional<std::string> Request::bearerToken() const {
    const auto value = header("Authorization");
    if (!value || value->size() < 7 || asciiLower(value->substr(0, 7)) != "bearer ") return std::nullopt;
    std::string token = value->substr(7);
    while (!token.empty() && token.front() == ' ') token.erase(token.begin());
    while (!token.empty() && token.back() == ' ') token.pop_back();
    if (token.empty()) return std::nullopt;
    return token;
}

std::string Request::mediaType() const {
    std::string type = headerOr("Content-Type");
    const auto semicolon = type.find(';');
    if (semicolon != std::string::npos) type.resize(semicolon);
    while (!type.empty() && type.back() == ' ') type.pop_back();
    return asciiLower(type);
}

void Response::setHeader(const std::string& name, const std::string& value) {
    for (auto& [key, existing] : headers) {
        if (asciiLower(key) == asciiLower(name)) {
            existing = value;
            return;
        }
    }
    headers.emplace_back(name, value);
}

std::optional<std::string> Response::header(std::string_view name) const {
    for (const auto& [key, value] : headers) {
        if (asciiLower(key) == asciiLower(name)) return value;
    }
    return std::nullopt;
}

void Response::json(int code, const nlohmann::json& value) {
    status = code;
    contentType = "application/json";
    body = ByteBuffer::adopt(value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
}

void Response::text(int code, std::string text, std::string type) {
    status = code;
    contentType = std::move(type);
    body = ByteBuffer::adopt(std::move(text));
}

void Response::html(int code, std::string page) { text(code, std::move(page), "text/html; charset=utf-8"); }

void Response::bytes(int code, ByteBuffer content, std::string type) {
    status = code;
    contentType = std::move(type);
    body = std::move(content);
}

void Response::redirect(const std::string& location, int code) {
    status = code;
    setHeader("Location", location);
    contentType.clear();
    body = ByteBuffer();
}

void Response::empty(int code) {
    status = code;
    contentType.clear();
    body = ByteBuffer();
}

void Response::serveContent(const Request& request, const ByteBuffer& content, std::string type) {
    const auto range = request.header("Range");
    const std::uint64_t size = content.size();
    if (!range) {
        bytes(200, content, std::move(type));
        return;
    }
    // A single "bytes=first-last", "bytes=first-" or "bytes=-suffix".
    auto unsatisfiable = [&] {
        text(416, "Requested range not satisfiable");
        setHeader("Content-Range", "bytes */" + std::to_string(size));
    };
    std::string desc = *range;
    if (desc.rfind("bytes=", 0) != 0 || desc.find(',') != std::string::npos) {
        bytes(200, content, std::move(type));  // unsupported forms are ignored, as servers may
        return;
    }
    desc = desc.substr(6);
    const auto dash = desc.find('-');
    if (dash == std::string::npos) return unsatisfiable();
    const std::string firstText = desc.substr(0, dash), lastText = desc.substr(dash + 1);
    auto parse = [](const std::string& s, std::uint64_t& out) {
        if (s.empty() || s.size() > 19 || !std::all_of(s.begin(), s.end(), ::isdigit)) return false;
        out = std::stoull(s);
        return true;
    };
    std::uint64_t first = 0, last = 0;
    if (firstText.empty()) {
        std::uint64_t suffix = 0;
        if (!parse(lastText, suffix) || suffix == 0 || size == 0) return unsatisfiable();
        first = suffix >= size ? 0 : size - suffix;
        last = size - 1;
    } else {
        if (!parse(firstText, first)) return unsatisfiable();
        if (lastText.empty()) {
            last = size == 0 ? 0 : size - 1;
        } else if (!parse(lastText, last) || last < first) {
            return unsatisfiable();
        }
        if (first >= size) return unsatisfiable();
        last = std::min<std::uint64_t>(last, size - 1);
    }
    bytes(206, content.slice(first, last - first + 1), std::move(type));
    setHeader("Content-Range",
              "bytes " + std::to_string(first) + "-" + std::to_string(last) + "/" + std::to_string(size));
}

void Router::exact(const std::string& method, const std::string& path, const std::string& key,
                   Handler handler) {
    add(method, escape(path), key, std::move(handler));
}

std::string Router::escape(std::string_view literal) {
    static const std::string special = R"(\^$.|?*+()[]{})";
    std::string out;
    for (const char c : literal) {
        if (special.find(c) != std::string::npos) out += '\\';
        out += c;
    }
    return out;
}

}  // namespace vxcloud::sandbox
