#pragma once
// An exclusive flock() on a lock file, held until the object is destroyed. It serialises
// processes, and threads that each take their own FileLock, since every acquire opens the
// file anew. The lock file stays (removing it would race with the next taker).
#include <sys/types.h>

#include <string>

namespace vxcloud::detail {

class FileLock {
public:
    FileLock() = default;
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

    // Blocks until the lock is held: 0, or the errno of the open or the flock. The folder
    // holding `lockPath` must exist.
    int acquire(const std::string& lockPath, mode_t mode = 0600);
    bool held() const { return fd_ >= 0; }

private:
    int fd_ = -1;
};

}  // namespace vxcloud::detail
