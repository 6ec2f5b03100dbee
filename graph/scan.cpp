// Scanning: files are read by several threads, and what they say is joined in the order of the files.
#include "qvlineagegraph/scan.h"

#include "jobfacts.h"
#include "joiner.h"

#include "qvlineagegraph/parallel.h"

#include <memory>
#include <utility>

namespace qvlineagegraph {

namespace {

// Joins what the files say. False when the caller stopped it.
bool joinAll(const std::vector<JobFile>& files, const ScanOptions& options, Joiner& joiner) {
  std::vector<std::unique_ptr<JobFacts>> read(files.size());
  ParallelWork work;
  work.items = files.size();
  work.threads = options.threads;
  work.worker = [&] {
    return [&, reader = std::make_shared<JobReader>()](std::size_t i) {
      read[i] = std::make_unique_for_overwrite<JobFacts>();
      reader->read(files[i], options.input, *read[i]);
    };
  };
  work.take = [&](std::size_t i) { joiner.add(files[i], *read[i]); };
  work.release = [&](std::size_t i) { read[i].reset(); };
  if (options.progress)
    work.progress = [&](std::size_t done) { return options.progress(done, files.size()); };
  return workInOrder(work);
}

} // namespace

Result<Graph> scan(std::span<const std::string> paths, const ScanOptions& options) {
  JobFiles found = findJobFiles(paths, options.patterns);
  Joiner joiner(options.exact);
  for (Note& failure : found.failures)
    joiner.addFailure(std::move(failure));
  if (found.files.size() == 1 && found.failures.empty()) { // a saved graph is then the outcome as it is
    JobFacts facts;
    JobReader().read(found.files.front(), options.input, facts);
    if (facts.saved)
      return std::move(*facts.saved);
    joiner.add(found.files.front(), facts);
  } else if (!joinAll(found.files, options, joiner))
    return Error{ErrorKind::Stopped, "the scan was stopped"};
  return std::move(joiner).finish();
}

} // namespace qvlineagegraph
