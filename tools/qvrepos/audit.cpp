// qvrepos audit: what looks wrong in the lineage.
#include "graphs.h"
#include "usage.h"

#include "qvlineagegraph/formats.h"

using namespace qvlineagegraph;

namespace {

struct AuditOptions {
  ScanArguments scan;
  std::vector<std::string> failOn;
  std::string output;
};

std::vector<std::string> kindNames() {
  std::vector<std::string> names;
  for (const FindingKind kind : findingKinds())
    names.emplace_back(nameOf(kind));
  return names;
}

void runAudit(Host& host, const AuditOptions& options) {
  const Graph graph = scanned(host, options.scan);
  const auto findings = audit(graph);
  std::string result;
  if (host.json)
    writeAuditJson(findings, graph, result);
  else
    writeAuditTable(findings, graph, result);
  host.write(result, options.output);
  for (const auto& kind : options.failOn)
    if (const auto count = std::ranges::count(findings, findingKindOf(kind), &Finding::kind); count > 0)
      host.reportFinding(counted(static_cast<std::size_t>(count), "finding") + " of the kind " + kind);
  noteCounts(host, graph);
}

} // namespace

void addAuditCommand(CLI::App& app, Host& host) {
  auto* command = app.add_subcommand("audit", "Show what looks wrong in the lineage, and where");
  auto options = std::make_shared<AuditOptions>();
  addPathOperands(*command, options->scan);
  command
      ->add_option(
          "--fail-on", options->failOn,
          "End with status 1 when there is a finding of one of these kinds, and with 2 for a failure")
      ->type_name("KIND,...")
      ->allow_extra_args(false)
      ->delimiter(',')
      ->transform(oneOf(kindNames()))
      ->each([&host](const std::string&) { host.tellFailuresApart(); });
  addOutputOption(*command, options->output);
  addScanOptions(*command, options->scan);
  addJsonFlag(*command, host,
              "an array of records: kind, message, nodes (an array of type, name, identity), files");
  command->footer("Example: qvrepos audit --fail-on cycle,case-only examples/repository/data_services");
  command->callback([&host, options] { runAudit(host, *options); });
}
