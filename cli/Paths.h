#pragma once
// Where the host application keeps its state: the XDG config and data directories.
#include <string>

namespace vxcloud::cli {

struct Paths {
    std::string configDir;  // $XDG_CONFIG_HOME/vxcloud
    std::string dataDir;    // $XDG_DATA_HOME/vxcloud

    std::string preferences() const { return configDir + "/preferences.json"; }
    std::string credentials() const { return configDir + "/credentials.json"; }
    std::string sandboxFile() const { return configDir + "/sandbox.json"; }
    std::string records() const { return dataDir + "/records.sqlite3"; }
    std::string secureStore() const { return dataDir + "/secure-store.json"; }

    // From the environment, by the same rules the component uses for its defaults.
    static Paths standard();
};

// Creates the directory and its parents (mode 0700 for new ones); false when it cannot.
bool makeDirectories(const std::string& path, std::string* error = nullptr);
std::string parentDirectory(const std::string& path);
std::string baseName(const std::string& path);
// The absolute form of a path, with symbolic links resolved when it exists.
std::string absolutePath(const std::string& path);

}  // namespace vxcloud::cli
