#include "google/DriveQuery.h"

#include <cctype>
#include <ctime>
#include <vector>

#include "framework/Text.h"

namespace vxcloud::sandbox::google {

struct DriveQuery::Node {
    enum class Kind { all, both, either, negation, compare, contains, inParents, has };
    Kind kind = Kind::all;
    std::shared_ptr<const Node> left, right;  // both, either; negation uses left
    std::string field;                        // compare, contains, has
    std::string op;                           // compare: = != < <= > >=
    std::string text;                         // the literal (or "true"/"false" for booleans)
    std::string value;                        // has: the property's value
    std::int64_t time = 0;                    // compare on a time field
};

namespace {

using NodePtr = std::shared_ptr<const DriveQuery::Node>;
using Kind = DriveQuery::Node::Kind;

struct Token {
    enum class Type { string, word, op, open, close, openBrace, closeBrace, end } type = Type::end;
    std::string text;
};

struct ParseError {
    std::string message;
};

bool isWordChar(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '.';
}

std::vector<Token> tokenize(std::string_view q) {
    std::vector<Token> out;
    std::size_t i = 0;
    while (i < q.size()) {
        const char c = q[i];
        if (c == ' ' || c == '\t' || c == '\r' || c == '\n') {
            ++i;
        } else if (c == '\'') {
            std::string literal;
            ++i;
            bool closed = false;
            while (i < q.size()) {
                const char d = q[i++];
                if (d == '\\') {
                    if (i >= q.size() || (q[i] != '\'' && q[i] != '\\')) {
                        throw ParseError{"a backslash in a literal escapes only a quote or a backslash"};
                    }
                    literal += q[i++];
                } else if (d == '\'') {
                    closed = true;
                    break;
                } else {
                    literal += d;
                }
            }
            if (!closed) throw ParseError{"a string literal is not closed"};
            out.push_back({Token::Type::string, std::move(literal)});
        } else if (c == '(' || c == ')' || c == '{' || c == '}') {
            const auto type = c == '(' ? Token::Type::open
                              : c == ')' ? Token::Type::close
                              : c == '{' ? Token::Type::openBrace
                                         : Token::Type::closeBrace;
            out.push_back({type, std::string(1, c)});
            ++i;
        } else if (c == '=' || c == '<' || c == '>' || c == '!') {
            std::string op(1, c);
            ++i;
            if (i < q.size() && q[i] == '=' && c != '=') op += q[i++];
            if (op == "!") throw ParseError{"\"!\" must be \"!=\""};
            out.push_back({Token::Type::op, op});
        } else if (isWordChar(c)) {
            std::size_t start = i;
            while (i < q.size() && isWordChar(q[i])) ++i;
            out.push_back({Token::Type::word, std::string(q.substr(start, i - start))});
        } else {
            throw ParseError{std::string("unexpected character '") + c + "'"};
        }
    }
    out.push_back({Token::Type::end, {}});
    return out;
}

class Parser {
public:
    explicit Parser(std::vector<Token> tokens) : tokens_(std::move(tokens)) {}

    NodePtr parseAll() {
        NodePtr node = parseOr();
        if (peek().type != Token::Type::end) throw ParseError{"unexpected \"" + peek().text + "\""};
        return node;
    }

private:
    const Token& peek() const { return tokens_[pos_]; }
    const Token& take() { return tokens_[pos_ < tokens_.size() - 1 ? pos_++ : pos_]; }
    bool keyword(const char* word) const {
        return peek().type == Token::Type::word && asciiLower(peek().text) == word;
    }
    void expectKeyword(const char* word) {
        if (!keyword(word)) throw ParseError{std::string("expected \"") + word + "\""};
        take();
    }
    std::string expectString() {
        if (peek().type != Token::Type::string) throw ParseError{"expected a quoted value"};
        return take().text;
    }
    void expect(Token::Type type, const char* what) {
        if (peek().type != type) throw ParseError{std::string("expected ") + what};
        take();
    }

    static NodePtr join(Kind kind, NodePtr left, NodePtr right) {
        auto node = std::make_shared<DriveQuery::Node>();
        node->kind = kind;
        node->left = std::move(left);
        node->right = std::move(right);
        return node;
    }

    NodePtr parseOr() {
        NodePtr left = parseAnd();
        while (keyword("or")) {
            take();
            left = join(Kind::either, left, parseAnd());
        }
        return left;
    }
    NodePtr parseAnd() {
        NodePtr left = parseUnary();
        while (keyword("and")) {
            take();
            left = join(Kind::both, left, parseUnary());
        }
        return left;
    }
    NodePtr parseUnary() {
        if (keyword("not")) {
            take();
            return join(Kind::negation, parseUnary(), nullptr);
        }
        if (peek().type == Token::Type::open) {
            take();
            NodePtr inner = parseOr();
            expect(Token::Type::close, "\")\"");
            return inner;
        }
        return parseTerm();
    }

