// qvrepos definitions: the repositories that applications can connect to.
#include "definitions.h"

#include "qvxbase/qvbconfig.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

namespace {

using Refusals = Released<QvReposRefusalList>;

// Warnings of files that are not loaded are shown where they are the matter.
DefinitionManager openManager(const Host& host) {
  host.setDefaultLogLevel(QvLoggingLevel::Anomaly);
  return DefinitionManager(getRepositoryConfigurationManager());
}

const char* typeName(QvReposConfiguration& definition) {
  return std::ranges::find(definitionTypes, definition.getType(), &DefinitionType::type)->name;
}

const char* connectionName(QvReposConfiguration& definition) {
  return getUnifiedReposConnectTypeName(definition.getUnifiedConnectionType());
}

const char* stateName(QvReposConfiguration& definition) {
  return definition.isActive() ? "active" : "inactive";
}

// For results that would be others if every file were loaded. A duplicate is none of them: the library warns of it.
void reportRefusedFiles(Host& host, QvReposConfigManager& manager) {
  host.setDefaultLogLevel(QvLoggingLevel::Error); // the warnings have been shown
  int count = 0;
  for (const Refusals refusals(manager.getRefusals()); refusals->next();)
    count += !refusals->isDuplicate();
  if (count > 0)
    host.reportFailure(fmt::format("{} not loaded; `qvrepos definitions check` says why",
                                   count == 1
                                       ? "1 file or folder of definitions was"
                                       : fmt::format("{} files or folders of definitions were", count)));
}

// What to do where no definitions can be.
void noteMissingFolders(Host& host) {
  if (std::ranges::all_of(folderOptions,
                          [](const QvbOption* option) { return qvbGetConfigOption(*option).isEmpty(); }))
    host.note(fmt::format(
        "neither {} nor {} is set: name the folder of the definitions with --set KEY=FOLDER or in the "
        "file of --config",
        folderOptions[0]->key, folderOptions[1]->key));
}

void listDefinitions(Host& host) {
  const DefinitionManager manager = openManager(host);
  const Released<QvReposConfigurationList> list(manager->getConfigurations());
  auto records = nlohmann::ordered_json::array();
  std::vector<std::vector<std::string>> rows;
  while (list->next()) {
    const Definition definition(list->getValue());
    if (host.json)
      records.push_back(definitionRecord(*definition));
    else
      rows.push_back({toString(definition->getName()), typeName(*definition), connectionName(*definition),
                      stateName(*definition), toString(definition->getFilename())});
  }
  if (host.json)
    host.printJson(records);
  else
    host.printTable({"NAME", "TYPE", "CONNECTION", "STATE", "FILE"}, rows);
  reportRefusedFiles(host, *manager);
  noteMissingFolders(host);
}

void showDefinition(Host& host, const std::string& name) {
  const DefinitionManager manager = openManager(host);
  const Definition definition = findDefinition(host, *manager, name);
  if (!definition)
    return;
  const auto fields = definitionRecord(*definition);
  if (host.json)
    return host.printJson(fields);
  std::vector<std::vector<std::string>> rows;
  for (const auto& [key, value] : fields.items())
    rows.push_back({key, value.is_string() ? value.get<std::string>() : value.dump()});
  host.printTable({"FIELD", "VALUE"}, rows);
}

void printDefault(Host& host) {
  const DefinitionManager manager = openManager(host);
  QvbString name;
  if (!manager->getDefaultConfiguration(&name)) {
    host.reportFailure(toString(manager->getErrorMessage()));
    reportRefusedFiles(host, *manager);
    noteMissingFolders(host);
  } else if (host.json)
    host.printJson({{"name", toString(name)}});
  else
    host.printLine(name.view());
}

// The files of the definitions that are loaded, in name order.
std::set<std::string> loadedFiles(QvReposConfigManager& manager) {
  std::set<std::string> files;
  for (const Released<QvReposConfigurationList> list(manager.getConfigurations()); list->next();)
    files.insert(toString(Definition(list->getValue())->getFilename()));
  return files;
}

// Prints which definitions are loaded, and reports what is not.
void checkDefinitions(Host& host) {
  host.setDefaultLogLevel(
      QvLoggingLevel::Error); // what the library warns of is reported here, with more detail
  const DefinitionManager manager(getRepositoryConfigurationManager());
  const auto loaded = loadedFiles(*manager);
  nlohmann::ordered_json report{{"loaded", loaded}, {"refused", nlohmann::ordered_json::array()}};
  for (const Refusals refusals(manager->getRefusals()); refusals->next();)
    report["refused"].push_back(
        {{"file", toString(refusals->getFilename())}, {"reason", toString(refusals->getReason())}});
  if (host.json)
    host.printJson(report);
  else
    host.printLine(fmt::format("{} definition{} loaded", loaded.size(), loaded.size() == 1 ? "" : "s"));
  for (const auto& refusal : report["refused"])
    host.reportFailure(refusal["reason"].get<std::string>());
  noteMissingFolders(host);
}

void addLookCommands(CLI::App& definitions, Host& host) {
  addDefinitionCommand(definitions, host, "list", "List all definitions in load order",
                       "an array of records as show prints", "--set BASE/REPOS_USER_PATH=$PWD/examples/user")
      ->callback([&host] { listDefinitions(host); });

  auto name = std::make_shared<std::string>();
  auto* show = addDefinitionCommand(definitions, host, "show", "Show one definition", definitionShape,
                                    "Ledger --set BASE/REPOS_USER_PATH=$PWD/examples/user");
  show->add_option("NAME", *name, definitionNameHelp)->required()->check(notEmpty());
  show->callback([&host, name] { showDefinition(host, *name); });

  addDefinitionCommand(definitions, host, "default", "Print the name of the default definition",
                       "a record: name", "--set BASE/REPOS_USER_PATH=$PWD/examples/user")
      ->callback([&host] { printDefault(host); });

  addDefinitionCommand(definitions, host, "check",
                       "Report every definition file that would not load, and why",
                       "a record: loaded, an array of files, and refused, an array of records: file, reason",
                       "--set BASE/REPOS_USER_PATH=$PWD/examples/user")
      ->callback([&host] { checkDefinitions(host); });
}

} // namespace

