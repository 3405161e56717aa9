#include "platform/FileLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

namespace vxcloud::detail {

int FileLock::acquire(const std::string& lockPath, mode_t mode) {
    int fd;
    do {
        fd = ::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, mode);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) return errno;
    while (::flock(fd, LOCK_EX) != 0) {
        if (errno != EINTR) {
            const int error = errno;
            ::close(fd);
            return error;
        }
    }
    fd_ = fd;
    return 0;
}

FileLock::~FileLock() {
    if (fd_ < 0) return;
    ::flock(fd_, LOCK_UN);
    ::close(fd_);
}

}  // namespace vxcloud::detail
