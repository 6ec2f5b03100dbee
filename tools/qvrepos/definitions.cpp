// qvrepos definitions: the repositories that applications can connect to.
#include "host.h"
#include "interrupt.h"
#include "refusals.h"

#include "qvreposres/qvreposconfigmgr.h"
#include "qvreposres/qvreposobjecttypes.h"
#include "qvxbase/qvbconfig.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>

namespace {

using Manager = Released<QvReposConfigManager>;
using Definition = Released<QvReposConfiguration>;

// Warnings of files that are not loaded are shown where they are the matter.
Manager openManager(const Host& host) {
  host.setDefaultLogLevel(QvLoggingLevel::Anomaly);
  return Manager(getRepositoryConfigurationManager());
}

// For changes, whose failures are reported here.
Manager openManagerForChange(const Host& host) {
  host.setDefaultLogLevel(QvLoggingLevel::Critical);
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

// For results that would be others if every file were loaded. A duplicate is none of them: the library warns of it.
void failForRefusals(Host& host, QvReposConfigManager& manager) {
  host.setDefaultLogLevel(QvLoggingLevel::Error); // the warnings have been shown
  const auto refusals = findRefusals(manager, loadedFiles(manager));
  const auto count = std::ranges::count(refusals, false, &Refusal::isDuplicate);
  if (count > 0)
    host.fail(fmt::format("{} not loaded; `qvrepos definitions check` says why",
                          count == 1 ? "1 file or folder of definitions was"
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
  const Manager manager = openManager(host);
  const Released<QvReposConfigurationList> list(manager->getConfigurations());
  auto records = nlohmann::ordered_json::array();
  std::vector<std::vector<std::string>> rows;
  while (list->next()) {
    const Definition definition(list->getValue());
    if (host.json)
      records.push_back(record(*definition));
    else
      rows.push_back({str(definition->getName()), typeName(*definition), connectionName(*definition),
                      stateName(*definition), str(definition->getFilename())});
  }
  if (host.json)
    host.printJson(records);
  else
    host.printTable({"NAME", "TYPE", "CONNECTION", "STATE", "FILE"}, rows);
  failForRefusals(host, *manager);
  noteMissingFolders(host);
}

Definition findDefinition(Host& host, QvReposConfigManager& manager, const std::string& name) {
  Definition definition(manager.getConfigurationByName(text(name)));
  if (!definition) {
    host.fail("no repository definition is named \"" + name + "\"; `qvrepos definitions list` shows all");
    failForRefusals(host, manager);
    noteMissingFolders(host);
  }
  return definition;
}

void showDefinition(Host& host, const std::string& name) {
  const Manager manager = openManager(host);
  const Definition definition = findDefinition(host, *manager, name);
  if (!definition)
    return;
  const auto fields = record(*definition);
  if (host.json)
    return host.printJson(fields);
  std::vector<std::vector<std::string>> rows;
  for (const auto& [key, value] : fields.items())
    rows.push_back({key, value.is_string() ? value.get<std::string>() : value.dump()});
  host.printTable({"FIELD", "VALUE"}, rows);
}

void printDefault(Host& host) {
  const Manager manager = openManager(host);
  QvbString name;
  if (!manager->getDefaultConfiguration(&name)) {
    host.fail(str(manager->getErrorMessage()));
    failForRefusals(host, *manager);
    noteMissingFolders(host);
  } else if (host.json)
    host.printJson({{"name", str(name)}});
  else
    host.printLine(name.view());
}

struct NewDefinition {
  std::string name;
  std::string type = "user";
  std::string vault;
  std::string connect;
  std::string connection = "File";
  std::string prefix;
  std::string logFile;
  bool inactive = false;
};

const std::map<std::string, QvUnifiedReposConnectType> connections{{"File", QvUnifiedReposConnectFile},
                                                                   {"ODBC", QvUnifiedReposConnectODBC},
                                                                   {"GRVS", QvUnifiedReposConnectGRVS}};

// A name is a file name: one that holds a separator would leave the folder.
bool isUsableName(Host& host, const std::string& name) {
  if (!name.empty() && !isInvalidCharInName(text(name)))
    return true;
  host.fail("a definition's name is not empty and holds none of " + std::string(getInvalidNameChars()) +
            ": " + visible(name));
  return false;
}

// What the library says of a save or a deletion is shown word for word, also when it succeeded all the same.
void reportOutcome(Host& host, QvReposConfigType type, bool done, const QvbString& message,
                   const std::string& name) {
  if (!message.isEmpty())
    host.fail(name + ": " + str(message));
  else if (!done)
    host.fail(name + ": the definition could not be changed");
  const auto* folder = folderOptions[type == QvReposConfigTypeSystem ? 0 : 1];
  if (!done && qvbGetConfigOption(*folder).isEmpty())
    host.note(fmt::format(
        "{0} is not set: name the folder of the {1} definitions with --set {0}=FOLDER or in the file of "
        "--config",
        folder->key, type == QvReposConfigTypeSystem ? "system's" : "user's"));
}

// Saves the definition and prints its file, or its record.
void saveDefinition(Host& host, QvReposConfigManager& manager, QvReposConfiguration& definition,
                    const std::string& name) {
  QvbString message;
  bool saved = false;
  {
    const Interrupts::Hold hold;
    saved = manager.saveConfiguration(&definition, &message);
  }
  reportOutcome(host, definition.getType(), saved, message, name);
  const Definition kept(host.json && saved ? manager.getConfigurationByName(text(name)) : nullptr);
  if (kept)
    host.printJson(record(*kept));
  else if (saved)
    host.printLine(definition.getFilename().view());
}

void createDefinition(Host& host, const NewDefinition& given) {
  if (!isUsableName(host, given.name))
    return;
  const Manager manager = openManagerForChange(host);
  if (manager->configurationExists(text(given.name)))
    return host.fail(given.name + ": there is a definition of that name already");
  const Definition definition(manager->createConfiguration(
      text(given.name), given.type == "system" ? QvReposConfigTypeSystem : QvReposConfigTypeUser));
  if (!given.vault.empty())
    definition->setVaultPath(text(absolutePath(given.vault)));
  definition->setUnifiedRepositoryConnect(text(given.connect));
  definition->setUnifiedRepositoryConnectType(text(given.connection));
  definition->setUnifiedConnectionType(connections.at(given.connection));
  definition->setUnifiedRepositoryPrefix(text(given.prefix));
  if (!given.logFile.empty())
    definition->setVaultLogFile(text(absolutePath(given.logFile)));
  definition->setActive(!given.inactive);
  saveDefinition(host, *manager, *definition, given.name);
}

void deleteDefinition(Host& host, const std::string& name) {
  const Manager manager = openManagerForChange(host);
  const Definition definition = findDefinition(host, *manager, name);
  if (!definition)
    return;
  const auto fields = record(*definition);
  QvbString message;
  bool deleted = false;
  {
    const Interrupts::Hold hold;
    deleted = manager->deleteConfiguration(definition.get(), &message);
  }
  reportOutcome(host, definition->getType(), deleted, message, name);
  if (deleted && host.json)
    host.printJson(fields);
}

void renameDefinition(Host& host, const std::string& name, const std::string& newName) {
  if (!isUsableName(host, newName))
    return;
  const Manager manager = openManagerForChange(host);
  const Definition definition = findDefinition(host, *manager, name);
  if (!definition)
    return;
  const Definition holder(manager->getConfigurationByName(text(newName)));
  if (holder && holder->getFilename().compare(definition->getFilename()) != 0)
    return host.fail(newName + ": there is a definition of that name already");
  definition->setName(text(newName));
  saveDefinition(host, *manager, *definition, newName);
}

// Prints which definitions are loaded, and reports what is not.
void printCheck(Host& host, const std::set<std::string>& loaded, const std::vector<Refusal>& refusals) {
  if (host.json) {
    nlohmann::ordered_json report{{"loaded", loaded}, {"refused", nlohmann::ordered_json::array()}};
    for (const auto& refusal : refusals)
      report["refused"].push_back({{"file", refusal.file}, {"reason", refusal.reason}});
    host.printJson(report);
  } else
    host.printLine(fmt::format("{} definition{} loaded", loaded.size(), loaded.size() == 1 ? "" : "s"));
  for (const auto& refusal : refusals)
    host.fail(refusal.reason);
}

void checkDefinitions(Host& host) {
  host.setDefaultLogLevel(
      QvLoggingLevel::Error); // what the library warns of is reported here, with more detail
  const Manager manager(getRepositoryConfigurationManager());
  const auto loaded = loadedFiles(*manager);
  printCheck(host, loaded, findRefusals(*manager, loaded));
  noteMissingFolders(host);
}

// A subcommand of definitions with --json and its example, which is tried in the project's folder.
CLI::App* addCommand(CLI::App& definitions, Host& host, const char* name, const char* help, const char* shape,
                     const char* example) {
  auto* command = definitions.add_subcommand(name, help);
  addJsonFlag(*command, host, shape);
  command->footer(std::string("Example: qvrepos definitions ") + name + " " + example);
  return command;
}

constexpr const char* recordShape = "a record: name, type, active, vaultPath, vaultLogFile, connect, "
                                    "connection, schema, prefix, repositoryName, "
                                    "repositoryVersion, file";
constexpr const char* nameHelp = "The definition's name, in any case";

void addLookCommands(CLI::App& definitions, Host& host) {
  addCommand(definitions, host, "list", "List all definitions in load order",
             "an array of records as show prints", "--set BASE/REPOS_USER_PATH=$PWD/examples/user")
      ->callback([&host] { listDefinitions(host); });

  auto name = std::make_shared<std::string>();
  auto* show = addCommand(definitions, host, "show", "Show one definition", recordShape,
                          "Ledger --set BASE/REPOS_USER_PATH=$PWD/examples/user");
  show->add_option("NAME", *name, nameHelp)->required();
  show->callback([&host, name] { showDefinition(host, *name); });

  addCommand(definitions, host, "default", "Print the name of the default definition", "a record: name",
             "--set BASE/REPOS_USER_PATH=$PWD/examples/user")
      ->callback([&host] { printDefault(host); });

  addCommand(definitions, host, "check", "Report every definition file that would not load, and why",
             "a record: loaded, an array of files, and refused, an array of records: file, reason",
             "--set BASE/REPOS_USER_PATH=$PWD/examples/user")
      ->callback([&host] { checkDefinitions(host); });
}

void addCreateCommand(CLI::App& definitions, Host& host) {
  auto given = std::make_shared<NewDefinition>();
  auto* create = addCommand(definitions, host, "create", "Save a new definition and print its file",
                            recordShape, "Orders --vault /srv/orders --set BASE/REPOS_USER_PATH=/tmp/orders");
  create->add_option("NAME", given->name, "The new definition's name")->required()->check(xmlText());
  create->add_option("--type", given->type, "user or system (default: user)")
      ->type_name("TYPE")
      ->check(CLI::IsMember({"user", "system"}));
  create->add_option("--vault", given->vault, "The folder of the repository's files")->type_name("DIR");
  create->add_option("--connect", given->connect, "The connection string of its database")
      ->type_name("STRING");
  create->add_option("--connection", given->connection, "ODBC, GRVS or File (default: File)")
      ->type_name("KIND")
      ->check(CLI::IsMember({"ODBC", "GRVS", "File"}));
  create
      ->add_option("--prefix", given->prefix,
                   "The prefix of its tables, with a schema and a dot before it if there is one")
      ->type_name("PREFIX");
  create->add_option("--log", given->logFile, "The repository's log file")->type_name("FILE");
  for (const char* option : {"--vault", "--connect", "--prefix", "--log"})
    create->get_option(option)->check(xmlText());
  create->add_flag("--inactive", given->inactive, "Save it as inactive");
  create->callback([&host, given] { createDefinition(host, *given); });
}

void addChangeCommands(CLI::App& definitions, Host& host) {
  auto name = std::make_shared<std::string>();
  auto newName = std::make_shared<std::string>();
  auto* rename =
      addCommand(definitions, host, "rename", "Give a definition another name, and its file with it",
                 recordShape, "Orders Purchases --set BASE/REPOS_USER_PATH=/tmp/orders");
  rename->add_option("NAME", *name, nameHelp)->required();
  rename->add_option("NEW", *newName, "The new name")->required()->check(xmlText());
  rename->callback([&host, name, newName] { renameDefinition(host, *name, *newName); });

  auto* remove =
      addCommand(definitions, host, "delete", "Delete a definition's file", "the record of what was deleted",
                 "Purchases --set BASE/REPOS_USER_PATH=/tmp/orders");
  remove->add_option("NAME", *name, nameHelp)->required();
  remove->callback([&host, name] { deleteDefinition(host, *name); });
}

} // namespace

void addDefinitionsCommand(CLI::App& app, Host& host) {
  auto* definitions = app.add_subcommand("definitions", "Look at the repository definitions and change them");
  definitions->require_subcommand(1);
  definitions->footer(
      fmt::format("The folders are the options {} and {}.", folderOptions[0]->key, folderOptions[1]->key));
  addLookCommands(*definitions, host);
  addCreateCommand(*definitions, host);
  addChangeCommands(*definitions, host);
}