nlohmann::ordered_json definitionRecord(QvReposConfiguration& definition) {
  QvbString prefix, schema;
  definition.parseUnifiedRepositoryPrefixSchema(&prefix, &schema);
  return {{"name", toString(definition.getName())},
          {"type", typeName(definition)},
          {"active", definition.isActive()},
          {"vaultPath", toString(definition.getVaultPath())},
          {"vaultLogFile", toString(definition.getVaultLogFile())},
          {"connect", toString(definition.getUnifiedRepositoryConnect())},
          {"connection", connectionName(definition)},
          {"schema", toString(schema)},
          {"prefix", toString(prefix)},
          {"repositoryName", toString(definition.getUnifiedRepositoryName())},
          {"repositoryVersion", toString(definition.getUnifiedRepositoryVersion())},
          {"file", toString(definition.getFilename())}};
}

Definition findDefinition(Host& host, QvReposConfigManager& manager, const std::string& name) {
  Definition definition(manager.getConfigurationByName(QvbString(name)));
  if (!definition) {
    host.reportFailure("no repository definition is named \"" + name +
                       "\"; `qvrepos definitions list` shows all");
    reportRefusedFiles(host, manager);
    noteMissingFolders(host);
  }
  return definition;
}

CLI::App* addDefinitionCommand(CLI::App& definitions, Host& host, const char* name, const char* help,
                               const char* shape, const char* example) {
  auto* command = definitions.add_subcommand(name, help);
  addJsonFlag(*command, host, shape);
  command->footer(std::string("Example: qvrepos definitions ") + name + " " + example);
  return command;
}

void addDefinitionsCommand(CLI::App& app, Host& host) {
  auto* definitions = app.add_subcommand("definitions", "Look at the repository definitions and change them");
  definitions->require_subcommand(1);
  definitions->footer(
      fmt::format("The folders are the options {} and {}.", folderOptions[0]->key, folderOptions[1]->key));
  addLookCommands(*definitions, host);
  addDefinitionChanges(*definitions, host);
}
