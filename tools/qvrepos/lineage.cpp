// qvrepos lineage: the lineage of job files as XML.
#include "interrupt.h"
#include "jobs.h"
#include "progress.h"

#include "qvsfio/npfio.h"
#include "qvxdom/qvdom.h"

#include <stdexcept>

namespace {

constexpr std::size_t shownFrom = 20; // fewer files are read before a bar is

struct LineageOptions {
  std::vector<std::string> paths;
  std::string output;
  bool compact = false;
};

// Records what each job uses; files that cannot be read are reported and left out.
void recordJobs(Host& host, JobScanner& scanner, const std::vector<std::string>& files) {
  std::vector<std::string> failures;
  {
    ProgressBar bar(host, files.size(), shownFrom);
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

// A resource element's attributes, and the data path below it where there is one.
nlohmann::ordered_json resourceRecord(const QvDomNode& resource) {
  nlohmann::ordered_json record;
  for (const char* name : {"id", "label", "type", "analysisDate"})
    if (const auto value = resource.getAttributeValue(name); !value.isNull())
      record[name] = str(value);
  if (const auto path = resource.getFirstChild(false).getFirstChild(false); !path.null())
    record["dataPath"] = str(path.getValue(false));
  return record;
}

nlohmann::ordered_json modelRecord(const QvDomNode& model) {
  const QvDomNode resource = model.getFirstChild(false);
  auto record = resourceRecord(resource);
  auto& uses = record["uses"] = nlohmann::ordered_json::array();
  const QvDomNode nodes = resource.getNextSibling(false);
  for (auto node = nodes.getFirstChild(false); !node.null(); node = node.getNextSibling(false))
    uses.push_back(resourceRecord(node.getFirstChild(false)));
  return record;
}

// The lineage as JSON, element for element.
std::string jsonLineage(const QvbString& xml) {
  QvDom document;
  if (!document.loadXML(xml))
    throw std::runtime_error(str(document.getErrorMessage()));
  auto models = nlohmann::ordered_json::array();
  for (auto model = document.getRoot().getFirstChild(false); !model.null();
       model = model.getNextSibling(false))
    models.push_back(modelRecord(model));
  return jsonText(models);
}

void writeResult(Host& host, std::string_view result, const std::string& output) {
  if (output.empty())
    return host.print(result);
  const std::string path = absolutePath(nativePath(output));
  if (const auto reason = whyNotWritable(path); !reason.empty())
    return host.fail("cannot write " + output + ": " + reason);
  const Interrupts::Hold hold;
  if (const int code = np_fio_writeAll(text(path), text(result)))
    host.fail("cannot write " + output + ": " + np_fio_errdesc(code));
}

void runLineage(Host& host, const LineageOptions& options) {
  const JobFiles found = findJobFiles(options.paths);
  for (const auto& reason : found.failures)
    host.fail(reason);

  if (found.files.empty() && found.failures.empty())
    host.note("no job files were found: " + jobFileExtensions());

  JobScanner scanner;
  recordJobs(host, scanner, found.files);
  noteLossyNames(host, found.files);

  QvbString xml, message;
  if (!scanner.store()->getLineageAsString(&xml, &message, !options.compact))
    return host.fail("no lineage: " + str(message));
  if (options.compact)
    xml.append("\n");
  writeResult(host, host.json ? jsonLineage(xml) : str(xml), options.output);
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
      ->type_name("FILE")
      ->check(notEmpty());
  command->add_flag("--compact", options->compact, "Write XML without white space between elements");
  addJsonFlag(
      *command, host,
      "an array of records: id, label, type, analysisDate and dataPath where known, and uses, an array of "
      "such records without uses");
  command->footer("Example: qvrepos lineage examples/repository/process_services");
  command->callback([&host, options] { runLineage(host, *options); });
}
