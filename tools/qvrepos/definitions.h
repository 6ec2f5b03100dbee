// What the subcommands of `qvrepos definitions` share.
#pragma once

#include "host.h"

#include "qvreposres/qvreposconfigmgr.h"
#include "qvxbase/qvboptions.h"

#include <algorithm>
#include <iterator>

using DefinitionManager = Released<QvReposConfigManager>;
using Definition = Released<QvReposConfiguration>;

// The options that name the folders of the system's and of the user's definitions.
inline constexpr const QvbOption* folderOptions[] = {&QvbOptions::SystemDefinitions,
                                                     &QvbOptions::UserDefinitions};

// In the order in which the help names them.
inline constexpr QvUnifiedReposConnectType connectionTypes[] = {
    QvUnifiedReposConnectODBC, QvUnifiedReposConnectGRVS, QvUnifiedReposConnectFile};
struct DefinitionType {
  const char* name;
  QvReposConfigType type;
};
inline constexpr DefinitionType definitionTypes[] = {{"user", QvReposConfigTypeUser},
                                                     {"system", QvReposConfigTypeSystem}};

template<class Range, class Name>
std::vector<std::string> namesOf(const Range& values, Name name) {
  std::vector<std::string> names;
  std::ranges::transform(values, std::back_inserter(names), name);
  return names;
}

inline constexpr const char* definitionShape = "a record: name, type, active, vaultPath, vaultLogFile, "
                                               "connect, connection, schema, prefix, repositoryName, "
                                               "repositoryVersion, file";
inline constexpr const char* definitionNameHelp = "The definition's name, in any case";

// A definition as JSON.
nlohmann::ordered_json definitionRecord(QvReposConfiguration& definition);

// The definition of that name; null, with a failure reported, when there is none.
Definition findDefinition(Host& host, QvReposConfigManager& manager, const std::string& name);

// A subcommand of definitions with --json and its example, which is tried in the project's folder.
CLI::App* addDefinitionCommand(CLI::App& definitions, Host& host, const char* name, const char* help,
                               const char* shape, const char* example);

// create, set, rename and delete.
void addDefinitionChanges(CLI::App& definitions, Host& host);
