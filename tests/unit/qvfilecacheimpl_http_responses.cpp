// What the source does with its requests and responses, which come from the test in place of a server.
#include "qvfilecacheimpl_http.h"

#include "support/allocations.h"
#include "support/countingcontext.h"
#include "support/logcapture.h"
#include "support/tempdir.h"
#include "support/textio.h"

#include <gmock/gmock.h>

#include <deque>
#include <memory>
#include <string>
#include <utility>
#include <vector>

using testing::Contains;
using testing::Each;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

namespace {

constexpr const char* jobDescription =
    R"(<processjob modifiedDate="2026-01-01"><links><link rel="self" href="http://h/content"/></links></processjob>)";

// The statuses of the next responses, and what became of requests and responses.
struct Service {
  static inline std::deque<int> statuses;
  static inline std::vector<httpGet> requests;
  static inline int openResponses = 0;

  static int nextStatus() {
    if (statuses.empty())
      return 200;
    const int status = statuses.front();
    statuses.pop_front();
    return status;
  }
};

class CountedResponse final : public httpResponse {
public:
  explicit CountedResponse(int status) : m_status(status) { ++Service::openResponses; }

  int getStatusCode() override { return m_status; }
  QvbString getStatusCodeMessage() override { return "of the test"; }
  QvbString getBody() override { return jobDescription; }
  QvbString getHeader(const QvbString&) override { return {}; }
  void release() override {
    --Service::openResponses;
    delete this;
  }

private:
  int m_status;
};

class HttpResponses : public testing::Test {
protected:
  HttpResponses() {
    Service::requests.clear();
    tickets.whenAsked = [this] { openWhenAsked.push_back(Service::openResponses); };
  }
  ~HttpResponses() override {
    EXPECT_EQ(Service::openResponses, 0);
    EXPECT_THAT(Service::statuses, IsEmpty());
  }

  int fetch() {
    QvbString error;
    return provider.updateLocalFileContent(alice.get(), "http://h/job", text(folder / "copy"), &error);
  }

  TempDir folder;
  const ReleasedSubject alice{qvbSubjectCreate("alice", QvbString())};
  CountingContext::Record tickets;
  std::vector<int> openWhenAsked; // responses that lived as the context was asked for a ticket or a renewal
  CountingContext::Factory factory{&tickets};
  LogCapture log;
  RemoteHttpFileProvider provider;
};

} // namespace

httpResponse* httpClient::execute(const httpGet& request) {
  Service::requests.push_back(request);
  return new CountedResponse(Service::nextStatus());
}

TEST_F(HttpResponses, EndBeforeTheirTicketIsRenewed) {
  // for the description, then for the content
  Service::statuses = {401, 401, 200, 401, 401, 401, 200};
  EXPECT_EQ(fetch(), 0);
  EXPECT_THAT(Service::requests, SizeIs(7));
  EXPECT_THAT(openWhenAsked, SizeIs(12)); // 7 tickets, 5 renewals
  EXPECT_THAT(openWhenAsked, Each(0));
}

TEST_F(HttpResponses, EndWhateverTheyAre) {
  for (const int status : {200, 302, 401, 404, 500}) {
    Service::statuses.assign(4, status);
    QvbDate date;
    QvbString error;
    provider.getModifiedDate(alice.get(), "http://h/job", &date, &error, true);
    EXPECT_EQ(Service::openResponses, 0) << status;
    Service::statuses.assign(4, status);
    fetch();
    EXPECT_EQ(Service::openResponses, 0) << status;
    Service::statuses.clear();
  }
}

TEST_F(HttpResponses, AreAskedForWithoutAHeaderThatThereIsNoMemoryFor) {
  const LogLine failure{"QV.FileAccessCache.HttpSystemProvider", 5, "src/qvfilecacheimpl",
                        "Unable to create post headers for http authentication."};
  EXPECT_EQ(fetch(), 0);
  EXPECT_THAT(Service::requests.back().headers, testing::ElementsAre(std::pair<QvbString, QvbString>(
                                                    "Accept", "application/vnd.zel.ProcessJob")));
  EXPECT_THAT(log.lines(), Not(Contains(failure)));

  tickets.ticketFor = [](QvbString* ticket, QvbString*) {
    *ticket = "T-last";
    Allocations::failingSize = sizeof(std::pair<QvbString, QvbString>);
    return true;
  };
  EXPECT_EQ(fetch(), 0);
  EXPECT_EQ(Allocations::failingSize, 0U);
  EXPECT_EQ(Service::requests.back().url, "http://h/content?ticket=T-last");
  EXPECT_THAT(Service::requests.back().headers, IsEmpty());
  EXPECT_EQ(Service::requests.back().contentType, "text/plain");
  EXPECT_THAT(log.lines(), Contains(failure));
}

TEST_F(HttpResponses, OfAFileThatThereIsNoMemoryToAskForSayNothingOfIt) {
  const QvbString job = "http://h/job";
  QvbString error;
  for (const long left : {0, 1, 2}) {
    Allocations::left = left;
    const bool isThere = provider.exists(alice.get(), job, &error);
    Allocations::left = -1;
    EXPECT_FALSE(isThere) << left;
  }
  EXPECT_TRUE(provider.exists(alice.get(), job, &error));
}
