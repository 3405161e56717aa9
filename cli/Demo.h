#pragma once
// `vxcloud demo`: the main job end to end on an embedded sandbox.
namespace vxcloud::cli {

struct CommonOptions;

int runDemo(const CommonOptions& common, bool keepHome);

}  // namespace vxcloud::cli
