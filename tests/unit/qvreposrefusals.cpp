// What is not loaded, and why.
#include "qvreposrefusals.h"

#include "qvxbase/qvbfault.h"
#include "support/definitionfixture.h"

#include <gtest/gtest.h>

namespace {

using Refusals = Released<QvReposRefusalList>;

struct Refused {
  std::string file;
  std::string reason;
  bool isDuplicate;

  bool operator==(const Refused&) const = default;
};

std::vector<Refused> refusedBy(QvReposConfigManager& manager) {
  std::vector<Refused> refused;
  for (const Refusals list(manager.getRefusals()); list->next();)
    refused.push_back({str(list->getFilename()), str(list->getReason()), list->isDuplicate()});
  return refused;
}

TEST_F(DefinitionManager, RefusesNothingThatIsWhole) {
  writeSystem("a.rcf", xmlNamed("A"));
  writeUser("b.rcf", "<x>" + xmlNamed("B") + "</x>");
  writeUser("readme.txt", "no definition");
  EXPECT_TRUE(refusedBy(*m_manager).empty());
}

TEST_F(DefinitionManager, TellsOfEachFileThatIsNotLoadedWhy) {
  const auto winner = writeSystem("sales.rcf", xmlNamed("Sales"));
  const auto empty = writeSystem("z.rcf", "<html/>");
  const auto broken = writeUser("a.rcf", "<VaultRepositoryInfo\n  Name=>");
  const auto copy = writeUser("copy.rcf", xmlNamed("SALES"));
  const auto refused = refusedBy(*m_manager);
  ASSERT_EQ(refused.size(), 3U);
  EXPECT_EQ(refused[0],
            (Refused{empty, "The file \"" + empty + "\" is not a valid definition file.", false}));
  EXPECT_EQ(refused[1].file, broken);
  EXPECT_TRUE(refused[1].reason.starts_with(broken + ":2:")) << refused[1].reason;
  EXPECT_EQ(refused[2],
            (Refused{copy, copy + ": a definition named \"SALES\" is loaded from " + winner, true}));
}

TEST_F(DefinitionManager, TellsOfFoldersThatCannotBeOpenedFirst) {
  const auto other = writeUser("other.rcf", "<html/>");
  qvbSetConfigOption(systemPath, text(m_dir / "missing"));
  const auto refused = refusedBy(*m_manager);
  ASSERT_EQ(refused.size(), 2U);
  EXPECT_EQ(refused[0],
            (Refused{m_dir / "missing",
                     "BASE/REPOS_SYS_PATH: Error opening directory " + m_dir / "missing" + " (3): not found",
                     false}));
  EXPECT_EQ(refused[1].file, other);
  qvbClearConfigOptions();
  EXPECT_TRUE(refusedBy(*m_manager).empty()) << "an option that is not set names no folder";
}

TEST_F(DefinitionManager, RefusalsOffTheirRowsAreEmpty) {
  writeUser("other.rcf", "<html/>");
  const Refusals list(m_manager->getRefusals());
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(list->getFilename(), "");
    EXPECT_FALSE(list->getReason().isNull());
    EXPECT_EQ(list->getReason(), "");
    EXPECT_FALSE(list->isDuplicate());
    EXPECT_EQ(list->next(), round == 0);
    list->next();
  }
}

// Every duplicate names the one file that was loaded, which is read once.
TEST_F(DefinitionManager, ManyDuplicatesAreOneReadingOfTheFolders) {
  for (int i = 0; i < 200; ++i)
    writeUser(std::to_string(1000 + i) + ".rcf", xmlNamed("Same"));
  static int opened;
  opened = 0;
  qvbSetFaultHook([](QvbFaultPoint point, const char*) {
    opened += point == QvbFaultPoint::FileOpen;
    return 0;
  });
  EXPECT_EQ(refusedBy(*m_manager).size(), 199U);
  qvbSetFaultHook(nullptr);
  EXPECT_LE(opened, 200);
}

} // namespace
