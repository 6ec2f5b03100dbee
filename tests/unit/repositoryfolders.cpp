#include "repositoryfolders.h"

#include "guards.h"
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
      const QvbString path = text(anyPath());
      RC_ASSERT(found(folders.find(path)) == found(findRepositoryPath(path)));
    }
  }));
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
