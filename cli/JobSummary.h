#pragma once
// How a job ends on the terminal: each document that did not reach every account it was
// meant for says on how many it was done and what happened on the others (its progress rows
// may have scrolled away), then the count of documents done.
#include <string>

#include "DocumentJobs.h"

namespace vxcloud::cli {

// `ok`: the job succeeded as a whole (its records written too). `quiet`: no progress rows were
// shown (-q), so every account gets its line, and the count ends even a job that went well.
std::string jobSummary(const JobReport& report, bool ok, bool quiet);

}  // namespace vxcloud::cli
