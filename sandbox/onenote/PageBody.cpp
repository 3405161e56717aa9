#include "onenote/PageBody.h"

#include <algorithm>
#include <regex>

#include "framework/Multipart.h"
#include "framework/Text.h"
#include "microsoft/GraphErrors.h"

namespace vxcloud::sandbox::onenote {
namespace {

using microsoft::fail;

bool isHtml(const std::string& contentType) {
    const std::string type = mediaTypeOf(contentType);
    return type == "text/html" || type == "application/xhtml+xml";
}

std::string decodeEntities(std::string text) {
    static const std::pair<const char*, const char*> entities[] = {
        {"&lt;", "<"}, {"&gt;", ">"}, {"&quot;", "\""}, {"&#39;", "'"}, {"&apos;", "'"}, {"&amp;", "&"}};
    for (const auto& [from, to] : entities) {
        for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + 1)) {
            text.replace(at, std::string(from).size(), to);
        }
    }
    return text;
}

std::string trim(const std::string& text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

void readHead(PageBody& page) {
    const std::string html(page.html.view());
    static const std::regex title(R"(<title[^>]*>([\s\S]*?)</title\s*>)", std::regex::icase);
    std::smatch m;
    if (std::regex_search(html, m, title)) page.title = trim(decodeEntities(m[1].str()));
    static const std::regex meta(R"(<meta\s[^>]*>)", std::regex::icase);
    static const std::regex named(R"(\bname\s*=\s*["']created["'])", std::regex::icase);
    static const std::regex content(R"(\bcontent\s*=\s*["']([^"']*)["'])", std::regex::icase);
    for (auto it = std::sregex_iterator(html.begin(), html.end(), meta); it != std::sregex_iterator(); ++it) {
        const std::string tag = it->str();
        std::smatch value;
        if (!std::regex_search(tag, named) || !std::regex_search(tag, value, content)) continue;
        page.created = parseRfc3339(value[1].str());
        page.createdUnreadable = page.created < 0;
    }
}

std::vector<MultipartPart> multipartOf(const Request& request, const PageLimits& limits) {
    const std::string contentType = request.headerOr("Content-Type");
    const auto parts = parseMultipart(request.body, multipartBoundary(contentType));
    if (!parts) {
        fail(400, "20011", "The multipart payload is malformed: check the boundaries, CRLF line ends and blank lines.");
    }
    if (static_cast<std::int64_t>(parts->size()) > limits.maxParts) {
        fail(400, "20015", "The request holds " + std::to_string(parts->size()) + " parts; the limit is " +
                               std::to_string(limits.maxParts) + ".");
    }
    return *parts;
}

}  // namespace

std::vector<std::string> partReferences(std::string_view html) {
    static const std::regex reference(R"(\b(?:src|data|data-render-src)\s*=\s*["']\s*name:([^"']*)["'])",
                                      std::regex::icase);
    std::vector<std::string> out;
    const std::string text(html);
    for (auto it = std::sregex_iterator(text.begin(), text.end(), reference); it != std::sregex_iterator(); ++it) {
        out.push_back(decodeEntities((*it)[1].str()));
    }
    return out;
}

PageBody readPageBody(const Request& request, const PageLimits& limits) {
    const std::string type = request.mediaType();
    const bool multipart = type == "multipart/form-data";
    if (static_cast<std::int64_t>(request.body.size()) > limits.maxRequestBytes) {
        if (multipart) fail(413, "20016", "The multipart message is larger than the service accepts.");
        fail(413, "20008", "The size of the request is too large.");
    }
    PageBody page;
    if (isHtml(type)) {
        if (request.body.empty()) fail(400, "20132", "The request has no content.");
        page.html = request.body;
        page.htmlType = request.headerOr("Content-Type");
        if (!partReferences(page.html.view()).empty()) {
            fail(400, "20110", "Page create requests with data parts require the content to be multipart, with a "
                               "\"Presentation\" part.");
        }
        readHead(page);
        return page;
    }
    if (!multipart) {
        fail(400, "20131", "Invalid Content-Type: use text/html, application/xhtml+xml or multipart/form-data.");
    }
    int presentations = 0;
    for (const MultipartPart& part : multipartOf(request, limits)) {
        const auto disposition = part.header("Content-Disposition");
        const auto contentType = part.header("Content-Type");
        if (!disposition && !contentType) fail(400, "20013", "A part has neither Content-Type nor Content-Disposition.");
        const auto name = disposition ? headerParameter(*disposition, "name") : std::nullopt;
        if (!disposition || mediaTypeOf(*disposition) != "form-data" || !name || name->empty()) {
            fail(400, "20010", "A part lacks a Content-Disposition: form-data header with a name.");
        }
        if (!contentType) fail(400, "20012", "The part \"" + *name + "\" has no Content-Type.");
        std::int64_t partBytes = static_cast<std::int64_t>(part.content.size());
        for (const auto& [key, value] : part.headers) partBytes += static_cast<std::int64_t>(key.size() + value.size() + 4);
        if (partBytes > limits.maxPartBytes) fail(413, "20014", "The part \"" + *name + "\" is larger than 25 MB.");
        if (*name == kPresentationName) {
            if (++presentations > 1) fail(400, "20002", "The request holds two or more \"Presentation\" parts.");
            if (!isHtml(*contentType)) {
                fail(400, "20003", "The \"Presentation\" part's content type can be only text/html or application/xhtml+xml.");
            }
            page.html = part.content;
            page.htmlType = *contentType;
            continue;
        }
        const bool duplicate = std::any_of(page.parts.begin(), page.parts.end(), [&](const DataPart& p) { return p.name == *name; });
        if (duplicate) fail(400, "20009", "The request holds parts with the same name \"" + *name + "\".");
        page.parts.push_back({*name, *contentType, part.content});
    }
    if (presentations == 0) fail(400, "20001", "The request is missing the required \"Presentation\" part.");
    for (const std::string& wanted : partReferences(page.html.view())) {
        const bool held = std::any_of(page.parts.begin(), page.parts.end(), [&](const DataPart& p) { return p.name == wanted; });
        if (!held) fail(400, "20100", "The \"Presentation\" HTML refers to \"name:" + wanted + "\", a part the request does not hold.");
    }
    readHead(page);
    return page;
}

}  // namespace vxcloud::sandbox::onenote
