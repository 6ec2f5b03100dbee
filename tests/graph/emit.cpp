#include "qvlineagegraph/emit.h"

#include "support/faultserver.h"
#include "support/httpserver.h"

#include "qvreposres/qvreposres.h"
#include "qvxbase/qvbconfig.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

using namespace qvlineagegraph;
using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

using Statuses = std::vector<int>;
const std::string single = "/api/v1/lineage", batch = "/api/v1/lineage/batch";

std::vector<std::string> numbered(int count) {
  std::vector<std::string> events;
  for (int i = 0; i < count; ++i)
    events.push_back("{\"n\":" + std::to_string(i) + "}");
  return events;
}

class Emit : public testing::Test {
protected:
  void takeSingles() { m_server.serve(single, ""); }
  void takeBatches(const std::string& answer = "") { m_server.serve(batch, answer, "application/json"); }
  EmitReport emit(int count, EmitOptions options = {}) {
    options.url = m_server.url("");
    options.pause = std::chrono::milliseconds(1);
    return emitEvents(numbered(count), options);
  }
  // The numbers of the events in each request.
  std::vector<std::vector<int>> posted(const std::string& path) const {
    std::vector<std::vector<int>> all;
    for (const auto& request : m_server.requests(path)) {
      auto body = json::parse(request.body);
      if (!body.is_array())
        body = json::array({body});
      all.emplace_back();
      for (const auto& event : body)
        all.back().push_back(event["n"]);
    }
    return all;
  }
  static std::vector<std::size_t> refused(const EmitReport& report) {
    std::vector<std::size_t> indices;
    for (const auto& one : report.refused)
      indices.push_back(one.index);
    return indices;
  }

  HttpServer m_server;
};

TEST_F(Emit, PostsBatchesInOrder) {
  takeBatches();
  std::vector<std::size_t> told;
  EmitOptions options;
  options.batch = 2;
  options.progress = [&](std::size_t done) {
    told.push_back(done);
    return true;
  };
  const auto report = emit(5, options);
  EXPECT_EQ(report.accepted, 5U);
  EXPECT_EQ(report.done, 5U);
  EXPECT_EQ(report.stopped, "");
  EXPECT_THAT(told, ElementsAre(2, 4, 5));
  EXPECT_THAT(posted(batch), ElementsAre(ElementsAre(0, 1), ElementsAre(2, 3), ElementsAre(4)));
  EXPECT_EQ(m_server.requests(batch)[0].method, "POST");
  EXPECT_EQ(m_server.requests(batch)[0].header("Content-Type"), "application/json");
}

TEST_F(Emit, PostsOneByOneWhereThereAreNoBatches) {
  takeSingles();
  for (const int status : {404, 405, 501}) {
    m_server.clearRequests();
    m_server.answer(batch, {status});
    const auto report = emit(3);
    EXPECT_EQ(report.accepted, 3U) << status;
    EXPECT_EQ(m_server.requests(batch).size(), 1U) << status;
    EXPECT_THAT(posted(single), ElementsAre(ElementsAre(0), ElementsAre(1), ElementsAre(2))) << status;
  }
}

TEST_F(Emit, SendsTheKeyAsABearerToken) {
  takeBatches();
  EmitOptions options;
  options.apiKey = "s3cret";
  emit(1, options);
  emit(1);
  EXPECT_EQ(m_server.requests(batch)[0].header("Authorization"), "Bearer s3cret");
  EXPECT_EQ(m_server.requests(batch)[1].header("Authorization"), "");
}

TEST_F(Emit, PostsToThePathThatIsGiven) {
  m_server.serve("/own/batch", "");
  for (const char* path : {"/own", "/own/"}) {
    EmitOptions options;
    options.url = m_server.url(path);
    EXPECT_EQ(emitEvents(numbered(1), options).accepted, 1U) << path;
  }
  takeBatches();
  EmitOptions options;
  options.url = m_server.url("/");
  EXPECT_EQ(emitEvents(numbered(1), options).accepted, 1U);
}

