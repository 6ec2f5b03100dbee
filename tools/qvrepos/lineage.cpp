// qvrepos lineage: the lineage of job files as XML or JSON.
#include "jobs.h"
#include "progress.h"

#include "qvlineagegraph/parallel.h"

#include <memory>
#include <utility>

namespace {

constexpr std::size_t filesWithABar = 20; // fewer files are read before a bar is

struct LineageOptions {
  std::vector<std::string> paths;
  std::string output;
  bool compact = false;
  bool strict = false;
  bool failIfEmpty = false;
};

// Records what each job uses, in the order of the files, which are read by several threads.
std::vector<ScannedJob> recordJobs(const Host& host, JobScanner& recorder,
                                   const std::vector<qvlineagegraph::JobFile>& files) {
  std::vector<ScannedJob> jobs(files.size());
  ProgressBar bar(host, files.size(), filesWithABar);
  qvlineagegraph::ParallelWork work;
  work.items = files.size();
  work.worker = [&] {
    return [&, scanner = std::make_shared<JobScanner>()](std::size_t i) {
      jobs[i] = scanner->scan(files[i].path);
    };
  };
  work.take = [&](std::size_t i) {
    const auto& used = jobs[i].used;
    if (const auto job = used ? recorder.jobOf(files[i].path) : nullptr; job && job->next())
      recorder.store()->addDependentResources(job->getValue(), used.get());
    bar.step();
  };
  work.release = [&](std::size_t i) { jobs[i].used.reset(); };
  qvlineagegraph::workInOrder(work);
  return jobs;
}

// Names the files that cannot be read, those that are no step that is known, and, where the user is strict, the names that
// cannot be used. Their numbers.
Outcome reportJobs(Host& host, const std::vector<qvlineagegraph::JobFile>& files,
                   const std::vector<ScannedJob>& jobs, bool strict) {
  Outcome outcome;
  for (const auto& job : jobs)
    if (!job.failure.empty()) {
      host.reportFailure(job.failure);
      ++outcome.failed;
    }
  for (std::size_t i = 0; i < files.size(); ++i) {
    if (!jobs[i].unknownRoot.empty()) {
      reportUnknownStep(host, files[i].path, jobs[i].unknownRoot, strict);
      ++outcome.notUnderstood;
    }
    if (strict)
      reportUnusableNames(host, files[i].path, jobs[i].unusableNames);
    outcome.unusableNames += jobs[i].unusableNames.size();
  }
  return outcome;
}

void runLineage(Host& host, const LineageOptions& options) {
  std::vector<std::string> given;
  for (const auto& path : options.paths)
    given.push_back(path == "-" ? path : absolutePath(nativePath(path)));
  const auto found = qvlineagegraph::findJobFiles(given);
  for (const auto& failure : found.failures)
    host.reportFailure(failure.text);

  if (found.files.empty() && found.failures.empty())
    reportEmptiness(host, options.failIfEmpty);

  JobScanner recorder;
  const auto jobs = recordJobs(host, recorder, found.files);
  Outcome outcome = reportJobs(host, found.files, jobs, options.strict);
  std::vector<std::string> paths;
  for (const auto& file : found.files)
    paths.push_back(file.path);
  noteLossyNames(host, paths);
  noteSharedNames(host, paths);

  QvbString lineage, message;
  const bool isWritten = host.json
                             ? getLineageAsJson(recorder.store(), &lineage, &message)
                             : recorder.store()->getLineageAsString(&lineage, &message, !options.compact);
  if (!isWritten)
    return host.reportFailure("no lineage: " + toString(message));
  if (options.compact && !host.json)
    lineage.append("\n");
  host.write(lineage.view(), options.output);
  const auto understood = found.files.size() - outcome.failed - outcome.notUnderstood;
  outcome.failed += found.failures.size();
  noteOutcome(host, counted(understood, "job"), outcome);
}

} // namespace

void addLineageCommand(CLI::App& app, Host& host) {
  auto* command = app.add_subcommand("lineage", "Print the lineage of job files as XML");
  auto options = std::make_shared<LineageOptions>();
  command
      ->add_option(
          "PATH", options->paths,
          "Job files, folders that are searched for job files to any depth, and - for standard input")
      ->required()
      ->check(notEmpty());
  addOutputOption(*command, options->output);
  addStrictFlag(*command, options->strict);
  addFailIfEmptyFlag(*command, options->failIfEmpty);
  command->add_flag("--compact", options->compact, "Write XML without white space between elements");
  addJsonFlag(
      *command, host,
      "an array of records: id, label, type, analysisDate and dataPath where known, and uses, an array of "
      "such records without uses");
  command->footer("Example: qvrepos lineage examples/repository/process_services");
  command->callback([&host, options] { runLineage(host, *options); });
}
