// Multipart bodies as the sandbox reads them (Google's multipart/related uploads, OneNote's
// form-data pages): the Content-Type's parameters, the parts, and the OneNote page body read
// from a request, with no server in between.
//
// The input is the Content-Type value up to the first '\n', then the body.
#include <cstdint>
#include <string>
#include <string_view>

#include "../sandbox/framework/Multipart.h"
#include "../sandbox/microsoft/GraphErrors.h"
#include "../sandbox/onenote/PageBody.h"
#include "FuzzInput.h"
#include "vxcloud/platform/Http.h"
#include "vxcloud/platform/Log.h"

using namespace vxcloud;
using namespace vxcloud::sandbox;

namespace {

// Limits small enough for inputs of a few kilobytes to reach every refusal.
constexpr onenote::PageLimits kLimits{/*maxRequestBytes=*/2048, /*maxPartBytes=*/1024, /*maxParts=*/6};

// The parts read back from what the library's own encoder makes of them are the same parts:
// the client's writer and the emulator's reader agree on the framing. Header names that
// trim to nothing cannot be written again and are not compared.
void checkReencoded(const std::vector<MultipartPart>& parts) {
    MultipartBody body("related");
    for (const auto& part : parts) {
        HttpHeaders headers;
        for (const auto& [name, value] : part.headers) {
            if (name.empty()) return;
            headers.add(name, value);
        }
        body.addPart(std::move(headers), part.content);
    }
    const auto again = parseMultipart(body.encode(), body.boundary());
    FUZZ_CHECK(again && again->size() == parts.size());
    for (std::size_t i = 0; i < parts.size(); ++i) {
        FUZZ_CHECK((*again)[i].headers == parts[i].headers);
        FUZZ_CHECK((*again)[i].content.view() == parts[i].content.view());
    }
}

void readParts(const std::string& contentType, const ByteBuffer& body) {
    mediaTypeOf(contentType);
    headerParameter(contentType, "name");
    const std::string boundary = multipartBoundary(contentType);
    const auto parts = parseMultipart(body, boundary);
    if (!parts) return;
    for (const auto& part : *parts) {
        const auto disposition = part.header("Content-Disposition");
        if (disposition) {
            headerParameter(*disposition, "name");
            headerParameter(*disposition, "filename");
        }
        if (const auto type = part.header("Content-Type")) mediaTypeOf(*type);
    }
    checkReencoded(*parts);
}

void readPage(const std::string& contentType, const ByteBuffer& body) {
    Request request;
    request.method = "POST";
    request.path = request.target = "/v1.0/me/onenote/sections/s/pages";
    request.headers.emplace("Content-Type", contentType);
    request.body = body;
    try {
        const onenote::PageBody page = onenote::readPageBody(request, kLimits);
        // An accepted page names each data part once, and none of them "Presentation".
        for (std::size_t i = 0; i < page.parts.size(); ++i) {
            FUZZ_CHECK(page.parts[i].name != onenote::kPresentationName);
            for (std::size_t j = i + 1; j < page.parts.size(); ++j) FUZZ_CHECK(page.parts[i].name != page.parts[j].name);
        }
    } catch (const microsoft::GraphError&) {
        // The service's refusal of a malformed page: the answer the emulator sends.
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    log::setLevel(log::Level::off);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const auto newline = input.find('\n');
    const std::string contentType(input.substr(0, newline));
    const ByteBuffer body = ByteBuffer::copyOf(newline == std::string_view::npos ? std::string_view()
                                                                                : input.substr(newline + 1));
    readParts(contentType, body);
    readPage(contentType, body);
    return 0;
}