TEST_F(Emit, TriesAgainWhatMayPass) {
  takeBatches();
  m_server.answer(batch, {503, 429, 408, 500, 200});
  const auto report = emit(2);
  EXPECT_EQ(report.accepted, 2U);
  EXPECT_EQ(m_server.requests(batch).size(), 5U);
}

TEST_F(Emit, EndsWhenTheAttemptsAreUsedUpAndGoesOnFromThere) {
  takeBatches();
  m_server.answer(batch, {200, 503, 503});
  EmitOptions options;
  options.batch = 2;
  options.attempts = 2;
  const auto ended = emit(5, options);
  EXPECT_EQ(ended.accepted, 2U);
  EXPECT_EQ(ended.done, 2U);
  EXPECT_THAT(ended.stopped, HasSubstr("status 503"));

  m_server.clearRequests();
  options.first = ended.done;
  EXPECT_EQ(emit(5, options).accepted, 3U);
  EXPECT_THAT(posted(batch), ElementsAre(ElementsAre(2, 3), ElementsAre(4)));
}

TEST_F(Emit, PassesOverWhatIsRefused) {
  takeSingles();
  m_server.answer(batch, {422});
  m_server.answer(single, {200, 400, 200});
  const auto report = emit(3);
  EXPECT_EQ(report.accepted, 2U);
  EXPECT_EQ(report.done, 3U);
  EXPECT_THAT(refused(report), ElementsAre(1));
  EXPECT_THAT(report.refused[0].reason, HasSubstr("status 400"));
  EXPECT_EQ(report.stopped, "");
}

TEST_F(Emit, ReadsWhichOfABatchWereRefused) {
  takeBatches(R"({"status": "partial_success", "failed_events": [
    {"index": 0, "reason": "no name", "retriable": false}, {"index": 2, "reason": "busy", "retriable": true},
    {"index": 99}, {"reason": "no index"}, 7]})");
  takeSingles();
  const auto report = emit(4);
  EXPECT_EQ(report.accepted, 3U);
  EXPECT_EQ(report.done, 4U);
  ASSERT_THAT(refused(report), ElementsAre(0));
  EXPECT_EQ(report.refused[0].reason, "no name");
  EXPECT_THAT(posted(single), ElementsAre(ElementsAre(2)));
}

TEST_F(Emit, EndsAmongTheEventsOfARefusedBatchWhereAccessIsDenied) {
  takeSingles();
  m_server.answer(batch, {422});
  m_server.answer(single, {200, 403});
  const auto report = emit(3);
  EXPECT_EQ(report.accepted, 1U);
  EXPECT_EQ(report.done, 1U);
  EXPECT_THAT(report.stopped, HasSubstr("status 403"));
  EXPECT_THAT(posted(single), ElementsAre(ElementsAre(0), ElementsAre(1)));
}

TEST_F(Emit, EndsWhereAnEventOfATakenBatchIsDeniedItsSecondAttempt) {
  takeBatches(R"({"failed_events": [{"index": 1, "retriable": true}]})");
  takeSingles();
  m_server.answer(single, {401});
  const auto report = emit(3);
  EXPECT_EQ(report.accepted, 1U);
  EXPECT_EQ(report.done, 1U);
  EXPECT_THAT(report.stopped, HasSubstr("status 401"));
}

TEST_F(Emit, EndsAtOnceWhereAccessIsDenied) {
  takeBatches();
  for (const int status : {401, 403}) {
    m_server.clearRequests();
    m_server.answer(batch, {status});
    const auto report = emit(3);
    EXPECT_EQ(report.done, 0U);
    EXPECT_THAT(report.stopped, HasSubstr("status " + std::to_string(status)));
    EXPECT_EQ(m_server.requests().size(), 1U);
  }
}

TEST_F(Emit, FollowsNoRedirect) {
  m_server.redirect(batch, m_server.url("/elsewhere"));
  EmitOptions options;
  options.apiKey = "s3cret";
  const auto report = emit(1, options);
  EXPECT_THAT(report.stopped, HasSubstr("a redirect, which is not followed"));
  EXPECT_THAT(m_server.requests("/elsewhere"), IsEmpty());
}

