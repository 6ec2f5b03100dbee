// Definitions that are made, saved, renamed and deleted.
#include "qvreposconfigmgrimpl.h"

#include "support/allocations.h"
#include "support/definitionfixture.h"
#include "support/faults.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <cerrno>
#include <new>

namespace {

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
    const Faults fault(QvbFaultPoint::FileUnlink, "Sales.rcf", errnoValue);
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
  const Faults fault(QvbFaultPoint::FileUnlink, "Sales.rcf", EACCES);
  EXPECT_TRUE(m_manager->saveConfiguration(definition.get(), nullptr));
}

// Each time memory is short at another moment of a rename. Either nothing happened and a retry works, or it is done, with
// word of the old file if that stays.
TEST_F(DefinitionManager, ASaveThatShortMemoryStoppedCanBeTakenUpAgain) {
  int stays = 0;
  int failures = 0;
  for (long allocations = 0;; ++allocations) {
    const auto definition = create("Sales");
    ASSERT_TRUE(m_manager->saveConfiguration(definition.get(), nullptr));
    const auto oldFile = definition->getFilename();
    definition->setName("Orders");
    QvbString error;
    bool saved = false;
    Allocations::left = allocations;
    try {
      saved = m_manager->saveConfiguration(definition.get(), &error);
    } catch (const std::bad_alloc&) {
      Allocations::left = 0;
    }
    const bool enough = Allocations::left > 0;
    Allocations::left = -1;
    const bool oldFileStays = fs::exists(str(oldFile));
    if (saved) {
      EXPECT_EQ(filesIn(m_system), oldFileStays ? (Names{"Orders.rcf", "Sales.rcf"}) : Names{"Orders.rcf"});
      EXPECT_EQ(str(error), oldFileStays ? "There was an error deleting the definition" : "");
      stays += oldFileStays;
    } else {
      EXPECT_EQ(definition->getFilename(), oldFile) << allocations;
      EXPECT_EQ(filesIn(m_system), Names{"Sales.rcf"}) << allocations;
      ++failures;
    }
    EXPECT_EQ(save(definition, true), "(none)") << allocations;
    EXPECT_EQ(str(definition->getFilename()), m_system + "/Orders.rcf");
    for (const auto& name : filesIn(m_system))
      fs::remove(m_system + "/" + name);
    if (enough)
      break;
  }
  EXPECT_GT(failures, 10);
  EXPECT_EQ(stays, 0) << "once the new file has its name, the old one is removed without memory";
}

TEST_F(DefinitionManager, TellsWhereADefinitionIsSaved) {
  QvbString file;
  EXPECT_TRUE(m_manager->getConfigurationFilename("Sales", QvReposConfigTypeSystem, &file));
  EXPECT_EQ(str(file), m_system + "/Sales.rcf");
  EXPECT_TRUE(m_manager->getConfigurationFilename("Sales", QvReposConfigTypeUser, &file));
  EXPECT_EQ(str(file), m_user + "/Sales.rcf");
  EXPECT_FALSE(m_manager->getConfigurationFilename("Sales", static_cast<QvReposConfigType>(2), &file));
  EXPECT_TRUE(file.isNull());
  qvbSetConfigOption(systemPath, "");
  EXPECT_FALSE(m_manager->getConfigurationFilename("Sales", QvReposConfigTypeSystem, &file));
}

TEST_F(DefinitionManager, ARelativeFolderStaysWhereItWasFirstRead) {
  const auto before = fs::current_path();
  qvbSetConfigOption(userPath, "relative");
  fs::current_path(m_dir.path());
  EXPECT_EQ(save(create("A", QvReposConfigTypeUser), true), "(none)");
  fs::current_path(before);
  ASSERT_TRUE(find("A"));
  EXPECT_EQ(str(find("A")->getFilename()), m_dir / "relative/A.rcf");
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
  const Faults fault(QvbFaultPoint::DirCreate, "new", EACCES);
  const auto message = "Error creating directory " + folder + " (4)";
  EXPECT_EQ(save(create("A", QvReposConfigTypeUser), false), message);
  EXPECT_EQ(lines(), (Lines{{category, 5, source, message}}));
  EXPECT_FALSE(m_manager->saveConfiguration(create("A", QvReposConfigTypeUser).get(), nullptr));
}

TEST_F(DefinitionManager, TellsWhyAFolderCannotBeLookedAt) {
  const auto definition = create("A");
  const Faults fault(QvbFaultPoint::FileStat, "sys", EACCES);
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
  const Faults fault(QvbFaultPoint::FileWrite, "Orders.rcf", ENOSPC);
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
    const Faults fault(QvbFaultPoint::FileUnlink, "A.rcf", errnoValue);
    EXPECT_EQ(remove(definition, false), message);
    EXPECT_FALSE(m_manager->deleteConfiguration(definition.get(), nullptr));
  }
  EXPECT_EQ(filesIn(m_system), Names{"A.rcf"});
  EXPECT_EQ(lines(), Lines{});
}

TEST_F(DefinitionManager, MessagesOfSavesAreNotItsOwn) {
  save(create("A", static_cast<QvReposConfigType>(2)), false);
  remove(create("A"), false);
  EXPECT_TRUE(m_manager->getErrorMessage().isEmpty());
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
