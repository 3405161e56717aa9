#pragma once
// Is the document stored at the service already, and what then? The one table every
// session's upload of a document follows:
//
//   new document (no local fingerprint, no upload status)  -> create
//   stored before, or the settings document                 -> look for its stored copy,
//     by digest, then by name:
//       lookup failed                                       -> failed
//       same name, other content, overwrite                 -> replace that copy
//       same name, other content, no overwrite              -> failed (conflict)
//       nothing found                                       -> create
//       found, same content                                 -> nothing sent; reported done
//       found, other content                                -> replace that copy
//
// The settings document is one per account: even when new it is looked for by name and its
// content replaced, and it is never a conflict. Services differ in how they look, create and
// replace (the hooks) and in a few rules (StoredCopyRules); both say so where they are made.
//
// Only public headers are included, so the engine's own tests can use it directly.
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "vxcloud/model/VXCloudError.h"
#include "vxcloud/model/VXCloudFile.h"
#include "vxcloud/sessions/VXCloudSession.h"

namespace vxcloud::sessions {

// What looking for a document's stored copy found.
struct StoredCopyLookup {
    // The stored copy as a record (name, id, path, version), when one was found.
    std::shared_ptr<VXCloudFile> copy;
    // The lookup failed; or, beside `copy`, `fileConflict`: a document of the stored name
    // holds other content (it was changed elsewhere).
    std::shared_ptr<VXCloudError> error;
};

// Which of several same-named stored documents counts when none matches by digest.
enum class SameNamePick { first, last };

// The digest a stored copy is looked for by: the local content's fingerprint, else the
// version recorded at the last upload.
std::optional<std::string> wantedDigest(const VXCloudFile& document);

// Among the service's candidates (records of its stored items, in its order, null ones
// skipped): the first whose version equals `digest` ignoring letter case, at once; else the
// first or last named exactly `name`, beside a `fileConflict` error when `checkFileVersion`.
StoredCopyLookup pickStoredCopy(const VXCloudFileList& candidates, const std::optional<std::string>& digest,
                                const std::string& name, SameNamePick pick, bool checkFileVersion);
// The same, with the service's own test of whether a candidate holds the wanted content.
StoredCopyLookup pickStoredCopy(const VXCloudFileList& candidates,
                                const std::function<bool(const VXCloudFile&)>& holdsWanted, const std::string& name,
                                SameNamePick pick, bool checkFileVersion);

// The service's steps for one upload. `create` and `replace` report their own outcome.
struct StoredCopyHooks {
    // Looks for the document's stored copy in the upload's folder (by digest, then by name);
    // with `checkFileVersion` false a same-named copy is found without a conflict.
    std::function<StoredCopyLookup(bool checkFileVersion)> find;
    // Stores the document as a new one. `mayWriteOver`: a same-named document at the same
    // place may be written over (services that address by path, or refuse a clash, need it).
    std::function<void(bool mayWriteOver)> create;
    // Gives the stored copy the document's content: in place, keeping its id, or by deleting
    // and re-creating it, as the service can.
    std::function<void(const std::shared_ptr<VXCloudFile>& copy)> replace;
    // The reports of what the decision itself answers.
    std::function<void(std::int64_t current, std::int64_t total)> progress;
    std::function<void()> uploaded;  // the caller's record, with the stored copy's fields
    std::function<void(const std::shared_ptr<VXCloudError>& error)> failed;
};

// Report hooks that go to the session's delegates, about `document`.
StoredCopyHooks reportingTo(const std::shared_ptr<VXCloudSession>& session,
                            const std::shared_ptr<VXCloudFile>& document);

// Where services differ in the table.
struct StoredCopyRules {
    // The account's settings document.
    std::string settingsName = ".quillosettings";
    // Whether the found copy already holds the document's content, so nothing is sent.
    // By default: the document has a local fingerprint and the copy's version equals it,
    // ignoring letter case.
    std::function<bool(const VXCloudFile& document, const VXCloudFile& copy)> sameContent;
    // What overwriting does to a same-named copy with other content: replace it, or store
    // the document anew beside or over it through `create`.
    enum class OnChangedCopy { replaceCopy, storeAnew } overwriteChangedCopy = OnChangedCopy::replaceCopy;
    // Whether a found copy that is replaced also gets the one (length, length) progress
    // report an unchanged one gets.
    bool progressBeforeReplacing = false;
};

// Decides for `document` (not a folder) and runs the service's step for it. `document` is
// the caller's record; a document without a content type is labelled with the one its data
// starts like first (labelContentType), so every service stores a scan as a PDF.
void uploadDocument(VXCloudFile& document, bool overwrite, const StoredCopyHooks& hooks,
                    const StoredCopyRules& rules = {});

}  // namespace vxcloud::sessions