TEST_F(Emit, EndsWhenItIsTold) {
  takeBatches();
  EmitOptions options;
  options.batch = 1;
  options.progress = [](std::size_t done) { return done < 2; };
  const auto report = emit(5, options);
  EXPECT_EQ(report.done, 2U);
  EXPECT_EQ(report.stopped, "it was stopped");
}

TEST_F(Emit, KeepsTheQueryOfTheAddressBehindItsPath) {
  for (const std::string path : {"/own", "/api/v1/lineage"}) {
    m_server.serve(path + "/batch", R"({"failed_events": [{"index": 0, "retriable": true}]})",
                   "application/json");
    m_server.serve(path, "");
  }
  for (const auto& [given, path] : {std::pair<std::string, std::string>{"/own", "/own"},
                                    {"/own/", "/own"},
                                    {"", "/api/v1/lineage"},
                                    {"/", "/api/v1/lineage"}}) {
    m_server.clearRequests();
    EmitOptions options;
    options.url = m_server.url(given + "?key=a/b");
    EXPECT_EQ(emitEvents(numbered(1), options).accepted, 1U) << given;
    std::vector<std::string> targets;
    for (const auto& request : m_server.requests())
      targets.push_back(request.target);
    EXPECT_THAT(targets, ElementsAre(path + "/batch?key=a/b", path + "?key=a/b")) << given;
  }
}

TEST_F(Emit, WasNotStoppedWhereNothingWasLeft) {
  takeBatches();
  EmitOptions options;
  options.progress = [](std::size_t) { return false; };
  const auto report = emit(3, options);
  EXPECT_EQ(report.done, 3U);
  EXPECT_EQ(report.stopped, "");
}

TEST_F(Emit, PostsNothingWhereThereIsNothing) {
  EXPECT_EQ(emit(0).stopped, "");
  EXPECT_THAT(m_server.requests(), IsEmpty());
}

TEST(EmitFaults, EndTheirAttemptsWithTheReasonAndNeverWithTheKey) {
  FaultServer server;
  for (const auto fault : {HttpFault::CloseAtOnce, HttpFault::NotHttp, HttpFault::ResetInBody,
                           HttpFault::ShortBody, HttpFault::ShortChunk}) {
    EmitOptions options;
    options.url = server.url(fault);
    options.apiKey = "s3cret";
    options.attempts = 3;
    options.pause = std::chrono::milliseconds(1);
    const int before = server.requestCount();
    const auto report = emitEvents(numbered(2), options);
    EXPECT_EQ(report.done, 0U);
    EXPECT_NE(report.stopped, "");
    EXPECT_THAT(report.stopped, Not(HasSubstr("s3cret")));
    EXPECT_EQ(server.requestCount() - before, 3);
  }
}

TEST(EmitFaults, OfAServerThatIsSilentEnd) {
  FaultServer server;
  qvbSetConfigOption("HTTP/LOW_SPEED_TIME", "1");
  EmitOptions options;
  options.url = server.url(HttpFault::Silent);
  options.attempts = 1;
  EXPECT_NE(emitEvents(numbered(1), options).stopped, "");
}

TEST(EmitFaults, OfAPortThatNobodyListensOnEnd) {
  const ClosedPort port;
  EmitOptions options;
  options.url = port.url("");
  options.attempts = 2;
  options.pause = std::chrono::milliseconds(1);
  EXPECT_NE(emitEvents(numbered(1), options).stopped, "");
}

TEST(EmitFaults, OfACertificateThatIsNotTrustedEnd) {
  HttpServer server(HttpServer::Transport::Tls);
  server.serve(batch, "");
  EmitOptions options;
  options.url = server.url("");
  options.attempts = 1;
  EXPECT_NE(emitEvents(numbered(1), options).stopped, "");
  EXPECT_THAT(server.requests(), IsEmpty());
}

} // namespace
