#pragma once
// One JSON document in one file, shared safely between threads and processes.
//
// Readers take no lock: a writer never changes the file in place, it writes a temporary
// file in the same folder, fsyncs it, renames it over the document and fsyncs the
// folder, so a reader sees either the old or the new document, never a torn one.
// Writers serialise on an in-process mutex and an flock() on "<path>.lock" (a separate
// file, because the document's inode changes with every rename), and each change is a
// read-modify-write of the document as it is on disk at that moment.
//
// A document that cannot be parsed (or fails the owner's shape check) is never
// deleted: it is moved aside to "<path>.corrupt-<UTC time>", reported once, and the
// owner starts from an empty document.
#include <sys/types.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "vxcloud/platform/Json.h"

namespace vxcloud::detail {

struct AtomicJsonFileOptions {
    // Category for log messages ("preferences", "secure-store").
    std::string logCategory;
    // Name for the document in messages ("preferences file").
    std::string description = "file";
    // Mode of the document, its lock file and of folders this creates for it.
    mode_t fileMode = 0600;
    mode_t folderMode = 0777;  // masked by the umask as usual
    // Extra shape check on top of "the document is a JSON object".
    std::function<bool(const Json&)> isValid;
};

class AtomicJsonFile {
public:
    AtomicJsonFile(std::string path, AtomicJsonFileOptions options);
    ~AtomicJsonFile();
    AtomicJsonFile(const AtomicJsonFile&) = delete;
    AtomicJsonFile& operator=(const AtomicJsonFile&) = delete;

    const std::string& path() const;

    // The document as it is now: an empty object when there is no file (or it was
    // corrupt and has been moved aside); nothing when the file exists but cannot be
    // read (permissions, I/O error), so callers never mistake that for "empty".
    std::optional<Json> read() const;

    // Read-modify-write under both locks. `change` edits the current document and
    // returns whether it changed anything; nothing is written when it did not.
    // False (file untouched, warning logged) when the document cannot be read or
    // written, or when `change` throws. `change` must not call back into this file.
    bool update(const std::function<bool(Json&)>& change);

    // The first corruption event not yet taken.
    std::optional<std::string> takeCorruptionReport();

    struct Impl;

private:
    std::unique_ptr<Impl> impl_;
};

}  // namespace vxcloud::detail
