// A definition manager of the test's own, its folders and what it logs.
#pragma once

#include "guards.h"
#include "qvreposconfigmgrimpl.h"
#include "qvxbase/qvbconfig.h"
#include "support/logcapture.h"
#include "support/tempdir.h"
#include "support/textio.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

namespace fs = std::filesystem;

using Definition = Released<QvReposConfiguration>;
using Definitions = Released<QvReposConfigurationList>;
using Manager = Released<QvReposConfigManager>;
using Names = std::vector<std::string>;
using Lines = std::vector<LogLine>;

inline constexpr const char* category = "QV.Repos.QvReposRes.ReposConfigMgr";
inline constexpr const char* source = "src/qvreposconfigmgrimpl";
inline constexpr const char* systemPath = "BASE/REPOS_SYS_PATH";
inline constexpr const char* userPath = "BASE/REPOS_USER_PATH";

inline std::string xmlNamed(const std::string& name) { return "<VaultRepositoryInfo Name='" + name + "'/>"; }

inline Names namesOf(QvReposConfigurationList* list) {
  Names names;
  for (const Definitions owned(list); owned->next();)
    names.push_back(str(Definition(owned->getValue())->getName()));
  return names;
}

// A system and a user folder, empty at first, and one manager.
class DefinitionManager : public ::testing::Test {
protected:
  DefinitionManager() {
    fs::create_directory(m_system);
    fs::create_directory(m_user);
    qvbSetConfigOption(systemPath, text(m_system));
    qvbSetConfigOption(userPath, text(m_user));
    m_manager.reset(getRepositoryConfigurationManager());
  }
  ~DefinitionManager() override {
    m_manager.reset();
    qvbClearConfigOptions();
    qvbSetConfigAvailable(true);
  }

  std::string writeSystem(const std::string& file, const std::string& xml) const {
    return m_dir.write("sys/" + file, xml);
  }
  std::string writeUser(const std::string& file, const std::string& xml) const {
    return m_dir.write("user/" + file, xml);
  }

  Names loaded() const { return namesOf(m_manager->getConfigurations()); }
  Names loaded(QvReposConfigType type) const { return namesOf(m_manager->getConfigurationsByType(type)); }
  Definition find(const char* name) const { return Definition(m_manager->getConfigurationByName(name)); }
  Definition create(const char* name, QvReposConfigType type = QvReposConfigTypeSystem) const {
    return Definition(m_manager->createConfiguration(name, type));
  }
  // The message of a save or a deletion, which stays "(none)" when none is written.
  std::string save(const Definition& definition, bool succeeds) const {
    QvbString error("(none)");
    EXPECT_EQ(m_manager->saveConfiguration(definition.get(), &error), succeeds);
    return str(error);
  }
  std::string remove(const Definition& definition, bool succeeds) const {
    QvbString error("(none)");
    EXPECT_EQ(m_manager->deleteConfiguration(definition.get(), &error), succeeds);
    return str(error);
  }
  // The names of all files in a folder.
  static Names filesIn(const std::string& folder) {
    Names names;
    for (const auto& entry : fs::directory_iterator(folder))
      names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
  }
  Lines lines() const { return m_log.lines(category); }

  TempDir m_dir;
  LogCapture m_log;
  const std::string m_system = m_dir / "sys";
  const std::string m_user = m_dir / "user";
  Manager m_manager;
};
