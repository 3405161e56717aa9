#pragma once
// What every service session does the same way: run its steps on a global queue while
// holding itself alive until it has reported, call its delegates without letting anything
// they throw escape, turn running byte counts into progress increments, and read the
// document a rename's createPDFBlock hands over.
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "vxcloud/engine/VXCloudUtils.h"
#include "vxcloud/model/VXCloudError.h"
#include "vxcloud/model/VXCloudFile.h"
#include "vxcloud/platform/ByteBuffer.h"
#include "vxcloud/platform/Dispatch.h"
#include "vxcloud/platform/Log.h"
#include "vxcloud/sessions/VXCloudSession.h"

namespace vxcloud::sessions {

// Runs `call`; what it throws is logged under `category`, never propagated (callbacks run
// on queue threads, where an exception would end the process).
template <typename Call>
void guarded(std::string_view category, std::string_view what, Call&& call) noexcept {
    try {
        call();
    } catch (const std::exception& e) {
        log::error(category, std::string(what) + " threw: " + e.what());
    } catch (...) {
        log::error(category, std::string(what) + " threw");
    }
}

// Runs the block on a global queue. The block holds `session` until it has ended: the
// engine lets go of a session right after starting an operation on it. Every operation
// answers exactly once: when the block throws before it has answered, `ifItThrows` gives
// the operation's failure instead.
void runKeepingAlive(std::shared_ptr<VXCloudSession> session, std::function<void()> block,
                     std::function<void()> ifItThrows, std::string_view category, QoS qos = QoS::defaultQoS);

// The document's name and the name it was stored under are both sendable.
bool hasSendableNames(const VXCloudFile& file);

// The bytes sent since the previous report, given the running total now; `previous`
// becomes the running total.
template <typename Amount>
std::int64_t progressIncrement(std::optional<Amount>& previous, std::int64_t uploaded) {
    const std::int64_t current = previous ? uploaded - static_cast<std::int64_t>(*previous) : uploaded;
    previous = static_cast<Amount>(uploaded);
    return current;
}

// Puts the document a rename must store again into `file`: `createPDFBlock`'s path, read
// whole (the host may rewrite or remove its file once it has handed it over, which a mapping
// would not survive), labelled like every upload. False, leaving `file` as it was, when the
// block gives no path, throws, or the file cannot be read.
bool takeRebuiltDocument(VXCloudFile& file, const CreatePDFBlock& createPDFBlock, std::string_view category);

// Gives a document without a content type the one its data starts like (a scan becomes
// "application/pdf"), so every service stores it with its type.
void labelContentType(VXCloudFile& document);

std::shared_ptr<VXCloudError> makeError(ErrorCode code);

// Writes what the service returned (name, id, path, version) into the caller's record, so
// the record handed back is the one passed in.
void adoptServiceFields(VXCloudFile& file, const VXCloudFile& fromService);

bool hasUploadStatus(const VXCloudFile& file);

bool equalsIgnoringCase(const std::string& a, const std::string& b);

// The delegate calls, to the delegate current at the time of the call. Nothing happens
// without a delegate; a throwing delegate is logged.
namespace report {
// The failure answers an operation gives when it cannot go on: `fileUpload` for uploads
// and renames, every file not moved, `connection` for a listing.
std::function<void()> uploadFails(const std::shared_ptr<VXCloudSession>& session,
                                  const std::shared_ptr<VXCloudFile>& file);
std::function<void()> renameFails(const std::shared_ptr<VXCloudSession>& session,
                                  const std::shared_ptr<VXCloudFile>& file);
std::function<void()> moveFails(const std::shared_ptr<VXCloudSession>& session, const VXCloudFileList& files);
std::function<void()> listingFails(const std::shared_ptr<VXCloudSession>& session);

void uploaded(const std::shared_ptr<VXCloudSession>& session, const std::shared_ptr<VXCloudFile>& file);
void uploadFailed(const std::shared_ptr<VXCloudSession>& session, const std::shared_ptr<VXCloudFile>& file,
                  const std::shared_ptr<VXCloudError>& error);
void renamed(const std::shared_ptr<VXCloudSession>& session, const std::shared_ptr<VXCloudFile>& file);
void renameFailed(const std::shared_ptr<VXCloudSession>& session, const std::shared_ptr<VXCloudFile>& file,
                  const std::shared_ptr<VXCloudError>& error);
void moved(const std::shared_ptr<VXCloudSession>& session, const VXCloudFileList& moved,
           const VXCloudFileList& notMoved);
void folders(const std::shared_ptr<VXCloudSession>& session, const VXCloudFileList& folders,
             const std::shared_ptr<VXCloudFile>& parent);
void foldersFailed(const std::shared_ptr<VXCloudSession>& session, const std::shared_ptr<VXCloudError>& error);
void progress(const std::shared_ptr<VXCloudSession>& session, std::int64_t current, std::int64_t total);
}  // namespace report

}  // namespace vxcloud::sessions
