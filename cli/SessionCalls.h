#pragma once
// The session operations the screens use (list folders, create a folder, write the settings
// document, read it back), each waited for while the main queue keeps running.
// Every call gives up after its time-out instead of waiting for an answer forever.
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "vxcloud/model/VXCloudError.h"
#include "vxcloud/model/VXCloudFile.h"
#include "vxcloud/sessions/VXCloudSession.h"

namespace vxcloud::cli {

inline constexpr std::chrono::seconds kSessionTimeout{120};

struct SessionOutcome {
    bool answered = false;  // false: no answer within the time-out
    std::shared_ptr<VXCloudFile> file;
    VXCloudFileList folders;
    std::shared_ptr<VXCloudError> error;

    bool ok() const { return answered && !error; }
};

SessionOutcome loadFolders(const std::shared_ptr<VXCloudSession>& session, const std::shared_ptr<VXCloudFile>& folder,
                           std::chrono::milliseconds timeout = kSessionTimeout);
SessionOutcome createFolder(const std::shared_ptr<VXCloudSession>& session, const std::string& name,
                            const std::shared_ptr<VXCloudFile>& parent,
                            std::chrono::milliseconds timeout = kSessionTimeout);
SessionOutcome uploadFile(const std::shared_ptr<VXCloudSession>& session, const std::shared_ptr<VXCloudFile>& file,
                          const std::shared_ptr<VXCloudFile>& parent, bool overwrite,
                          std::chrono::milliseconds timeout = kSessionTimeout);
SessionOutcome downloadSettings(const std::shared_ptr<VXCloudSession>& session,
                                std::chrono::milliseconds timeout = kSessionTimeout);

// Starts a call of the component that answers through a completion on the main queue and
// runs the main queue until it has answered; nothing when it did not within the time-out.
template <typename T>
std::optional<T> awaitCompletion(const std::function<void(std::function<void(T)>)>& start,
                                 std::chrono::milliseconds timeout = kSessionTimeout + std::chrono::seconds(10));

// The text a person reads for an error code (the component's own texts where it has one).
std::string errorText(ErrorCode code);

}  // namespace vxcloud::cli