    NodePtr parseTerm() {
        auto node = std::make_shared<DriveQuery::Node>();
        if (peek().type == Token::Type::string) {
            // 'value' in <collection>: only parents is a collection this emulator keeps.
            node->text = take().text;
            expectKeyword("in");
            if (peek().type != Token::Type::word || peek().text != "parents") {
                throw ParseError{"only \"parents\" can follow \"in\""};
            }
            take();
            node->kind = Kind::inParents;
            return node;
        }
        if (peek().type != Token::Type::word) throw ParseError{"expected a query term"};
        node->field = take().text;
        const std::string& f = node->field;
        const bool text = f == "name" || f == "mimeType";
        const bool flag = f == "trashed" || f == "starred";
        const bool time = f == "modifiedTime" || f == "createdTime";
        const bool properties = f == "properties" || f == "appProperties";
        if (f == "fullText") {
            expectKeyword("contains");
            node->kind = Kind::contains;
            node->text = expectString();
            return node;
        }
        if (properties) {
            expectKeyword("has");
            expect(Token::Type::openBrace, "\"{\"");
            expectKeyword("key");
            if (peek().type != Token::Type::op || peek().text != "=") throw ParseError{"expected \"=\""};
            take();
            node->text = expectString();
            expectKeyword("and");
            expectKeyword("value");
            if (peek().type != Token::Type::op || peek().text != "=") throw ParseError{"expected \"=\""};
            take();
            node->value = expectString();
            expect(Token::Type::closeBrace, "\"}\"");
            node->kind = Kind::has;
            return node;
        }
        if (!text && !flag && !time) throw ParseError{"unknown query term \"" + f + "\""};
        if (text && keyword("contains")) {
            take();
            node->kind = Kind::contains;
            node->text = expectString();
            return node;
        }
        if (peek().type != Token::Type::op) throw ParseError{"expected an operator after \"" + f + "\""};
        node->op = take().text;
        node->kind = Kind::compare;
        if ((text || flag) && node->op != "=" && node->op != "!=") {
            throw ParseError{"\"" + f + "\" takes only = and !="};
        }
        if (flag) {
            if (!keyword("true") && !keyword("false")) throw ParseError{"\"" + f + "\" compares with true or false"};
            node->text = asciiLower(take().text);
        } else {
            node->text = expectString();
            if (time) {
                node->time = parseRfc3339(node->text);
                if (node->time < 0) throw ParseError{"\"" + node->text + "\" is not an RFC 3339 time"};
            }
        }
        return node;
    }

    std::vector<Token> tokens_;
    std::size_t pos_ = 0;
};

bool compare(std::int64_t a, const std::string& op, std::int64_t b) {
    if (op == "=") return a == b;
    if (op == "!=") return a != b;
    if (op == "<") return a < b;
    if (op == "<=") return a <= b;
    if (op == ">") return a > b;
    return a >= b;
}

bool evaluate(const DriveQuery::Node& node, const QueryItem& item) {
    switch (node.kind) {
        case Kind::all: return true;
        case Kind::both: return evaluate(*node.left, item) && evaluate(*node.right, item);
        case Kind::either: return evaluate(*node.left, item) || evaluate(*node.right, item);
        case Kind::negation: return !evaluate(*node.left, item);
        case Kind::inParents: return item.hasParent(node.text);
        case Kind::has: {
            const auto value = item.property(node.field == "appProperties", node.text);
            return value && *value == node.value;
        }
        case Kind::contains:
            if (node.field == "fullText") return item.fullTextContains(node.text);
            return foldCase(node.field == "name" ? item.name() : item.mimeType()).find(foldCase(node.text)) !=
                   std::string::npos;
        case Kind::compare: {
            const std::string& f = node.field;
            if (f == "trashed" || f == "starred") {
                const bool actual = f == "trashed" ? item.trashed() : item.starred();
                return (actual == (node.text == "true")) == (node.op == "=");
            }
            if (f == "modifiedTime" || f == "createdTime") {
                return compare(f == "modifiedTime" ? item.modifiedTime() : item.createdTime(), node.op, node.time);
            }
            // Drive compares names without regard to letter case: "name = 'scan.pdf'" also
            // finds "Scan.PDF", so a client must look at the names it gets back.
            const bool equal = f == "name" ? foldCase(item.name()) == foldCase(node.text) : item.mimeType() == node.text;
            return equal == (node.op == "=");
        }
    }
    return false;
}

}  // namespace

DriveQuery::DriveQuery() = default;
DriveQuery::DriveQuery(DriveQuery&&) noexcept = default;
DriveQuery& DriveQuery::operator=(DriveQuery&&) noexcept = default;
DriveQuery::~DriveQuery() = default;

std::optional<DriveQuery> DriveQuery::parse(std::string_view text, std::string& error) {
    DriveQuery query;
    if (text.find_first_not_of(" \t\r\n") == std::string_view::npos) return query;
    try {
        query.root_ = Parser(tokenize(text)).parseAll();
    } catch (const ParseError& e) {
        error = e.message;
        return std::nullopt;
    }
    return query;
}

bool DriveQuery::matches(const QueryItem& item) const { return !root_ || evaluate(*root_, item); }

std::string quoteLiteral(std::string_view value) {
    std::string out = "'";
    for (const char c : value) {
        if (c == '\\' || c == '\'') out += '\\';
        out += c;
    }
    return out + "'";
}

std::string formatRfc3339(std::int64_t seconds) {
    std::string text = formatUtc(seconds);  // "...:SSZ"
    text.insert(text.size() - 1, ".000");
    return text;
}

}  // namespace vxcloud::sandbox::google
