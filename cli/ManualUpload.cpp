#include "ManualUpload.h"

#include <algorithm>

#include "Accounts.h"
#include "Documents.h"
#include "Paths.h"
#include "Progress.h"
#include "SessionCalls.h"
#include "vxcloud/engine/VXCloudTaskManager.h"
#include "vxcloud/engine/VXCloudUtils.h"
#include "vxcloud/model/VXCloudFile.h"
#include "vxcloud/platform/ByteBuffer.h"

namespace vxcloud::cli {

namespace {

ManualSend sendOne(const std::string& given, const std::shared_ptr<VXCloudAccount>& account, const PickedFolder& folder,
                   ProgressBoard& board, std::chrono::seconds stallLimit) {
    ManualSend send;
    send.path = absolutePath(given);
    send.name = baseName(send.path);
    if (auto problem = documentProblem(send.path)) {
        send.note = *problem;
        return send;
    }
    std::string reason;
    auto data = ByteBuffer::mapFile(send.path, &reason);
    if (!data) {
        send.note = "cannot read " + given + ": " + reason;
        return send;
    }
    auto file = std::make_shared<VXCloudFile>(send.name, false, false);
    const auto size = static_cast<std::int64_t>(data->size());
    file->fileData = std::move(*data);
    file->uploadFolder = folder.folder;

    const std::string key = account->key();
    board.begin({send.name + " to " + folder.displayPath,
                 Json{{"action", "send"}, {"document", send.name}, {"folder", folder.displayPath}}, "account", size},
                {{key, accountLabel(*account), displayName(account->cloudService)}});
    // The session holds most delegates weakly: the catcher lives here until the answer.
    auto catcher = std::make_shared<OutcomeCatcher>();
    const std::int64_t handedOn = VXCloudTaskManager::sharedInstance()->manualUploadWithFiles(
        {file}, /*overwriteExistingFile=*/false, account, catcher, board.shared_from_this());
    SessionOutcome outcome;
    if (handedOn > 0) {
        waitWhileMoving([&] { return catcher->arrived(); }, stallLimit, &board);
        outcome = catcher->wait(std::chrono::milliseconds(0));
    }
    // Not every session reports progress (OneNote's does not); a stored page carries them all.
    send.bytesSent = board.bytesReported(key);
    if (handedOn <= 0) {
        send.note = "the component took nothing to send";
    } else if (!outcome.answered) {
        send.note = "no answer from the service while nothing moved";
    } else if (outcome.error) {
        send.note = errorText(outcome.error->errorCode);
    } else {
        send.ok = true;
        send.bytesSent = std::max(send.bytesSent, size);
    }
    board.finishRow(key, send.ok ? "sent" : "failed: " + send.note, send.ok ? "sent" : "failed");
    board.end();
    return send;
}

}  // namespace

std::vector<ManualSend> sendByHand(const std::vector<std::string>& paths, const std::shared_ptr<VXCloudAccount>& account,
                                   const PickedFolder& folder, const std::shared_ptr<ProgressBoard>& board,
                                   std::chrono::seconds stallLimit) {
    std::vector<ManualSend> sends;
    for (const auto& path : paths) sends.push_back(sendOne(path, account, folder, *board, stallLimit));
    return sends;
}

}  // namespace vxcloud::cli
