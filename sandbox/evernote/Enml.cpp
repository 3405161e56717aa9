#include "evernote/Enml.h"

#include <algorithm>

#include "evernote/XmlScanner.h"

namespace vxcloud::sandbox::evernote {
namespace {

std::string quoted(std::string_view text) { return "\"" + std::string(text) + "\""; }

bool isLowerHexDigest(std::string_view text) {
    return text.size() == 32 && std::all_of(text.begin(), text.end(),
                                            [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); });
}

std::string asciiLowerCopy(std::string_view text) {
    std::string out(text);
    for (char& c : out) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
    return out;
}

std::optional<std::string> declarationProblem(const XmlEvent& declaration) {
    for (const auto& [name, value] : declaration.attributes) {
        if (name == "version" && value != "1.0") {
            return "XML version " + quoted(value) + " is not supported, only XML 1.0 is supported.";
        }
        // Note content travels as UTF-8; a declaration that names another encoding misreads it.
        if (name == "encoding" && asciiLowerCopy(value) != "utf-8")
            return "Invalid encoding name " + quoted(value) + ".";
        if (name == "standalone" && value != "yes" && value != "no") {
            return "The standalone document declaration value must be \"yes\" or \"no\", not " + quoted(value) + ".";
        }
    }
    return std::nullopt;
}

std::string contentModel(const EnmlElement& element) {
    switch (element.content) {
        case EnmlElement::Content::empty: return "EMPTY";
        case EnmlElement::Content::text: return "(#PCDATA)";
        case EnmlElement::Content::any: break;
    }
    return anyContentModel();
}

std::string contentRefused(const EnmlElement& parent) {
    return "The content of element type " + quoted(parent.name) + " must match " + quoted(contentModel(parent)) + ".";
}

// What the DTD says about one start tag's attributes.
std::optional<std::string> attributeProblem(const EnmlElement& element, const std::vector<XmlAttribute>& attributes) {
    for (const auto& [name, value] : attributes) {
        if (std::find(element.attributes.begin(), element.attributes.end(), name) == element.attributes.end()) {
            return "Attribute " + quoted(name) + " must be declared for element type " + quoted(element.name) + ".";
        }
        if (element.name == "en-note" && name == "xmlns" && value != kEnmlSystemId) {
            return "Attribute \"xmlns\" with the value " + quoted(value) + " must have a value of " +
                   quoted(kEnmlSystemId) + ".";
        }
        if (element.name == "en-todo" && name == "checked" && value != "true" && value != "false") {
            return "Attribute \"checked\" with value " + quoted(value) +
                   " must have a value from the list \"true false\".";
        }
        // The DTD types hash as CDATA; the sandbox also wants the resource's MD5 in the form
        // clients must write it, so a wrongly written hash is caught here.
        if (element.name == "en-media" && name == "hash" && !isLowerHexDigest(value)) {
            return "Attribute \"hash\" with value " + quoted(value) +
                   " of element type \"en-media\" must be 32 lower-case hexadecimal digits.";
        }
    }
    for (const auto& required : element.required) {
        const bool given = std::any_of(attributes.begin(), attributes.end(),
                                       [&](const XmlAttribute& a) { return a.name == required; });
        if (!given) {
            return "Attribute " + quoted(required) + " is required and must be specified for element type " +
                   quoted(element.name) + ".";
        }
    }
    return std::nullopt;
}

}  // namespace

std::optional<std::string> enmlProblem(std::string_view content) {
    XmlScanner scanner(content, enmlEntity);
    auto event = scanner.next();
    if (!event) return scanner.error();
    if (event->kind != XmlEvent::Kind::declaration) {
        return "The content must begin with the XML declaration <?xml version=\"1.0\" encoding=\"UTF-8\"?>.";
    }
    if (auto problem = declarationProblem(*event)) return problem;
    event = scanner.next();
    if (!event) return scanner.error();
    if (event->kind != XmlEvent::Kind::doctype) return "Document is invalid: no grammar found.";
    if (event->name != "en-note" || event->systemId != kEnmlSystemId || event->internalSubset) {
        return "The DOCTYPE must be <!DOCTYPE en-note SYSTEM " + quoted(kEnmlSystemId) + ">.";
    }
    std::vector<const EnmlElement*> open;
    while ((event = scanner.next())) {
        switch (event->kind) {
            case XmlEvent::Kind::end: return std::nullopt;
            case XmlEvent::Kind::declaration:
            case XmlEvent::Kind::doctype: return "Already seen doctype.";
            case XmlEvent::Kind::endTag: open.pop_back(); break;
            case XmlEvent::Kind::text:
                if (!open.empty() && open.back()->content == EnmlElement::Content::empty) {
                    return contentRefused(*open.back());
                }
                break;
            case XmlEvent::Kind::startTag: {
                if (open.empty() && event->name != "en-note") {
                    return "Document root element " + quoted(event->name) + ", must match DOCTYPE root \"en-note\".";
                }
                const EnmlElement* element = enmlElement(event->name);
                if (!element) return "Element type " + quoted(event->name) + " must be declared.";
                if (!open.empty() && (open.back()->content != EnmlElement::Content::any || event->name == "en-note")) {
                    return contentRefused(*open.back());
                }
                if (auto problem = attributeProblem(*element, event->attributes)) return problem;
                if (!event->selfClosing) open.push_back(element);
                break;
            }
        }
    }
    return scanner.error();
}

}  // namespace vxcloud::sandbox::evernote
