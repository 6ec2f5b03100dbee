// qvrepos definitions: the repositories that applications can connect to.
#include "host.h"

#include "qvreposres/qvreposconfigmgr.h"
#include "qvreposres/qvreposobjecttypes.h"
#include "qvxbase/qvbconfig.h"
#include "qvxbase/qvbpath.h"
#include "qvxdom/qvdom.h"

#include <map>
#include <set>

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

Definition findDefinition(Host& host, QvReposConfigManager& manager, const std::string& name) {
  Definition definition(manager.getConfigurationByName(text(name)));
  if (!definition)
    host.fail("no repository definition is named " + name);
  return definition;
}

void showDefinition(Host& host, const std::string& name, bool json) {
  const Manager manager = openManager(host);
  const Definition definition = findDefinition(host, *manager, name);
  if (!definition)
    return;
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
void reportOutcome(Host& host, bool done, const QvbString& message, const std::string& name) {
  if (!message.isEmpty())
    host.fail(name + ": " + str(message));
  else if (!done)
    host.fail(name + ": the definition could not be changed");
}

void createDefinition(Host& host, const NewDefinition& given) {
  if (!isUsableName(host, given.name))
    return;
  const Manager manager = openManager(host);
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
  definition->setVaultLogFile(text(given.logFile));
  definition->setActive(!given.inactive);
  QvbString message;
  const bool saved = manager->saveConfiguration(definition.get(), &message);
  reportOutcome(host, saved, message, given.name);
  if (saved)
    host.printLine(definition->getFilename().view());
}

void deleteDefinition(Host& host, const std::string& name) {
  const Manager manager = openManager(host);
  const Definition definition = findDefinition(host, *manager, name);
  if (!definition)
    return;
  QvbString message;
  const bool deleted = manager->deleteConfiguration(definition.get(), &message);
  reportOutcome(host, deleted, message, name);
}

void renameDefinition(Host& host, const std::string& name, const std::string& newName) {
  if (!isUsableName(host, newName))
    return;
  const Manager manager = openManager(host);
  const Definition definition = findDefinition(host, *manager, name);
  if (!definition)
    return;
  const Definition holder(manager->getConfigurationByName(text(newName)));
  if (holder && holder->getFilename().compare(definition->getFilename()) != 0)
    return host.fail(newName + ": there is a definition of that name already");
  definition->setName(text(newName));
  QvbString message;
  const bool saved = manager->saveConfiguration(definition.get(), &message);
  reportOutcome(host, saved, message, newName);
  if (saved)
    host.printLine(definition->getFilename().view());
}

// The files of a folder that the library takes for definition files.
std::vector<QvbString> definitionFiles(Host& host, const char* option) {
  std::vector<QvbString> files;
  const QvbString folder = qvbGetConfigOption(option);
  if (folder.isEmpty())
    return files;
  QvbString error;
  const Released<QvbDirectory> directory(qvbDirectoryOpen(folder, 0, &error));
  if (!directory)
    host.fail(std::string(option) + ": " + str(error));
  while (directory && directory->next())
    if (directory->getName().view().ends_with("rcf"))
      files.push_back(directory->getPath());
  return files;
}

// Why a file that was not loaded was not, given what was.
std::string whyNotLoaded(const QvbString& file, QvReposConfigManager& manager) {
  QvDom document;
  if (!document.loadFile(file))
    return str(document.getErrorMessage());
  const auto isDefinition = [](const QvDomNode& node) {
    return node.getName().compare("VaultRepositoryInfo", true) == 0;
  };
  QvDomNode element = document.getRoot();
  if (!isDefinition(element))
    for (element = element.getFirstChild(false); !element.null() && !isDefinition(element);)
      element = element.getNextSibling(false);
  if (element.null())
    return "The file \"" + str(file) + "\" is not a valid definition file.";
  const QvbString name = element.getAttributeValue("Name");
  const Definition winner(manager.getConfigurationByName(name));
  return str(file) + ": a definition named \"" + str(name) + "\" is loaded from " +
         (winner ? str(winner->getFilename()) : "another file");
}

void checkDefinitions(Host& host) {
  host.setDefaultLogLevel(
      QvLoggingLevel::Error); // what the library warns of is reported here, with more detail
  const Manager manager(getRepositoryConfigurationManager());
  std::set<std::string> loaded;
  const Released<QvReposConfigurationList> list(manager->getConfigurations());
  while (list->next())
    loaded.insert(str(Definition(list->getValue())->getFilename()));
  for (const char* option : {"BASE/REPOS_SYS_PATH", "BASE/REPOS_USER_PATH"})
    for (const auto& file : definitionFiles(host, option))
      if (!loaded.contains(str(file)))
        host.fail(whyNotLoaded(file, *manager));
  host.printLine(std::to_string(loaded.size()) + (loaded.size() == 1 ? " definition" : " definitions") +
                 " loaded");
}

void addCreateCommand(CLI::App& definitions, Host& host) {
  auto given = std::make_shared<NewDefinition>();
  auto* create = definitions.add_subcommand("create", "Save a new definition and print its file");
  create->add_option("NAME", given->name, "The new definition's name")->required();
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
  create->add_flag("--inactive", given->inactive, "Save it as inactive");
  create->footer("Example: qvrepos definitions create Orders --vault /srv/orders --set "
                 "BASE/REPOS_USER_PATH=/tmp/orders");
  create->callback([&host, given] { createDefinition(host, *given); });
}

void addChangeCommands(CLI::App& definitions, Host& host) {
  auto name = std::make_shared<std::string>();
  auto newName = std::make_shared<std::string>();
  auto* remove = definitions.add_subcommand("delete", "Delete a definition's file");
  remove->add_option("NAME", *name, "The definition's name, in any case")->required();
  remove->callback([&host, name] { deleteDefinition(host, *name); });

  auto* rename = definitions.add_subcommand("rename", "Give a definition another name, and its file with it");
  rename->add_option("NAME", *name, "The definition's name, in any case")->required();
  rename->add_option("NEW", *newName, "The new name")->required();
  rename->callback([&host, name, newName] { renameDefinition(host, *name, *newName); });

  auto* check =
      definitions.add_subcommand("check", "Report every definition file that would not load, and why");
  check->callback([&host] { checkDefinitions(host); });
}

} // namespace

void addDefinitionsCommand(CLI::App& app, Host& host) {
  auto* definitions = app.add_subcommand("definitions", "Look at the repository definitions and change them");
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

  addCreateCommand(*definitions, host);
  addChangeCommands(*definitions, host);
}
