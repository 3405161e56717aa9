#pragma once
// A fresh folder per test for the preferences and secure-store files.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <string>

namespace vxcloud::testing {

class TempFolder {
public:
    TempFolder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "vxcloud-model-XXXXXX").string();
        if (char* made = mkdtemp(pattern.data())) path_ = made;
    }
    ~TempFolder() {
        std::error_code ignored;
        if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

}  // namespace vxcloud::testing
