// The short names of jobs.
#pragma once

#include "qvlineagegraph/scan.h"

#include <string_view>
#include <vector>

namespace qvlineagegraph {

// The path without its extension. A dot that begins a file's name begins none.
std::string_view withoutExtension(std::string_view path);

// Turns the names, which are paths below what was given, into short ones that differ from each other without regard to
// case: without extension; with it where that is taken twice, or once by a file with its extension; the whole path where
// that is, too.
void nameJobs(std::vector<JobFile>& files);

} // namespace qvlineagegraph
