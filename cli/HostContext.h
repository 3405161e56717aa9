#pragma once
// Everything a command runs in: the host's state under the XDG directories (preferences,
// secure store, document records), its provider credentials, the optional sandbox, the
// request log for -v, and the observers that keep the records up to date.
#include <memory>
#include <optional>
#include <string>

#include "Credentials.h"
#include "Paths.h"
#include "RecordKeeper.h"
#include "RecordStore.h"
#include "SandboxConnection.h"
#include "vxcloud/platform/Json.h"
#include "vxcloud/sessions/VXCloudSession.h"

namespace vxcloud::cli {

struct HostOptions {
    int verbosity = 0;           // 1: each request; 2: also the component's own log
    std::string sandboxUrl;      // --sandbox
    // An embedded sandbox's description (the demo), used instead of a URL.
    std::optional<SandboxConnection> sandbox;
    bool json = false;           // output for scripts
    // Commands that never reach a service skip connecting to the sandbox.
    bool offline = false;
};

class HostContext {
public:
    // Sets up the stores and the component's configuration; throws CliError.
    explicit HostContext(HostOptions options);
    ~HostContext();
    HostContext(const HostContext&) = delete;
    HostContext& operator=(const HostContext&) = delete;

    const HostOptions& options() const { return options_; }
    const Paths& paths() const { return paths_; }
    const HostCredentials& credentials() const { return credentials_; }
    const std::optional<SandboxConnection>& sandbox() const { return sandbox_; }
    bool json() const { return options_.json; }
    int verbosity() const { return options_.verbosity; }

    // Opened on first use, so commands that need no records never create the database.
    RecordStore& records();
    // The records when they exist, without creating them (a dry run writes nothing); null
    // when there are none yet.
    RecordStore* existingRecords();
    RecordKeeper& keeper() { return *keeper_; }

    // Sessions made while a receiver is set report upload progress to it.
    void setProgressReceiver(const std::shared_ptr<VXCloudProgressDelegate>& receiver);

    // Failures reported by observers (a move started by a folder change); they decide the
    // exit status of the command that set them off.
    void noteFailure() { ++failures_; }
    int failures() const { return failures_; }

    struct ProgressSlot;

private:
    HostOptions options_;
    Paths paths_;
    HostCredentials credentials_;
    std::optional<SandboxConnection> sandbox_;
    std::unique_ptr<RecordStore> records_;
    std::unique_ptr<RecordKeeper> keeper_;
    std::shared_ptr<ProgressSlot> progress_;
    int failures_ = 0;
};

}  // namespace vxcloud::cli
