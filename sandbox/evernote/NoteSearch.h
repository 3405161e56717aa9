#pragma once
// Evernote's search grammar (NoteFilter.words) over the sandbox's notes: terms intersected
// (or united after `any:`), `-` to negate, a trailing `*` for a prefix, "quoted phrases",
// and the labels intitle:, notebook:, tag:, resource:, created:, updated:, todo: and
// encryption:. Words are compared ignoring case, whole words only; a word is a run of letters
// and digits. A label the sandbox does not know is searched for as text, as the service does.
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vxcloud::sandbox::evernote {

// What a note offers to a search.
struct SearchableNote {
    std::string title;
    std::string content;  // ENML
    std::string notebookName;
    std::vector<std::string> tags;
    std::vector<std::string> mimes;  // of its resources
    std::int64_t created = 0;        // ms
    std::int64_t updated = 0;
};

class NoteQuery {
public:
    static NoteQuery parse(std::string_view words);
    // `nowMs` anchors the relative dates of created: and updated: (day-1, week, ...).
    bool matches(const SearchableNote& note, std::int64_t nowMs) const;

    struct Term {
        enum class Kind {
            text,
            intitle,
            notebook,
            tag,
            resource,
            created,
            updated,
            todo,
            encryption
        } kind = Kind::text;
        bool negated = false;
        std::vector<std::string> words;  // text, intitle: folded words; a trailing '*' kept
        std::string value;               // the other labels' value
    };
    const std::vector<Term>& terms() const { return terms_; }
    bool any() const { return any_; }

private:
    std::vector<Term> terms_;
    bool any_ = false;
};

// The folded words of text, split at everything that is not a letter or a digit (bytes of
// multi-byte UTF-8 characters count as letters).
std::vector<std::string> searchWords(std::string_view text);
// The text of ENML: its markup dropped, references read as spaces.
std::string enmlText(std::string_view enml);
// The start, in ms, of what `value` names: "20240501", "20240501T093000[Z]" (UTC), or
// "day", "week", "month", "year", optionally "-N" back from the one holding `nowMs`; -1
// when it names none.
std::int64_t searchDate(std::string_view value, std::int64_t nowMs);

}  // namespace vxcloud::sandbox::evernote
