// Lookups: which definitions there are, which one wins, and what is logged.
#include "qvreposconfigmgrimpl.h"

#include "support/definitionfixture.h"
#include "support/faults.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <memory>
#include <thread>

namespace {

TEST_F(DefinitionManager, LoadsSystemDefinitionsBeforeUserOnesInNameOrder) {
  writeUser("a.rcf", xmlNamed("user a"));
  writeSystem("z.rcf", xmlNamed("system z"));
  writeSystem("b.rcf", xmlNamed("system b"));
  EXPECT_EQ(loaded(), (Names{"system b", "system z", "user a"}));
  EXPECT_EQ(loaded(QvReposConfigTypeSystem), (Names{"system b", "system z"}));
  EXPECT_EQ(loaded(QvReposConfigTypeUser), Names{"user a"});
  EXPECT_EQ(loaded(static_cast<QvReposConfigType>(2)), Names{});
  EXPECT_EQ(lines(), Lines{});
}

TEST_F(DefinitionManager, ADefinitionKnowsItsFileAndType) {
  const auto path = writeUser("a.rcf", xmlNamed("A"));
  const auto definition = find("A");
  ASSERT_TRUE(definition);
  EXPECT_EQ(str(definition->getFilename()), path);
  EXPECT_EQ(definition->getType(), QvReposConfigTypeUser);
}

TEST_F(DefinitionManager, ListsCarryWholeDefinitions) {
  writeUser("a.rcf", "<VaultRepositoryInfo Name='A' IsActive='false'><VaultPath>/v</VaultPath>"
                     "<UnifiedRepositoryConnect>DSN=a;QVXTYPE=GRVS;</UnifiedRepositoryConnect>"
                     "</VaultRepositoryInfo>");
  const Definitions list(m_manager->getConfigurations());
  ASSERT_TRUE(list->next());
  const Definition definition(list->getValue());
  EXPECT_FALSE(definition->isActive());
  EXPECT_EQ(definition->getVaultPath(), "/v");
  EXPECT_EQ(definition->getUnifiedConnectionType(), QvUnifiedReposConnectGRVS);
  EXPECT_EQ(definition->getType(), QvReposConfigTypeUser);
  EXPECT_EQ(str(definition->getFilename()), m_user + "/a.rcf");
  EXPECT_FALSE(list->next());
}

TEST_F(DefinitionManager, FindsADefinitionWithoutRegardToCase) {
  writeSystem("a.rcf", xmlNamed("Sales"));
  ASSERT_TRUE(find("sALES"));
  EXPECT_EQ(find("sALES")->getName(), "Sales");
  EXPECT_TRUE(m_manager->configurationExists("SALES"));
  EXPECT_FALSE(find("Sale"));
  EXPECT_FALSE(m_manager->configurationExists("Sale"));
  EXPECT_FALSE(m_manager->configurationExists(QvbString()));
}

TEST_F(DefinitionManager, ReadsOnlyFilesWhoseNamesEndInTheExactLetters) {
  for (const auto* file :
       {"a.rcf", "xrcf", "rcf", ".rcf", "b.RCF", "c.Rcf", "d.rcf ", "e.rcf.bak", "f.xml", "cf", "g.rcf~"})
    writeSystem(file, xmlNamed(file));
  EXPECT_EQ(loaded(), (Names{".rcf", "a.rcf", "rcf", "xrcf"}));
}

TEST_F(DefinitionManager, EveryLookupSeesTheFilesAsTheyAre) {
  EXPECT_EQ(loaded(), Names{});
  const auto path = writeSystem("a.rcf", xmlNamed("A"));
  EXPECT_TRUE(m_manager->configurationExists("A"));
  writeSystem("a.rcf", xmlNamed("B"));
  EXPECT_EQ(loaded(), Names{"B"});
  fs::remove(path);
  EXPECT_EQ(loaded(QvReposConfigTypeSystem), Names{});
}

TEST_F(DefinitionManager, EveryLookupSeesTheOptionsAsTheyAre) {
  const auto other = m_dir.write("other/a.rcf", xmlNamed("A"));
  qvbSetConfigOption(systemPath, text(m_dir / "other"));
  EXPECT_EQ(loaded(), Names{"A"});
  qvbSetConfigOption(systemPath, QvbString());
  EXPECT_EQ(loaded(), Names{});
}

TEST_F(DefinitionManager, WhatItHandsOutIsACopy) {
  writeSystem("a.rcf", xmlNamed("A"));
  const auto definition = find("A");
  definition->setName("changed");
  definition->setVaultPath("/changed");
  EXPECT_EQ(loaded(), Names{"A"});
  EXPECT_TRUE(find("A")->getVaultPath().isNull());
}

TEST_F(DefinitionManager, CopiesOutliveTheManager) {
  writeSystem("a.rcf", xmlNamed("A"));
  const auto definition = find("A");
  const Definitions list(m_manager->getConfigurations());
  m_manager.reset();
  EXPECT_EQ(definition->getName(), "A");
  ASSERT_TRUE(list->next());
  EXPECT_EQ(Definition(list->getValue())->getName(), "A");
}

TEST_F(DefinitionManager, ManagersAreIndependent) {
  const Manager other(getRepositoryConfigurationManager());
  EXPECT_NE(other.get(), m_manager.get());
  const auto definition = create("A");
  EXPECT_EQ(save(definition, true), "(none)");
  EXPECT_EQ(namesOf(other->getConfigurations()), Names{"A"});
}

TEST_F(DefinitionManager, TheFirstDefinitionOfANameWins) {
  writeSystem("a.rcf", xmlNamed("Sales"));
  const auto second = writeSystem("b.rcf", xmlNamed("SALES"));
  const auto user = writeUser("c.rcf", xmlNamed("sales"));
  EXPECT_TRUE(m_manager->refresh());
  const auto hidden = [](const std::string& file) {
    return LogLine{category, 4, source,
                   "The definition file \"" + file +
                       "\" will not be loaded because a definition with that name already exists."};
  };
  const auto exists = [](const std::string& name) {
    return LogLine{category, 2, source,
                   "A definition named \"" + name + "\" already exists and will not be loaded."};
  };
  EXPECT_EQ(lines(), (Lines{exists("SALES"), hidden(second), exists("sales"), hidden(user)}));
  EXPECT_EQ(loaded(), Names{"Sales"});
  EXPECT_EQ(find("SALES")->getType(), QvReposConfigTypeSystem);
}

TEST_F(DefinitionManager, DuplicatesAreLoggedEachTime) {
  for (const auto* file : {"a.rcf", "b.rcf"})
    writeSystem(file, xmlNamed("A"));
  m_manager->refresh();
  const auto first = lines();
  EXPECT_EQ(first.size(), 2U);
  m_log.clear();
  m_manager->refresh();
  EXPECT_EQ(lines(), first);
}

// Once their last change has settled, which no other time can stand in for.
TEST_F(DefinitionManager, FilesThatAreNotReadAgainAreToldOfLikeTheOthers) {
  for (const auto* file : {"a.rcf", "b.rcf"})
    writeSystem(file, xmlNamed("A"));
  const auto path = writeUser("c.rcf", "<html/>");
  std::this_thread::sleep_for(std::chrono::seconds(4));
  m_manager->refresh();
  const auto first = lines();
  EXPECT_EQ(first.size(), 2U);
  m_log.clear();
  const Manager other(getRepositoryConfigurationManager());
  const Faults nothingIsOpened([](QvbFaultPoint point, const std::string&) {
    return point == QvbFaultPoint::FileOpen || point == QvbFaultPoint::DirOpen ? EACCES : 0;
  });
  EXPECT_EQ(namesOf(other->getConfigurations()), Names{"A"});
  EXPECT_EQ(lines(), first);
  EXPECT_EQ(str(other->getErrorMessage()), "The file \"" + path + "\" is not a valid definition file.");
}

TEST_F(DefinitionManager, DefinitionsWithoutANameShareTheEmptyOne) {
  writeSystem("a.rcf", "<VaultRepositoryInfo/>");
  writeSystem("b.rcf", xmlNamed(""));
  EXPECT_EQ(loaded(), Names{""});
  ASSERT_EQ(lines().size(), 2U);
  EXPECT_EQ(lines()[0].text, "A definition named \"\" already exists and will not be loaded.");
}

TEST_F(DefinitionManager, ADefinitionIsLoadedOnceTheOneThatHidItIsGone) {
  const auto first = writeSystem("a.rcf", xmlNamed("A"));
  const auto second = writeUser("a.rcf", xmlNamed("A"));
  EXPECT_EQ(str(find("A")->getFilename()), first);
  fs::remove(first);
  EXPECT_EQ(str(find("A")->getFilename()), second);
}

TEST_F(DefinitionManager, OneFolderForBothTypesHidesTheUserDefinitions) {
  qvbSetConfigOption(userPath, text(m_system));
  writeSystem("a.rcf", xmlNamed("A"));
  EXPECT_EQ(loaded(QvReposConfigTypeSystem), Names{"A"});
  EXPECT_EQ(loaded(QvReposConfigTypeUser), Names{});
  EXPECT_EQ(lines().size(), 4U) << "two lookups, two lines each";
}

TEST_F(DefinitionManager, TellsOfAFileThatHoldsNoDefinition) {
  const auto path = writeSystem("a.rcf", "<html/>");
  writeSystem("b.rcf", xmlNamed("B"));
  EXPECT_TRUE(m_manager->getErrorMessage().isEmpty());
  EXPECT_FALSE(m_manager->getErrorMessage().isNull());
  EXPECT_EQ(loaded(), Names{"B"});
  EXPECT_EQ(str(m_manager->getErrorMessage()), "The file \"" + path + "\" is not a valid definition file.");
  EXPECT_EQ(lines(), Lines{});
}

TEST_F(DefinitionManager, TellsOfTheLastFileThatHoldsNoDefinition) {
  writeSystem("a.rcf", "<html/>");
  const auto last = writeUser("b.rcf", "<html/>");
  m_manager->refresh();
  EXPECT_EQ(str(m_manager->getErrorMessage()), "The file \"" + last + "\" is not a valid definition file.");
}

TEST_F(DefinitionManager, MalformedFilesAreSkippedSilently) {
  writeSystem("a.rcf", "not xml");
  writeSystem("b.rcf", "");
  fs::create_directory(m_dir / "sys/c.rcf");
  writeSystem("d.rcf", xmlNamed("D"));
  EXPECT_EQ(loaded(), Names{"D"});
  EXPECT_TRUE(m_manager->getErrorMessage().isEmpty());
  EXPECT_EQ(m_log.lines(), Lines{});
}

TEST_F(DefinitionManager, UnreadableFilesAreSkippedSilently) {
  writeSystem("a.rcf", xmlNamed("A"));
  writeSystem("b.rcf", xmlNamed("B"));
  const Faults fault(QvbFaultPoint::FileOpen, "a.rcf", EACCES);
  EXPECT_EQ(loaded(), Names{"B"});
  EXPECT_EQ(m_log.lines(), Lines{});
}

TEST_F(DefinitionManager, FoldersThatCannotBeOpenedCountAsEmpty) {
  writeSystem("a.rcf", xmlNamed("A"));
  qvbSetConfigOption(userPath, text(m_dir / "missing"));
  EXPECT_EQ(loaded(), Names{"A"});
  const Faults fault(QvbFaultPoint::DirOpen, "sys", EACCES);
  EXPECT_EQ(loaded(), Names{});
  EXPECT_TRUE(m_manager->getErrorMessage().isEmpty());
  EXPECT_EQ(m_log.lines(), Lines{});
}

TEST_F(DefinitionManager, WithoutFoldersThereIsNothing) {
  writeSystem("a.rcf", xmlNamed("A"));
  const auto expectNothing = [this](const char* without) {
    EXPECT_EQ(loaded(), Names{}) << without;
    QvbString name("old");
    EXPECT_FALSE(m_manager->getDefaultConfiguration(&name)) << without;
    EXPECT_TRUE(name.isEmpty());
    EXPECT_FALSE(name.isNull());
    EXPECT_EQ(m_manager->getErrorMessage(),
              "No repository definitions were found to load default definition from.");
  };
  qvbClearConfigOptions();
  expectNothing("options unset");
  qvbSetConfigOption(systemPath, "");
  qvbSetConfigOption(userPath, "");
  expectNothing("options empty");
  qvbSetConfigOption(systemPath, text(m_system));
  qvbSetConfigAvailable(false);
  expectNothing("no option store");
  EXPECT_EQ(m_log.lines(), Lines{});
}

TEST_F(DefinitionManager, TheFirstDefinitionIsTheDefault) {
  writeUser("a.rcf", xmlNamed("user a"));
  m_manager->refresh();
  QvbString name;
  EXPECT_TRUE(m_manager->getDefaultConfiguration(&name));
  EXPECT_EQ(name, "user a");
  writeSystem("z.rcf", xmlNamed("system z"));
  m_manager->refresh();
  EXPECT_TRUE(m_manager->getDefaultConfiguration(&name));
  EXPECT_EQ(name, "system z");
}

TEST_F(DefinitionManager, TheDefaultComesFromTheFilesListedBefore) {
  writeSystem("b.rcf", xmlNamed("B"));
  const Manager manager(getRepositoryConfigurationManager());
  const auto late = writeSystem("a.rcf", xmlNamed("A"));
  QvbString name;
  EXPECT_TRUE(manager->getDefaultConfiguration(&name));
  EXPECT_EQ(name, "B") << "listed when the manager was made";
  writeSystem("b.rcf", xmlNamed("B2"));
  EXPECT_TRUE(manager->getDefaultConfiguration(&name));
  EXPECT_EQ(name, "B2") << "but read anew";
  fs::remove(m_system + "/b.rcf");
  EXPECT_FALSE(manager->getDefaultConfiguration(&name));
  manager->refresh();
  EXPECT_TRUE(manager->getDefaultConfiguration(&name));
  EXPECT_EQ(name, "A");
}

TEST_F(DefinitionManager, GoesOnWithoutALock) {
  const Faults fault(QvbFaultPoint::LockCreate, "", ENOMEM);
  const Manager manager(getRepositoryConfigurationManager());
  EXPECT_EQ(lines(), (Lines{{category, 6, source, "Failed to create repos config file manager lock"}}));
  const Definition definition(manager->createConfiguration("A", QvReposConfigTypeSystem));
  EXPECT_TRUE(manager->saveConfiguration(definition.get(), nullptr));
  EXPECT_TRUE(manager->configurationExists("A"));
  EXPECT_TRUE(manager->deleteConfiguration(definition.get(), nullptr));
}

// Calls the manager from the log, which it writes while it holds its lock.
class CallingSink final : public QvLogSink {
public:
  explicit CallingSink(QvReposConfigManager* manager) : m_manager(manager) {}
  void record(const QvLogRecord&) override {
    if (m_calls++ == 0)
      m_found = m_manager->configurationExists("A");
  }
  bool found() const { return m_found; }

private:
  QvReposConfigManager* m_manager;
  int m_calls = 0;
  bool m_found = false;
};

TEST_F(DefinitionManager, MayBeCalledBackWhileItLogs) {
  writeSystem("a.rcf", xmlNamed("A"));
  writeSystem("b.rcf", xmlNamed("A"));
  const auto sink = std::make_shared<CallingSink>(m_manager.get());
  qvlogSetSink(sink);
  EXPECT_EQ(loaded(), Names{"A"});
  EXPECT_TRUE(sink->found());
}

TEST_F(DefinitionManager, ServesManyThreads) {
  writeSystem("kept.rcf", xmlNamed("kept"));
  writeSystem("other.rcf", "<html/>");
  std::atomic<int> failures = 0;
  std::vector<std::thread> threads;
  constexpr int threadCount = 4;
  threads.reserve(threadCount);
  for (int i = 0; i < threadCount; ++i)
    threads.emplace_back([&, own = std::to_string(i)] {
      for (int round = 0; round < 25; ++round) {
        const auto definition = create(own.c_str(), QvReposConfigTypeUser);
        QvbString name;
        failures += !m_manager->saveConfiguration(definition.get(), nullptr);
        failures += !m_manager->configurationExists(own.c_str());
        failures += loaded(QvReposConfigTypeSystem) != Names{"kept"};
        failures += !m_manager->getDefaultConfiguration(&name) || name != "kept";
        failures += m_manager->getErrorMessage().isEmpty();
        failures += !m_manager->deleteConfiguration(definition.get(), nullptr);
      }
    });
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(failures, 0);
  EXPECT_EQ(filesIn(m_user), Names{});
}

} // namespace
