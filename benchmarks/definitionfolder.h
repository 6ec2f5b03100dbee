// Definition files as the library writes them, in a folder that is gone at the end.
#pragma once

#include "qvreposres/qvreposconfigmgr.h"
#include "qvxbase/qvbconfig.h"
#include "qvxbase/qvbreleased.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

class DefinitionFolder {
public:
  explicit DefinitionFolder(int count) {
    std::string pattern = (std::filesystem::temp_directory_path() / "qvbench.XXXXXX").string();
    if (!mkdtemp(pattern.data()))
      throw std::runtime_error("no temporary folder: " + pattern);
    path = pattern;
    const std::string first = saveFirst();
    for (int i = 1; i < count; ++i)
      std::ofstream(path + "/" + nameOf(i) + ".rcf") << renamed(first, nameOf(0), nameOf(i));
  }
  ~DefinitionFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
  DefinitionFolder(const DefinitionFolder&) = delete;
  DefinitionFolder& operator=(const DefinitionFolder&) = delete;

  static std::string nameOf(int number) { return "Warehouse " + std::to_string(1'000'000 + number); }

  // From now on the process's definitions are those of this folder.
  void choose() const { qvbSetConfigOption("BASE/REPOS_USER_PATH", path.c_str()); }

  std::string path;

private:
  // The text of the first file, which the library itself writes.
  std::string saveFirst() const {
    choose();
    const Released<QvReposConfigManager> manager(getRepositoryConfigurationManager());
    const Released<QvReposConfiguration> definition(
        manager->createConfiguration(nameOf(0).c_str(), QvReposConfigTypeUser));
    definition->setVaultPath(("/srv/vaults/" + nameOf(0)).c_str());
    definition->setUnifiedRepositoryConnect(("DSN=" + nameOf(0) + ";QVXTYPE=ODBC;").c_str());
    definition->setUnifiedRepositoryPrefix("dbo.QV_");
    definition->setVaultLogFile(("/var/log/vaults/" + nameOf(0) + ".log").c_str());
    definition->setUnifiedRepositoryVersion("2.1");
    QvbString error;
    if (!manager->saveConfiguration(definition.get(), &error))
      throw std::runtime_error(error.asCstr());
    std::ifstream file(path + "/" + nameOf(0) + ".rcf");
    return {std::istreambuf_iterator<char>(file), {}};
  }

  static std::string renamed(std::string text, const std::string& from, const std::string& to) {
    for (auto found = text.find(from); found != std::string::npos; found = text.find(from, found + to.size()))
      text.replace(found, from.size(), to);
    return text;
  }
};
