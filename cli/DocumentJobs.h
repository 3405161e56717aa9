#pragma once
// The host's requests on its documents, end to end: upload (to every eligible account),
// rename everywhere, move between two folders of an account. Each request passes the
// document's stored records to the component, waits for the outcome notification while
// driving the main queue, asks the person about conflicts and failures (or follows the
// flags), and reports per document and account.
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vxcloud/model/VXCloudAccount.h"
#include "vxcloud/model/VXCloudFile.h"
#include <nlohmann/json.hpp>

#include "vxcloud/platform/Json.h"

namespace vxcloud::cli {

class HostContext;
class Prompter;
class ProgressBoard;

struct JobOptions {
    std::vector<std::string> accountRefs;  // empty: every linked account
    bool overwrite = false;                // replace remote copies changed elsewhere
    int retries = 0;                       // failed transfers retried without asking
    std::chrono::seconds timeout{300};     // for the outcome of one request
    bool hints = true;                     // say which command or flag helps after a failure
    bool quiet = false;                    // say only what went wrong (-q, --json)
};

struct AccountOutcome {
    std::string accountKey;
    std::string label;
    std::string accountType;
    std::string accountId;
    enum class Kind { done, unchanged, skipped, failed } kind = Kind::failed;
    Json record;       // the account's final status record (null when skipped)
    std::string note;  // why it was skipped or failed, for people
    std::string shown;  // what its progress row ends with ("uploaded as a.pdf", "failed: the storage is full")
    std::int64_t bytesSent = 0;

    std::string word() const;  // "uploaded", "unchanged", "skipped", "failed" (or "renamed", "moved")
};

struct DocumentOutcome {
    std::string path;
    std::string name;
    std::string fileIdentifier;
    std::string problem;  // the document could not take part at all
    std::vector<AccountOutcome> accounts;

    bool ok() const;
};

struct JobReport {
    std::string action;  // "upload", "rename", "move"
    std::vector<DocumentOutcome> documents;

    bool ok() const;
    Json toJson(HostContext& context) const;
};

class DocumentJobs {
public:
    DocumentJobs(HostContext& context, Prompter& prompter, std::shared_ptr<ProgressBoard> board, JobOptions options);

    JobReport upload(const std::vector<std::string>& paths);
    JobReport rename(const std::string& path, const std::string& newName);
    // Moves the documents' copies on `account` from `fromFolder` (its upload folder when
    // null) to `toFolder`.
    JobReport move(const std::vector<std::string>& paths, const std::shared_ptr<VXCloudAccount>& account,
                   std::shared_ptr<VXCloudFile> fromFolder, const std::shared_ptr<VXCloudFile>& toFolder);

    struct Round;

private:
    DocumentOutcome uploadOne(const std::string& path);
    DocumentOutcome renameOne(const std::string& path, const std::string& newName);
    // Runs request rounds until every account has an answer the person accepts.
    void runRounds(DocumentOutcome& document, std::vector<std::shared_ptr<VXCloudAccount>> accounts, bool rename,
                   const std::string& newName);

    HostContext& context_;
    Prompter& prompter_;
    std::shared_ptr<ProgressBoard> board_;
    JobOptions options_;
};

// A folder record for an account's upload folder info (nothing when incomplete).
std::shared_ptr<VXCloudFile> uploadFolderOf(const VXCloudAccount& account);

}  // namespace vxcloud::cli
