#pragma once
// A fresh folder for one test, removed with everything in it when the object goes away.
#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <vector>

namespace vxcloud::testing {

class TempFolder {
public:
    explicit TempFolder(const std::filesystem::path& base = std::filesystem::temp_directory_path()) {
        std::string pattern = (base / "vxcloud-test-XXXXXX").string();
        if (::mkdtemp(pattern.data())) path_ = pattern;
    }
    ~TempFolder() {
        std::error_code ignored;
        if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }
    std::string operator/(const std::string& name) const { return file(name); }
    // Writes `content` to the named file; returns its path.
    std::string write(const std::string& name, const std::string& content) const {
        const std::string path = file(name);
        std::ofstream(path, std::ios::binary) << content;
        return path;
    }

    // Names in the folder (not recursive), sorted.
    std::vector<std::string> names() const {
        std::vector<std::string> out;
        for (const auto& entry : std::filesystem::directory_iterator(path_)) {
            out.push_back(entry.path().filename().string());
        }
        std::sort(out.begin(), out.end());
        return out;
    }

private:
    std::string path_;
};

}  // namespace vxcloud::testing
