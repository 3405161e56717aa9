// Multipart bodies (RFC 2046 framing): every line ends in CRLF, each part is
// "--boundary", its headers, a blank line and its content, and the body ends with
// "--boundary--". The same parts and boundary always give the same bytes.
#include <random>

#include "vxcloud/platform/Http.h"

namespace vxcloud {
namespace {

std::string randomBoundary() {
    static constexpr char alphabet[] =
        "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    thread_local std::mt19937_64 engine{std::random_device{}()};
    std::uniform_int_distribution<std::size_t> pick(0, sizeof(alphabet) - 2);
    std::string boundary = "vxcloud-";
    for (int i = 0; i < 32; ++i) boundary += alphabet[pick(engine)];
    return boundary;
}

// Quotes and line breaks in names would end the header early; they are escaped the
// way browsers escape them in form-data names.
std::string quotedParameter(const std::string& value) {
    std::string out = "\"";
    for (char c : value) {
        switch (c) {
            case '"': out += "%22"; break;
            case '\r': out += "%0D"; break;
            case '\n': out += "%0A"; break;
            default: out += c;
        }
    }
    out += '"';
    return out;
}

}  // namespace

MultipartBody::MultipartBody(std::string subtype, std::string boundary)
    : subtype_(std::move(subtype)),
      boundary_(boundary.empty() ? randomBoundary() : std::move(boundary)) {}

void MultipartBody::addPart(HttpHeaders headers, ByteBuffer content) {
    parts_.emplace_back(std::move(headers), std::move(content));
}

void MultipartBody::addFormField(const std::string& name, const std::string& value) {
    HttpHeaders headers;
    headers.add("Content-Disposition", "form-data; name=" + quotedParameter(name));
    addPart(std::move(headers), ByteBuffer::copyOf(std::string_view(value)));
}

void MultipartBody::addFile(const std::string& name, const std::string& filename,
                            const std::string& contentType, ByteBuffer content) {
    HttpHeaders headers;
    headers.add("Content-Disposition", "form-data; name=" + quotedParameter(name) +
                                           "; filename=" + quotedParameter(filename));
    headers.add("Content-Type", contentType);
    addPart(std::move(headers), std::move(content));
}

std::string MultipartBody::contentType() const {
    return "multipart/" + subtype_ + "; boundary=" + boundary_;
}

ByteBuffer MultipartBody::encode() const {
    const std::string delimiter = "--" + boundary_;
    std::size_t size = delimiter.size() + 4;
    for (const auto& [headers, content] : parts_) {
        size += delimiter.size() + 2 + 2 + content.size() + 2;
        for (const auto& [name, value] : headers.all()) size += name.size() + 2 + value.size() + 2;
    }
    std::string out;
    out.reserve(size);
    for (const auto& [headers, content] : parts_) {
        out += delimiter;
        out += "\r\n";
        for (const auto& [name, value] : headers.all()) {
            out += name;
            out += ": ";
            out += value;
            out += "\r\n";
        }
        out += "\r\n";
        out += content.view();
        out += "\r\n";
    }
    out += delimiter;
    out += "--\r\n";
    return ByteBuffer::adopt(std::move(out));
}

}  // namespace vxcloud
