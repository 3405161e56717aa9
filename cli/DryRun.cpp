#include "DryRun.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "Accounts.h"
#include "Output.h"
#include "StoredCopies.h"
#include "vxcloud/engine/UploadStatus.h"
#include "vxcloud/platform/ByteBuffer.h"

namespace vxcloud::cli {

using namespace uploadstatus;

namespace {

AccountOutcome planned(const VXCloudAccount& account, std::string text) {
    AccountOutcome outcome = accountOutcome(account);
    outcome.kind = AccountOutcome::Kind::planned;
    outcome.note = std::move(text);
    outcome.shown = outcome.note;
    return outcome;
}

std::string folderOf(const VXCloudAccount& account) { return uploadFolderPath(account).value_or("/"); }

}  // namespace

AccountOutcome plannedUpload(const VXCloudAccount& account, const Json& record, const std::string& documentPath,
                             const std::string& name, bool overwrite) {
    if (!uploadFolderPath(account)) {
        AccountOutcome outcome = accountOutcome(account);
        outcome.kind = AccountOutcome::Kind::failed;
        outcome.note = "would fail: it has no upload folder (choose one with: vxcloud folder '" + accountLabel(account) + "')";
        outcome.shown = outcome.note;
        return outcome;
    }
    const std::string folder = folderOf(account);
    const bool stored = record.is_object() && record.value(kStatus, "") == kSuccessful;
    if (!stored) {
        const std::string error = record.is_object() ? record.value(kError, "") : "";
        return planned(account, "would be sent to " + folder + " as " + name +
                                    (error.empty() ? "" : " (the last upload there failed: " + error + ")") +
                                    (overwrite ? ", replacing whatever is there under that name" : ""));
    }
    const auto data = ByteBuffer::mapFile(documentPath);
    if (data && changedSinceStored(account, record, *data)) {
        return planned(account, "would replace the copy in " + folder + " (changed here since it was stored" +
                                    (overwrite ? "; also when it was changed there)" : "), unless it was changed there too"));
    }
    return planned(account, "would be compared with the copy in " + folder + "; nothing is sent if it is the same" +
                                (overwrite ? ", else it is replaced" : ""));
}

AccountOutcome plannedRename(const VXCloudAccount& account, const std::string& newName) {
    return planned(account, "would be renamed to " + newName + " in " + folderOf(account));
}

AccountOutcome plannedMove(const VXCloudAccount& account, const std::string& fromPath, const std::string& toPath) {
    return planned(account, "would move from " + fromPath + " to " + toPath);
}

std::string dryRunText(const JobReport& report) {
    std::string out;
    for (const auto& document : report.documents) {
        out += printable(document.name) + ":\n";
        if (!document.problem.empty()) out += "  " + printable(document.problem) + "\n";
        std::size_t width = 0;
        for (const auto& account : document.accounts) width = std::max(width, displayWidth(printable(account.label)));
        for (const auto& account : document.accounts) {
            const std::string label = printable(account.label);
            out += "  " + label + std::string(width - displayWidth(label) + 2, ' ') + printable(account.shown) + "\n";
        }
    }
    return out + "Nothing was sent, changed or recorded (--dry-run).\n";
}

}  // namespace vxcloud::cli
