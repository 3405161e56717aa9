#include "platform/Xdg.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

namespace vxcloud::xdg {
namespace {

std::string absoluteEnv(const char* name) {
    const char* value = std::getenv(name);
    if (value && value[0] == '/') return value;
    return {};
}

std::string underHome(const char* variable, const char* fallback) {
    std::string dir = absoluteEnv(variable);
    if (!dir.empty()) return dir;
    std::string home = homeDir();
    if (home.size() > 1 && home.back() == '/') home.pop_back();
    return (home == "/" ? std::string() : home) + "/" + fallback;
}

}  // namespace

std::string homeDir() {
    std::string home = absoluteEnv("HOME");
    if (!home.empty()) return home;
    long size = sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(size > 0 ? static_cast<std::size_t>(size) : 16384);
    passwd entry{};
    passwd* result = nullptr;
    if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &result) == 0 && result &&
        result->pw_dir && result->pw_dir[0] == '/') {
        return result->pw_dir;
    }
    return "/";
}

std::string configHome() { return underHome("XDG_CONFIG_HOME", ".config"); }
std::string dataHome() { return underHome("XDG_DATA_HOME", ".local/share"); }

}  // namespace vxcloud::xdg
