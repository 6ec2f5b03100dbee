#include "repositoryfolders.h"

#include "guards.h"
#include "qvreposres/qvreposconfigmgr.h"
#include "qvxbase/qvbconfig.h"
#include "support/logcapture.h"
#include "support/tempdir.h"
#include "support/textio.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <string>
#include <vector>

namespace {

class Folders : public testing::Test {
protected:
  Folders() {
    qvbSetConfigOption("BASE/REPOS_SYS_PATH", text(m_dir / "sys"));
    qvbSetConfigOption("BASE/REPOS_USER_PATH", text(m_dir / "user"));
    m_dir.write("user/none", "");
  }
  ~Folders() override { qvbClearConfigOptions(); }

  void define(const std::string& folder, const std::string& name, const std::string& vault) {
    m_dir.write(folder + "/" + name + ".rcf", "<VaultRepositoryInfo Name=\"" + name + "\"><VaultPath>" +
                                                  vault + "</VaultPath></VaultRepositoryInfo>");
  }
  // By the list of all definitions, as it is handed out.
  static std::optional<RepositoryPath> longestAbove(const std::string& path) {
    const Released<QvReposConfigManager> manager(getRepositoryConfigurationManager());
    const Released<QvReposConfigurationList> all(manager->getConfigurations());
    std::optional<RepositoryPath> best;
    for (std::size_t longest = 0; all->next();) {
      const Released<QvReposConfiguration> definition(all->getValue());
      const std::string vault = str(definition->getVaultPath());
      if (vault.size() <= longest || !path.starts_with(vault))
        continue;
      const bool isAtSeparator = std::string_view("/\\").find(vault.back()) != std::string_view::npos;
      const auto rest = path.substr(vault.size());
      if (!isAtSeparator && !rest.empty() && rest[0] != '/' && rest[0] != '\\')
        continue;
      longest = vault.size();
      best = {definition->getName(), text(isAtSeparator || rest.empty() ? rest : rest.substr(1))};
    }
    return best;
  }
  void forgetDefinitions() { std::filesystem::remove_all(m_dir / "sys"); }

  TempDir m_dir;
};

std::string found(const std::optional<RepositoryPath>& place) {
  return place ? str(place->repository) + " " + str(place->path) : "(none)";
}

// Paths of few pieces, so that many lie in one another, with both separators, doubled and missing ones.
std::string anyPath() {
  std::string path;
  for (int n = *rc::gen::inRange(0, 7); n > 0; --n)
    path += *rc::gen::elementOf(std::vector<std::string>{"/", "/", "\\", "a", "b", "ab", "/a", "\xC3\xA4"});
  return path;
}

TEST_F(Folders, GiveTheSamePlaceAsALookAtAllDefinitions) {
  EXPECT_TRUE(rc::check([this] {
    forgetDefinitions();
    for (int n = *rc::gen::inRange(0, 8); n > 0; --n)
      define("sys", "r" + std::to_string(n), anyPath());
    RepositoryFolders folders;
    for (int n = 0; n < 20; ++n) {
      const std::string path = anyPath();
      RC_ASSERT(found(folders.find(text(path))) == found(longestAbove(path)));
    }
  }));
}

// Each copy of a definition drops one more of the separators that a back slash before a slash has kept.
TEST_F(Folders, DropSeparatorsAsOftenAsTheListOfAllDefinitions) {
  std::string path = "/srv";
  for (int kept = 0; kept < 8; ++kept)
    path += "\\/";
  define("sys", "a", path);
  RepositoryFolders folders;
  for (auto size = path.size(); size >= 4; --size)
    EXPECT_EQ(found(folders.find(text(path.substr(0, size)))), found(longestAbove(path.substr(0, size))))
        << size;
}

TEST_F(Folders, TakeTheFirstLoadedOfEqualOnes) {
  define("sys", "b", "/srv");
  define("sys", "a", "/srv/");
  define("user", "c", "/srv");
  RepositoryFolders folders;
  EXPECT_EQ(found(folders.find("/srv/x")), "a x");
  EXPECT_EQ(found(folders.find("/srvx")), "(none)");
}

TEST_F(Folders, LookAtTheDefinitionsOnceAndWhenTheyAreAskedFirst) {
  RepositoryFolders folders;
  define("sys", "a", "/srv");
  EXPECT_EQ(found(folders.find("/srv/x")), "a x");
  define("sys", "b", "/srv/deep");
  EXPECT_EQ(found(folders.find("/srv/deep/x")), "a deep/x");
}

TEST_F(Folders, LookEachTimeWhereEachLookIsLogged) {
  define("sys", "a", "/srv");
  define("user", "A", "/srv");
  const LogCapture log;
  RepositoryFolders folders;
  for (const std::size_t looks : {1U, 2U, 3U}) {
    EXPECT_EQ(found(folders.find("/srv/x")), "a x");
    EXPECT_EQ(log.lines("QV.Repos.QvReposRes.ReposConfigMgr").size(), 2 * looks);
  }
}

} // namespace
