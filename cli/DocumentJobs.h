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
class RecordStore;

struct JobOptions {
    std::vector<std::string> accountRefs;  // empty: every linked account
    bool overwrite = false;                // replace remote copies changed elsewhere
    int retries = 0;                       // failed transfers retried without asking
    std::chrono::seconds timeout{300};     // for the outcome of one request
    bool hints = true;                     // say which command or flag helps after a failure
    bool quiet = false;                    // say only what went wrong (-q, --json)
    bool dryRun = false;                   // say what would be done; send, change and record nothing
};

struct AccountOutcome {
    std::string accountKey;
    std::string label;
    std::string accountType;
    std::string accountId;
    // planned: what a dry run would do there.
    enum class Kind { done, unchanged, skipped, failed, planned } kind = Kind::failed;
    Json record;       // the account's final status record (null when skipped)
    std::string note;  // why it was skipped or failed, for people
    std::string shown;  // what its progress row ends with ("uploaded as a.pdf", "failed: the storage is full")
    std::int64_t bytesSent = 0;

    std::string word() const;  // "done", "unchanged", "skipped", "failed", "planned"
};

struct DocumentOutcome {
    std::string path;
    std::string name;
    std::string fileIdentifier;
    std::string problem;  // the document could not take part at all
    std::vector<AccountOutcome> accounts;

    bool ok() const;
};

// The outcome of the account, with nothing decided yet.
AccountOutcome accountOutcome(const VXCloudAccount& account);

struct JobReport {
    std::string action;  // "upload", "rename", "move"
    bool dryRun = false;
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
    // The records to read: null in a dry run when there are none yet (it creates nothing).
    RecordStore* readRecords();
    // The accounts that take part in an automatic request on the document now, each where
    // the document's copy is stored; the others are added to `document` as skipped.
    std::vector<std::shared_ptr<VXCloudAccount>> takingPart(DocumentOutcome& document,
                                                            const std::vector<std::shared_ptr<VXCloudAccount>>& accounts);
    // Runs request rounds until every account has an answer the person accepts.
    void runRounds(DocumentOutcome& document, std::vector<std::shared_ptr<VXCloudAccount>> accounts, bool rename,
                   const std::string& newName);
    // What runRounds would do on each account, for a dry run.
    void plan(DocumentOutcome& document, const std::vector<std::shared_ptr<VXCloudAccount>>& accounts, bool rename,
              const std::string& newName);

    HostContext& context_;
    Prompter& prompter_;
    std::shared_ptr<ProgressBoard> board_;
    JobOptions options_;
};

// A folder record for an account's upload folder info (nothing when incomplete).
std::shared_ptr<VXCloudFile> uploadFolderOf(const VXCloudAccount& account);

}  // namespace vxcloud::cli
