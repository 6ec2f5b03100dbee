// The file cache of an application over HTTP, with the service tickets of a ticket server.
#include "qvreposres/qvfilecache.h"
#include "qvxbase/qvbconfig.h"
#include "qvxbase/qvbreleased.h"
#include "support/httpserver.h"
#include "support/logcapture.h"
#include "support/textio.h"

#include <gmock/gmock.h>

#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <vector>

using testing::AllOf;
using testing::AnyOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

class HttpCache : public testing::Test {
protected:
  HttpCache() {
    server.serveJob("/job", "2026-01-02T03:04:05.006", "jobs/load", server.url("/content"));
    server.serve("/content", "first");
    server.addUser("alice", "a-secret");
    server.addUser("bob", "b-secret");
    server.requireTickets();
    qvbSetConfigOption("AUTH/SERVER", text(server.ticketServer()));
    remake("2000000000");
  }
  ~HttpCache() override {
    qvFileCacheShutdown();
    qvbClearConfigOptions();
  }

  void remake(const char* interval) {
    qvFileCacheShutdown();
    qvbSetConfigOption("BASE/REMOTEFILECACHE_TIMEBETWEENCHECKS", interval);
    cache = getFileCache();
  }
  // The local copy's content, or the result and the error text.
  std::string get(ASSubject* subject) {
    error.setNull();
    const int result = cache->getCacheFilename(subject, text(server.url("/job")), &local, &error);
    return result == 0 ? content() : std::to_string(result) + " " + str(error);
  }
  std::string get() { return get(alice.get()); }
  std::string content() const {
    std::ifstream in(local.asCstr(), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  // Requests since the last call, those to the ticket server left out.
  std::vector<std::string> asked() {
    std::vector<std::string> paths;
    for (const ServedRequest& request : server.requests()) {
      if (!request.path().starts_with("/cas/"))
        paths.push_back(request.path());
    }
    server.clearRequests();
    return paths;
  }

  HttpServer server;
  const ReleasedSubject alice{qvbSubjectCreate("alice", "a-secret")};
  const ReleasedSubject bob{qvbSubjectCreate("bob", "b-secret")};
  const ReleasedSubject mallory{qvbSubjectCreate("mallory", "guess")};
  QvbString local;
  QvbString error;
  LogCapture log;
  FileAccessCache* cache = nullptr;
};

} // namespace

TEST_F(HttpCache, FetchesOnceAndAsksNobodyForAFreshCopy) {
  EXPECT_EQ(get(), "first");
  EXPECT_THAT(asked(), ElementsAre("/job", "/content"));
  server.serve("/content", "second");
  EXPECT_EQ(get(), "first");
  EXPECT_THAT(asked(), IsEmpty());
}

TEST_F(HttpCache, FetchesAgainAfterTheInterval) {
  remake("-1");
  EXPECT_EQ(get(), "first");
  asked();
  server.serve("/content", "second");
  const QvbDate start = QvbDate::currentDate(false);
  while (QvbDate::currentDate(false).compare(start) <= 0)
    ;
  EXPECT_EQ(get(), "second");
  EXPECT_THAT(asked(), ElementsAre("/job", "/content"));
}

TEST_F(HttpCache, LetsTheServiceDecideAboutEachUserOnce) {
  EXPECT_EQ(get(), "first");
  asked();
  EXPECT_EQ(get(bob.get()), "first");
  EXPECT_THAT(asked(), ElementsAre("/job", "/content"));
  EXPECT_EQ(get(bob.get()), "first");
  EXPECT_EQ(get(), "first");
  EXPECT_THAT(asked(), IsEmpty());
  for (int i = 0; i < 2; ++i)
    EXPECT_EQ(get(mallory.get()), "1 The ticket server refused the login: 401 Unauthorized");
  EXPECT_THAT(asked(), IsEmpty());
  EXPECT_EQ(content(), "first");
}

TEST_F(HttpCache, FetchesEverythingAgainAfterAFlush) {
  EXPECT_EQ(get(), "first");
  asked();
  EXPECT_TRUE(cache->flush(true));
  EXPECT_EQ(get(), "first");
  EXPECT_THAT(asked(), ElementsAre("/job", "/content"));
  EXPECT_EQ(server.logins(), 2);
}

TEST_F(HttpCache, TellsWhetherTheJobChanged) {
  const QvbString url = text(server.url("/job"));
  get();
  bool modified = true;
  EXPECT_EQ(cache->isModified(alice.get(), url, &modified, &error), 0);
  EXPECT_FALSE(modified);
  server.serveJob("/job", "2026-01-02T03:04:05.007", "jobs/load", server.url("/content"));
  EXPECT_EQ(cache->isModified(alice.get(), url, &modified, &error), 0);
  EXPECT_TRUE(modified);
  server.answer("/job", {410});
  QvbDate date;
  EXPECT_EQ(cache->getModifiedDate(alice.get(), url, &date, &error), 4);
  EXPECT_EQ(error, "Unable to obtain modified date for file");
}

// A content that is refused is named by its whole URL: the ticket in it has been used, and admits nobody again.
TEST_F(HttpCache, ShowsNoLiveTicketToAnybodyButTheTrace) {
  server.answer("/job", {401, 403});
  get();
  server.answer("/content", {401, 500});
  get();
  const std::string refused = server.requests("/content").back().ticket();
  get();
  std::set<std::string> shown;
  for (const ServedRequest& request : server.requests()) {
    if (!request.ticket().empty())
      shown.insert(request.ticket());
  }
  EXPECT_GE(shown.size(), 5U);
  EXPECT_THAT(error, testing::Truly([](const QvbString& text) { return text.find("ST-") < 0; }));
  for (const LogLine& record : log.lines()) {
    EXPECT_THAT(record.text, AllOf(Not(HasSubstr("TGT-")), Not(HasSubstr("secret"))));
    if (record.level > 1) {
      EXPECT_THAT(record.text, AnyOf(AllOf(Not(HasSubstr("ST-")), Not(HasSubstr("ticket="))),
                                     EndsWith(server.url("/content?ticket=") + refused)));
    }
  }
  EXPECT_EQ(local.find("ST-"), -1);
}
