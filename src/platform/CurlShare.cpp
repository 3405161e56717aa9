#include "platform/CurlShare.h"

#include <algorithm>
#include <vector>

namespace vxcloud::curl {
namespace {

// Handles a thread keeps between transfers. The entry holds its share so the share
// outlives every easy handle attached to it.
struct ThreadHandles {
    struct Entry {
        std::shared_ptr<Share> share;
        CURL* easy = nullptr;
    };
    static constexpr std::size_t maxEntries = 2;  // a thread rarely talks through more clients
    std::vector<Entry> entries;

    ~ThreadHandles() {
        for (auto& entry : entries) curl_easy_cleanup(entry.easy);
    }
};

ThreadHandles& threadHandles() {
    thread_local ThreadHandles handles;
    return handles;
}

}  // namespace

void globalInit() {
    // Never cleaned up: other threads may still be in a transfer while the process exits.
    static const CURLcode result = curl_global_init(CURL_GLOBAL_DEFAULT);
    (void)result;
}

Share::Share() {
    globalInit();
    handle_ = curl_share_init();
    if (!handle_) return;
    curl_share_setopt(handle_, CURLSHOPT_LOCKFUNC, &Share::lock);
    curl_share_setopt(handle_, CURLSHOPT_UNLOCKFUNC, &Share::unlock);
    curl_share_setopt(handle_, CURLSHOPT_USERDATA, this);
    curl_share_setopt(handle_, CURLSHOPT_SHARE, CURL_LOCK_DATA_DNS);
    curl_share_setopt(handle_, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
}

Share::~Share() {
    if (handle_) curl_share_cleanup(handle_);
}

void Share::lock(CURL*, curl_lock_data data, curl_lock_access, void* self) {
    auto* share = static_cast<Share*>(self);
    share->locks_[static_cast<std::size_t>(data) % share->locks_.size()].lock();
}

void Share::unlock(CURL*, curl_lock_data data, void* self) {
    auto* share = static_cast<Share*>(self);
    share->locks_[static_cast<std::size_t>(data) % share->locks_.size()].unlock();
}

BorrowedEasy::BorrowedEasy(std::shared_ptr<Share> share) : share_(std::move(share)) {
    auto& entries = threadHandles().entries;
    auto found = std::find_if(entries.begin(), entries.end(),
                              [&](const auto& entry) { return entry.share == share_; });
    if (found != entries.end()) {
        easy_ = found->easy;
        entries.erase(found);
        return;
    }
    globalInit();
    easy_ = curl_easy_init();
    if (easy_ && share_ && share_->handle()) curl_easy_setopt(easy_, CURLOPT_SHARE, share_->handle());
}

BorrowedEasy::~BorrowedEasy() {
    if (!easy_) return;
    // Forget this transfer's options and callbacks; open connections stay.
    curl_easy_reset(easy_);
    auto& entries = threadHandles().entries;
    if (entries.size() >= ThreadHandles::maxEntries) {
        curl_easy_cleanup(entries.front().easy);
        entries.erase(entries.begin());
    }
    try {
        entries.push_back({std::move(share_), easy_});
    } catch (...) {
        curl_easy_cleanup(easy_);
    }
}

}  // namespace vxcloud::curl
