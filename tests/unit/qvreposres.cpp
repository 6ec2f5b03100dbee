#include "qvreposres/qvreposres.h"

#include "qvreposres/qvreposeventmgr.h"
#include "support/logcapture.h"
#include "support/textio.h"

#include <gtest/gtest.h>

namespace {

class Library : public testing::Test {
protected:
  void TearDown() override { qvReposResShutdown(); }
};

QvbString clientOf(QvReposEventManager* manager) {
  QvbString guid;
  EXPECT_TRUE(manager->getClientGUID(&guid));
  return guid;
}

} // namespace

TEST_F(Library, TellsWhatWasBuilt) {
  EXPECT_STREQ(qvx_build_info, "Repository Resource Library version 2.1 (build 46)");
  EXPECT_EQ(qvx_build_number, 46);
  EXPECT_STREQ(qvx_build_version, "2.1");
}

TEST_F(Library, MakesTheEventManagerWhenItStarts) {
  const LogCapture log;
  int reserved = 7;
  void* out = &reserved;
  EXPECT_EQ(qvReposResStartup(&reserved, &out), 0);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(reserved, 7);
  EXPECT_EQ(log.lines().size(), 1U);
  QvReposEventManager* manager = getRepositoryEventManager();
  EXPECT_NE(manager, nullptr);
  EXPECT_EQ(log.lines().size(), 1U);
}

TEST_F(Library, KeepsTheEventManagerWhenItStartsAgain) {
  QvReposEventManager* manager = getRepositoryEventManager();
  const QvbString client = clientOf(manager);
  int reserved = 7;
  void* out = &reserved;
  EXPECT_EQ(qvReposResStartup(nullptr, &out), 0);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(getRepositoryEventManager(), manager);
  EXPECT_EQ(clientOf(getRepositoryEventManager()), client);
}

TEST_F(Library, MakesTheEventManagerOnFirstUse) {
  QvReposEventManager* manager = getRepositoryEventManager();
  ASSERT_NE(manager, nullptr);
  EXPECT_EQ(getRepositoryEventManager(), manager);
}

TEST_F(Library, EndsTheEventManagerOnce) {
  const QvbString client = clientOf(getRepositoryEventManager());
  const LogCapture log;
  qvReposResShutdown();
  const std::vector<LogLine> expected = {{"QV.Repos.QvReposRes.ReposEventMgr", 2, "src/qvreposeventmgrimpl",
                                          "Shutdown of QvRepos Event Manager, ClientId=" + str(client)}};
  EXPECT_EQ(log.lines(), expected);
  qvReposResShutdown();
  EXPECT_EQ(log.lines(), expected);
}

TEST_F(Library, IsANewClientAfterANewStart) {
  const QvbString before = clientOf(getRepositoryEventManager());
  qvReposResShutdown();
  void* out = nullptr;
  EXPECT_EQ(qvReposResStartup(nullptr, &out), 0);
  EXPECT_NE(str(clientOf(getRepositoryEventManager())), str(before));
}
