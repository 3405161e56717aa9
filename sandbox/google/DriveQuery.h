#pragma once
// The `q` search language of files.list: terms such as `name = 'x'`, `'id' in parents`,
// `trashed = false`, `properties has { key='k' and value='v' }`, joined with and / or,
// negated with not, grouped with parentheses. Keywords are case-insensitive ("IN", "And"),
// field names are not. String literals are single-quoted; inside them a backslash escapes
// a quote or a backslash and nothing else.
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace vxcloud::sandbox::google {

// What a term is evaluated against: one stored item, seen through the module.
class QueryItem {
public:
    virtual ~QueryItem() = default;
    virtual std::string name() const = 0;
    virtual std::string mimeType() const = 0;
    virtual bool trashed() const = 0;
    virtual bool starred() const = 0;
    // Whether the folder `id` ("root" included) is a parent of the item.
    virtual bool hasParent(const std::string& id) const = 0;
    virtual std::int64_t modifiedTime() const = 0;  // seconds since the epoch
    virtual std::int64_t createdTime() const = 0;
    // The item's text for fullText: its name and, for text-like files, its content.
    virtual bool fullTextContains(const std::string& needle) const = 0;
    // properties / appProperties
    virtual std::optional<std::string> property(bool app, const std::string& key) const = 0;
};

class DriveQuery {
public:
    struct Node;

    // Nothing, with `error` set, when the text is not a query this emulator understands.
    static std::optional<DriveQuery> parse(std::string_view text, std::string& error);
    // The empty query matches everything.
    bool matches(const QueryItem& item) const;

    DriveQuery();
    DriveQuery(DriveQuery&&) noexcept;
    DriveQuery& operator=(DriveQuery&&) noexcept;
    ~DriveQuery();

private:
    std::shared_ptr<const Node> root_;
};

// The single-quoted literal of `value` with its backslashes and quotes escaped, as a
// client writes it.
std::string quoteLiteral(std::string_view value);

// "2024-05-01T09:30:02.000Z"
std::string formatRfc3339(std::int64_t seconds);

}  // namespace vxcloud::sandbox::google
