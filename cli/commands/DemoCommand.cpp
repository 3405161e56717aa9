// demo: the whole main job on an embedded sandbox, with nothing else set up.
#include "CliError.h"
#include "Commands.h"
#include "Demo.h"

namespace vxcloud::cli {

void addDemoCommand(CommandLine& line) {
    CommonOptions& common = line.common;
    Action& action = line.action;
    auto keep = std::make_shared<bool>(false);
    auto* demo = line.app.add_subcommand(
        "demo", "Show the main job on a sandbox started inside this process, in a private temporary home\n"
                "(your own accounts and records are not touched): link an account of every provider,\n"
                "choose upload folders, upload a generated PDF, upload it again (nothing is sent), change\n"
                "the remote copy (a conflict, then overwrite), rename it everywhere and move it.");
    demo->add_flag("--keep", *keep, "Keep the demo's temporary home and print where it is");
    addVerbosity(demo, common);
    demo->callback([&, keep] { action = [&, keep] { return runDemo(common, *keep); }; });
}

}  // namespace vxcloud::cli
