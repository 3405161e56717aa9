#include "sessions/ConcurrentMoves.h"

#include "sessions/SessionSupport.h"
#include "vxcloud/platform/Dispatch.h"

namespace vxcloud::sessions {

namespace {

// Gathered on the move queue; read once the group is empty.
struct MoveOutcome {
    VXCloudFileList moved;
    VXCloudFileList notMoved;
};

}  // namespace

std::vector<MovePair> pairByRecordedVersion(const VXCloudFileList& records, const VXCloudFileList& stored,
                                            const VersionMatch& matches) {
    std::vector<bool> taken(stored.size(), false);
    std::vector<MovePair> pairs;
    for (const auto& record : records) {
        MovePair pair{record, nullptr};
        const auto version = record ? record->getVersionFromUploadStatus() : std::nullopt;
        if (version) {
            std::optional<std::size_t> chosen;
            for (std::size_t i = 0; i < stored.size(); ++i) {
                if (taken[i] || !stored[i] || !stored[i]->id || !matches(*version, *stored[i])) continue;
                if (!chosen) chosen = i;
                if (stored[i]->name == record->getNameFromUploadStatus()) {
                    chosen = i;
                    break;
                }
            }
            if (chosen) {
                taken[*chosen] = true;
                pair.stored = stored[*chosen];
            }
        }
        pairs.push_back(std::move(pair));
    }
    return pairs;
}

void moveConcurrently(const std::shared_ptr<VXCloudSession>& session, const std::vector<MovePair>& pairs,
                      std::counting_semaphore<>& limit, const std::string& queueLabel, std::string_view category,
                      std::function<bool(const MovePair&)> moveOne) {
    auto moveQueue = ConcurrentQueue::create(queueLabel);
    auto group = std::make_shared<DispatchGroup>();
    auto outcome = std::make_shared<MoveOutcome>();
    // Records without a stored copy are not moved; this is settled before any move runs.
    for (const auto& pair : pairs) {
        if (pair.stored) continue;
        if (pair.record) pair.record->error = VXCloudError(ErrorCode::missingFolder).getErrorCode();
        outcome->notMoved.push_back(pair.record);
    }
    auto move = std::make_shared<std::function<bool(const MovePair&)>>(std::move(moveOne));
    const std::string what(category);
    for (const auto& pair : pairs) {
        if (!pair.stored) continue;
        group->enter();
        DispatchQueue::global()->async([session, pair, &limit, move, moveQueue, group, outcome, what] {
            limit.acquire();
            bool moved = false;
            // Whatever happens to the request, the pair is counted: a move always reports.
            guarded(what, "a move", [&] { moved = (*move)(pair); });
            limit.release();
            moveQueue->asyncBarrier([pair, moved, outcome, group] {
                (moved ? outcome->moved : outcome->notMoved).push_back(pair.record);
                group->leave();
            });
        });
    }
    group->notify(moveQueue, [session, outcome] { report::moved(session, outcome->moved, outcome->notMoved); });
}

}  // namespace vxcloud::sessions
