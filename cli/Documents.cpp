#include "Documents.h"

#include "vxcloud/engine/VXCloudUtils.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <string_view>

namespace vxcloud::cli {

namespace {

// Reads up to `size` bytes at `offset`; the count read, or -1.
long readAt(int fd, char* buffer, std::size_t size, off_t offset) {
    std::size_t done = 0;
    while (done < size) {
        const ssize_t n = ::pread(fd, buffer + done, size - done, offset + static_cast<off_t>(done));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return -1;
        if (n == 0) break;
        done += static_cast<std::size_t>(n);
    }
    return static_cast<long>(done);
}

}  // namespace

std::optional<std::string> documentProblem(const std::string& path) {
    if (path.empty()) return std::string("an empty path names no document");
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) return "cannot read " + path + ": " + std::strerror(errno);
    if (S_ISDIR(info.st_mode)) return path + " is a directory, not a document";
    if (!S_ISREG(info.st_mode)) return path + " is not a regular file";
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return "cannot read " + path + ": " + std::strerror(errno);
    char head[5] = {};
    char tail[1024] = {};
    const long headRead = readAt(fd, head, sizeof head, 0);
    const off_t tailStart = info.st_size > static_cast<off_t>(sizeof tail) ? info.st_size - static_cast<off_t>(sizeof tail) : 0;
    const long tailRead = readAt(fd, tail, sizeof tail, tailStart);
    const int readError = errno;
    ::close(fd);
    if (headRead < 0 || tailRead < 0) return "cannot read " + path + ": " + std::strerror(readError);
    if (info.st_size == 0) return path + " is empty, not a PDF document";
    if (headRead < 5 || std::string_view(head, 5) != "%PDF-")
        return path + " is not a PDF document (it does not begin with %PDF-)";
    if (std::string_view(tail, static_cast<std::size_t>(tailRead)).find("%%EOF") == std::string_view::npos)
        return path + " is a damaged PDF document: it has no end-of-file marker, so it is probably cut short";
    return std::nullopt;
}

std::optional<std::string> documentNameProblem(const std::string& name) {
    if (name.empty()) return std::string("it is empty");
    // The services take names as UTF-8 text; other bytes cannot be sent.
    if (!isSendableName(name)) return std::string("it is not valid UTF-8 text");
    // Every service takes "/" as a folder separator.
    if (name.find('/') != std::string::npos) return std::string("it contains \"/\"");
    if (name == "." || name == "..") return std::string("it names a folder, not a document");
    if (std::all_of(name.begin(), name.end(), [](unsigned char c) { return std::isspace(c); }))
        return std::string("it is only spaces");
    if (std::any_of(name.begin(), name.end(), [](unsigned char c) { return std::iscntrl(c); }))
        return std::string("it contains a control character (such as a line break)");
    return std::nullopt;
}

}  // namespace vxcloud::cli
