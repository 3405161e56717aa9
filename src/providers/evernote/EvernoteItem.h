#pragma once
// Evernote's notebooks and notes as the Evernote client hands them to the session: the
// fields it needs, without the generated EDAM types (whose headers are heavy). Private to
// the library.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "vxcloud/platform/ByteBuffer.h"

namespace vxcloud::evernote {

struct Notebook {
    std::string guid;
    std::string name;
    bool defaultNotebook = false;
};

struct Resource {
    std::optional<std::string> guid;
    std::string bodyHash;  // the 16 raw bytes of the MD5 of its data
    std::optional<ByteBuffer> data;  // only when asked for
    std::string mime;
    std::optional<std::string> fileName;
};

struct Note {
    std::string guid;
    std::string title;
    std::optional<std::string> notebookGuid;
    std::vector<Resource> resources;
};

// A notebook or a note, as the file record is made from either.
struct Item {
    enum class Kind { notebook, note, other } kind = Kind::other;
    Notebook notebook;
    Note note;
};

// What a new or changed note carries. Unset fields of a change stay as they are.
struct NoteDraft {
    std::optional<std::string> guid;  // set for a change
    std::string title;
    std::optional<std::string> content;  // ENML
    std::optional<std::string> notebookGuid;
    std::optional<ByteBuffer> attachment;  // the one resource: its bytes
    std::string mime;
    std::string fileName;
};

struct User {
    std::int32_t id = 0;
    std::string username;
    std::string email;
    std::string name;
};

}  // namespace vxcloud::evernote
