#pragma once
// The host application's preferences (the user-defaults stand-in): one JSON object
// in one file. Every change is a read-modify-write under an in-process mutex and an
// advisory file lock, written as temp file + fsync + rename, so concurrent threads and
// processes never lose an update and a crash never leaves a torn file.
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "vxcloud/platform/Json.h"

namespace vxcloud {

class PreferencesStore {
public:
    // The file need not exist; its folder is created on the first write.
    explicit PreferencesStore(std::string path);
    ~PreferencesStore();
    PreferencesStore(const PreferencesStore&) = delete;
    PreferencesStore& operator=(const PreferencesStore&) = delete;

    // The store the component uses. Its location is the host's choice
    // (setStandardPath before first use); the default is
    // $XDG_CONFIG_HOME/vxcloud/preferences.json (~/.config/... without XDG_CONFIG_HOME).
    static std::shared_ptr<PreferencesStore> standard();
    static void setStandardPath(std::string path);
    static std::string defaultPath();

    const std::string& path() const;

    // Reads the entry afresh from the file; nothing when absent.
    JsonBox get(const std::string& key) const;
    // The whole document (an object; empty when there is no file).
    Json snapshot() const;
    void set(const std::string& key, const Json& value);
    void remove(const std::string& key);
    // Atomic read-modify-write of one entry: `change` sees the current value (empty box
    // when absent) and edits it in place; an empty box afterwards removes the entry.
    // Returns false (and leaves the file unchanged) when the file cannot be written.
    bool update(const std::string& key, const std::function<void(JsonBox&)>& change);

    // A file that could not be parsed is moved aside to "<path>.corrupt-<timestamp>"
    // and the store starts empty. The first such event is logged once and kept here
    // for the host to show; taking it clears it.
    std::optional<std::string> takeCorruptionReport();

    struct State;

private:
    std::shared_ptr<State> state_;
};

}  // namespace vxcloud
