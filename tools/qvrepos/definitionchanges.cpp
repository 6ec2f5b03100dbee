// qvrepos definitions create, set, rename and delete.
#include "changelock.h"
#include "definitions.h"
#include "interrupt.h"
#include "usage.h"

#include "qvreposres/qvreposobjecttypes.h"
#include "qvxbase/qvbconfig.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

// An empty path takes the one that there was away.
QvbString pathField(const std::string& given) {
  return QvbString(given.empty() ? given : absolutePath(given));
}

void setType(QvReposConfiguration& definition, const std::string& name) {
  definition.setType(std::ranges::find(definitionTypes, name, &DefinitionType::name)->type);
}

void setConnection(QvReposConfiguration& definition, const std::string& name) {
  definition.setUnifiedRepositoryConnectType(QvbString(name));
  for (const auto type : connectionTypes)
    if (name == getUnifiedReposConnectTypeName(type))
      definition.setUnifiedConnectionType(type);
}

// A field that both a new definition and one that there is can be given.
struct FieldOption {
  const char* name;
  const char* value; // as the help calls it
  const char* help;
  void (*set)(QvReposConfiguration&, const std::string&);
  std::vector<std::string> choices = {}; // any text that XML can carry where there are none
};

const std::array fieldOptions{
    FieldOption{"--type", "TYPE", "user or system", setType, namesOf(definitionTypes, &DefinitionType::name)},
    FieldOption{"--vault", "DIR", "The folder of the repository's files",
                [](auto& definition, auto& given) { definition.setVaultPath(pathField(given)); }},
    FieldOption{
        "--connect", "STRING", "The connection string of its database",
        [](auto& definition, auto& given) { definition.setUnifiedRepositoryConnect(QvbString(given)); }},
    FieldOption{"--connection", "KIND", "ODBC, GRVS or File", setConnection,
                namesOf(connectionTypes, getUnifiedReposConnectTypeName)},
    FieldOption{
        "--prefix", "PREFIX", "The prefix of its tables, with a schema and a dot before it if there is one",
        [](auto& definition, auto& given) { definition.setUnifiedRepositoryPrefix(QvbString(given)); }},
    FieldOption{"--log", "FILE", "The repository's log file",
                [](auto& definition, auto& given) { definition.setVaultLogFile(pathField(given)); }},
    FieldOption{"--repository-name", "NAME", "The repository's name in its database",
                [](auto& definition, auto& given) { definition.setUnifiedRepositoryName(QvbString(given)); }},
    FieldOption{
        "--repository-version", "VERSION", "The repository's version",
        [](auto& definition, auto& given) { definition.setUnifiedRepositoryVersion(QvbString(given)); }},
};

// What is given of a definition; the other fields stay as they are.
struct Fields {
  std::optional<std::string> name;
  std::optional<bool> active;
  std::array<std::optional<std::string>, fieldOptions.size()> options;

  bool isAnyGiven() const {
    return name || active ||
           std::ranges::any_of(options, [](const auto& given) { return given.has_value(); });
  }
};

void apply(const Fields& fields, QvReposConfiguration& definition) {
  if (fields.name)
    definition.setName(QvbString(*fields.name));
  if (fields.active)
    definition.setActive(*fields.active);
  for (std::size_t field = 0; field < fieldOptions.size(); ++field)
    if (fields.options[field])
      fieldOptions[field].set(definition, *fields.options[field]);
}

// The folder of the definitions of that type; empty when there is none.
std::string folderOf(QvReposConfigManager& manager, QvReposConfigType type) {
  QvbString file;
  return manager.getConfigurationFilename("x", type, &file) ? fs::path(toString(file)).parent_path().string()
                                                            : "";
}

// A manager for changes, whose failures are reported here, while no other process makes any.
struct Change {
  explicit Change(const Host& host) : manager(openManager(host)), lock(folders(*manager)) {}

  const DefinitionManager manager;
  const ChangeLock lock;

private:
  static DefinitionManager openManager(const Host& host) {
    host.setDefaultLogLevel(QvLoggingLevel::Critical);
    return DefinitionManager(getRepositoryConfigurationManager());
  }
  // Names are unique among the definitions of both types.
  static std::vector<std::string> folders(QvReposConfigManager& manager) {
    std::vector<std::string> all;
    for (const auto type : {QvReposConfigTypeSystem, QvReposConfigTypeUser})
      if (auto folder = folderOf(manager, type); !folder.empty())
        all.push_back(std::move(folder));
    return all;
  }
};

