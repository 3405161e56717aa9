// sandbox-connect: remember a running vxcloud-sandbox so later commands use it.
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "Accounts.h"
#include "CliError.h"
#include "Commands.h"
#include "Output.h"
#include "Paths.h"
#include "SandboxConnection.h"
#include "vxcloud/engine/VXCloudUtils.h"

namespace vxcloud::cli {

namespace {

int connect(const CommonOptions& common, const std::string& url, const std::string& caFile, bool disconnect) {
    const Paths paths = Paths::standard();
    if (disconnect) {
        const bool was = forgetSandboxUrl(paths.sandboxFile());
        say(was ? "Disconnected: commands reach the real services again." : "No sandbox was connected.");
        // Accounts linked through the sandbox stay in the list, but the services would refuse
        // their sandbox tokens; say so now rather than at the next upload.
        const AccountList linked = linkedAccounts();
        if (was && !linked.empty()) {
            std::string labels;
            for (const auto& account : linked) labels += "\n  " + accountLabel(*account);
            say("Still linked:" + labels +
                "\nAccounts linked while the sandbox was connected only work with it; unlink them with: "
                "vxcloud unlink ACCOUNT");
        }
        return kExitOk;
    }
    if (url.empty()) throw CliError("give the sandbox's URL, or --disconnect", kExitUsage);
    const char* caFromEnvironment = std::getenv("VXCLOUD_SANDBOX_CA");
    const SandboxConnection sandbox =
        connectSandbox(url, caFile.empty() && caFromEnvironment ? caFromEnvironment : caFile);
    saveSandbox(paths.sandboxFile(), {sandbox.baseUrl, sandbox.caFile()});
    if (common.json) {
        printJson(Json{{"url", sandbox.baseUrl}, {"description", sandbox.description}});
        return kExitOk;
    }
    std::string names;
    for (const auto service : sandbox.services()) names += (names.empty() ? "" : ", ") + displayName(service);
    say("Connected to the sandbox at " + sandbox.baseUrl + " (" + names + ").");
    say("Commands now use it until: vxcloud sandbox-connect --disconnect");
    return kExitOk;
}

}  // namespace

void addSandboxCommand(CommandLine& line) {
    CommonOptions& common = line.common;
    Action& action = line.action;
    struct Args {
        std::string url;
        std::string caFile;
        bool disconnect = false;
    };
    auto args = std::make_shared<Args>();
    auto* command = line.app.add_subcommand(
        "sandbox-connect", "Use a running vxcloud-sandbox for every later command (remembered in\n"
                           "$XDG_CONFIG_HOME/vxcloud/sandbox.json); --sandbox URL or $VXCLOUD_SANDBOX do so for one");
    command->add_option("url", args->url, "The sandbox's URL, as its ready line shows (http://127.0.0.1:PORT)");
    command->add_option("--ca-file", args->caFile,
                        "For a sandbox serving HTTPS (vxcloud-sandbox --tls): the CA file its ready line names "
                        "(also $VXCLOUD_SANDBOX_CA)")
        ->type_name("PEM");
    command->add_flag("--disconnect", args->disconnect, "Forget the sandbox: reach the real services again");
    addJson(command, common);
    command->callback([&, args] { action = [&, args] { return connect(common, args->url, args->caFile, args->disconnect); }; });
}

}  // namespace vxcloud::cli
