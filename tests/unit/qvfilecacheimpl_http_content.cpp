#include "qvfilecacheimpl_http.h"

#include "support/faults.h"
#include "support/faultserver.h"
#include "support/httpsourcefixture.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <string>
#include <thread>

#include <sys/stat.h>

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

// --- Contents

TEST_F(HttpSource, FetchesTheDescriptionOnTheWayToTheContent) {
  EXPECT_EQ(fetch(), (Answer{0, ""}));
  EXPECT_EQ(readFile(local), "the content");
  EXPECT_EQ(logged(), records({line(1, "fetching content for: " + job())}) + asks("T-1") +
                          records({line(1, "fetching service ticket for: " + job("/content")),
                                   line(1, "HTTP (GET) of content: " + job("/content") + "?ticket=T-2")}) +
                          writesLocalFile());
}

TEST_F(HttpSource, FailsOnAContentWithoutADescription) {
  EXPECT_EQ(fetch("/nothing"), (Answer{1, ""}));
  EXPECT_EQ(logged().back(), line(5, "Unable to populate local file content for " + job("/nothing") + ": "));
}

TEST_F(HttpSource, WritesEveryByteOfAContent) {
  std::string bytes(100000, '\0');
  for (std::size_t i = 0; i < bytes.size(); ++i)
    bytes[i] = static_cast<char>(i * 31 % 256);
  for (const std::string& content : {bytes, std::string(), std::string("  blanks stay \n")}) {
    server.serve("/content", content);
    EXPECT_EQ(fetch(), (Answer{0, ""}));
    EXPECT_EQ(readFile(local), content);
    EXPECT_THAT(loggedAboveTrace(), IsEmpty());
  }
  struct stat copied {};
  ASSERT_EQ(::stat(local.asCstr(), &copied), 0);
  EXPECT_EQ(copied.st_mode & 07777, 0600U);
}

TEST_F(HttpSource, TakesARedirectForSuccessWithoutFollowingIt) {
  server.redirect("/content", job("/elsewhere"));
  server.serve("/elsewhere", "never fetched");
  EXPECT_EQ(fetch().result, 0);
  EXPECT_EQ(readFile(local), "");
  EXPECT_THAT(server.requests("/elsewhere"), IsEmpty());
  server.redirect("/moved", job("/job"));
  EXPECT_TRUE(exists("/moved"));
  EXPECT_THAT(server.requests("/job"), SizeIs(1));
}

TEST_F(HttpSource, TellsThatTheLocalFileCannotBeOpened) {
  const std::string nowhere = folder / "no/such/folder";
  QvbString error;
  EXPECT_EQ(provider.updateLocalFileContent(alice.get(), url("/job"), text(nowhere), &error), 3);
  EXPECT_EQ(str(error),
            "Error writing contents to local cache file (" + nowhere + ") for remote file (" + job() + ")");
  const auto lines = logged();
  EXPECT_EQ(lines[lines.size() - 2], line(1, "Opening local file cache entry: " + nowhere));
  EXPECT_EQ(lines.back(), line(5, str(error)));
}

TEST_F(HttpSource, LogsAFailedWriteAndKeepsTheOldCopy) {
  getDate();
  logged();
  {
    const Faults full(QvbFaultPoint::FileWrite, ENOSPC);
    EXPECT_EQ(fetch(), (Answer{0, ""}));
  }
  EXPECT_EQ(logged(),
            asksForContent("T-2") + records({line(1, "Opening local file cache entry: " + str(local)),
                                             line(1, "Writing file cache entry contents: " + str(local)),
                                             line(2, "We had an issue writing bytes to: " + str(local)),
                                             line(1, "Closing file cache entry: " + str(local))}));
  EXPECT_EQ(readFile(local), "old copy");
}

// Completed by guesswork it would take the ticket elsewhere.
TEST_F(HttpSource, SendsNothingForALinkThatIsNoUrl) {
  const std::string host = job("").substr(std::string("http://").size());
  for (const std::string& link : {std::string("/content"), std::string("content"), host + "/content",
                                  "//" + host + "/content", "http:/" + host + "/content"}) {
    server.serveJob("/job", firstDate, "jobs/load", link);
    EXPECT_EQ(getDate(), (Answer{0, ""}));
    EXPECT_EQ(fetch(), (Answer{1, "Unavlid response from HTTP get"})) << link;
  }
  EXPECT_THAT(server.requests("/content"), IsEmpty());
  EXPECT_EQ(readFile(local), "old copy");
}

TEST_F(HttpSource, TellsThatTheContentDidNotCome) {
  const ClosedPort closed;
  server.serveJob("/job", firstDate, "jobs/load", closed.url("/content"));
  EXPECT_EQ(fetch(), (Answer{1, "Unavlid response from HTTP get"}));
  // the client's own word for it names the server alone
  const auto reasons = log.lines("QV.Base.Http");
  ASSERT_THAT(reasons, SizeIs(1));
  EXPECT_THAT(reasons[0].text, testing::StartsWith("No response: " + closed.url("") + ": "));
  EXPECT_EQ(logged().back(), line(5, "updateLocalFileContent: Unavlid response from HTTP get"));
  EXPECT_EQ(readFile(local), "old copy");
}

// --- Beginning, flush and end

TEST_F(HttpSource, ForgetsDescriptionsAndTicketsWhenItIsFlushed) {
  getDate();
  EXPECT_EQ(tickets.made, 1);
  logged();
  EXPECT_TRUE(provider.flush(false));
  EXPECT_THAT(logged(), ElementsAre(line(1, "Flushing http cache provider"),
                                    line(1, "Flushing http cache provider security context")));
  // one context at a time
  EXPECT_THAT(tickets.releasedWhenMade, ElementsAre(0, 1));
  EXPECT_EQ(tickets.released, 1);
  EXPECT_TRUE(exists());
  EXPECT_EQ(requests(), 2U);
}

TEST_F(HttpSource, ReleasesItsContextAtTheEnd) {
  auto* const other = new RemoteHttpFileProvider;
  EXPECT_EQ(tickets.made, 2);
  EXPECT_THAT(logged(), IsEmpty());
  tickets.whenReleased = [this] { EXPECT_THAT(log.lines(), IsEmpty()); };
  other->release();
  tickets.whenReleased = [] {};
  EXPECT_EQ(tickets.released, 1);
  EXPECT_THAT(logged(), ElementsAre(line(1, "Remote HTTP File cache provider, releasing resources...")));
}

TEST_F(HttpSource, GoesOnWithoutALock) {
  const Faults faults(QvbFaultPoint::LockCreate, ENOMEM);
  RemoteHttpFileProvider unlocked;
  EXPECT_THAT(logged(), ElementsAre(line(6, "Failed to create file access cache lock")));
  EXPECT_TRUE(unlocked.exists(alice.get(), url("/job"), nullptr));
}

TEST_F(HttpSource, AnswersOthersWhileARequestIsUnderWay) {
  getDate();
  server.serveJob("/slow", firstDate, "jobs/slow", job("/content"));
  for (const char* path : {"/slow", "/content"}) {
    server.hold(path, true);
    std::jthread waiting([&] {
      if (path == std::string("/slow"))
        EXPECT_EQ(getDate(path), (Answer{0, ""}));
      else
        EXPECT_EQ(fetch(), (Answer{0, ""}));
    });
    ASSERT_TRUE(server.waitForHeld(path, 1));
    EXPECT_TRUE(exists());
    EXPECT_TRUE(provider.flush(false));
    // so far it has not been let go
    EXPECT_TRUE(server.waitForHeld(path, 1));
    server.hold(path, false);
    waiting.join();
    getDate();
  }
}
