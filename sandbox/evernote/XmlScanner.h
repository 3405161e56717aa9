#pragma once
// A pull scanner for the XML of note content: it checks that the text is well-formed XML
// (UTF-8, characters, names, quoting, references, nesting, one root) and hands the
// declaration, the DOCTYPE, tags and text to the ENML validator one at a time. Refusals
// are worded as the service's XML parser words them. Comments and processing instructions
// are checked and skipped; CDATA sections come as text.
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vxcloud::sandbox::evernote {

struct XmlAttribute {
    std::string name;
    std::string value;  // predefined entities and character references resolved
};

struct XmlEvent {
    enum class Kind { declaration, doctype, startTag, endTag, text, end };
    Kind kind = Kind::end;
    std::string name;                      // element; the DOCTYPE's root name
    std::vector<XmlAttribute> attributes;  // a start tag's; the declaration's version, encoding, ...
    bool selfClosing = false;              // <br/>
    bool whitespaceOnly = false;           // text
    std::string publicId, systemId;        // DOCTYPE
    bool internalSubset = false;           // DOCTYPE [...]
};

class XmlScanner {
public:
    // `declared` says whether an entity other than the five predefined ones exists.
    XmlScanner(std::string_view document, std::function<bool(std::string_view)> declared);

    // The next event, or nothing once the document is found not well-formed (error() says why).
    std::optional<XmlEvent> next();
    const std::string& error() const { return error_; }

private:
    std::optional<XmlEvent> step();
    std::optional<XmlEvent> fail(std::string message);
    bool failed(std::string message);
    bool at(std::string_view text) const { return document_.substr(pos_, text.size()) == text; }
    bool atEnd() const { return pos_ >= document_.size(); }
    bool skipSpace();
    std::string readName();
    // The code point at pos_ and its length in bytes (the document is valid UTF-8).
    char32_t peekChar(std::size_t& length) const;
    // Steps over one character, checking it is one XML allows; `where` words a refusal.
    bool checkedChar(const std::string& where);
    bool reference(std::string& into);
    std::optional<XmlEvent> processingInstruction();
    std::optional<XmlEvent> doctype();
    std::optional<XmlEvent> startTag();
    std::optional<XmlEvent> endTag();
    std::optional<XmlEvent> text();
    bool comment();
    // Where markup that may not be here is: in the prolog, in content or after the root.
    std::string misplacedMarkup() const;

    std::string_view document_;
    std::function<bool(std::string_view)> declared_;
    std::size_t pos_ = 0;
    std::vector<std::string> open_;
    bool rootSeen_ = false;
    bool rootClosed_ = false;
    bool doctypeSeen_ = false;
    bool skip_ = false;  // the step gave nothing to hand on
    std::string error_;
};

// Where the UTF-8 of `text` first goes wrong, in the XML parser's words; empty when it is valid.
std::string utf8Problem(std::string_view text);

}  // namespace vxcloud::sandbox::evernote
