// qvrepos diff: what changed in the lineage.
#include "graphs.h"
#include "usage.h"

#include "qvlineagegraph/formats.h"

#include <map>

using namespace qvlineagegraph;

namespace {

using WriteDiff = void (*)(const Diff&, const Graph&, const Graph&, std::string&);
const std::map<std::string, WriteDiff> writers{
    {"table", writeDiffTable}, {"json", writeDiffJson}, {"markdown", writeDiffMarkdown}};

struct DiffOptions {
  ScanArguments scan;
  std::string before;
  std::string after;
  std::string format;
  std::string output;
  bool exitCode = false;
};

void runDiff(Host& host, const DiffOptions& options) {
  refuseTwoForms(host, options.format);
  if (options.before == "-" && options.after == "-")
    refuseUsage("standard input can be one of both only; give a file for the other");
  const Graph before = scanned(host, options.scan, {options.before});
  const Graph after = scanned(host, options.scan, {options.after});
  for (const auto& [graph, path] : {std::pair(&before, &options.before), {&after, &options.after}})
    if (graph->nodeCount() == 0 && graph->counts().failed > 0)
      return; // everything would have come or gone
  const Diff changes = diff(before, after);
  std::string result;
  writers.at(host.json                ? "json"
             : options.format.empty() ? "table"
                                      : options.format)(changes, before, after, result);
  host.write(result, options.output);
  if (changes.empty())
    host.note("no difference");
  else if (options.exitCode)
    host.endFailed();
}

} // namespace

void addDiffCommand(CLI::App& app, Host& host) {
  auto* command =
      app.add_subcommand("diff", "Show what changed in the lineage, and what lies downstream of that");
  auto options = std::make_shared<DiffOptions>();
  const std::string what = " graph: a folder of job files, a job file or a saved graph (JSON)";
  command->add_option("OLD", options->before, "The older" + what)->required()->check(notEmpty());
  command->add_option("NEW", options->after, "The newer" + what)->required()->check(notEmpty());
  command->add_option("--format", options->format, "The form of the result (default: table)")
      ->type_name("FORMAT")
      ->transform(oneOfKeys(writers));
  addOutputOption(*command, options->output);
  command
      ->add_flag("--exit-code", options->exitCode,
                 "End with status 1 when there is a difference, and with 2 for a failure")
      ->each([&host](const std::string&) { host.tellFailuresApart(); });
  addScanOptions(*command, options->scan);
  addJsonFlag(*command, host, "a record: jobs, tables, edges, downstream, each an array of records");
  command->footer("Example: qvrepos diff --format markdown examples/repository/data_services "
                  "examples/repository/process_services");
  command->callback([&host, options] { runDiff(host, *options); });
}
