#pragma once
// Helpers for the file-backed platform tests: a temporary folder, whole-file reads and
// writes, a log sink that collects warnings, and scoped environment variables.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "support/TempFolder.h"
#include "vxcloud/platform/Log.h"

namespace vxcloud::testutil {

using testing::TempFolder;

// For tests of locking rather than of the disk: a memory-backed folder when there is
// one, so a thousand fsyncs do not make the test wait on a busy disk.
inline std::filesystem::path memoryBackedBase() {
    std::error_code ignored;
    if (std::filesystem::is_directory("/dev/shm", ignored) && ::access("/dev/shm", W_OK) == 0) {
        return "/dev/shm";
    }
    return std::filesystem::temp_directory_path();
}

inline std::string readWholeFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void writeWholeFile(const std::string& path, const std::string& bytes) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
}

inline unsigned permissions(const std::string& path) {
    struct stat st{};
    return ::stat(path.c_str(), &st) == 0 ? (st.st_mode & 07777) : 0xFFFFu;
}

// Collects warnings for its lifetime (and makes sure they are enabled).
class WarningCollector {
public:
    WarningCollector() : previousLevel_(log::level()) {
        log::setLevel(log::Level::warning);
        log::setSink([this](log::Level level, std::string_view category, std::string_view text) {
            if (level < log::Level::warning) return;
            std::lock_guard lock(mutex_);
            messages_.push_back(std::string(category) + ": " + std::string(text));
        });
    }
    ~WarningCollector() {
        log::setSink(nullptr);
        log::setLevel(previousLevel_);
    }
    WarningCollector(const WarningCollector&) = delete;
    WarningCollector& operator=(const WarningCollector&) = delete;

    std::vector<std::string> messages() const {
        std::lock_guard lock(mutex_);
        return messages_;
    }

private:
    log::Level previousLevel_;
    mutable std::mutex mutex_;
    std::vector<std::string> messages_;
};

// Sets (or unsets, with nullopt) an environment variable and restores it afterwards.
class ScopedEnv {
public:
    ScopedEnv(std::string name, std::optional<std::string> value) : name_(std::move(name)) {
        if (const char* old = std::getenv(name_.c_str())) previous_ = old;
        apply(value);
    }
    ~ScopedEnv() { apply(previous_); }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    void apply(const std::optional<std::string>& value) {
        if (value) {
            ::setenv(name_.c_str(), value->c_str(), 1);
        } else {
            ::unsetenv(name_.c_str());
        }
    }
    std::string name_;
    std::optional<std::string> previous_;
};

}  // namespace vxcloud::testutil
