// qvrepos lineage: the lineage of job files as XML.
#include "jobs.h"
#include "progress.h"

#include "qvxdom/qvdom.h"

#include <stdexcept>

namespace {

constexpr std::size_t shownFrom = 20; // fewer files are read before a bar is

struct LineageOptions {
  std::vector<std::string> paths;
  std::string output;
  bool compact = false;
  bool strict = false;
  bool failIfEmpty = false;
};

// Records what each job uses; files that cannot be read are reported and left out, those that are no step that is known
// are named.
void recordJobs(Host& host, JobScanner& scanner, const std::vector<qvlineagegraph::JobFile>& files,
                bool strict) {
  std::vector<std::string> failures;
  std::vector<std::pair<std::string, std::string>> unknown;
  {
    ProgressBar bar(host, files.size(), shownFrom);
    for (const auto& [file, name] : files) {
      const auto job = scanner.newList();
      const auto used = scanner.newList();
      const auto scanned = scanner.scan(file, job.get(), used.get());
      if (!scanned.failure.empty())
        failures.push_back(scanned.failure);
      else if (job->next())
        scanner.store()->addDependentResources(job->getValue(), used.get());
      if (!scanned.unknownRoot.empty())
        unknown.emplace_back(file, scanned.unknownRoot);
      bar.step();
    }
  }
  for (const auto& reason : failures)
    host.fail(reason);
  for (const auto& [file, root] : unknown)
    reportUnknownStep(host, file, root, strict);
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

void runLineage(Host& host, const LineageOptions& options) {
  std::vector<std::string> given;
  for (const auto& path : options.paths)
    given.push_back(path == "-" ? path : absolutePath(nativePath(path)));
  const auto found = qvlineagegraph::findJobFiles(given);
  for (const auto& failure : found.failures)
    host.fail(failure.text);

  if (found.files.empty() && found.failures.empty())
    reportEmptiness(host, options.failIfEmpty);

  JobScanner scanner;
  recordJobs(host, scanner, found.files, options.strict);
  std::vector<std::string> paths;
  for (const auto& file : found.files)
    paths.push_back(file.path);
  noteLossyNames(host, paths);
  noteSharedNames(host, paths);

  QvbString xml, message;
  if (!scanner.store()->getLineageAsString(&xml, &message, !options.compact))
    return host.fail("no lineage: " + str(message));
  if (options.compact)
    xml.append("\n");
  host.write(host.json ? jsonLineage(xml) : str(xml), options.output);
}

} // namespace

void addLineageCommand(CLI::App& app, Host& host) {
  auto* command = app.add_subcommand("lineage", "Print the lineage of job files as XML");
  auto options = std::make_shared<LineageOptions>();
  command
      ->add_option(
          "PATH", options->paths,
          "Job files, folders that are searched for job files to any depth, and - for standard input")
      ->required();
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
