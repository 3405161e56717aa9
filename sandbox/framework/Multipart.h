#pragma once
// MIME multipart bodies (RFC 2046), parsed strictly: CRLF line ends, parts between
// "--boundary" lines, "--boundary--" at the end. Google's multipart/related uploads and
// OneNote's multipart/form-data pages both read their bodies with this.
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "vxcloud/platform/ByteBuffer.h"

namespace vxcloud::sandbox {

struct MultipartPart {
    std::vector<std::pair<std::string, std::string>> headers;  // as sent, values trimmed
    ByteBuffer content;                                        // a slice of the body

    // The first header of that name (case-insensitive).
    std::optional<std::string> header(std::string_view name) const;
};

// The boundary parameter of a Content-Type ("multipart/related; boundary=xyz"), unquoted;
// empty when there is none.
std::string multipartBoundary(std::string_view contentType);

// The parts of `body`; nullopt when it is not a well-formed multipart body for `boundary`.
std::optional<std::vector<MultipartPart>> parseMultipart(const ByteBuffer& body, const std::string& boundary);

// A parameter of a header value such as Content-Disposition ("form-data; name=\"a\""), with
// quotes removed; nullopt when absent.
std::optional<std::string> headerParameter(std::string_view value, std::string_view parameter);

// The media type of a Content-Type value, without parameters, lower-cased.
std::string mediaTypeOf(std::string_view contentType);

}  // namespace vxcloud::sandbox
