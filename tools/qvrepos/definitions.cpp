// qvrepos definitions: the repositories that applications can connect to.
#include "host.h"

#include "qvreposres/qvreposconfigmgr.h"

namespace {

using Manager = Released<QvReposConfigManager>;
using Definition = Released<QvReposConfiguration>;

// Warnings of files that are not loaded are shown here, where they are the matter.
Manager openManager(const Host& host) {
  host.setDefaultLogLevel(QvLoggingLevel::Anomaly);
  return Manager(getRepositoryConfigurationManager());
}

const char* typeName(QvReposConfiguration& definition) {
  return definition.getType() == QvReposConfigTypeSystem ? "system" : "user";
}

const char* connectionName(QvReposConfiguration& definition) {
  switch (definition.getUnifiedConnectionType()) {
  case QvUnifiedReposConnectFile:
    return "File";
  case QvUnifiedReposConnectODBC:
    return "ODBC";
  case QvUnifiedReposConnectGRVS:
    return "GRVS";
  }
  return "";
}

const char* stateName(QvReposConfiguration& definition) {
  return definition.isActive() ? "active" : "inactive";
}

nlohmann::ordered_json record(QvReposConfiguration& definition) {
  QvbString prefix, schema;
  definition.parseUnifiedRepositoryPrefixSchema(&prefix, &schema);
  return {{"name", str(definition.getName())},
          {"type", typeName(definition)},
          {"active", definition.isActive()},
          {"vaultPath", str(definition.getVaultPath())},
          {"vaultLogFile", str(definition.getVaultLogFile())},
          {"connect", str(definition.getUnifiedRepositoryConnect())},
          {"connection", connectionName(definition)},
          {"schema", str(schema)},
          {"prefix", str(prefix)},
          {"repositoryName", str(definition.getUnifiedRepositoryName())},
          {"repositoryVersion", str(definition.getUnifiedRepositoryVersion())},
          {"file", str(definition.getFilename())}};
}

void listDefinitions(Host& host, bool json) {
  const Manager manager = openManager(host);
  const Released<QvReposConfigurationList> list(manager->getConfigurations());
  auto records = nlohmann::ordered_json::array();
  std::vector<std::vector<std::string>> rows;
  while (list->next()) {
    const Definition definition(list->getValue());
    if (json)
      records.push_back(record(*definition));
    else
      rows.push_back({str(definition->getName()), typeName(*definition), connectionName(*definition),
                      stateName(*definition), str(definition->getFilename())});
  }
  if (json)
    host.printJson(records);
  else
    host.printTable({"NAME", "TYPE", "CONNECTION", "STATE", "FILE"}, rows);
}

void showDefinition(Host& host, const std::string& name, bool json) {
  const Manager manager = openManager(host);
  const Definition definition(manager->getConfigurationByName(text(name)));
  if (!definition)
    return host.fail("no repository definition is named " + name);
  const auto fields = record(*definition);
  if (json)
    return host.printJson(fields);
  std::vector<std::vector<std::string>> rows;
  for (const auto& [key, value] : fields.items())
    rows.push_back({key, value.is_string() ? value.get<std::string>() : value.dump()});
  host.printTable({"FIELD", "VALUE"}, rows);
}

void printDefault(Host& host) {
  const Manager manager = openManager(host);
  QvbString name;
  if (manager->getDefaultConfiguration(&name))
    host.printLine(name.view());
  else
    host.fail(str(manager->getErrorMessage()));
}

} // namespace

void addDefinitionsCommand(CLI::App& app, Host& host) {
  auto* definitions = app.add_subcommand("definitions", "Look at the repository definitions");
  definitions->require_subcommand(1);
  definitions->footer("The folders are the options BASE/REPOS_SYS_PATH and BASE/REPOS_USER_PATH.\n"
                      "Example: qvrepos definitions list --set BASE/REPOS_USER_PATH=$PWD/examples/user");

  auto json = std::make_shared<bool>(false);
  const auto addJson = [json](CLI::App* command, const char* help) {
    command->add_flag("--json", *json, help);
  };

  auto* list = definitions->add_subcommand("list", "List all definitions in load order");
  addJson(list, "Print an array of records");
  list->callback([&host, json] { listDefinitions(host, *json); });

  auto name = std::make_shared<std::string>();
  auto* show = definitions->add_subcommand("show", "Show one definition");
  show->add_option("NAME", *name, "The definition's name, in any case")->required();
  addJson(show, "Print a record");
  show->callback([&host, name, json] { showDefinition(host, *name, *json); });

  auto* defaultCommand = definitions->add_subcommand("default", "Print the name of the default definition");
  defaultCommand->callback([&host] { printDefault(host); });
}
