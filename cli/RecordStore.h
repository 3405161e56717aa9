#pragma once
// The host's records of its documents: for each document (keyed by its absolute path) its
// name, its fileIdentifier and, per account, the latest upload status record the component
// returned, in one SQLite database. The records are passed back to the component on the
// next upload, rename or move of the document.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "vxcloud/platform/Json.h"

struct sqlite3;

namespace vxcloud::cli {

struct DocumentRow {
    std::int64_t id = 0;
    std::string path;            // absolute path of the local document
    std::string name;            // the name the document is stored under
    std::string fileIdentifier;  // the handle the component echoes back
    std::int64_t createdAt = 0;
    std::int64_t updatedAt = 0;
};

struct RecordRow {
    std::string accountType;
    std::string accountId;
    Json record;  // a JSON object; null when the stored text could not be read
    std::optional<std::string> folderPath;  // where the document was last stored on the account
    std::int64_t updatedAt = 0;
};

class RecordStore {
public:
    // Opens (and creates) the database; throws CliError with a readable reason when the
    // file cannot be opened or is not a records database.
    explicit RecordStore(std::string path);
    ~RecordStore();
    RecordStore(const RecordStore&) = delete;
    RecordStore& operator=(const RecordStore&) = delete;

    const std::string& path() const { return path_; }

    std::optional<DocumentRow> documentByPath(const std::string& path);
    std::optional<DocumentRow> documentByIdentifier(const std::string& fileIdentifier);
    // The document at `path`, entered with `name` and a new identifier when it is new.
    DocumentRow ensureDocument(const std::string& path, const std::string& name);
    void setDocumentName(std::int64_t documentId, const std::string& name);
    std::vector<DocumentRow> documents();

    std::vector<RecordRow> records(std::int64_t documentId);
    // The document's readable records as the JSON array the component takes back.
    Json recordsForComponent(std::int64_t documentId);
    // Writes `record` over the stored record of its account ("accountType", "accountId"):
    // keys of the new record win, keys only the old one has survive, a null value removes
    // a key. The folder is kept when not given. False for a record without an account.
    bool mergeRecord(std::int64_t documentId, const Json& record,
                     const std::optional<std::string>& folderPath = std::nullopt);
    // Forgets what the host knew about an account's copies; returns how many records went.
    int removeAccountRecords(const std::string& accountType, const std::string& accountId);
    // Documents with a stored copy on the account, in `folderPath` when given.
    std::vector<DocumentRow> documentsOnAccount(const std::string& accountType, const std::string& accountId,
                                                const std::optional<std::string>& folderPath);

private:
    // The schema version the file says it has; throws CliError when it is newer than this one.
    std::int64_t schemaVersion();
    void exec(const char* sql, const char* what);
    [[noreturn]] void fail(const std::string& what) const;

    std::string path_;
    sqlite3* db_ = nullptr;
};

// Keys of a new record win over an old one; null values remove keys.
Json mergeRecords(const Json& older, const Json& newer);

}  // namespace vxcloud::cli
