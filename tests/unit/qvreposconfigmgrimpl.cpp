#include "qvreposconfigmgrimpl.h"

#include "guards.h"
#include "qvxbase/qvbconfig.h"
#include "qvxbase/qvbfault.h"
#include "support/faults.h"
#include "support/logcapture.h"
#include "support/tempdir.h"
#include "support/textio.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <thread>

namespace {

namespace fs = std::filesystem;

using Definition = Released<QvReposConfiguration>;
using Definitions = Released<QvReposConfigurationList>;
using Manager = Released<QvReposConfigManager>;
using Names = std::vector<std::string>;
using Lines = std::vector<LogLine>;

constexpr const char* category = "QV.Repos.QvReposRes.ReposConfigMgr";
constexpr const char* source = "src/qvreposconfigmgrimpl";
constexpr const char* systemPath = "BASE/REPOS_SYS_PATH";
constexpr const char* userPath = "BASE/REPOS_USER_PATH";

// The operation that fails, for subjects that end with the text, and how.
QvbFaultPoint faultPoint;
std::string faultSubject;
int faultErrno;

int failHere(QvbFaultPoint point, const char* subject) {
  return point == faultPoint && std::string_view(subject).ends_with(faultSubject) ? faultErrno : 0;
}

class Fault {
public:
  Fault(QvbFaultPoint point, const std::string& subject, int errnoValue) {
    faultPoint = point;
    faultSubject = subject;
    faultErrno = errnoValue;
    qvbSetFaultHook(failHere);
  }
  ~Fault() { qvbSetFaultHook(nullptr); }
  Fault(const Fault&) = delete;
  Fault& operator=(const Fault&) = delete;
};

std::string xmlNamed(const std::string& name) { return "<VaultRepositoryInfo Name='" + name + "'/>"; }

Names namesOf(QvReposConfigurationList* list) {
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
  const Fault fault(QvbFaultPoint::FileOpen, "a.rcf", EACCES);
  EXPECT_EQ(loaded(), Names{"B"});
  EXPECT_EQ(m_log.lines(), Lines{});
}

TEST_F(DefinitionManager, FoldersThatCannotBeOpenedCountAsEmpty) {
  writeSystem("a.rcf", xmlNamed("A"));
  qvbSetConfigOption(userPath, text(m_dir / "missing"));
  EXPECT_EQ(loaded(), Names{"A"});
  const Fault fault(QvbFaultPoint::DirOpen, "sys", EACCES);
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

TEST_F(DefinitionManager, ANewDefinitionIsNotKeptUntilItIsSaved) {
  const auto definition = create("A", QvReposConfigTypeUser);
  ASSERT_TRUE(definition);
  EXPECT_EQ(definition->getName(), "A");
  EXPECT_EQ(definition->getType(), QvReposConfigTypeUser);
  EXPECT_TRUE(definition->isActive());
  EXPECT_EQ(definition->getUnifiedConnectionType(), QvUnifiedReposConnectODBC);
  EXPECT_TRUE(definition->getFilename().isEmpty());
  EXPECT_FALSE(m_manager->configurationExists("A"));
}

TEST_F(DefinitionManager, ANewDefinitionNeedsAName) {
  EXPECT_FALSE(create(""));
  EXPECT_EQ(m_manager->createConfiguration(QvbString(), QvReposConfigTypeSystem), nullptr);
}

TEST_F(DefinitionManager, SavesUnderTheNameAsItIs) {
  for (const auto* name :
       {"Sales", "two words", "UPPER", "a.b", "\xC3\xA9t\xC3\xA9", "100%S", "back\\slash"}) {
    const auto definition = create(name);
    EXPECT_EQ(save(definition, true), "(none)") << name;
    EXPECT_EQ(str(definition->getFilename()), m_system + "/" + name + ".rcf");
    EXPECT_TRUE(m_manager->configurationExists(name));
  }
  EXPECT_EQ(lines(), Lines{});
}

TEST_F(DefinitionManager, TheFolderMayBeAUriAndTheNameStaysAsItIs) {
  qvbSetConfigOption(systemPath, text("file://" + m_system));
  for (const auto* name : {"Sales", "A%41?x#y"}) {
    EXPECT_EQ(save(create(name), true), "(none)") << name;
    const auto definition = find(name);
    ASSERT_TRUE(definition) << name;
    EXPECT_EQ(str(definition->getFilename()), m_system + "/" + name + ".rcf");
    EXPECT_EQ(save(definition, true), "(none)") << "over its file";
  }
  EXPECT_EQ(filesIn(m_system), (Names{"A%41?x#y.rcf", "Sales.rcf"}));
}

TEST_F(DefinitionManager, AFolderOfAnotherHostIsNone) {
  qvbSetConfigOption(systemPath, text("file://host" + m_system));
  EXPECT_EQ(save(create("A"), false), "Error accessing path file://host" + m_system + " (9): not supported");
  EXPECT_EQ(loaded(), Names{});
}

TEST_F(DefinitionManager, SavesToTheFolderOfTheType) {
  const auto definition = create("A", QvReposConfigTypeUser);
  save(definition, true);
  EXPECT_EQ(filesIn(m_user), Names{"A.rcf"});
  EXPECT_EQ(filesIn(m_system), Names{});
  EXPECT_EQ(find("A")->getType(), QvReposConfigTypeUser);
}

TEST_F(DefinitionManager, ADefinitionWithoutANameIsSavedAsTheSuffixAlone) {
  const auto definition = create("A");
  definition->setName("");
  save(definition, true);
  EXPECT_EQ(filesIn(m_system), Names{".rcf"});
  EXPECT_EQ(loaded(), Names{""});
}

TEST_F(DefinitionManager, ANewDefinitionDoesNotReplaceAFile) {
  writeSystem("Sales.rcf", "something else");
  EXPECT_EQ(save(create("Sales"), false), "A definition already exists with that name.");
  EXPECT_EQ(m_dir.read("sys/Sales.rcf"), "something else");
  EXPECT_FALSE(m_manager->saveConfiguration(create("Sales").get(), nullptr));
}

TEST_F(DefinitionManager, ALoadedDefinitionIsSavedOverItsFile) {
  writeSystem("Sales.rcf", xmlNamed("Sales"));
  const auto definition = find("Sales");
  definition->setVaultLogFile("/log");
  EXPECT_EQ(save(definition, true), "(none)");
  EXPECT_EQ(find("Sales")->getVaultLogFile(), "/log");
  EXPECT_EQ(filesIn(m_system), Names{"Sales.rcf"});
}

TEST_F(DefinitionManager, ARenamedDefinitionMovesToANewFile) {
  writeSystem("Sales.rcf", xmlNamed("Sales"));
  const auto definition = find("Sales");
  definition->setName("Orders");
  EXPECT_EQ(save(definition, true), "(none)");
  EXPECT_EQ(str(definition->getFilename()), m_system + "/Orders.rcf");
  EXPECT_EQ(filesIn(m_system), Names{"Orders.rcf"});
  EXPECT_EQ(loaded(), Names{"Orders"});
}

TEST_F(DefinitionManager, ADefinitionRenamedInCaseAloneMovesToo) {
  writeSystem("Sales.rcf", xmlNamed("Sales"));
  const auto definition = find("Sales");
  definition->setName("SALES");
  EXPECT_EQ(save(definition, true), "(none)");
  EXPECT_EQ(filesIn(m_system), Names{"SALES.rcf"});
  EXPECT_EQ(loaded(), Names{"SALES"});
}

TEST_F(DefinitionManager, ADefinitionRenamedInCaseAloneReplacesAFileOfThatName) {
  writeSystem("SALES.rcf", "something else");
  writeSystem("Sales.rcf", xmlNamed("Sales"));
  const auto definition = find("Sales");
  definition->setName("SALES");
  EXPECT_EQ(save(definition, true), "(none)");
  EXPECT_EQ(filesIn(m_system), Names{"SALES.rcf"});
}

// Where the file system folds case, the old name leads to the file just saved. A link shows the same.
TEST_F(DefinitionManager, ASecondNameOfTheSavedFileIsNotDeleted) {
  fs::create_symlink("SALES.rcf", m_system + "/Sales.rcf");
  const auto definition = create("SALES");
  definition->setFilename(text(m_system + "/Sales.rcf"));
  EXPECT_EQ(save(definition, true), "(none)");
  EXPECT_EQ(filesIn(m_system), (Names{"SALES.rcf", "Sales.rcf"}));
}

TEST_F(DefinitionManager, ARenamedDefinitionDoesNotReplaceAnotherOne) {
  writeSystem("Orders.rcf", xmlNamed("Orders"));
  const auto path = writeSystem("Sales.rcf", xmlNamed("Sales"));
  const auto definition = find("Sales");
  definition->setName("Orders");
  EXPECT_EQ(save(definition, false), "A definition already exists with that name.");
  EXPECT_EQ(str(definition->getFilename()), path);
  EXPECT_EQ(loaded(), (Names{"Orders", "Sales"}));
}

TEST_F(DefinitionManager, ADefinitionOfAnotherTypeMovesToItsFolder) {
  writeSystem("Sales.rcf", xmlNamed("Sales"));
  const auto definition = find("Sales");
  definition->setType(QvReposConfigTypeUser);
  EXPECT_EQ(save(definition, true), "(none)");
  EXPECT_EQ(filesIn(m_system), Names{});
  EXPECT_EQ(filesIn(m_user), Names{"Sales.rcf"});
}

TEST_F(DefinitionManager, AnOldFileThatIsGoneDoesNotMatter) {
  const auto path = writeSystem("Sales.rcf", xmlNamed("Sales"));
  const auto definition = find("Sales");
  definition->setName("Orders");
  fs::remove(path);
  EXPECT_EQ(save(definition, true), "(none)");
  EXPECT_EQ(filesIn(m_system), Names{"Orders.rcf"});
}

TEST_F(DefinitionManager, AnOldFileThatCannotBeDeletedDoesNotFailTheSave) {
  const struct {
    int errnoValue;
    const char* message;
  } cases[] = {{EACCES, "Access was denied trying to delete the definition"},
               {EIO, "There was an error deleting the definition"}};
  for (const auto& [errnoValue, message] : cases) {
    writeSystem("Sales.rcf", xmlNamed("Sales"));
    const auto definition = find("Sales");
    definition->setName("Orders");
    const Fault fault(QvbFaultPoint::FileUnlink, "Sales.rcf", errnoValue);
    EXPECT_EQ(save(definition, true), message);
    EXPECT_EQ(str(definition->getFilename()), m_system + "/Orders.rcf");
    EXPECT_EQ(filesIn(m_system), (Names{"Orders.rcf", "Sales.rcf"}));
    definition->setName("Sales");
    definition->setFilename(text(m_system + "/Sales.rcf"));
    EXPECT_TRUE(m_manager->saveConfiguration(definition.get(), nullptr));
    fs::remove(m_system + "/Orders.rcf");
  }
}

TEST_F(DefinitionManager, AnOldFileThatCannotBeDeletedNeedsNoOutputForItsMessage) {
  writeSystem("Sales.rcf", xmlNamed("Sales"));
  const auto definition = find("Sales");
  definition->setName("Orders");
  const Fault fault(QvbFaultPoint::FileUnlink, "Sales.rcf", EACCES);
  EXPECT_TRUE(m_manager->saveConfiguration(definition.get(), nullptr));
}

TEST_F(DefinitionManager, NoDefinitionCannotBeSavedOrDeleted) {
  EXPECT_EQ(save(nullptr, false), "The definition specified is not valid.");
  EXPECT_EQ(remove(nullptr, false), "The definition specified is not valid.");
  EXPECT_FALSE(m_manager->saveConfiguration(nullptr, nullptr));
  EXPECT_FALSE(m_manager->deleteConfiguration(nullptr, nullptr));
}

TEST_F(DefinitionManager, ADefinitionIsNotSavedWithoutAFolder) {
  constexpr const char* message = "A valid filename could not be created to save the definition";
  EXPECT_EQ(save(create("A", static_cast<QvReposConfigType>(2)), false), message);
  EXPECT_EQ(save(create("A", static_cast<QvReposConfigType>(-1)), false), message);
  qvbSetConfigOption(userPath, "");
  EXPECT_EQ(save(create("A", QvReposConfigTypeUser), false), message);
  qvbClearConfigOptions();
  EXPECT_EQ(save(create("A"), false), message);
  EXPECT_EQ(save(create("A", QvReposConfigTypeUser), false), message);
  EXPECT_FALSE(m_manager->saveConfiguration(create("A").get(), nullptr));
  qvbSetConfigOption(systemPath, text(m_system));
  qvbSetConfigAvailable(false);
  EXPECT_EQ(save(create("A"), false), message);
  EXPECT_EQ(lines(), Lines{});
}

TEST_F(DefinitionManager, SavingMakesTheFolder) {
  const auto folder = m_dir / "new";
  qvbSetConfigOption(userPath, text(folder));
  EXPECT_EQ(save(create("A", QvReposConfigTypeUser), true), "(none)");
  EXPECT_EQ(lines(), (Lines{{category, 3, source, "Created repository definition directory " + folder}}));
  EXPECT_EQ(filesIn(folder), Names{"A.rcf"});
}

TEST_F(DefinitionManager, SavingMakesOnlyTheLastLevelOfTheFolder) {
  const auto folder = m_dir / "new/deeper";
  qvbSetConfigOption(userPath, text(folder));
  const auto message = "Error creating directory " + folder + " (3)";
  EXPECT_EQ(save(create("A", QvReposConfigTypeUser), false), message);
  EXPECT_EQ(lines(), (Lines{{category, 5, source, message}}));
  EXPECT_FALSE(fs::exists(m_dir / "new"));
}

TEST_F(DefinitionManager, TellsWhyAFolderCannotBeMade) {
  const auto folder = m_dir / "new";
  qvbSetConfigOption(userPath, text(folder));
  const Fault fault(QvbFaultPoint::DirCreate, "new", EACCES);
  const auto message = "Error creating directory " + folder + " (4)";
  EXPECT_EQ(save(create("A", QvReposConfigTypeUser), false), message);
  EXPECT_EQ(lines(), (Lines{{category, 5, source, message}}));
  EXPECT_FALSE(m_manager->saveConfiguration(create("A", QvReposConfigTypeUser).get(), nullptr));
}

TEST_F(DefinitionManager, TellsWhyAFolderCannotBeLookedAt) {
  const auto definition = create("A");
  const Fault fault(QvbFaultPoint::FileStat, "sys", EACCES);
  const auto message = "Error accessing path " + m_system + " (4): access denied";
  EXPECT_EQ(save(definition, false), message);
  EXPECT_EQ(lines(), (Lines{{category, 5, source, message}}));
  EXPECT_EQ(filesIn(m_system), Names{});
  EXPECT_FALSE(m_manager->saveConfiguration(definition.get(), nullptr));
}

TEST_F(DefinitionManager, AFileInThePlaceOfTheFolderFailsTheWriting) {
  const auto file = m_dir.write("file", "text");
  qvbSetConfigOption(userPath, text(file));
  EXPECT_EQ(save(create("A", QvReposConfigTypeUser), false),
            "Error opening file " + file + "/A.rcf for writing content.");
  EXPECT_EQ(m_dir.read("file"), "text");
}

TEST_F(DefinitionManager, AFailedWriteLeavesDefinitionAndFileAsTheyWere) {
  const auto path = writeSystem("Sales.rcf", xmlNamed("Sales"));
  const auto definition = find("Sales");
  definition->setName("Orders");
  const Fault fault(QvbFaultPoint::FileWrite, "Orders.rcf", ENOSPC);
  EXPECT_EQ(save(definition, false), "Error opening file " + m_system + "/Orders.rcf for writing content.");
  EXPECT_EQ(str(definition->getFilename()), path);
  EXPECT_EQ(filesIn(m_system), Names{"Sales.rcf"});
}

TEST_F(DefinitionManager, ANameThatLeadsElsewhereIsTakenAsItIs) {
  EXPECT_EQ(save(create("missing/A"), false),
            "Error opening file " + m_system + "/missing/A.rcf for writing content.");
  const auto zeroByte = create("A");
  zeroByte->setName(QvbString("A\0B", 3));
  EXPECT_EQ(save(zeroByte, false),
            "Error opening file " + m_system + "/A" + std::string(1, '\0') + "B.rcf for writing content.");
  EXPECT_EQ(filesIn(m_system), Names{});
  fs::create_directory(m_system + "/deeper");
  EXPECT_EQ(save(create("deeper/A"), true), "(none)");
  EXPECT_EQ(filesIn(m_system + "/deeper"), Names{"A.rcf"});
  EXPECT_EQ(loaded(), Names{}) << "only the folder itself is read";
}

TEST_F(DefinitionManager, ANameThatIsTooLongForAFileIsAFailedWrite) {
  const std::string name(300, 'n');
  EXPECT_EQ(save(create(name.c_str()), false),
            "Error opening file " + m_system + "/" + name + ".rcf for writing content.");
}

TEST_F(DefinitionManager, DeletesTheFile) {
  save(create("A"), true);
  EXPECT_EQ(remove(find("A"), true), "(none)");
  EXPECT_EQ(filesIn(m_system), Names{});
  EXPECT_FALSE(m_manager->configurationExists("A"));
  EXPECT_EQ(lines(), Lines{});
}

TEST_F(DefinitionManager, ADefinitionThatWasNeverSavedCannotBeDeleted) {
  const auto definition = create("A");
  EXPECT_EQ(remove(definition, false), "The definition file did not exist.");
  definition->setFilename(QvbString());
  EXPECT_EQ(remove(definition, false), "The definition does not have a filename set.");
  EXPECT_FALSE(m_manager->deleteConfiguration(definition.get(), nullptr));
}

TEST_F(DefinitionManager, ADefinitionIsDeletedOnce) {
  save(create("A"), true);
  const auto definition = find("A");
  EXPECT_EQ(remove(definition, true), "(none)");
  EXPECT_EQ(remove(definition, false), "The definition file did not exist.");
  EXPECT_FALSE(m_manager->deleteConfiguration(definition.get(), nullptr));
}

TEST_F(DefinitionManager, TellsWhyAFileCannotBeDeleted) {
  const struct {
    int errnoValue;
    const char* message;
  } cases[] = {{EACCES, "Access was denied trying to delete the definition"},
               {EPERM, "Access was denied trying to delete the definition"},
               {EIO, "There was an error deleting the definition"},
               {EBUSY, "There was an error deleting the definition"}};
  save(create("A"), true);
  const auto definition = find("A");
  for (const auto& [errnoValue, message] : cases) {
    const Fault fault(QvbFaultPoint::FileUnlink, "A.rcf", errnoValue);
    EXPECT_EQ(remove(definition, false), message);
    EXPECT_FALSE(m_manager->deleteConfiguration(definition.get(), nullptr));
  }
  EXPECT_EQ(filesIn(m_system), Names{"A.rcf"});
  EXPECT_EQ(lines(), Lines{});
}

TEST_F(DefinitionManager, GoesOnWithoutALock) {
  const Fault fault(QvbFaultPoint::LockCreate, "", ENOMEM);
  const Manager manager(getRepositoryConfigurationManager());
  EXPECT_EQ(lines(), (Lines{{category, 6, source, "Failed to create repos config file manager lock"}}));
  const Definition definition(manager->createConfiguration("A", QvReposConfigTypeSystem));
  EXPECT_TRUE(manager->saveConfiguration(definition.get(), nullptr));
  EXPECT_TRUE(manager->configurationExists("A"));
  EXPECT_TRUE(manager->deleteConfiguration(definition.get(), nullptr));
}

TEST_F(DefinitionManager, MessagesOfSavesAreNotItsOwn) {
  save(create("A", static_cast<QvReposConfigType>(2)), false);
  remove(create("A"), false);
  EXPECT_TRUE(m_manager->getErrorMessage().isEmpty());
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

// A name that a file can have: no "/", no zero byte, and short.
rc::Gen<std::string> genFileName() {
  const auto character = rc::gen::suchThat(rc::gen::inRange<int>(0x20, 0x7F), [](int c) { return c != '/'; });
  const auto characters =
      rc::gen::container<std::string>(rc::gen::map(character, [](int c) { return static_cast<char>(c); }));
  return rc::gen::suchThat(characters,
                           [](const std::string& name) { return !name.empty() && name.size() < 200; });
}

TEST_F(DefinitionManager, WhateverIsSavedIsFoundUntilItIsDeleted) {
  EXPECT_TRUE(rc::check("whatever is saved is found until it is deleted", [this] {
    const auto name = *genFileName();
    const auto definition =
        create(name.c_str(), *rc::gen::element(QvReposConfigTypeSystem, QvReposConfigTypeUser));
    definition->setUnifiedRepositoryPrefix(text(*genFileName()));
    definition->setActive(*rc::gen::arbitrary<bool>());
    const bool saved = m_manager->saveConfiguration(definition.get(), nullptr);
    const auto found = find(name.c_str());
    const bool same = found && found->getName() == definition->getName() &&
                      found->getType() == definition->getType() &&
                      found->getFilename() == definition->getFilename() &&
                      found->getUnifiedRepositoryPrefix() == definition->getUnifiedRepositoryPrefix() &&
                      found->isActive() == definition->isActive();
    const bool deleted = m_manager->deleteConfiguration(definition.get(), nullptr);
    return saved && same && deleted && !m_manager->configurationExists(name.c_str()) && loaded().empty();
  }));
}

} // namespace
