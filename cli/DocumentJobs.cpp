#include "DocumentJobs.h"

#include <sys/stat.h>

#include <algorithm>
#include <deque>
#include <map>
#include <nlohmann/json.hpp>

#include "Accounts.h"
#include "CliError.h"
#include "Documents.h"
#include "DryRun.h"
#include "HostContext.h"
#include "Output.h"
#include "Paths.h"
#include "Progress.h"
#include "Prompts.h"
#include "SessionCalls.h"
#include "StoredCopies.h"
#include "vxcloud/engine/UploadStatus.h"
#include "vxcloud/engine/VXCloudTaskManager.h"
#include "vxcloud/engine/VXCloudUtils.h"
#include "vxcloud/model/VXCloudConstants.h"
#include "vxcloud/platform/Dispatch.h"
#include "vxcloud/platform/Reachability.h"

namespace vxcloud::cli {

using namespace uploadstatus;

namespace {

std::string text(const Json& object, const char* key) {
    if (!object.is_object()) return {};
    const auto it = object.find(key);
    return it != object.end() && it->is_string() ? it->get<std::string>() : std::string();
}

bool recordIsFor(const Json& record, const VXCloudAccount& account) {
    return text(record, kAccountType) == account.accountType() && text(record, kAccountId) == account.email;
}

// The stored record of the document for the account, or null.
Json recordFor(const Json& records, const VXCloudAccount& account) {
    if (records.is_array())
        for (const auto& record : records)
            if (recordIsFor(record, account)) return record;
    return Json();
}

// Why the account does not take part in automatic requests right now, or nothing.
std::optional<std::string> skipReason(const VXCloudAccount& account, std::optional<NetworkPath>& network) {
    if (auto refusal = autoUploadRefusal(account)) return refusal;
    if (!account.shouldAutoUpload) {
        return "automatic upload is off (turn it on with: vxcloud settings '" + accountLabel(account) +
               "' --auto-upload on)";
    }
    if (account.onlyWifiUpload) {
        if (!network) network = Reachability::current();
        if (*network != NetworkPath::wifi) {
            return std::string("it only uploads on Wi-Fi and this machine is ") +
                   (*network == NetworkPath::cellular ? "on a cellular network" : "offline") +
                   " (change with: vxcloud settings '" + accountLabel(account) + "' --wifi-only off)";
        }
    }
    return std::nullopt;
}

// A short phrase for a progress row; the full text comes after.
std::string shortFailure(const std::string& word) {
    const auto code = VXCloudError::fromString(word);
    if (!code) return "failed";
    switch (*code) {
        case ErrorCode::authentication: return "failed: the account needs to be linked again";
        case ErrorCode::connection: return "failed: could not reach the service";
        case ErrorCode::fileConflict: return "conflict: the copy there was changed elsewhere";
        case ErrorCode::fileUpload: return "failed";
        case ErrorCode::monthlyQuotaReached: return "failed: the monthly upload allowance is used up";
        case ErrorCode::missingFolder: return "failed: the upload folder is missing";
        case ErrorCode::renameFailed: return "failed: a file with the new name exists there";
        case ErrorCode::storageQuotaReached: return "failed: the storage is full";
    }
    return "failed";
}

// "Evernote asks to wait 25 min before trying again", when the record names a wait.
std::string waitPhrase(const Json& record, const VXCloudAccount& account) {
    const auto wait = record.is_object() ? record.find(kRetryAfter) : record.end();
    if (wait == record.end() || !wait->is_number_integer() || wait->get<std::int64_t>() <= 0) return {};
    const std::int64_t seconds = wait->get<std::int64_t>();
    const std::string amount = seconds < 120 ? std::to_string(seconds) + " s" : std::to_string((seconds + 59) / 60) + " min";
    return displayName(account.cloudService) + " asks to wait " + amount + " before trying again";
}

// What a person can do about a failure the component has no question for.
std::string hintFor(ErrorCode code, const VXCloudAccount& account) {
    const std::string label = "'" + accountLabel(account) + "'";
    switch (code) {
        case ErrorCode::authentication: return "Link it again with: vxcloud link " + account.accountType();
        case ErrorCode::missingFolder: return "Choose a folder with: vxcloud folder " + label;
        case ErrorCode::fileConflict:
        case ErrorCode::renameFailed: return "Run again with --overwrite to replace the copy there.";
        case ErrorCode::fileUpload:
        case ErrorCode::connection: return "Run again (or with --retries N) to try once more.";
        default: return {};
    }
}

std::int64_t fileSize(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 ? static_cast<std::int64_t>(info.st_size) : 0;
}

// Keeps the account's last error the way the settings screen shows it: set by failures
// that block the account, cleared by a success. Only the error changes in the store, so a
// name or folder changed meanwhile by another run stays.
void noteAccountOutcome(const VXCloudAccount& account, const std::optional<ErrorCode>& failure) {
    const bool blocking = failure && (*failure == ErrorCode::authentication || *failure == ErrorCode::missingFolder ||
                                      *failure == ErrorCode::storageQuotaReached ||
                                      *failure == ErrorCode::monthlyQuotaReached);
    // Most outcomes change nothing: the store is written only when the error changes.
    const auto current = reloadAccount(account.key());
    if (!current) return;
    const bool clears = !failure && current->error;
    const bool sets = blocking && (!current->error || current->error->errorCode != *failure);
    if (!clears && !sets) return;
    VXCloudUserDefaults::updateCloudAccount(account.key(), [&](VXCloudAccount& stored) {
        if (failure) {
            stored.error = std::make_shared<VXCloudError>(*failure);
        } else {
            stored.error.reset();
        }
    });
}

}  // namespace

// ------------------------------------------------------------------ report types

AccountOutcome accountOutcome(const VXCloudAccount& account) {
    AccountOutcome o;
    o.accountKey = account.key();
    o.label = accountLabel(account);
    o.accountType = account.accountType();
    o.accountId = account.email;
    return o;
}

std::string AccountOutcome::word() const {
    switch (kind) {
        case Kind::done: return "done";
        case Kind::unchanged: return "unchanged";
        case Kind::skipped: return "skipped";
        case Kind::failed: return "failed";
        case Kind::planned: return "planned";
    }
    return "failed";
}

bool DocumentOutcome::ok() const {
    if (!problem.empty()) return false;
    bool anyTookPart = false;
    for (const auto& account : accounts) {
        if (account.kind == AccountOutcome::Kind::failed) return false;
        if (account.kind != AccountOutcome::Kind::skipped) anyTookPart = true;
    }
    return anyTookPart;
}

bool JobReport::ok() const {
    if (documents.empty()) return false;
    for (const auto& document : documents)
        if (!document.ok()) return false;
    return true;
}

Json JobReport::toJson(HostContext& context) const {
    Json out = {{"action", action}, {"ok", ok()}, {"documents", Json::array()}};
    if (dryRun) out["dryRun"] = true;
    for (const auto& document : documents) {
        Json entry = {{"path", document.path}, {"name", document.name}, {"fileIdentifier", document.fileIdentifier},
                      {"ok", document.ok()}, {"accounts", Json::array()}};
        if (!document.problem.empty()) entry["problem"] = document.problem;
        for (const auto& account : document.accounts) {
            Json a = {{"account", account.label},  {"accountType", account.accountType}, {"accountId", account.accountId},
                      {"outcome", account.word()}, {"record", account.record}};
            if (!account.note.empty()) a["note"] = account.note;
            if (account.kind == AccountOutcome::Kind::done) a["bytesSent"] = account.bytesSent;
            entry["accounts"].push_back(std::move(a));
        }
        // The records as the host now keeps them, for scripts that read them back.
        entry["records"] = Json::array();
        if (!document.fileIdentifier.empty() && !dryRun) {
            if (const auto row = context.records().documentByIdentifier(document.fileIdentifier))
                entry["records"] = context.records().recordsForComponent(row->id);
        }
        out["documents"].push_back(std::move(entry));
    }
    return out;
}

std::shared_ptr<VXCloudFile> uploadFolderOf(const VXCloudAccount& account) {
    return initUploadFolderFromDictionary(account.uploadFolderInfo);
}

// -------------------------------------------------------------------- the jobs

DocumentJobs::DocumentJobs(HostContext& context, Prompter& prompter, std::shared_ptr<ProgressBoard> board,
                           JobOptions options)
    : context_(context), prompter_(prompter), board_(std::move(board)), options_(std::move(options)) {}

JobReport DocumentJobs::upload(const std::vector<std::string>& paths) {
    JobReport report{"upload", options_.dryRun, {}};
    for (const auto& path : paths) report.documents.push_back(uploadOne(path));
    return report;
}

JobReport DocumentJobs::rename(const std::string& path, const std::string& newName) {
    return JobReport{"rename", options_.dryRun, {renameOne(path, newName)}};
}

RecordStore* DocumentJobs::readRecords() {
    return options_.dryRun ? context_.existingRecords() : &context_.records();
}

DocumentOutcome DocumentJobs::uploadOne(const std::string& path) {
    DocumentOutcome document;
    document.path = absolutePath(path);
    document.name = baseName(document.path);
    if (auto problem = documentProblem(path)) {
        // Nothing is recorded for a document that cannot be read: the other documents'
        // records, and this one's earlier ones, stay as they were.
        document.problem = *problem;
        warn(*problem);
        return document;
    }
    // A dry run enters no document: a new one simply has no records yet.
    std::optional<DocumentRow> row;
    if (!options_.dryRun) {
        row = context_.records().ensureDocument(document.path, document.name);
    } else if (auto* records = readRecords()) {
        row = records->documentByPath(document.path);
    }
    if (row) {
        document.name = row->name;
        document.fileIdentifier = row->fileIdentifier;
    }

    AccountList targets = options_.accountRefs.empty() ? linkedAccounts() : resolveAccounts(options_.accountRefs);
    if (targets.empty()) {
        document.problem = "no account is linked; link one with: vxcloud link SERVICE";
        warn(document.problem);
        return document;
    }
    runRounds(document, std::move(targets), false, {});
    return document;
}

DocumentOutcome DocumentJobs::renameOne(const std::string& path, const std::string& newName) {
    DocumentOutcome document;
    document.path = absolutePath(path);
    document.name = baseName(document.path);
    auto* store = readRecords();
    const auto row = store ? store->documentByPath(document.path) : std::nullopt;
    if (!row) {
        document.problem = document.path + " was never uploaded, so there is nothing to rename; upload it first";
        warn(document.problem);
        return document;
    }
    document.name = row->name;
    document.fileIdentifier = row->fileIdentifier;
    if (row->name == newName) {
        document.problem = "the document is already called \"" + newName + "\"";
        warn(document.problem);
        return document;
    }
    // Only accounts holding a copy can rename it; the component would wait forever for an
    // account whose records do not name the stored document.
    const Json records = store->recordsForComponent(row->id);
    AccountList targets = options_.accountRefs.empty() ? linkedAccounts() : resolveAccounts(options_.accountRefs);
    AccountList holding;
    for (const auto& account : targets) {
        const Json record = recordFor(records, *account);
        if (record.is_object() && record.contains(kDocumentId) && record[kDocumentId].is_string()) {
            holding.push_back(account);
        } else if (!options_.accountRefs.empty()) {
            AccountOutcome skipped = accountOutcome(*account);
            skipped.kind = AccountOutcome::Kind::skipped;
            skipped.note = "no copy of the document is stored there";
            skipped.shown = "skipped: " + skipped.note;
            document.accounts.push_back(std::move(skipped));
        }
    }
    if (holding.empty()) {
        document.problem = "no linked account holds a copy of " + document.name + "; upload it first";
        warn(document.problem);
        return document;
    }
    runRounds(document, std::move(holding), true, newName);
    return document;
}

AccountList DocumentJobs::takingPart(DocumentOutcome& document, const AccountList& accounts) {
    // Accounts that cannot take part are reported, and never handed to the component.
    std::optional<NetworkPath> network;
    AccountList eligible;
    for (const auto& account : accounts) {
        if (auto reason = skipReason(*account, network)) {
            AccountOutcome skipped = accountOutcome(*account);
            skipped.kind = AccountOutcome::Kind::skipped;
            skipped.note = *reason;
            skipped.shown = "skipped: " + skipped.note;
            document.accounts.push_back(std::move(skipped));
            continue;
        }
        eligible.push_back(account);
    }
    if (!options_.quiet && !options_.dryRun) {
        for (const auto& skipped : document.accounts) say("  skipped " + printable(skipped.label) + ": " + skipped.note);
    }
    if (eligible.empty()) {
        document.problem = "no account takes part: automatic upload is off, or not possible, for every linked account";
        warn(document.problem);
        return eligible;
    }
    // A copy moved to another folder is updated (or renamed) where it is.
    auto* records = readRecords();
    if (const auto row = records && !document.fileIdentifier.empty() ? records->documentByIdentifier(document.fileIdentifier)
                                                                     : std::nullopt) {
        eligible = atStoredFolders(eligible, records->records(row->id));
    }
    return eligible;
}

void DocumentJobs::plan(DocumentOutcome& document, const AccountList& accounts, bool rename, const std::string& newName) {
    auto* records = readRecords();
    const auto row = records && !document.fileIdentifier.empty() ? records->documentByIdentifier(document.fileIdentifier)
                                                                 : std::nullopt;
    const Json stored = row ? records->recordsForComponent(row->id) : Json::array();
    for (const auto& account : accounts) {
        document.accounts.push_back(rename ? plannedRename(*account, newName)
                                           : plannedUpload(*account, recordFor(stored, *account), document.path,
                                                           document.name, options_.overwrite));
    }
}

void DocumentJobs::runRounds(DocumentOutcome& document, AccountList accounts, bool rename, const std::string& newName) {
    AccountList eligible = takingPart(document, accounts);
    if (eligible.empty()) return;
    if (options_.dryRun) return plan(document, eligible, rename, newName);
    auto& records = context_.records();
    auto& keeper = context_.keeper();
    const auto manager = VXCloudTaskManager::sharedInstance();

    struct Pass {
        AccountList accounts;
        bool overwrite;
        std::string title;
    };
    const std::string verb = rename ? "Renaming " + document.name + " to " + newName
                                    : "Uploading " + document.name + " (" + humanBytes(fileSize(document.path)) + ")";
    std::deque<Pass> passes{{eligible, options_.overwrite, verb}};
    int retriesLeft = options_.retries;
    // Each account's latest outcome, in the order the accounts were first tried.
    std::vector<AccountOutcome> finals;
    const auto setFinal = [&finals](AccountOutcome outcome) {
        for (auto& existing : finals) {
            if (existing.accountKey == outcome.accountKey) {
                existing = std::move(outcome);
                return;
            }
        }
        finals.push_back(std::move(outcome));
    };
    const std::int64_t size = fileSize(document.path);
    const std::string documentPath = document.path;
    const CreatePDFBlock createPDF = [documentPath]() -> std::optional<std::string> {
        // The host's document on disk is the content to store again under the new name.
        if (documentProblem(documentPath)) return std::nullopt;
        return documentPath;
    };

    for (int round = 0; !passes.empty() && round < 10; ++round) {
        Pass pass = std::move(passes.front());
        passes.pop_front();
        const auto row = records.documentByIdentifier(document.fileIdentifier);
        if (!row) break;
        const Json before = records.recordsForComponent(row->id);

        std::vector<BoardRow> rows;
        for (const auto& account : pass.accounts) {
            rows.push_back({account->key(), accountLabel(*account), displayName(account->cloudService)});
            keeper.expectFolder(document.fileIdentifier, account->accountType(), account->email,
                                uploadFolderPath(*account).value_or(""));
        }
        board_->begin({pass.title, Json{{"action", rename ? "rename" : "upload"}, {"document", document.name}}, "account",
                       rename ? 0 : size},
                      rows);
        context_.setProgressReceiver(board_);

        const JsonBox previous = before.empty() ? JsonBox() : JsonBox(before);
        const Json identifier = document.fileIdentifier;
        // A document edited here since it was stored is found by the version recorded for
        // it, not by its new content: the copy still holding that version is replaced, and
        // only a copy changed elsewhere is a conflict. Unedited documents compare their
        // content, so nothing is sent when it is there.
        AccountList comparing, edited;
        if (!rename) {
            const auto data = ByteBuffer::mapFile(row->path);
            for (const auto& account : pass.accounts) {
                const bool changed = data && changedSinceStored(*account, recordFor(before, *account), *data);
                (changed ? edited : comparing).push_back(account);
            }
        }
        std::vector<Json> returned;
        auto started = [&](const Json& answer) {
            for (const auto& record : answer) returned.push_back(record);
        };
        if (rename) {
            started(manager->renameWithNewFilename(newName, previous, pass.overwrite, identifier, pass.accounts, createPDF));
        } else {
            if (!comparing.empty()) {
                started(manager->uploadWithFilename(row->name, row->path, previous, pass.overwrite, identifier, comparing,
                                                    true));
            }
            if (!edited.empty()) {
                started(manager->uploadWithFilename(row->name, row->path, previous, pass.overwrite, identifier, edited,
                                                    false));
            }
        }
        std::map<std::string, Json> answers;
        std::size_t waiting = 0;
        for (const auto& record : returned) {
            if (text(record, kStatus) == kPending) {
                ++waiting;
                continue;
            }
            // Failures found before any transfer (no folder, unreadable data).
            records.mergeRecord(row->id, record);
            for (const auto& account : pass.accounts)
                if (recordIsFor(record, *account)) answers[account->key()] = record;
        }
        // Each request's outcomes come in one notification; wait until every account answered.
        while (waiting > 0) {
            if (!waitWhileMoving([&] { return keeper.hasOutcome(document.fileIdentifier); }, options_.timeout,
                                 board_.get())) {
                break;
            }
            for (const auto& record : keeper.takeOutcome(document.fileIdentifier)) {
                for (const auto& account : pass.accounts) {
                    if (!recordIsFor(record, *account)) continue;
                    if (!answers.count(account->key()) && waiting > 0) --waiting;
                    answers[account->key()] = record;
                }
            }
        }
        context_.setProgressReceiver(nullptr);

        AccountList conflicts, retryable;
        std::vector<std::pair<std::shared_ptr<VXCloudAccount>, ErrorCode>> failures;
        for (const auto& account : pass.accounts) {
            AccountOutcome outcome = accountOutcome(*account);
            const auto answer = answers.find(account->key());
            if (answer == answers.end()) {
                outcome.kind = AccountOutcome::Kind::failed;
                outcome.note = "no answer from the service while nothing moved";
                outcome.shown = "failed: " + outcome.note;
                board_->finishRow(account->key(), outcome.shown, outcome.word());
                setFinal(std::move(outcome));
                continue;
            }
            outcome.record = answer->second;
            if (text(outcome.record, kStatus) == kSuccessful) {
                const Json older = recordFor(before, *account);
                const std::string storedAs = text(outcome.record, kDocumentId);
                // What happened comes from the session's answer: whether the bytes went out.
                const auto sent = outcome.record.find(kContentSent);
                const bool known = sent != outcome.record.end() && sent->is_boolean();
                const bool nothingWentOut = !rename && known && !sent->get<bool>();
                // Found stored under the same name, or (a first upload) under another one.
                const bool unchanged = nothingWentOut && (text(older, kDocumentId) == storedAs ||
                                                          (text(older, kDocumentId).empty() && storedAs == row->name));
                const bool foundElsewhere = nothingWentOut && !unchanged;
                const bool nothingSent = unchanged || foundElsewhere;
                outcome.kind = nothingSent ? AccountOutcome::Kind::unchanged : AccountOutcome::Kind::done;
                outcome.bytesSent = nothingSent ? 0 : board_->bytesReported(account->key());
                // Evernote's session reports no progress: a document it says it sent went out whole.
                if (!rename && known && sent->get<bool>()) outcome.bytesSent = std::max<std::int64_t>(outcome.bytesSent, size);
                if (unchanged) {
                    outcome.note = "unchanged, nothing sent";
                } else if (foundElsewhere) {
                    outcome.note = "already there as " + storedAs + " (same content), nothing sent";
                } else {
                    outcome.note = (rename ? "renamed to " : "uploaded as ") + storedAs +
                                   (rename ? "" : " (" + humanBytes(size) + ")");
                }
                outcome.shown = outcome.note;
                board_->finishRow(account->key(), outcome.shown, outcome.word());
                noteAccountOutcome(*account, std::nullopt);
            } else {
                const std::string word = text(outcome.record, kError);
                outcome.kind = AccountOutcome::Kind::failed;
                outcome.note = word.empty() ? "failed" : word;
                // A service that limits requests says how long to wait; a retry before then fails.
                const std::string wait = waitPhrase(outcome.record, *account);
                if (!wait.empty()) outcome.note += "; " + wait;
                outcome.shown = shortFailure(word) + (wait.empty() ? "" : "; " + wait);
                board_->finishRow(account->key(), outcome.shown, outcome.word());
                const ErrorCode code = VXCloudError::fromString(word).value_or(ErrorCode::fileUpload);
                failures.emplace_back(account, code);
                noteAccountOutcome(*account, code);
            }
            setFinal(std::move(outcome));
        }
        board_->end();

        // The person decides what happens to the failures (or the flags did already), once
        // for all the accounts that failed the same way.
        std::vector<std::pair<ErrorCode, AccountList>> groups;
        for (const auto& [account, code] : failures) {
            auto group = std::find_if(groups.begin(), groups.end(), [&](const auto& g) { return g.first == code; });
            if (group == groups.end()) group = groups.insert(groups.end(), {code, {}});
            group->second.push_back(account);
        }
        const bool retryThisTime = retriesLeft > 0;
        for (const auto& [code, failed] : groups) {
            std::string labels;
            for (const auto& account : failed) labels += (labels.empty() ? "" : ", ") + accountLabel(*account);
            if (!context_.json()) say(labels + ": " + errorText(code));
            const bool overwriteQuestion = code == ErrorCode::fileConflict || (rename && code == ErrorCode::renameFailed);
            const bool retryQuestion = code == ErrorCode::fileUpload || code == ErrorCode::connection;
            auto& next = overwriteQuestion ? conflicts : retryable;
            if (overwriteQuestion && !pass.overwrite) {
                const auto answer = prompter_.choose("", {VXCloudString::OVERWRITE(), VXCloudString::CANCEL()});
                if (answer && *answer == 0) {
                    next.insert(next.end(), failed.begin(), failed.end());
                    continue;
                }
            } else if (retryQuestion) {
                std::optional<std::size_t> answer;
                if (!retryThisTime) answer = prompter_.choose("", {VXCloudString::RETRY(), VXCloudString::CANCEL()});
                if (retryThisTime || (answer && *answer == 0)) {
                    next.insert(next.end(), failed.begin(), failed.end());
                    continue;
                }
            }
            if (!context_.json()) {
                const std::string hint = hintFor(code, *failed.front());
                if (options_.hints && !hint.empty() && !(overwriteQuestion && pass.overwrite)) say("  " + hint);
            }
        }
        if (retryThisTime && !retryable.empty()) --retriesLeft;
        if (!conflicts.empty()) passes.push_back({conflicts, true, VXCloudString::OVERWRITE() + ": " + verb});
        if (!retryable.empty()) passes.push_back({retryable, pass.overwrite, VXCloudString::RETRY() + ": " + verb});
    }

    for (auto& outcome : finals) document.accounts.push_back(std::move(outcome));
    if (rename) {
        const bool anyRenamed = std::any_of(document.accounts.begin(), document.accounts.end(),
                                            [](const auto& a) { return a.kind == AccountOutcome::Kind::done; });
        if (anyRenamed) {
            if (const auto row = records.documentByIdentifier(document.fileIdentifier)) {
                records.setDocumentName(row->id, newName);
                document.name = newName;
            }
        }
    }
}

JobReport DocumentJobs::move(const std::vector<std::string>& paths, const std::shared_ptr<VXCloudAccount>& account,
                             std::shared_ptr<VXCloudFile> fromFolder, const std::shared_ptr<VXCloudFile>& toFolder) {
    JobReport report{"move", options_.dryRun, {}};
    const std::string label = accountLabel(*account);
    std::optional<NetworkPath> network;
    if (auto reason = skipReason(*account, network)) {
        throw CliError("documents on " + label + " cannot be moved now: " + *reason);
    }
    if (!fromFolder) fromFolder = uploadFolderOf(*account);
    if (!fromFolder) throw CliError(label + " has no upload folder to move from; name one with --from PATH", kExitUsage);
    const std::string fromPath = fromFolder->path.value_or("/").empty() ? "/" : fromFolder->path.value_or("/");
    const std::string toPath = toFolder->path.value_or("/").empty() ? "/" : toFolder->path.value_or("/");
    if (fromPath == toPath) throw CliError("the documents are to move from " + fromPath + " to itself", kExitUsage);

    auto* store = readRecords();
    VXCloudFileList files;
    std::vector<std::size_t> taking;  // indices of report.documents that take part
    for (const auto& path : paths) {
        DocumentOutcome document;
        document.path = absolutePath(path);
        document.name = baseName(document.path);
        const auto row = store ? store->documentByPath(document.path) : std::nullopt;
        const Json record = row ? recordFor(store->recordsForComponent(row->id), *account) : Json();
        if (row) {
            document.name = row->name;
            document.fileIdentifier = row->fileIdentifier;
        }
        if (!row || !record.is_object() || !record.contains(kDocumentId) || !record[kDocumentId].is_string()) {
            document.problem = document.path + " has no copy on " + label + " to move";
            warn(document.problem);
            report.documents.push_back(std::move(document));
            continue;
        }
        auto file = std::make_shared<VXCloudFile>(record[kDocumentId].get<std::string>(), false, false);
        file->fileIdentifier = Json(row->fileIdentifier);
        file->fileUploadStatus = record;
        files.push_back(std::move(file));
        if (options_.dryRun) document.accounts.push_back(plannedMove(*account, fromPath, toPath));
        taking.push_back(report.documents.size());
        report.documents.push_back(std::move(document));
    }
    if (files.empty() || options_.dryRun) return report;

    auto& records = context_.records();
    for (const auto index : taking) {
        context_.keeper().expectFolder(report.documents[index].fileIdentifier, account->accountType(), account->email,
                                       toPath);
    }

    std::vector<BoardRow> rows;
    for (const auto index : taking) rows.push_back({report.documents[index].fileIdentifier, report.documents[index].name, {}});
    board_->begin({"Moving on " + label + " from " + fromPath + " to " + toPath,
                   Json{{"action", "move"}, {"account", label}, {"from", fromPath}, {"to", toPath}}, "document", 0},
                  rows);

    const Json returned = VXCloudTaskManager::sharedInstance()->moveWithCloudFiles(files, fromFolder, toFolder, account);
    std::map<std::string, Json> answers;
    std::vector<std::string> waitingFor;
    for (const auto& entry : returned) {
        const std::string id = text(entry, kFileIdentifier);
        const Json record = entry.is_object() && entry.contains(kUploadStatus) ? entry[kUploadStatus] : Json();
        if (text(record, kStatus) == kPending) {
            waitingFor.push_back(id);
        } else if (const auto row = records.documentByIdentifier(id)) {
            records.mergeRecord(row->id, record);
            answers[id] = record;
        }
    }
    auto& keeper = context_.keeper();
    waitWhileMoving(
        [&] {
            return std::all_of(waitingFor.begin(), waitingFor.end(), [&](const auto& id) { return keeper.hasOutcome(id); });
        },
        options_.timeout, board_.get());
    for (const auto& id : waitingFor)
        for (const auto& record : keeper.takeOutcome(id)) answers[id] = record;

    bool failed = false;
    for (const auto index : taking) {
        DocumentOutcome& document = report.documents[index];
        AccountOutcome outcome = accountOutcome(*account);
        const auto answer = answers.find(document.fileIdentifier);
        if (answer == answers.end()) {
            outcome.kind = AccountOutcome::Kind::failed;
            outcome.note = "no answer from the service while nothing moved";
        } else {
            outcome.record = answer->second;
            const bool moved = text(outcome.record, kStatus) == kSuccessful;
            outcome.kind = moved ? AccountOutcome::Kind::done : AccountOutcome::Kind::failed;
            outcome.note = moved ? "moved to " + toPath
                                 : "not moved (" + (text(outcome.record, kError).empty() ? std::string("failed")
                                                                                          : text(outcome.record, kError)) +
                                       ")";
        }
        failed = failed || outcome.kind == AccountOutcome::Kind::failed;
        outcome.shown = outcome.note;
        board_->finishRow(document.fileIdentifier, outcome.shown, outcome.word());
        document.accounts.push_back(std::move(outcome));
    }
    board_->end();
    if (failed && !context_.json()) {
        say("Some documents could not be moved: is each one in " + fromPath + " on " + label +
            ", and is nothing of the same name in " + toPath + "?");
    }
    return report;
}

}  // namespace vxcloud::cli