// A name is a file name: one that holds a separator would leave the folder.
bool isUsableName(Host& host, const std::string& name) {
  if (!name.empty() && !isInvalidCharInName(QvbString(name)))
    return true;
  host.reportFailure("a definition's name is not empty and holds none of " +
                     std::string(getInvalidNameChars()) + ": " + visible(name));
  return false;
}

// Whether files may be put into the folder, and taken out of it, as far as can be told. A missing one is the library's
// matter.
bool isWritable(Host& host, const std::string& name, const std::string& folder) {
  if (access(folder.c_str(), W_OK | X_OK) == 0 || errno == ENOENT)
    return true;
  host.reportFailure(
      fmt::format("{}: the definitions in {} cannot be changed: {}", name, folder, std::strerror(errno)));
  return false;
}

// The library takes a file whose name differs in case alone for the definition's own, and would replace it.
bool isFreeForOther(Host& host, const std::string& name, const std::string& oldFile,
                    const std::string& target) {
  std::error_code ignored;
  if (target == oldFile || !qvbEqualsIgnoreCase(target, oldFile) || !fs::exists(target, ignored) ||
      fs::equivalent(target, oldFile, ignored))
    return true;
  host.reportFailure(
      name + ": there is a file of that name already; choose another name, or move it away: " + target);
  return false;
}

void reportTaken(Host& host, const std::string& name) {
  host.reportFailure(name + ": there is a definition of that name already; choose another name, or change "
                            "that one with `qvrepos definitions set`");
}

// What the library says of a save or a deletion that failed is shown word for word.
void reportUnchanged(Host& host, QvReposConfigType type, const QvbString& message, const std::string& name) {
  host.reportFailure(name + ": " +
                     (message.isEmpty() ? "the definition could not be changed" : toString(message)));
  const auto* folder = folderOptions[type == QvReposConfigTypeSystem ? 0 : 1];
  if (qvbGetConfigOption(*folder).isEmpty())
    host.note(fmt::format(
        "{0} is not set: name the folder of the {1} definitions with --set {0}=FOLDER or in the file of "
        "--config",
        folder->key, type == QvReposConfigTypeSystem ? "system's" : "user's"));
}

// Whether the definition may be saved in a file of its own.
bool maySave(Host& host, QvReposConfigManager& manager, QvReposConfiguration& definition) {
  const auto name = toString(definition.getName());
  const auto oldFile = toString(definition.getFilename());
  QvbString file;
  if (!manager.getConfigurationFilename(definition.getName(), definition.getType(), &file))
    return true; // the library says what is missing
  const auto target = toString(file);
  return isWritable(host, name, fs::path(target).parent_path()) &&
         (oldFile.empty() || isWritable(host, name, fs::path(oldFile).parent_path())) &&
         isFreeForOther(host, name, oldFile, target);
}

// Saves the definition and prints its file, or its record.
void saveDefinition(Host& host, QvReposConfigManager& manager, QvReposConfiguration& definition) {
  if (!maySave(host, manager, definition))
    return;
  const auto name = toString(definition.getName());
  const auto oldFile = toString(definition.getFilename());
  QvbString message;
  bool saved = false;
  {
    const Interrupts::Hold hold;
    saved = manager.saveConfiguration(&definition, &message);
  }
  if (!saved)
    return reportUnchanged(host, definition.getType(), message, name);
  if (!message.isEmpty())
    host.reportFailure(
        fmt::format("{}: {}; the old file stays, delete it: {}", name, toString(message), oldFile));
  const Definition kept(host.json ? manager.getConfigurationByName(definition.getName()) : nullptr);
  if (kept)
    host.printJson(definitionRecord(*kept));
  else
    host.printLine(definition.getFilename().view());
}

void createDefinition(Host& host, const Fields& fields) {
  const auto& name = *fields.name;
  if (!isUsableName(host, name))
    return;
  const Change change(host);
  if (change.manager->configurationExists(QvbString(name)))
    return reportTaken(host, name);
  const Definition definition(change.manager->createConfiguration(QvbString(name), QvReposConfigTypeUser));
  setConnection(*definition, getUnifiedReposConnectTypeName(QvUnifiedReposConnectFile));
  apply(fields, *definition);
  saveDefinition(host, *change.manager, *definition);
}

void setFields(Host& host, const std::string& name, const Fields& fields) {
  if (fields.name && !isUsableName(host, *fields.name))
    return;
  const Change change(host);
  const Definition definition = findDefinition(host, *change.manager, name);
  if (!definition)
    return;
  const Definition holder(fields.name ? change.manager->getConfigurationByName(QvbString(*fields.name))
                                      : nullptr);
  if (holder && holder->getFilename() != definition->getFilename())
    return reportTaken(host, *fields.name);
  apply(fields, *definition);
  saveDefinition(host, *change.manager, *definition);
}

