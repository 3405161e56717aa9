#pragma once
// A small, valid one-page PDF with a few lines of text, for the demo and for tests.
#include <string>
#include <vector>

namespace vxcloud::cli {

// Lines are printed top-down in Helvetica; characters outside printable ASCII become '?'.
std::string samplePdf(const std::vector<std::string>& lines);

}  // namespace vxcloud::cli
