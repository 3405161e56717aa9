#include "evernote/NoteSearch.h"

#include <algorithm>

#include "framework/Text.h"

namespace vxcloud::sandbox::evernote {
namespace {

using Kind = NoteQuery::Term::Kind;

bool isWordByte(unsigned char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c >= 0x80;
}

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

// A query word against a note word: equal, or a prefix of it when the query word ends in '*'.
bool wordMatches(const std::string& wanted, const std::string& word) {
    if (!wanted.empty() && wanted.back() == '*')
        return word.compare(0, wanted.size() - 1, wanted, 0, wanted.size() - 1) == 0;
    return wanted == word;
}

bool containsSequence(const std::vector<std::string>& words, const std::vector<std::string>& wanted) {
    if (wanted.empty() || wanted.size() > words.size()) return false;
    for (std::size_t i = 0; i + wanted.size() <= words.size(); ++i) {
        bool all = true;
        for (std::size_t k = 0; k < wanted.size() && all; ++k) all = wordMatches(wanted[k], words[i + k]);
        if (all) return true;
    }
    return false;
}

bool nameMatches(const std::string& wanted, const std::string& name) {
    return wordMatches(foldCase(wanted), foldCase(name));
}

// Whether the content holds an en-todo, a checked one (`checked`), or an unchecked one.
bool hasTodo(std::string_view enml, const std::string& which) {
    for (std::size_t at = enml.find("<en-todo"); at != std::string_view::npos; at = enml.find("<en-todo", at + 1)) {
        const auto end = enml.find('>', at);
        const std::string_view tag = enml.substr(at, end == std::string_view::npos ? std::string_view::npos : end - at);
        const bool checked = tag.find("checked=\"true\"") != std::string_view::npos ||
                             tag.find("checked='true'") != std::string_view::npos;
        if (which == "*" || (which == "true") == checked) return true;
    }
    return false;
}

// Days since 1970-01-01 of a civil date (proleptic Gregorian).
std::int64_t daysFromCivil(std::int64_t y, unsigned m, unsigned d) {
    y -= m <= 2;
    const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
    const auto yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<std::int64_t>(doe) - 719468;
}

void civilFromDays(std::int64_t z, std::int64_t& y, unsigned& m, unsigned& d) {
    z += 719468;
    const std::int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const auto doe = static_cast<unsigned>(z - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    d = doy - (153 * mp + 2) / 5 + 1;
    m = mp < 10 ? mp + 3 : mp - 9;
    y = static_cast<std::int64_t>(yoe) + era * 400 + (m <= 2);
}

bool allDigits(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

constexpr std::int64_t kDayMs = 86400000;

}  // namespace

std::vector<std::string> searchWords(std::string_view text) {
    std::vector<std::string> out;
    std::string word;
    for (const char c : text) {
        if (isWordByte(static_cast<unsigned char>(c))) {
            word += c;
        } else if (!word.empty()) {
            out.push_back(foldCase(word));
            word.clear();
        }
    }
    if (!word.empty()) out.push_back(foldCase(word));
    return out;
}

std::string enmlText(std::string_view enml) {
    std::string out;
    out.reserve(enml.size());
    for (std::size_t i = 0; i < enml.size(); ++i) {
        if (enml[i] == '<') {
            const auto end = enml.find('>', i);
            if (end == std::string_view::npos) break;
            i = end;
            out += ' ';
        } else if (enml[i] == '&') {
            const auto end = enml.find(';', i);
            if (end != std::string_view::npos && end - i <= 10) i = end;
            out += ' ';
        } else {
            out += enml[i];
        }
    }
    return out;
}

std::int64_t searchDate(std::string_view value, std::int64_t nowMs) {
    if (value.size() >= 8 && allDigits(value.substr(0, 8))) {
        const auto number = [&](std::size_t at, std::size_t length) {
            return std::stoi(std::string(value.substr(at, length)));
        };
        const int y = number(0, 4), m = number(4, 2), d = number(6, 2);
        if (m < 1 || m > 12 || d < 1 || d > 31) return -1;
        std::int64_t ms = daysFromCivil(y, static_cast<unsigned>(m), static_cast<unsigned>(d)) * kDayMs;
        std::string_view rest = value.substr(8);
        if (rest.empty()) return ms;
        if (rest.size() < 7 || rest[0] != 'T' || !allDigits(rest.substr(1, 6)) ||
            (rest.size() > 7 && rest.substr(7) != "Z")) {
            return -1;
        }
        return ms + ((number(9, 2) * 60 + number(11, 2)) * 60 + number(13, 2)) * 1000LL;
    }
    const auto dash = value.find_first_of("-+");
    const std::string_view unit = value.substr(0, dash);
    std::int64_t back = 0;
    if (dash != std::string_view::npos) {
        if (!allDigits(value.substr(dash + 1)) || value.size() - dash > 7) return -1;
        back = std::stoll(std::string(value.substr(dash + 1))) * (value[dash] == '-' ? 1 : -1);
    }
    const std::int64_t today = (nowMs >= 0 ? nowMs : nowMs - kDayMs + 1) / kDayMs;
    std::int64_t y = 0;
    unsigned m = 0, d = 0;
    civilFromDays(today, y, m, d);
    if (unit == "day") return (today - back) * kDayMs;
    if (unit == "week") {
        const std::int64_t weekday = ((today % 7) + 7 + 4) % 7;  // 1970-01-01 was a Thursday; Sunday is 0
        return (today - weekday - 7 * back) * kDayMs;
    }
    if (unit == "month") {
        const std::int64_t months = y * 12 + (m - 1) - back;
        const std::int64_t year = months >= 0 ? months / 12 : (months - 11) / 12;
        return daysFromCivil(year, static_cast<unsigned>(months - year * 12 + 1), 1) * kDayMs;
    }
    if (unit == "year") return daysFromCivil(y - back, 1, 1) * kDayMs;
    return -1;
}

NoteQuery NoteQuery::parse(std::string_view text) {
    NoteQuery query;
    std::size_t pos = 0;
    while (pos < text.size()) {
        while (pos < text.size() && isBlank(text[pos])) ++pos;
        if (pos >= text.size()) break;
        Term term;
        if (text[pos] == '-') {
            term.negated = true;
            ++pos;
        }
        std::string label;
        std::size_t end = pos;
        while (end < text.size() && ((text[end] >= 'a' && text[end] <= 'z') || (text[end] >= 'A' && text[end] <= 'Z')))
            ++end;
        if (end > pos && end < text.size() && text[end] == ':') {
            label = asciiLower(text.substr(pos, end - pos));
            pos = end + 1;
        }
        std::string value;
        if (pos < text.size() && text[pos] == '"') {
            const auto close = text.find('"', pos + 1);
            value = std::string(
                text.substr(pos + 1, close == std::string_view::npos ? std::string_view::npos : close - pos - 1));
            pos = close == std::string_view::npos ? text.size() : close + 1;
        } else {
            const std::size_t start = pos;
            while (pos < text.size() && !isBlank(text[pos])) ++pos;
            value = std::string(text.substr(start, pos - start));
        }
        if (label == "any") {
            query.any_ = true;
            if (value.empty()) continue;
            label.clear();
        }
        static const std::pair<const char*, Kind> labels[] = {
            {"intitle", Kind::intitle},   {"notebook", Kind::notebook},    {"tag", Kind::tag},
            {"resource", Kind::resource}, {"created", Kind::created},      {"updated", Kind::updated},
            {"todo", Kind::todo},         {"encryption", Kind::encryption}};
        const auto known =
            std::find_if(std::begin(labels), std::end(labels), [&](const auto& l) { return label == l.first; });
        if (known != std::end(labels)) {
            term.kind = known->second;
        } else if (!label.empty()) {
            value = label + ":" + value;  // not a label the sandbox knows: text to look for
        }
        if (term.kind == Kind::text || term.kind == Kind::intitle) {
            term.words = searchWords(value);
            if (term.words.empty()) continue;
            if (value.back() == '*') term.words.back() += '*';
        } else {
            term.value = value;
        }
        query.terms_.push_back(std::move(term));
    }
    return query;
}

bool NoteQuery::matches(const SearchableNote& note, std::int64_t nowMs) const {
    if (terms_.empty()) return true;
    std::vector<std::string> titleWords, contentWords;
    bool wordsRead = false;
    auto matchTerm = [&](const Term& term) -> bool {
        if ((term.kind == Kind::text || term.kind == Kind::intitle) && !wordsRead) {
            titleWords = searchWords(note.title);
            contentWords = searchWords(enmlText(note.content));
            wordsRead = true;
        }
        switch (term.kind) {
            case Kind::intitle: return containsSequence(titleWords, term.words);
            case Kind::text:
                return containsSequence(titleWords, term.words) || containsSequence(contentWords, term.words) ||
                       std::any_of(note.tags.begin(), note.tags.end(), [&](const std::string& tag) {
                           return containsSequence(searchWords(tag), term.words);
                       });
            case Kind::notebook: return nameMatches(term.value, note.notebookName);
            case Kind::tag:
                return std::any_of(note.tags.begin(), note.tags.end(),
                                   [&](const std::string& tag) { return nameMatches(term.value, tag); });
            case Kind::resource:
                return std::any_of(note.mimes.begin(), note.mimes.end(), [&](const std::string& mime) {
                    return wordMatches(asciiLower(term.value), asciiLower(mime));
                });
            case Kind::created:
            case Kind::updated: {
                const std::int64_t since = searchDate(term.value, nowMs);
                return since >= 0 && (term.kind == Kind::created ? note.created : note.updated) >= since;
            }
            case Kind::todo: return hasTodo(note.content, term.value.empty() ? "*" : term.value);
            case Kind::encryption: return note.content.find("<en-crypt") != std::string::npos;
        }
        return false;
    };
    for (const auto& term : terms_) {
        const bool hit = matchTerm(term) != term.negated;
        if (any_ && hit) return true;
        if (!any_ && !hit) return false;
    }
    return !any_;
}

}  // namespace vxcloud::sandbox::evernote
