#include "sessions/SessionSupport.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "vxcloud/engine/VXCloudUtils.h"

namespace vxcloud::sessions {

namespace {
constexpr std::string_view kCategory = "sessions";
}  // namespace

void runKeepingAlive(std::shared_ptr<VXCloudSession> session, std::function<void()> block,
                     std::function<void()> ifItThrows, std::string_view category, QoS qos) {
    DispatchQueue::global(qos)->async([session = std::move(session), block = std::move(block),
                                       ifItThrows = std::move(ifItThrows), category = std::string(category)] {
        bool ended = false;
        guarded(category, "a session step", [&] {
            block();
            ended = true;
        });
        if (!ended && ifItThrows) guarded(category, "a failure answer", ifItThrows);
    });
}

bool hasSendableNames(const VXCloudFile& file) {
    return isSendableName(file.name) && isSendableName(file.getNameFromUploadStatus());
}


namespace {

std::optional<ByteBuffer> documentFromBlock(const CreatePDFBlock& createPDFBlock, std::string_view category) {
    std::optional<std::string> path;
    guarded(category, "the host's PDF callback", [&] {
        if (createPDFBlock) path = createPDFBlock();
    });
    if (!path) return std::nullopt;
    std::ifstream in(*path, std::ios::binary);
    std::ostringstream bytes;
    if (in) bytes << in.rdbuf();
    if (!in || in.bad()) {
        log::warning(category, "the regenerated document cannot be read");
        return std::nullopt;
    }
    return ByteBuffer::adopt(std::move(bytes).str());
}

}  // namespace

bool takeRebuiltDocument(VXCloudFile& file, const CreatePDFBlock& createPDFBlock, std::string_view category) {
    auto data = documentFromBlock(createPDFBlock, category);
    if (!data) return false;
    file.fileData = std::move(*data);
    labelContentType(file);
    return true;
}

void labelContentType(VXCloudFile& document) {
    if (document.isFolder || document.mimeType || !document.fileData) return;
    document.mimeType = mimeType(*document.fileData);
}

std::shared_ptr<VXCloudError> makeError(ErrorCode code) { return std::make_shared<VXCloudError>(code); }

void adoptServiceFields(VXCloudFile& file, const VXCloudFile& fromService) {
    file.name = fromService.name;
    file.id = fromService.id;
    file.path = fromService.path;
    file.version = fromService.version;
}

bool hasUploadStatus(const VXCloudFile& file) {
    const JsonBox& status = file.fileUploadStatus;
    if (!status.has_value() || status->is_null()) return false;
    return !((status->is_object() || status->is_array()) && status->empty());
}

bool equalsIgnoringCase(const std::string& a, const std::string& b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](unsigned char x, unsigned char y) {
               return std::tolower(x) == std::tolower(y);
           });
}

namespace report {

std::function<void()> uploadFails(const std::shared_ptr<VXCloudSession>& session,
                                  const std::shared_ptr<VXCloudFile>& file) {
    return [session, file] { uploadFailed(session, file, makeError(ErrorCode::fileUpload)); };
}

std::function<void()> renameFails(const std::shared_ptr<VXCloudSession>& session,
                                  const std::shared_ptr<VXCloudFile>& file) {
    return [session, file] { renameFailed(session, file, makeError(ErrorCode::fileUpload)); };
}

std::function<void()> moveFails(const std::shared_ptr<VXCloudSession>& session, const VXCloudFileList& files) {
    return [session, files] { moved(session, {}, files); };
}

std::function<void()> listingFails(const std::shared_ptr<VXCloudSession>& session) {
    return [session] { foldersFailed(session, makeError(ErrorCode::connection)); };
}


void uploaded(const std::shared_ptr<VXCloudSession>& session, const std::shared_ptr<VXCloudFile>& file) {
    if (auto delegate = session->cloudSessionDelegate()) {
        guarded(kCategory, "the upload delegate", [&] { delegate->cloudSessionDidUploadFile(session, file); });
    }
}

void uploadFailed(const std::shared_ptr<VXCloudSession>& session, const std::shared_ptr<VXCloudFile>& file,
                  const std::shared_ptr<VXCloudError>& error) {
    if (auto delegate = session->cloudSessionDelegate()) {
        guarded(kCategory, "the upload delegate",
                [&] { delegate->cloudSessionUploadFailedForFile(session, file, error); });
    }
}

void renamed(const std::shared_ptr<VXCloudSession>& session, const std::shared_ptr<VXCloudFile>& file) {
    if (auto delegate = session->cloudSessionDelegate()) {
        guarded(kCategory, "the rename delegate", [&] { delegate->cloudSessionDidRenameFile(session, file); });
    }
}

void renameFailed(const std::shared_ptr<VXCloudSession>& session, const std::shared_ptr<VXCloudFile>& file,
                  const std::shared_ptr<VXCloudError>& error) {
    if (auto delegate = session->cloudSessionDelegate()) {
        guarded(kCategory, "the rename delegate",
                [&] { delegate->cloudSessionRenameFailedForFile(session, file, error); });
    }
}

void moved(const std::shared_ptr<VXCloudSession>& session, const VXCloudFileList& moved,
           const VXCloudFileList& notMoved) {
    if (auto delegate = session->cloudSessionDelegate()) {
        guarded(kCategory, "the move delegate", [&] { delegate->cloudSessionDidMoveFiles(session, moved, notMoved); });
    }
}

void folders(const std::shared_ptr<VXCloudSession>& session, const VXCloudFileList& folders,
             const std::shared_ptr<VXCloudFile>& parent) {
    if (auto delegate = session->cloudSessionDelegate()) {
        guarded(kCategory, "the folders delegate",
                [&] { delegate->cloudSessionDidLoadFolders(session, folders, parent); });
    }
}

void foldersFailed(const std::shared_ptr<VXCloudSession>& session, const std::shared_ptr<VXCloudError>& error) {
    if (auto delegate = session->cloudSessionDelegate()) {
        guarded(kCategory, "the folders delegate",
                [&] { delegate->cloudSessionLoadFoldersFailedWithError(session, error); });
    }
}

void progress(const std::shared_ptr<VXCloudSession>& session, std::int64_t current, std::int64_t total) {
    if (auto delegate = session->cloudSessionProgressDelegate()) {
        guarded(kCategory, "the progress delegate",
                [&] { delegate->cloudSessionCurrentUploadedBytes(session, current, total); });
    }
}

}  // namespace report

}  // namespace vxcloud::sessions
