#pragma once
// What a page-create request sends, read and checked as the service does: an HTML body, or a
// multipart/form-data body with exactly one "Presentation" part (HTML) and data parts the
// HTML refers to as "name:<part>". Refusals are thrown as GraphErrors with OneNote's codes.
#include <cstdint>
#include <string>
#include <vector>

#include "framework/Http.h"
#include "vxcloud/platform/ByteBuffer.h"

namespace vxcloud::sandbox::onenote {

inline constexpr const char* kPresentationName = "Presentation";

struct PageLimits {
    std::int64_t maxRequestBytes = 0;
    std::int64_t maxPartBytes = 0;
    int maxParts = 0;
};

struct DataPart {
    std::string name;
    std::string contentType;
    ByteBuffer content;
};

struct PageBody {
    ByteBuffer html;
    std::string htmlType;         // the Presentation's Content-Type, as sent
    std::vector<DataPart> parts;  // in the order sent
    std::string title;            // from <title>, entities decoded
    std::int64_t created = -1;    // from <meta name="created">; -1 when absent or unreadable
    bool createdUnreadable = false;
};

PageBody readPageBody(const Request& request, const PageLimits& limits);

// The "name:" references of an HTML text: src, data and data-render-src attribute values.
std::vector<std::string> partReferences(std::string_view html);

}  // namespace vxcloud::sandbox::onenote
