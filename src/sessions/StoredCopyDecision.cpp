#include "sessions/StoredCopyDecision.h"

#include "sessions/SessionSupport.h"

namespace vxcloud::sessions {

std::optional<std::string> wantedDigest(const VXCloudFile& document) {
    return document.localVersion ? document.localVersion : document.getVersionFromUploadStatus();
}

StoredCopyLookup pickStoredCopy(const VXCloudFileList& candidates, const std::optional<std::string>& digest,
                                const std::string& name, SameNamePick pick, bool checkFileVersion) {
    return pickStoredCopy(
        candidates,
        [&](const VXCloudFile& candidate) {
            return candidate.version && digest && equalsIgnoringCase(*candidate.version, *digest);
        },
        name, pick, checkFileVersion);
}

StoredCopyLookup pickStoredCopy(const VXCloudFileList& candidates,
                                const std::function<bool(const VXCloudFile&)>& holdsWanted, const std::string& name,
                                SameNamePick pick, bool checkFileVersion) {
    std::shared_ptr<VXCloudFile> sameName;
    for (const auto& candidate : candidates) {
        if (!candidate) continue;
        if (holdsWanted(*candidate)) return {candidate, nullptr};
        if (candidate->name == name && (pick == SameNamePick::last || !sameName)) sameName = candidate;
    }
    if (!sameName) return {};
    return {sameName, checkFileVersion ? makeError(ErrorCode::fileConflict) : nullptr};
}

StoredCopyHooks reportingTo(const std::shared_ptr<VXCloudSession>& session,
                            const std::shared_ptr<VXCloudFile>& document) {
    StoredCopyHooks hooks;
    hooks.progress = [session](std::int64_t current, std::int64_t total) { report::progress(session, current, total); };
    hooks.uploaded = [session, document] { report::uploaded(session, document); };
    hooks.failed = [session, document](const std::shared_ptr<VXCloudError>& error) {
        report::uploadFailed(session, document, error);
    };
    return hooks;
}

namespace {

bool digestMatches(const VXCloudFile& document, const VXCloudFile& copy) {
    return document.localVersion && copy.version && equalsIgnoringCase(*copy.version, *document.localVersion);
}

}  // namespace

void uploadDocument(VXCloudFile& document, bool overwrite, const StoredCopyHooks& hooks,
                    const StoredCopyRules& rules) {
    labelContentType(document);
    // Every path below but "found with the same content" sends the bytes.
    document.contentSent = true;
    const bool settings = document.name == rules.settingsName;
    if (!settings && !document.localVersion && !hasUploadStatus(document)) return hooks.create(overwrite);

    const StoredCopyLookup found = hooks.find(/*checkFileVersion=*/!settings);
    if (found.error) {
        const bool changedElsewhere = found.error->errorCode == ErrorCode::fileConflict && found.copy;
        if (!changedElsewhere || !overwrite) return hooks.failed(found.error);
        if (rules.overwriteChangedCopy == StoredCopyRules::OnChangedCopy::storeAnew) return hooks.create(false);
        return hooks.replace(found.copy);
    }
    // Gone from the folder: stored anew. Only the settings document may meet a same-named
    // one there that the lookup did not see.
    if (!found.copy) return hooks.create(settings);

    const bool same = rules.sameContent ? rules.sameContent(document, *found.copy) : digestMatches(document, *found.copy);
    // Nothing is sent for the same content, so the progress shows it done at once.
    if ((same || rules.progressBeforeReplacing) && document.fileData) {
        const auto length = static_cast<std::int64_t>(document.fileData->size());
        hooks.progress(length, length);
    }
    if (!same) return hooks.replace(found.copy);
    adoptServiceFields(document, *found.copy);
    document.contentSent = false;
    hooks.uploaded();
}

}  // namespace vxcloud::sessions
