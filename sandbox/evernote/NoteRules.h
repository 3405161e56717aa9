#pragma once
// Evernote's rules for the names and identifiers clients send (its published limits):
// GUIDs, note titles, notebook and tag names, MIME types. Lengths count Unicode characters.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace vxcloud::sandbox::evernote {

inline constexpr std::size_t kTitleLengthMax = 255;
inline constexpr std::size_t kNotebookNameLengthMax = 100;
inline constexpr std::size_t kTagNameLengthMax = 100;
inline constexpr std::size_t kContentLengthMax = 5242880;
inline constexpr std::size_t kSearchQueryLengthMax = 1024;
inline constexpr std::size_t kResourcesPerNoteMax = 1000;
inline constexpr std::size_t kTagsPerNoteMax = 100;
inline constexpr std::size_t kNotesPerAccountMax = 100000;
// Timestamps are ms since the epoch between the years 1000 and 9999.
inline constexpr std::int64_t kTimestampMin = -30610224000000;
inline constexpr std::int64_t kTimestampMax = 253402300799000;

// Lower-case 8-4-4-4-12 hex digits.
bool isGuid(std::string_view text);
// Unicode characters in UTF-8 text (an invalid byte counts as one).
std::size_t characterCount(std::string_view utf8);
// A title or name: 1 to `maxLength` characters, no control characters or line and paragraph
// separators, and no space (of any kind) at either end. `noCommas` for tag names.
bool validName(std::string_view utf8, std::size_t maxLength, bool noCommas = false);
// "type/subtype", 3 to 255 characters.
bool validMime(std::string_view mime);

}  // namespace vxcloud::sandbox::evernote
