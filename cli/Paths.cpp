#include "Paths.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "vxcloud/platform/PreferencesStore.h"
#include "vxcloud/platform/SecureStore.h"

namespace vxcloud::cli {

Paths Paths::standard() {
    // The component's default files already sit in these two folders; deriving them from
    // there keeps one definition of the XDG rules.
    return {parentDirectory(PreferencesStore::defaultPath()), parentDirectory(SecureStore::defaultFilePath())};
}

std::string parentDirectory(const std::string& path) {
    const auto slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    if (slash == 0) return "/";
    return path.substr(0, slash);
}

std::string baseName(const std::string& path) {
    std::string trimmed = path;
    while (trimmed.size() > 1 && trimmed.back() == '/') trimmed.pop_back();
    const auto slash = trimmed.find_last_of('/');
    return slash == std::string::npos ? trimmed : trimmed.substr(slash + 1);
}

bool makeDirectories(const std::string& path, std::string* error) {
    if (path.empty()) return true;
    struct stat info {};
    if (::stat(path.c_str(), &info) == 0) {
        if (S_ISDIR(info.st_mode)) return true;
        if (error) *error = path + " exists and is not a directory";
        return false;
    }
    const std::string parent = parentDirectory(path);
    if (parent != path && !makeDirectories(parent, error)) return false;
    if (::mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) {
        if (error) *error = "cannot create " + path + ": " + std::strerror(errno);
        return false;
    }
    return true;
}

std::string absolutePath(const std::string& path) {
    if (char* resolved = ::realpath(path.c_str(), nullptr)) {
        std::string result(resolved);
        std::free(resolved);
        return result;
    }
    if (!path.empty() && path[0] == '/') return path;
    char cwd[PATH_MAX];
    if (!::getcwd(cwd, sizeof cwd)) return path;
    return std::string(cwd) + "/" + path;
}

}  // namespace vxcloud::cli
