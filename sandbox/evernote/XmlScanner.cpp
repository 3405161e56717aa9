#include "evernote/XmlScanner.h"

#include <cctype>
#include <cstdio>

namespace vxcloud::sandbox::evernote {
namespace {

const char* kTruncated = "XML document structures must start and end within the same entity.";

bool isXmlChar(char32_t c) {
    return c == 0x9 || c == 0xA || c == 0xD || (c >= 0x20 && c <= 0xD7FF) || (c >= 0xE000 && c <= 0xFFFD) ||
           (c >= 0x10000 && c <= 0x10FFFF);
}

bool isSpaceChar(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

bool isNameStart(unsigned char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || c == ':' || c >= 0x80;
}

bool isNameChar(unsigned char c) { return isNameStart(c) || (c >= '0' && c <= '9') || c == '-' || c == '.'; }

std::string hex(char32_t c) {
    char buffer[16];
    std::snprintf(buffer, sizeof buffer, "%x", static_cast<unsigned>(c));
    return buffer;
}

void appendUtf8(std::string& out, char32_t c) {
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

const char* predefinedEntity(std::string_view name) {
    if (name == "amp") return "&";
    if (name == "lt") return "<";
    if (name == "gt") return ">";
    if (name == "quot") return "\"";
    if (name == "apos") return "'";
    return nullptr;
}

}  // namespace

std::string utf8Problem(std::string_view text) {
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        if (lead < 0x80) {
            ++i;
            continue;
        }
        const int length = (lead >> 5) == 6 ? 2 : (lead >> 4) == 14 ? 3 : (lead >> 3) == 30 ? 4 : 0;
        if (length == 0 || lead == 0xC0 || lead == 0xC1 || lead > 0xF4)
            return "Invalid byte 1 of 1-byte UTF-8 sequence.";
        for (int k = 1; k < length; ++k) {
            if (i + static_cast<std::size_t>(k) >= text.size() ||
                (static_cast<unsigned char>(text[i + k]) & 0xC0) != 0x80) {
                return "Invalid byte " + std::to_string(k + 1) + " of " + std::to_string(length) +
                       "-byte UTF-8 sequence.";
            }
        }
        i += static_cast<std::size_t>(length);
    }
    return {};
}

XmlScanner::XmlScanner(std::string_view document, std::function<bool(std::string_view)> declared)
    : document_(document), declared_(std::move(declared)) {
    if (auto problem = utf8Problem(document_); !problem.empty()) error_ = std::move(problem);
}

std::optional<XmlEvent> XmlScanner::fail(std::string message) {
    if (error_.empty()) error_ = std::move(message);
    return std::nullopt;
}

bool XmlScanner::failed(std::string message) {
    fail(std::move(message));
    return false;
}

bool XmlScanner::skipSpace() {
    const std::size_t start = pos_;
    while (!atEnd() && isSpaceChar(document_[pos_])) ++pos_;
    return pos_ > start;
}

std::string XmlScanner::readName() {
    const std::size_t start = pos_;
    if (atEnd() || !isNameStart(static_cast<unsigned char>(document_[pos_]))) return {};
    while (!atEnd() && isNameChar(static_cast<unsigned char>(document_[pos_]))) ++pos_;
    return std::string(document_.substr(start, pos_ - start));
}

char32_t XmlScanner::peekChar(std::size_t& length) const {
    const auto lead = static_cast<unsigned char>(document_[pos_]);
    length = lead < 0x80 ? 1 : (lead >> 5) == 6 ? 2 : (lead >> 4) == 14 ? 3 : 4;
    char32_t c = length == 1 ? lead : lead & (0x7F >> length);
    for (std::size_t k = 1; k < length; ++k) c = (c << 6) | (static_cast<unsigned char>(document_[pos_ + k]) & 0x3F);
    return c;
}

bool XmlScanner::checkedChar(const std::string& where) {
    std::size_t length = 0;
    const char32_t c = peekChar(length);
    if (!isXmlChar(c))
        return failed("An invalid XML character (Unicode: 0x" + hex(c) + ") was found in " + where + ".");
    pos_ += length;
    return true;
}

std::string XmlScanner::misplacedMarkup() const {
    if (!open_.empty()) return "The content of elements must consist of well-formed character data or markup.";
    return rootClosed_ ? "The markup in the document following the root element must be well-formed."
                       : "The markup in the document preceding the root element must be well-formed.";
}

bool XmlScanner::reference(std::string& into) {
    ++pos_;  // '&'
    if (at("#")) {
        ++pos_;
        const bool isHex = at("x");
        if (isHex) ++pos_;
        const std::size_t start = pos_;
        while (!atEnd() && (isHex ? std::isxdigit(static_cast<unsigned char>(document_[pos_]))
                                  : std::isdigit(static_cast<unsigned char>(document_[pos_])))) {
            ++pos_;
        }
        const std::string digits(document_.substr(start, pos_ - start));
        if (digits.empty()) {
            return failed(
                isHex ? "A hexadecimal representation must immediately follow the \"&#x\" in a character reference."
                      : "A decimal representation must immediately follow the \"&#\" in a character reference.");
        }
        if (!at(";")) return failed("The character reference must end with the ';' delimiter.");
        ++pos_;
        const unsigned long long value = digits.size() > 8 ? 0x110000 : std::stoull(digits, nullptr, isHex ? 16 : 10);
        if (value > 0x10FFFF || !isXmlChar(static_cast<char32_t>(value))) {
            return failed("Character reference \"&#" + std::string(isHex ? "x" : "") + digits +
                          "\" is an invalid XML character.");
        }
        appendUtf8(into, static_cast<char32_t>(value));
        return true;
    }
    const std::string name = readName();
    if (name.empty()) return failed("The entity name must immediately follow the '&' in the entity reference.");
    if (!at(";")) return failed("The reference to entity \"" + name + "\" must end with the ';' delimiter.");
    ++pos_;
    if (const char* value = predefinedEntity(name)) {
        into += value;
    } else if (declared_ && declared_(name)) {
        into += "&" + name + ";";  // kept as written: only its existence matters here
    } else {
        return failed("The entity \"" + name + "\" was referenced, but not declared.");
    }
    return true;
}

bool XmlScanner::comment() {
    pos_ += 4;  // "<!--"
    while (true) {
        if (atEnd()) return failed(kTruncated);
        if (at("--")) {
            if (at("-->")) break;
            return failed("The string \"--\" is not permitted within comments.");
        }
        if (!checkedChar("the comment")) return false;
    }
    pos_ += 3;
    return true;
}

std::optional<XmlEvent> XmlScanner::processingInstruction() {
    const bool first = pos_ == 0;
    pos_ += 2;  // "<?"
    const std::string target = readName();
    if (target.empty()) return fail("The processing instruction must begin with the name of the target.");
    const bool isXml =
        target.size() == 3 && (target[0] | 0x20) == 'x' && (target[1] | 0x20) == 'm' && (target[2] | 0x20) == 'l';
    if (isXml && (!first || target != "xml")) {
        return fail("The processing instruction target matching \"[xX][mM][lL]\" is not allowed.");
    }
    if (!isXml) {
        while (true) {
            if (atEnd()) return fail(kTruncated);
            if (at("?>")) break;
            if (!checkedChar("the processing instruction")) return std::nullopt;
        }
        pos_ += 2;
        skip_ = true;
        return XmlEvent{};
    }
    // The XML declaration: version, then encoding and standalone, in that order.
    XmlEvent event;
    event.kind = XmlEvent::Kind::declaration;
    const char* order[] = {"version", "encoding", "standalone"};
    std::size_t expected = 0;
    while (true) {
        const bool spaced = skipSpace();
        if (at("?>")) break;
        if (atEnd()) return fail(kTruncated);
        const std::string name = readName();
        std::size_t slot = expected;
        while (slot < 3 && name != order[slot]) ++slot;
        if (!spaced || name.empty() || slot == 3 || (expected == 0 && slot != 0)) {
            if (expected == 0) return fail("The version is required in the XML declaration.");
            return fail(
                "The XML declaration may only contain \"version\", \"encoding\" and \"standalone\", in that order.");
        }
        expected = slot + 1;
        skipSpace();
        if (!at("=")) return fail("The ' = ' character must follow \"" + name + "\" in the XML declaration.");
        ++pos_;
        skipSpace();
        if (atEnd() || (document_[pos_] != '"' && document_[pos_] != '\'')) {
            return fail("The value following \"" + name + "\" in the XML declaration must be a quoted string.");
        }
        const char quote = document_[pos_++];
        const std::size_t close = document_.find(quote, pos_);
        if (close == std::string_view::npos) return fail(kTruncated);
        event.attributes.push_back({name, std::string(document_.substr(pos_, close - pos_))});
        pos_ = close + 1;
    }
    if (expected == 0) return fail("The version is required in the XML declaration.");
    pos_ += 2;
    return event;
}

std::optional<XmlEvent> XmlScanner::doctype() {
    if (!open_.empty() || rootClosed_) return fail(misplacedMarkup());
    if (doctypeSeen_) return fail("Already seen doctype.");
    doctypeSeen_ = true;
    pos_ += 9;  // "<!DOCTYPE"
    if (!skipSpace()) return fail("White space is required after \"<!DOCTYPE\" in the document type declaration.");
    XmlEvent event;
    event.kind = XmlEvent::Kind::doctype;
    event.name = readName();
    if (event.name.empty())
        return fail("The root element type must appear after \"<!DOCTYPE\" in the document type declaration.");
    auto quoted = [&](std::string& into) {
        skipSpace();
        if (atEnd() || (document_[pos_] != '"' && document_[pos_] != '\'')) return false;
        const char quote = document_[pos_++];
        const std::size_t close = document_.find(quote, pos_);
        if (close == std::string_view::npos) return false;
        into = std::string(document_.substr(pos_, close - pos_));
        pos_ = close + 1;
        return true;
    };
    skipSpace();
    if (at("SYSTEM")) {
        pos_ += 6;
        if (!quoted(event.systemId))
            return fail("The system identifier must begin with either a single or double quote character.");
    } else if (at("PUBLIC")) {
        pos_ += 6;
        if (!quoted(event.publicId))
            return fail("The public identifier must begin with either a single or double quote character.");
        if (!quoted(event.systemId))
            return fail("The system identifier must begin with either a single or double quote character.");
    }
    skipSpace();
    if (at("[")) {
        event.internalSubset = true;
        const std::size_t close = document_.find(']', pos_);
        if (close == std::string_view::npos) return fail(kTruncated);
        pos_ = close + 1;
        skipSpace();
    }
    if (!at(">")) {
        return fail("The document type declaration for root element type \"" + event.name + "\" must end with '>'.");
    }
    ++pos_;
    return event;
}

std::optional<XmlEvent> XmlScanner::startTag() {
    ++pos_;  // '<'
    XmlEvent event;
    event.kind = XmlEvent::Kind::startTag;
    event.name = readName();
    if (event.name.empty() || rootClosed_) return fail(misplacedMarkup());
    while (true) {
        const bool spaced = skipSpace();
        if (atEnd()) return fail(kTruncated);
        if (at(">")) {
            ++pos_;
            break;
        }
        if (at("/>")) {
            pos_ += 2;
            event.selfClosing = true;
            break;
        }
        const std::string name = spaced ? readName() : std::string();
        if (name.empty()) {
            return fail("Element type \"" + event.name +
                        "\" must be followed by either attribute specifications, \">\" or \"/>\".");
        }
        skipSpace();
        if (!at("=")) {
            return fail("Attribute name \"" + name + "\" associated with an element type \"" + event.name +
                        "\" must be followed by the ' = ' character.");
        }
        ++pos_;
        skipSpace();
        if (atEnd() || (document_[pos_] != '"' && document_[pos_] != '\'')) {
            return fail("Open quote is expected for attribute \"" + name + "\" associated with an  element type  \"" +
                        event.name + "\".");
        }
        const char quote = document_[pos_++];
        std::string value;
        while (true) {
            if (atEnd()) return fail(kTruncated);
            const char c = document_[pos_];
            if (c == quote) break;
            if (c == '<') {
                return fail("The value of attribute \"" + name + "\" associated with an element type \"" + event.name +
                            "\" must not contain the '<' character.");
            }
            if (c == '&') {
                if (!reference(value)) return std::nullopt;
                continue;
            }
            const std::size_t start = pos_;
            if (!checkedChar("the value of attribute \"" + name + "\" and element is \"" + event.name + "\"")) {
                return std::nullopt;
            }
            value.append(document_.substr(start, pos_ - start));
        }
        ++pos_;
        for (const auto& existing : event.attributes) {
            if (existing.name == name) {
                return fail("Attribute \"" + name + "\" was already specified for element \"" + event.name + "\".");
            }
        }
        event.attributes.push_back({name, value});
    }
    rootSeen_ = true;
    if (event.selfClosing) {
        if (open_.empty()) rootClosed_ = true;
    } else {
        open_.push_back(event.name);
    }
    return event;
}

std::optional<XmlEvent> XmlScanner::endTag() {
    pos_ += 2;  // "</"
    XmlEvent event;
    event.kind = XmlEvent::Kind::endTag;
    event.name = readName();
    if (open_.empty()) return fail(misplacedMarkup());
    if (event.name != open_.back()) {
        return fail("The element type \"" + open_.back() + "\" must be terminated by the matching end-tag \"</" +
                    open_.back() + ">\".");
    }
    skipSpace();
    if (!at(">")) return fail("The end-tag for element type \"" + event.name + "\" must end with a '>' delimiter.");
    ++pos_;
    open_.pop_back();
    if (open_.empty()) rootClosed_ = true;
    return event;
}

std::optional<XmlEvent> XmlScanner::text() {
    XmlEvent event;
    event.kind = XmlEvent::Kind::text;
    event.whitespaceOnly = true;
    const bool inContent = !open_.empty();
    const std::string where = inContent     ? "the element content of the document"
                              : rootClosed_ ? "markup after the end of the element content"
                                            : "prolog of the document";
    std::string ignored;
    while (!atEnd() && document_[pos_] != '<') {
        const char c = document_[pos_];
        if (!isSpaceChar(c)) {
            event.whitespaceOnly = false;
            if (!inContent) {
                return fail(rootClosed_ ? "Content is not allowed in trailing section."
                                        : "Content is not allowed in prolog.");
            }
        }
        if (c == '&') {
            if (!reference(ignored)) return std::nullopt;
            continue;
        }
        if (at("]]>")) {
            return fail(
                "The character sequence \"]]>\" must not appear in content unless used to mark the end of a CDATA "
                "section.");
        }
        if (!checkedChar(where)) return std::nullopt;
    }
    skip_ = !inContent;
    return event;
}

std::optional<XmlEvent> XmlScanner::next() {
    // Comments, processing instructions and blank text outside the root give no event.
    while (true) {
        skip_ = false;
        auto event = step();
        if (!event || !skip_) return event;
    }
}

std::optional<XmlEvent> XmlScanner::step() {
    if (!error_.empty()) return std::nullopt;
    if (atEnd()) {
        if (!open_.empty()) return fail(kTruncated);
        if (!rootSeen_) return fail("Premature end of file.");
        return XmlEvent{};
    }
    if (document_[pos_] != '<') return text();
    if (at("<?")) return processingInstruction();
    if (at("<!--")) {
        if (!comment()) return std::nullopt;
        skip_ = true;
        return XmlEvent{};
    }
    if (at("<![CDATA[")) {
        if (open_.empty()) return fail(misplacedMarkup());
        pos_ += 9;
        XmlEvent event;
        event.kind = XmlEvent::Kind::text;
        while (!at("]]>")) {
            if (atEnd()) return fail(kTruncated);
            if (!checkedChar("the CDATA section")) return std::nullopt;
        }
        pos_ += 3;
        return event;
    }
    if (at("<!DOCTYPE")) return doctype();
    if (at("</")) return endTag();
    return startTag();
}

}  // namespace vxcloud::sandbox::evernote
