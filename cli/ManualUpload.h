#pragma once
// Sending documents by hand to one folder of one account, the way a OneNote section gets its
// pages: through the component's manual upload, with this host's own receivers of the outcome
// and of the progress. The component keeps no records of such sends, so neither does the
// host: every send is a new copy (a new page in OneNote).
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "FolderPicker.h"
#include "vxcloud/model/VXCloudAccount.h"

namespace vxcloud::cli {

class ProgressBoard;

struct ManualSend {
    std::string path;
    std::string name;
    bool ok = false;
    std::string note;  // why it failed, for people
    std::int64_t bytesSent = 0;
};

// Sends the documents one after another to `folder` of `account`; a stall of `stallLimit`
// ends a transfer. Documents that cannot be read are reported failed and not sent.
std::vector<ManualSend> sendByHand(const std::vector<std::string>& paths, const std::shared_ptr<VXCloudAccount>& account,
                                   const PickedFolder& folder, const std::shared_ptr<ProgressBoard>& board,
                                   std::chrono::seconds stallLimit);

}  // namespace vxcloud::cli
