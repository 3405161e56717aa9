#pragma once
// ENML 2, the markup of note content, checked as the service checks it on createNote and
// updateNote: the XML declaration, the ENML 2 DOCTYPE, well-formed XML, and the DTD's
// elements and attributes. A refusal is the XML validator's message, which the service
// puts in EDAMUserException.parameter with ENML_VALIDATION.
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vxcloud::sandbox::evernote {

inline constexpr std::string_view kEnmlSystemId = "http://xml.evernote.com/pub/enml2.dtd";

// Why `content` is not valid ENML, or nothing when it is.
std::optional<std::string> enmlProblem(std::string_view content);

// What the DTD says about one element (EnmlTables.cpp).
struct EnmlElement {
    std::string_view name;
    enum class Content { any, empty, text } content = Content::any;
    std::vector<std::string_view> attributes;
    std::vector<std::string_view> required;
};
const EnmlElement* enmlElement(std::string_view name);
// The content model of the elements that take any content, as the validator prints it.
const std::string& anyContentModel();
// Whether the DTD declares the entity (the XHTML character entities).
bool enmlEntity(std::string_view name);

}  // namespace vxcloud::sandbox::evernote
