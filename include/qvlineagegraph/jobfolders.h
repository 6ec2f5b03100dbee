// Folders of job files for the lineage of qvreposres/cpp.h, searched as the host tool searches them. Needs both
// libraries.
#pragma once

#include "qvlineagegraph/scan.h"
#include "qvreposres/cpp.h"

namespace qvlineagegraph {

// Records every job that a file stands for, or that lies below a folder (findJobFiles()); the others count when one cannot
// be read. The result tells of those.
inline std::vector<qvreposres::Error> recordJobs(qvreposres::Lineage& lineage,
                                                 const std::filesystem::path& fileOrFolder,
                                                 const PathPatterns& patterns = {}) {
  const std::string path = fileOrFolder.string();
  const JobFiles found = findJobFiles(std::span(&path, 1), patterns);
  std::vector<qvreposres::Error> errors;
  for (const Note& failure : found.failures)
    errors.push_back({failure.text, failure.file});
  for (const JobFile& file : found.files)
    if (auto job = lineage.record(file.path); !job)
      errors.push_back(job.error());
  return errors;
}

} // namespace qvlineagegraph
