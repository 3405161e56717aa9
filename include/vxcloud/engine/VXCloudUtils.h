#pragma once
// Small helpers shared by the engine, the sessions and the screens: a stack for folder
// navigation, the content type of upload data, and each service's name and pictures.
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "vxcloud/model/VXCloudService.h"
#include "vxcloud/platform/ByteBuffer.h"

namespace vxcloud {

// Last in, first out over `array`: push appends, pop removes the last element.
template <typename Element>
struct VXCloudStack {
    std::vector<Element> array;

    void push(Element element) { array.push_back(std::move(element)); }
    // The removed top, or nothing when the stack is empty.
    std::optional<Element> pop() {
        if (array.empty()) return std::nullopt;
        std::optional<Element> top(std::move(array.back()));
        array.pop_back();
        return top;
    }
    // The top element, or null when the stack is empty.
    const Element* top() const { return array.empty() ? nullptr : &array.back(); }
    Element* top() { return array.empty() ? nullptr : &array.back(); }
    std::size_t count() const noexcept { return array.size(); }
    bool isEmpty() const noexcept { return array.empty(); }
};

// Marks a type that uses these helpers (the task); it asks nothing of its adopters.
struct Utilities {
protected:
    Utilities() = default;
    ~Utilities() = default;
};

// The content type told by the first byte alone (0 for an empty buffer): "%" is PDF,
// "F" plain text, and so on; anything unknown is "application/octet-stream".
std::string mimeType(const ByteBuffer& data);

// Whether a name can be sent to a service: valid UTF-8 (no overlong forms or surrogates)
// without NUL. Sessions refuse other names before any request.
bool isSendableName(std::string_view name);

// The service's name as shown to the user ("Google Drive", ..., "WebDAV"), localised.
std::string displayName(VXCloudService cloudService);
// Path of the service's icon in the resource bundle.
std::optional<std::string> image(VXCloudService cloudService);

// The upload-state pictures, as paths in the resource bundle.
std::optional<std::string> VXCloudUploadImage();
std::optional<std::string> VXCloudPendingImage();
std::optional<std::string> VXCloudSuccessImage();
std::optional<std::string> VXCloudAccountErrorImage();
std::optional<std::string> VXCloudConnectionErrorImage();

}  // namespace vxcloud
