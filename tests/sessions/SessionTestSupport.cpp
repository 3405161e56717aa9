#include "sessions/SessionTestSupport.h"

#include <cctype>
#include <nlohmann/json.hpp>
#include <thread>

namespace vxcloud::testing {

namespace {

const char* kindName(SessionEvent::Kind kind) {
    static const char* const names[] = {"didLoadFolders", "loadFoldersFailed", "didUpload", "uploadFailed",
                                        "didRename",      "renameFailed",      "didMove"};
    return names[static_cast<int>(kind)];
}

}  // namespace

std::string describe(const SessionEvent& event) {
    std::string text = kindName(event.kind);
    if (event.error) text += " (" + event.error->getErrorCode() + ")";
    if (event.file) text += " file \"" + event.file->name + "\"";
    return text;
}

::testing::AssertionResult failedWith(const SessionEvent& event, SessionEvent::Kind kind, ErrorCode code) {
    if (event.kind == kind && event.code() == code) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "expected " << kindName(kind) << " (" << VXCloudError::rawValue(code) << "), got "
                                         << describe(event);
}

::testing::AssertionResult hasErrorCode(const std::shared_ptr<VXCloudError>& error, ErrorCode code) {
    if (!error) return ::testing::AssertionFailure() << "no error, expected " << VXCloudError::rawValue(code);
    if (error->errorCode == code) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "error " << error->getErrorCode() << ", expected "
                                         << VXCloudError::rawValue(code);
}

void RecordingDelegate::record(SessionEvent event) {
    std::lock_guard lock(mutex_);
    events_.push_back(std::move(event));
    changed_.notify_all();
}

void RecordingDelegate::cloudSessionDidLoadFolders(const std::shared_ptr<VXCloudSession>& session,
                                                   const VXCloudFileList& folders,
                                                   const std::shared_ptr<VXCloudFile>& inParentFolder) {
    record({SessionEvent::Kind::didLoadFolders, session, nullptr, folders, {}, inParentFolder, nullptr});
}

void RecordingDelegate::cloudSessionLoadFoldersFailedWithError(const std::shared_ptr<VXCloudSession>& session,
                                                               const std::shared_ptr<VXCloudError>& error) {
    record({SessionEvent::Kind::loadFoldersFailed, session, nullptr, {}, {}, nullptr, error});
}

void RecordingDelegate::cloudSessionDidUploadFile(const std::shared_ptr<VXCloudSession>& session,
                                                  const std::shared_ptr<VXCloudFile>& file) {
    record({SessionEvent::Kind::didUpload, session, file, {}, {}, nullptr, nullptr});
}

void RecordingDelegate::cloudSessionUploadFailedForFile(const std::shared_ptr<VXCloudSession>& session,
                                                        const std::shared_ptr<VXCloudFile>& file,
                                                        const std::shared_ptr<VXCloudError>& withError) {
    record({SessionEvent::Kind::uploadFailed, session, file, {}, {}, nullptr, withError});
}

void RecordingDelegate::cloudSessionDidRenameFile(const std::shared_ptr<VXCloudSession>& session,
                                                  const std::shared_ptr<VXCloudFile>& file) {
    record({SessionEvent::Kind::didRename, session, file, {}, {}, nullptr, nullptr});
}

void RecordingDelegate::cloudSessionRenameFailedForFile(const std::shared_ptr<VXCloudSession>& session,
                                                        const std::shared_ptr<VXCloudFile>& file,
                                                        const std::shared_ptr<VXCloudError>& withError) {
    record({SessionEvent::Kind::renameFailed, session, file, {}, {}, nullptr, withError});
}

void RecordingDelegate::cloudSessionDidMoveFiles(const std::shared_ptr<VXCloudSession>& session,
                                                 const VXCloudFileList& files,
                                                 const VXCloudFileList& errorMovingFiles) {
    record({SessionEvent::Kind::didMove, session, nullptr, files, errorMovingFiles, nullptr, nullptr});
}

void RecordingDelegate::cloudSessionCurrentUploadedBytes(const std::shared_ptr<VXCloudSession>&,
                                                         std::int64_t currentUploadedBytes,
                                                         std::int64_t expectedTotalBytes) {
    std::lock_guard lock(mutex_);
    progress_.emplace_back(currentUploadedBytes, expectedTotalBytes);
}

std::vector<SessionEvent> RecordingDelegate::events() const {
    std::lock_guard lock(mutex_);
    return events_;
}

std::vector<std::pair<std::int64_t, std::int64_t>> RecordingDelegate::progress() const {
    std::lock_guard lock(mutex_);
    return progress_;
}

std::int64_t RecordingDelegate::progressSum() const {
    std::lock_guard lock(mutex_);
    std::int64_t sum = 0;
    for (const auto& [current, total] : progress_) sum += current;
    return sum;
}

bool RecordingDelegate::waitForEvents(std::size_t count, std::chrono::milliseconds timeout) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, timeout, [&] { return events_.size() >= count; });
}

SessionEvent RecordingDelegate::expectOneOutcome(std::chrono::milliseconds timeout) const {
    if (!waitForEvents(1, timeout)) {
        ADD_FAILURE() << "no outcome callback within " << timeout.count() << " ms";
        return SessionEvent{SessionEvent::Kind::uploadFailed, nullptr, nullptr, {}, {}, nullptr, nullptr};
    }
    // A second callback would come right behind the first, from the same step.
    std::this_thread::sleep_for(150ms);
    auto all = events();
    EXPECT_EQ(all.size(), 1u) << "more than one outcome; the second: " << describe(all.back());
    return all.front();
}

void RecordingDelegate::clear() {
    std::lock_guard lock(mutex_);
    events_.clear();
    progress_.clear();
}

std::string upperCase(std::string text) {
    for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

std::string documentBytes(std::size_t size, unsigned seed) {
    std::string bytes(size, '\0');
    std::uint32_t state = 2463534242u ^ (seed * 2654435761u);
    for (std::size_t i = 0; i < size; ++i) {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        bytes[i] = static_cast<char>(state & 0xff);
    }
    if (size > 0) bytes[0] = '%';  // reads as a PDF by its first byte
    return bytes;
}

::testing::AssertionResult sameBytes(const std::optional<std::string>& stored, const std::string& expected) {
    if (!stored) return ::testing::AssertionFailure() << "nothing is stored (expected " << expected.size() << " bytes)";
    if (*stored == expected) return ::testing::AssertionSuccess();
    std::size_t at = 0;
    while (at < stored->size() && at < expected.size() && (*stored)[at] == expected[at]) ++at;
    return ::testing::AssertionFailure() << "stored " << stored->size() << " bytes, expected " << expected.size()
                                         << "; first difference at byte " << at;
}

std::shared_ptr<VXCloudFile> makeDocument(const std::string& name, const std::string& bytes) {
    auto file = std::make_shared<VXCloudFile>(name, false, false);
    file->fileData = ByteBuffer::copyOf(bytes);
    return file;
}

std::shared_ptr<VXCloudFile> makeStoredDocument(const VXCloudAccount& account, const std::string& documentId,
                                                const std::optional<std::string>& version,
                                                const std::string& bytes,
                                                const std::optional<std::string>& localVersion) {
    auto file = makeDocument(documentId, bytes);
    Json status = {{"accountId", account.email},
                   {"accountType", account.accountType()},
                   {"documentId", documentId},
                   {"status", "successful"},
                   {"needsUpdate", false},
                   {"error", ""}};
    if (version) status["version"] = *version;
    file->fileUploadStatus = status;
    file->localVersion = localVersion;
    return file;
}

}  // namespace vxcloud::testing
