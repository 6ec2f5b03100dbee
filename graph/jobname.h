// The short names of jobs.
#pragma once

#include "qvlineagegraph/scan.h"

#include <vector>

namespace qvlineagegraph {

// Turns the names, which are paths below what was given, into short ones that differ from each other without regard to
// case: without extension; with it where that is taken twice; the whole path where that is, too.
void nameJobs(std::vector<JobFile>& files);

} // namespace qvlineagegraph
