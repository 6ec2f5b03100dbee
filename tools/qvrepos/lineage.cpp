// qvrepos lineage: the lineage of job files as XML.
#include "interrupt.h"
#include "jobs.h"
#include "progress.h"

#include "qvsfio/npfio.h"

namespace {

struct LineageOptions {
  std::vector<std::string> paths;
  std::string output;
  bool compact = false;
};

// Records what each job uses; files that cannot be read are reported and left out.
void recordJobs(Host& host, JobScanner& scanner, const std::vector<std::string>& files) {
  std::vector<std::string> failures;
  {
    ProgressBar bar(host, files.size());
    for (const auto& file : files) {
      const auto job = scanner.newList();
      const auto used = scanner.newList();
      const std::string reason = scanner.scan(file, job.get(), used.get());
      if (!reason.empty())
        failures.push_back(reason);
      else if (job->next())
        scanner.store()->addDependentResources(job->getValue(), used.get());
      bar.step();
    }
  }
  for (const auto& reason : failures)
    host.fail(reason);
}

void writeResult(Host& host, const QvbString& xml, const std::string& output) {
  if (output.empty())
    return host.print(xml.view());
  const Interrupts::Hold hold;
  if (const int code = np_fio_writeAll(text(absolutePath(output)), xml))
    host.fail("cannot write " + output + ": " + np_fio_errdesc(code));
}

void runLineage(Host& host, const LineageOptions& options) {
  const JobFiles found = findJobFiles(options.paths);
  for (const auto& reason : found.failures)
    host.fail(reason);

  JobScanner scanner;
  recordJobs(host, scanner, found.files);

  QvbString xml, message;
  if (!scanner.store()->getLineageAsString(&xml, &message, !options.compact))
    return host.fail("no lineage: " + str(message));
  if (options.compact)
    xml.append("\n");
  writeResult(host, xml, options.output);
}

} // namespace

void addLineageCommand(CLI::App& app, Host& host) {
  auto* command = app.add_subcommand("lineage", "Print the lineage of job files as XML");
  auto options = std::make_shared<LineageOptions>();
  command
      ->add_option("PATH", options->paths,
                   "Job files, and folders that are searched for job files to any depth")
      ->required();
  command->add_option("-o,--output", options->output, "Write to this file instead of standard output")
      ->type_name("FILE");
  command->add_flag("--compact", options->compact, "Write no white space between elements");
  command->footer("Example: qvrepos lineage examples/repository/process_services");
  command->callback([&host, options] { runLineage(host, *options); });
}
