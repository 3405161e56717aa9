#include "RecordStore.h"

#include <sqlite3.h>

#include <nlohmann/json.hpp>
#include <random>
#include <utility>

#include "CliError.h"
#include "Output.h"
#include "Paths.h"
#include "vxcloud/engine/UploadStatus.h"

namespace vxcloud::cli {

namespace {

constexpr int kSchemaVersion = 1;
// How long a process waits for another one's write before giving up.
constexpr int kBusyTimeoutMs = 15000;

constexpr const char* kSchema = R"sql(
CREATE TABLE IF NOT EXISTS documents(
    id INTEGER PRIMARY KEY,
    path TEXT NOT NULL UNIQUE,
    name TEXT NOT NULL,
    file_identifier TEXT NOT NULL UNIQUE,
    created_at INTEGER NOT NULL,
    updated_at INTEGER NOT NULL);
CREATE TABLE IF NOT EXISTS records(
    document_id INTEGER NOT NULL REFERENCES documents(id) ON DELETE CASCADE,
    account_type TEXT NOT NULL,
    account_id TEXT NOT NULL,
    record TEXT NOT NULL,
    folder_path TEXT,
    updated_at INTEGER NOT NULL,
    PRIMARY KEY(document_id, account_type, account_id));
)sql";

// One prepared statement, finalised on every path out.
class Statement {
public:
    Statement(sqlite3* db, const char* sql) : db_(db) {
        if (sqlite3_prepare_v2(db, sql, -1, &stmt_, nullptr) != SQLITE_OK) stmt_ = nullptr;
    }
    ~Statement() { sqlite3_finalize(stmt_); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    bool ok() const { return stmt_ != nullptr; }
    Statement& bind(int index, const std::string& text) {
        sqlite3_bind_text(stmt_, index, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
        return *this;
    }
    Statement& bind(int index, std::int64_t value) {
        sqlite3_bind_int64(stmt_, index, value);
        return *this;
    }
    Statement& bind(int index, const std::optional<std::string>& text) {
        if (text) return bind(index, *text);
        sqlite3_bind_null(stmt_, index);
        return *this;
    }
    // SQLITE_ROW, SQLITE_DONE or an error code.
    int step() { return sqlite3_step(stmt_); }
    std::string text(int column) const {
        const auto* p = sqlite3_column_text(stmt_, column);
        return p ? std::string(reinterpret_cast<const char*>(p), sqlite3_column_bytes(stmt_, column)) : std::string();
    }
    std::optional<std::string> optionalText(int column) const {
        if (sqlite3_column_type(stmt_, column) == SQLITE_NULL) return std::nullopt;
        return text(column);
    }
    std::int64_t integer(int column) const { return sqlite3_column_int64(stmt_, column); }

private:
    sqlite3* db_;
    sqlite3_stmt* stmt_ = nullptr;
};

std::string newIdentifier() {
    std::random_device device;
    std::mt19937_64 generator((static_cast<std::uint64_t>(device()) << 32) ^ device());
    static const char* digits = "0123456789abcdef";
    std::string id = "doc-";
    for (int i = 0; i < 20; ++i) id += digits[generator() % 16];
    return id;
}

DocumentRow documentFrom(const Statement& s) {
    return {s.integer(0), s.text(1), s.text(2), s.text(3), s.integer(4), s.integer(5)};
}

constexpr const char* kDocumentColumns = "SELECT id, path, name, file_identifier, created_at, updated_at FROM documents ";

}  // namespace

Json mergeRecords(const Json& older, const Json& newer) {
    Json merged = older.is_object() ? older : Json::object();
    if (!newer.is_object()) return merged;
    for (const auto& [key, value] : newer.items()) {
        if (value.is_null()) {
            merged.erase(key);
        } else {
            merged[key] = value;
        }
    }
    return merged;
}

RecordStore::RecordStore(std::string path) : path_(std::move(path)) {
    std::string error;
    if (!makeDirectories(parentDirectory(path_), &error)) throw CliError("cannot keep document records: " + error);
    const int rc = sqlite3_open_v2(path_.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX,
                                   nullptr);
    if (rc != SQLITE_OK) {
        const std::string reason = db_ ? sqlite3_errmsg(db_) : sqlite3_errstr(rc);
        sqlite3_close(db_);
        db_ = nullptr;
        throw CliError("cannot open the document records " + path_ + ": " + reason);
    }
    // vxcloud processes run at the same time: each waits its turn to write instead of failing,
    // and with the write-ahead log readers never wait for a writer.
    sqlite3_busy_timeout(db_, kBusyTimeoutMs);
    try {
        exec("PRAGMA foreign_keys = ON", "setting it up");
        exec("PRAGMA journal_mode = WAL", "setting it up");
        if (schemaVersion() != kSchemaVersion) {
            // Created once, by whichever process comes first; the others find it made.
            exec("BEGIN IMMEDIATE", "creating its tables");
            try {
                if (schemaVersion() < kSchemaVersion) {
                    exec(kSchema, "creating its tables");
                    exec(("PRAGMA user_version = " + std::to_string(kSchemaVersion)).c_str(), "setting it up");
                }
                exec("COMMIT", "creating its tables");
            } catch (...) {
                sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
                throw;
            }
        }
    } catch (...) {
        sqlite3_close(db_);
        db_ = nullptr;
        throw;
    }
}

RecordStore::~RecordStore() { sqlite3_close(db_); }

std::int64_t RecordStore::schemaVersion() {
    Statement version(db_, "PRAGMA user_version");
    if (!version.ok() || version.step() != SQLITE_ROW) fail("reading the schema version");
    const std::int64_t found = version.integer(0);
    if (found > kSchemaVersion) {
        throw CliError("the document records " + path_ + " were written by a newer vxcloud (schema " +
                       std::to_string(found) + "); this one reads schema " + std::to_string(kSchemaVersion));
    }
    return found;
}

void RecordStore::fail(const std::string& what) const {
    const int code = sqlite3_errcode(db_);
    std::string message = "the document records " + path_ + " could not be used (" + what + "): " + sqlite3_errmsg(db_);
    if (code == SQLITE_NOTADB || code == SQLITE_CORRUPT) {
        message += ". Move the file aside to start with empty records.";
    }
    throw CliError(message);
}

void RecordStore::exec(const char* sql, const char* what) {
    if (sqlite3_exec(db_, sql, nullptr, nullptr, nullptr) != SQLITE_OK) fail(what);
}

std::optional<DocumentRow> RecordStore::documentByPath(const std::string& path) {
    Statement s(db_, (std::string(kDocumentColumns) + "WHERE path = ?1").c_str());
    if (!s.ok()) fail("looking up a document");
    s.bind(1, path);
    const int rc = s.step();
    if (rc == SQLITE_ROW) return documentFrom(s);
    if (rc != SQLITE_DONE) fail("looking up a document");
    return std::nullopt;
}

std::optional<DocumentRow> RecordStore::documentByIdentifier(const std::string& fileIdentifier) {
    Statement s(db_, (std::string(kDocumentColumns) + "WHERE file_identifier = ?1").c_str());
    if (!s.ok()) fail("looking up a document");
    s.bind(1, fileIdentifier);
    const int rc = s.step();
    if (rc == SQLITE_ROW) return documentFrom(s);
    if (rc != SQLITE_DONE) fail("looking up a document");
    return std::nullopt;
}

DocumentRow RecordStore::ensureDocument(const std::string& path, const std::string& name) {
    if (auto found = documentByPath(path)) return *found;
    const std::int64_t now = nowSeconds();
    // Another process may enter the same document first; then its entry is the one.
    Statement s(db_,
                "INSERT INTO documents(path, name, file_identifier, created_at, updated_at) VALUES(?1, ?2, ?3, ?4, ?4) "
                "ON CONFLICT(path) DO NOTHING");
    if (!s.ok()) fail("adding a document");
    s.bind(1, path).bind(2, name).bind(3, newIdentifier()).bind(4, now);
    if (s.step() != SQLITE_DONE) fail("adding a document");
    if (auto added = documentByPath(path)) return *added;
    fail("adding a document");
}

void RecordStore::setDocumentName(std::int64_t documentId, const std::string& name) {
    Statement s(db_, "UPDATE documents SET name = ?2, updated_at = ?3 WHERE id = ?1");
    if (!s.ok()) fail("renaming a document");
    s.bind(1, documentId).bind(2, name).bind(3, nowSeconds());
    if (s.step() != SQLITE_DONE) fail("renaming a document");
}

std::vector<DocumentRow> RecordStore::documents() {
    Statement s(db_, (std::string(kDocumentColumns) + "ORDER BY path").c_str());
    if (!s.ok()) fail("listing documents");
    std::vector<DocumentRow> out;
    int rc;
    while ((rc = s.step()) == SQLITE_ROW) out.push_back(documentFrom(s));
    if (rc != SQLITE_DONE) fail("listing documents");
    return out;
}

std::vector<RecordRow> RecordStore::records(std::int64_t documentId) {
    Statement s(db_,
                "SELECT account_type, account_id, record, folder_path, updated_at FROM records "
                "WHERE document_id = ?1 ORDER BY account_type, account_id");
    if (!s.ok()) fail("reading records");
    s.bind(1, documentId);
    std::vector<RecordRow> out;
    int rc;
    while ((rc = s.step()) == SQLITE_ROW) {
        RecordRow row{s.text(0), s.text(1), Json(), s.optionalText(3), s.integer(4)};
        // A record damaged outside this program is shown as unreadable, never passed on.
        Json parsed = Json::parse(s.text(2), nullptr, false);
        if (!parsed.is_discarded() && parsed.is_object()) row.record = std::move(parsed);
        out.push_back(std::move(row));
    }
    if (rc != SQLITE_DONE) fail("reading records");
    return out;
}

Json RecordStore::recordsForComponent(std::int64_t documentId) {
    Json list = Json::array();
    for (auto& row : records(documentId))
        if (row.record.is_object()) list.push_back(std::move(row.record));
    return list;
}

bool RecordStore::mergeRecord(std::int64_t documentId, const Json& record,
                              const std::optional<std::string>& folderPath) {
    using namespace uploadstatus;
    if (!record.is_object()) return false;
    const auto type = record.find(kAccountType);
    const auto account = record.find(kAccountId);
    if (type == record.end() || account == record.end() || !type->is_string() || !account->is_string()) return false;

    exec("BEGIN IMMEDIATE", "writing a record");
    try {
        Json older;
        std::optional<std::string> olderFolder;
        {
            Statement s(db_,
                        "SELECT record, folder_path FROM records WHERE document_id = ?1 AND account_type = ?2 AND "
                        "account_id = ?3");
            if (!s.ok()) fail("reading a record");
            s.bind(1, documentId).bind(2, type->get<std::string>()).bind(3, account->get<std::string>());
            if (s.step() == SQLITE_ROW) {
                older = Json::parse(s.text(0), nullptr, false);
                if (older.is_discarded()) older = Json();
                olderFolder = s.optionalText(1);
            }
        }
        const Json merged = mergeRecords(older, record);
        Statement s(db_,
                    "INSERT INTO records(document_id, account_type, account_id, record, folder_path, updated_at) "
                    "VALUES(?1, ?2, ?3, ?4, ?5, ?6) ON CONFLICT(document_id, account_type, account_id) DO UPDATE SET "
                    "record = excluded.record, folder_path = excluded.folder_path, updated_at = excluded.updated_at");
        if (!s.ok()) fail("writing a record");
        s.bind(1, documentId)
            .bind(2, type->get<std::string>())
            .bind(3, account->get<std::string>())
            .bind(4, merged.dump(-1, ' ', false, Json::error_handler_t::replace))
            .bind(5, folderPath ? folderPath : olderFolder)
            .bind(6, nowSeconds());
        if (s.step() != SQLITE_DONE) fail("writing a record");
        exec("COMMIT", "writing a record");
    } catch (...) {
        sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
        throw;
    }
    return true;
}

int RecordStore::removeAccountRecords(const std::string& accountType, const std::string& accountId) {
    Statement s(db_, "DELETE FROM records WHERE account_type = ?1 AND account_id = ?2");
    if (!s.ok()) fail("removing records");
    s.bind(1, accountType).bind(2, accountId);
    if (s.step() != SQLITE_DONE) fail("removing records");
    return sqlite3_changes(db_);
}

std::vector<DocumentRow> RecordStore::documentsOnAccount(const std::string& accountType, const std::string& accountId,
                                                         const std::optional<std::string>& folderPath) {
    Statement s(db_,
                "SELECT d.id, d.path, d.name, d.file_identifier, d.created_at, d.updated_at, r.record, r.folder_path "
                "FROM documents d JOIN records r ON r.document_id = d.id "
                "WHERE r.account_type = ?1 AND r.account_id = ?2 ORDER BY d.path");
    if (!s.ok()) fail("listing an account's documents");
    s.bind(1, accountType).bind(2, accountId);
    std::vector<DocumentRow> out;
    int rc;
    while ((rc = s.step()) == SQLITE_ROW) {
        const Json record = Json::parse(s.text(6), nullptr, false);
        // Only copies the host knows to be stored: a record naming the remote document.
        if (record.is_discarded() || !record.is_object() || !record.contains(uploadstatus::kDocumentId)) continue;
        if (folderPath && s.optionalText(7) != folderPath) continue;
        out.push_back(documentFrom(s));
    }
    if (rc != SQLITE_DONE) fail("listing an account's documents");
    return out;
}

}  // namespace vxcloud::cli
