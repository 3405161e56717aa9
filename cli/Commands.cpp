#include "Commands.h"

namespace vxcloud::cli {

void addVerbosity(CLI::App* command, CommonOptions& common) {
    command->add_flag("-v,--verbose", common.verbosity,
                      "Show each request's method, URL and status on stderr (tokens redacted); twice also shows "
                      "the component's own log");
}

void addSandbox(CLI::App* command, CommonOptions& common) {
    command->add_option("--sandbox", common.sandboxUrl,
                        "Use the vxcloud-sandbox at this URL (e.g. http://127.0.0.1:53682) instead of the real "
                        "services; also $VXCLOUD_SANDBOX or vxcloud sandbox-connect")
        ->type_name("URL");
}

void addJson(CLI::App* command, CommonOptions& common) {
    command->add_flag("--json", common.json, "Print the result as JSON for scripts");
}

void addNoInput(CLI::App* command, CommonOptions& common) {
    command->add_flag("--no-input", common.noInput,
                      "Never ask; without a terminal on stdin nothing is asked anyway");
}

void addQuiet(CLI::App* command, CommonOptions& common) {
    command->add_flag("-q,--quiet", common.quiet, "Show only errors and the final summary, no progress");
}

HostOptions hostOptions(const CommonOptions& common, bool offline) {
    HostOptions options;
    options.verbosity = common.verbosity;
    options.sandboxUrl = common.sandboxUrl;
    options.json = common.json;
    options.offline = offline;
    return options;
}

}  // namespace vxcloud::cli
