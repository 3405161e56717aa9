#pragma once
// libcurl plumbing behind HttpClient: process-wide initialisation, the DNS and TLS
// session caches one client shares between its threads, and per-thread easy handles.
#include <curl/curl.h>

#include <array>
#include <memory>
#include <mutex>

namespace vxcloud::curl {

// curl_global_init, exactly once per process, from whichever thread comes first.
void globalInit();

// DNS answers and TLS sessions shared by every transfer of one client. Connections are
// not shared here: libcurl does not support handing one connection cache to several
// threads at once, so each thread keeps its connections in its own easy handle.
class Share {
public:
    Share();
    ~Share();
    Share(const Share&) = delete;
    Share& operator=(const Share&) = delete;

    CURLSH* handle() const noexcept { return handle_; }

private:
    static void lock(CURL*, curl_lock_data data, curl_lock_access, void* self);
    static void unlock(CURL*, curl_lock_data data, void* self);

    CURLSH* handle_ = nullptr;
    std::array<std::mutex, CURL_LOCK_DATA_LAST> locks_;
};

// Borrows the calling thread's easy handle for `share` for one transfer and gives it
// back, reset, afterwards, so the next request on this thread can reuse its open
// connection. A nested transfer on the same thread gets a handle of its own.
class BorrowedEasy {
public:
    explicit BorrowedEasy(std::shared_ptr<Share> share);
    ~BorrowedEasy();
    BorrowedEasy(const BorrowedEasy&) = delete;
    BorrowedEasy& operator=(const BorrowedEasy&) = delete;

    CURL* get() const noexcept { return easy_; }  // nullptr when libcurl could not make one

private:
    std::shared_ptr<Share> share_;
    CURL* easy_ = nullptr;
};

}  // namespace vxcloud::curl