void deleteDefinition(Host& host, const std::string& name) {
  const Change change(host);
  const Definition definition = findDefinition(host, *change.manager, name);
  if (!definition || !isWritable(host, name, fs::path(toString(definition->getFilename())).parent_path()))
    return;
  QvbString message;
  bool deleted = false;
  {
    const Interrupts::Hold hold;
    deleted = change.manager->deleteConfiguration(definition.get(), &message);
  }
  if (!deleted)
    reportUnchanged(host, definition->getType(), message, name);
  else if (host.json)
    host.printJson(definitionRecord(*definition));
}

void addFieldOptions(CLI::App& command, Fields& fields) {
  for (std::size_t field = 0; field < fieldOptions.size(); ++field) {
    const auto& option = fieldOptions[field];
    command.add_option(option.name, fields.options[field], option.help)
        ->type_name(option.value)
        ->transform(option.choices.empty() ? xmlText() : oneOf(option.choices));
  }
}

void addCreateCommand(CLI::App& definitions, Host& host) {
  auto fields = std::make_shared<Fields>();
  fields->name = "";
  auto* create = addDefinitionCommand(definitions, host, "create", "Save a new definition and print its file",
                                      definitionShape,
                                      "Orders --vault /srv/orders --set BASE/REPOS_USER_PATH=/tmp/orders");
  create->add_option("NAME", *fields->name, "The new definition's name")->required()->check(xmlText());
  addFieldOptions(*create, *fields);
  create->get_option("--type")->description("user or system (default: user)");
  create->get_option("--connection")->description("ODBC, GRVS or File (default: File)");
  create->add_flag_callback(
      "--inactive", [fields] { fields->active = false; }, "Save it as inactive");
  create->callback([&host, fields] { createDefinition(host, *fields); });
}

void addSetCommand(CLI::App& definitions, Host& host) {
  auto name = std::make_shared<std::string>();
  auto fields = std::make_shared<Fields>();
  auto* set = addDefinitionCommand(
      definitions, host, "set", "Change fields of a definition and print its file", definitionShape,
      "Orders --vault /srv/orders/2026 --deactivate --set BASE/REPOS_USER_PATH=/tmp/orders");
  set->add_option("NAME", *name, definitionNameHelp)->required()->check(notEmpty());
  set->add_option("--name", fields->name, "Another name; its file goes by it, too")
      ->type_name("NEW")
      ->check(xmlText());
  addFieldOptions(*set, *fields);
  set->get_option("--type")->description("user or system; its file moves to that folder");
  auto* activate = set->add_flag_callback(
      "--activate", [fields] { fields->active = true; }, "Make it active");
  set->add_flag_callback(
         "--deactivate", [fields] { fields->active = false; }, "Make it inactive")
      ->excludes(activate);
  set->callback([&host, name, fields] {
    if (!fields->isAnyGiven())
      throw CLI::RequiredError("an option that says what to change");
    setFields(host, *name, *fields);
  });
}

void addRenameCommand(CLI::App& definitions, Host& host) {
  auto name = std::make_shared<std::string>();
  auto fields = std::make_shared<Fields>();
  fields->name = "";
  auto* rename = addDefinitionCommand(definitions, host, "rename",
                                      "Give a definition another name, and its file with it", definitionShape,
                                      "Orders Purchases --set BASE/REPOS_USER_PATH=/tmp/orders");
  rename->add_option("NAME", *name, definitionNameHelp)->required();
  rename->add_option("NEW", *fields->name, "The new name")->required()->check(xmlText());
  rename->callback([&host, name, fields] { setFields(host, *name, *fields); });
}

void addDeleteCommand(CLI::App& definitions, Host& host) {
  auto name = std::make_shared<std::string>();
  auto* remove = addDefinitionCommand(definitions, host, "delete", "Delete a definition's file",
                                      "the record of what was deleted",
                                      "Purchases --set BASE/REPOS_USER_PATH=/tmp/orders");
  remove->add_option("NAME", *name, definitionNameHelp)->required()->check(notEmpty());
  remove->callback([&host, name] { deleteDefinition(host, *name); });
}

} // namespace

void addDefinitionChanges(CLI::App& definitions, Host& host) {
  addCreateCommand(definitions, host);
  addSetCommand(definitions, host);
  addRenameCommand(definitions, host);
  addDeleteCommand(definitions, host);
}
