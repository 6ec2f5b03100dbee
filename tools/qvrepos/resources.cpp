// qvrepos resources: what one job touches.
#include "jobs.h"

namespace {

struct ResourceRow {
  std::string type;
  std::string name;
  std::string location;
  std::string identity;
};

// The place of a resource as the export gives it: here the registered resolver is the store's own. The identity when it
// knows none.
std::string locate(QvImpactAnalysis* store, QvResource* resource) {
  QvbString name, uri;
  store->getDefaultResourceFactory()->getResourceResolver()->getResourceLocation(
      resource->getName(), resource->getResourceIdentity(), resource->getResourceType(), &name, &uri);
  return toString(uri.isEmpty() ? resource->getResourceIdentity() : uri);
}

void collect(QvImpactAnalysis* store, QvResourceList* list, std::vector<ResourceRow>& rows) {
  while (list->next()) {
    QvResource* resource = list->getValue();
    rows.push_back({toString(resource->getResourceType()), toString(resource->getName()),
                    locate(store, resource), toString(resource->getResourceIdentity())});
  }
}

void printRows(Host& host, const std::vector<ResourceRow>& rows) {
  if (host.json) {
    auto records = nlohmann::ordered_json::array();
    for (const auto& row : rows)
      records.push_back(
          {{"type", row.type}, {"name", row.name}, {"location", row.location}, {"identity", row.identity}});
    return host.printJson(records);
  }
  std::vector<std::vector<std::string>> cells;
  cells.reserve(rows.size());
  for (const auto& row : rows)
    cells.push_back({row.type, row.name, row.location});
  host.printTable({"TYPE", "NAME", "LOCATION"}, cells);
}

// Of each resource, what tells it apart.
std::vector<std::string> identitiesOf(const std::vector<ResourceRow>& rows) {
  std::vector<std::string> identities;
  identities.reserve(rows.size());
  for (const auto& row : rows)
    identities.push_back(row.identity);
  return identities;
}

void runResources(Host& host, const std::string& file, bool strict) {
  JobScanner scanner;
  const std::string path = file == "-" ? file : absolutePath(file);
  const auto scanned = scanner.scan(path);
  if (!scanned.failure.empty()) {
    host.reportFailure(scanned.failure);
    return noteOutcome(host, "0 resources", {.failed = 1});
  }
  const auto job = scanner.jobOf(path);
  std::vector<ResourceRow> rows;
  collect(scanner.store(), job.get(), rows);
  collect(scanner.store(), scanned.used.get(), rows);
  printRows(host, rows);
  noteLossyNames(host, identitiesOf(rows));
  if (!scanned.unknownRoot.empty())
    reportUnknownStep(host, path, scanned.unknownRoot, strict);
  if (strict)
    reportUnusableNames(host, path, scanned.unusableNames);
  noteOutcome(host, counted(rows.size(), "resource"),
              {.notUnderstood = scanned.unknownRoot.empty() ? 0U : 1U,
               .unusableNames = scanned.unusableNames.size()});
}

} // namespace

void addResourcesCommand(CLI::App& app, Host& host) {
  auto* command =
      app.add_subcommand("resources", "List the resources that one job touches, the job itself first");
  auto file = std::make_shared<std::string>();
  command->add_option("FILE", *file, "A job file, - for standard input")->required()->check(notEmpty());
  auto strict = std::make_shared<bool>();
  addStrictFlag(*command, *strict);
  addJsonFlag(*command, host, "an array of records: type, name, location, identity");
  command->footer("Example: qvrepos resources examples/repository/batch_jobs/clean_customers.djf");
  command->callback([&host, file, strict] { runResources(host, *file, *strict); });
}
