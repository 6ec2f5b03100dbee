#include "qvreposconfigset.h"

#include "support/tempdir.h"
#include "support/textio.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace {

using Names = std::vector<std::string>;
using SetPtr = std::shared_ptr<const DefinitionSet>;

// Two folders, looked at an hour after their files were written, when they have settled.
class DefinitionSets : public ::testing::Test {
protected:
  DefinitionSets() {
    std::filesystem::create_directory(m_dir / "sys");
    std::filesystem::create_directory(m_dir / "user");
  }

  void write(const std::string& file, const std::string& name) const {
    m_dir.write(file, "<VaultRepositoryInfo Name='" + name + "'/>");
  }
  DefinitionFolder folder(QvReposConfigType type, const char* name) const {
    const auto path = text(m_dir / name);
    return {type, path, listDefinitionFolder(path, m_now)};
  }
  SetPtr load() const {
    return loadDefinitions(folder(QvReposConfigTypeSystem, "sys"), folder(QvReposConfigTypeUser, "user"),
                           m_now);
  }
  static Names names(const SetPtr& set) {
    Names result;
    for (const auto& file : set->definitions())
      result.push_back(str(file->definition.getName()));
    return result;
  }

  TempDir m_dir;
  std::int64_t m_now = secondsNow() + 3600;
};

TEST_F(DefinitionSets, TheFirstOfANameWinsWithoutRegardToCase) {
  write("sys/b.rcf", "Sales");
  write("user/a.rcf", "SALES");
  write("user/b.rcf", "Stock");
  m_dir.write("user/c.rcf", "<other/>");
  const auto set = load();
  EXPECT_EQ(names(set), (Names{"Sales", "Stock"}));
  EXPECT_EQ(set->find("sales")->definition.getName(), "Sales");
  EXPECT_EQ(set->find("STOCK")->definition.getType(), QvReposConfigTypeUser);
  EXPECT_EQ(set->find("Other"), nullptr);
  ASSERT_EQ(set->refused().size(), 2U);
  EXPECT_EQ(set->refused()[0].file->definition.getName(), "SALES");
  EXPECT_EQ(set->refused()[0].winner, set->definitions()[0]);
  EXPECT_EQ(set->refused()[1].winner, nullptr);
}

TEST_F(DefinitionSets, RepositoriesAreThoseThatAreLoadedAndFoundWithoutLookingAtAllAgain) {
  const auto define = [this](const char* file, const char* name, const char* vault) {
    m_dir.write(file, std::string("<VaultRepositoryInfo Name='") + name + "'><VaultPath>" + vault +
                          "</VaultPath></VaultRepositoryInfo>");
  };
  define("sys/a.rcf", "Sales", "/srv/sales");
  define("user/a.rcf", "SALES", "/srv/sales/refused");
  define("user/b.rcf", "Stock", "/srv");
  const auto set = load();
  const auto place = set->repositories().find("/srv/sales/refused/x");
  ASSERT_TRUE(place);
  EXPECT_EQ(place->repository, "Sales");
  EXPECT_EQ(place->path, "refused/x");
  EXPECT_EQ(&load()->repositories(), &set->repositories());
  define("sys/a.rcf", "Sales", "/srv/elsewhere");
  EXPECT_EQ(load()->repositories().find("/srv/sales/x")->repository, "Stock");
}

TEST_F(DefinitionSets, AreMadeAgainOnlyWhenSomethingChanged) {
  write("sys/a.rcf", "A");
  write("user/b.rcf", "B");
  const auto first = load();
  EXPECT_EQ(load(), first);
  write("user/b.rcf", "Other");
  const auto second = load();
  EXPECT_EQ(names(second), (Names{"A", "Other"}));
  EXPECT_EQ(load(), second);
  std::filesystem::remove(m_dir / "sys/a.rcf");
  m_now += 7200; // the folder is another one, and has settled
  EXPECT_EQ(names(load()), Names{"Other"});
}

TEST_F(DefinitionSets, OfFilesThatHaveNotSettledAreMadeEachTimeAndNotHeld) {
  write("sys/a.rcf", "A");
  m_now = secondsNow();
  auto set = load();
  const std::weak_ptr<DefinitionFile> file = set->definitions()[0];
  EXPECT_NE(load(), set);
  set.reset();
  EXPECT_TRUE(file.expired());
}

} // namespace
