// Posting OpenLineage events from the command line.
#include "support/httpserver.h"
#include "support/tool.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

using nlohmann::json;
using testing::AllOf;
using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

const std::string single = "/api/v1/lineage", batch = "/api/v1/lineage/batch";

class QvreposEmit : public testing::Test {
protected:
  explicit QvreposEmit(int jobs = 3) {
    for (int i = 0; i < jobs; ++i)
      m_folder.write("jobs/job" + std::to_string(i) + ".djf",
                     "<SQLUpdateRows><DatabaseConnectionObject Name=\"Sales\" DbDACType=\"ODBC\"/>"
                     "<Create TargetName=\"dbo.t" +
                         std::to_string(i) + "\"/></SQLUpdateRows>");
  }
  ProcessResult emit(std::vector<std::string> more = {}, const std::vector<std::string>& environment = {}) {
    more.insert(more.begin(), {"graph", m_folder / "jobs", "--emit", m_server.url("")});
    return runTool(more, environment);
  }
  std::vector<std::string> namesIn(const ServedRequest& request) const {
    std::vector<std::string> names;
    for (const auto& event : json::parse(request.body))
      names.push_back(event["job"]["name"]);
    return names;
  }

  const TempDir m_folder;
  HttpServer m_server;
};

TEST_F(QvreposEmit, PostsTheEventsWithTheKeyOfTheEnvironment) {
  m_server.serve(batch, "");
  const auto run = emit({"--namespace", "Sales=postgres://db:5432/shop"}, {"OPENLINEAGE_API_KEY=s3cret"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, "");
  EXPECT_EQ(run.err, "qvrepos: 3 events accepted\nqvrepos: 3 jobs, 3 tables, 0 reads, 3 writes\n");
  ASSERT_EQ(m_server.requests(batch).size(), 1U);
  const auto request = m_server.requests(batch)[0];
  EXPECT_EQ(request.header("Authorization"), "Bearer s3cret");
  EXPECT_THAT(namesIn(request), testing::ElementsAre("job0", "job1", "job2"));
  EXPECT_EQ(json::parse(request.body)[0]["outputs"][0]["name"], "shop.dbo.t0");
}

TEST_F(QvreposEmit, NamesAnUnknownDataSourceBeforeItPostsAnything) {
  m_server.serve(batch, "");
  const auto run = emit({"--namespace", "Sale=a://b", "-q"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "qvrepos: --namespace: no job connects to a data source Sale; did you mean Sales?\n");
  EXPECT_THAT(emit({"--namespace", "Sale=a://b"}).err,
              ContainsRegex("--namespace: no job connects.*\nqvrepos: 3 events accepted\n"));
}

TEST_F(QvreposEmit, CountsWhatWasRefusedAndFails) {
  m_server.serve(batch, R"({"failed_events": [{"index": 1, "reason": "no\nname", "retriable": false}]})");
  const auto run = emit();
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, AllOf(HasSubstr("qvrepos: job1: refused: no\\nname\n"),
                             HasSubstr("qvrepos: 1 event of 3 was refused\n"),
                             HasSubstr("qvrepos: 2 events accepted\n")));
}

TEST_F(QvreposEmit, SaysWhereItEndedAndNeverTheKey) {
  m_server.answer(batch, {401});
  const auto run = emit({}, {"OPENLINEAGE_API_KEY=s3cret"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err,
              AllOf(HasSubstr("qvrepos: stopped after 0 of 3 events: status 401"), Not(HasSubstr("s3cret"))));
}

class QvreposEmitMany : public QvreposEmit {
protected:
  QvreposEmitMany() : QvreposEmit(250) {}
};

TEST_F(QvreposEmit, SaysOnceThatNobodyAnswers) {
  const auto run = runTool({"graph", m_folder / "jobs", "--emit", "http://127.0.0.1:1"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, ContainsRegex("^qvrepos: stopped after 0 of 3 events: "));
  EXPECT_THAT(run.err, Not(HasSubstr("QV.Base.Http")));
}

TEST_F(QvreposEmitMany, GoesOnAfterTheLastEventThatWasAccepted) {
  m_server.serve(batch, "");
  m_server.answer(batch, {200, 403});
  EXPECT_THAT(emit().err,
              ContainsRegex("stopped after 100 of 250 events: status 403.*; with --resume FILE the "
                            "next run goes on there\n"));
  m_server.clearRequests();
  m_server.answer(batch, {200, 200, 403});
  const std::vector<std::string> resume{"--resume", m_folder / "state"};
  const auto ended = emit(resume);
  EXPECT_EQ(ended.status, 1);
  EXPECT_THAT(
      ended.err,
      ContainsRegex("stopped after 200 of 250 events: status 403.*; the same command goes on there\n"));
  m_server.clearRequests();
  const auto resumed = emit(resume);
  EXPECT_EQ(resumed.status, 0) << resumed.err;
  EXPECT_THAT(resumed.err, AllOf(HasSubstr("going on after 200 events that were dealt with before"),
                                 HasSubstr("50 events accepted")));
  ASSERT_EQ(m_server.requests(batch).size(), 1U);
  EXPECT_EQ(namesIn(m_server.requests(batch)[0]).size(), 50U);
  EXPECT_FALSE(std::filesystem::exists(m_folder / "state"));
}

TEST_F(QvreposEmitMany, RefusesTheProgressOfOtherEvents) {
  m_server.serve(batch, "");
  m_server.answer(batch, {200, 403});
  const std::vector<std::string> resume{"--resume", m_folder / "state"};
  emit(resume);
  const auto kept = m_folder.read("state");
  EXPECT_THAT(kept, Not(HasSubstr(m_server.url("")))); // which may hold a password
  m_folder.write("jobs/job7.djf", "<SQLUpdateRows/>");
  m_server.clearRequests();
  const auto run = emit(resume);
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("qvrepos: " + (m_folder / "state") +
                                 " holds the progress of other events; remove it to begin anew\n"));
  EXPECT_THAT(m_server.requests(batch), IsEmpty());
  EXPECT_EQ(m_folder.read("state"), kept);
}

TEST_F(QvreposEmit, RefusesAFileThatIsNoProgressAndLeavesIt) {
  m_server.serve(batch, "");
  for (const std::string content :
       {"", "my notes", "{}", "[]", R"({"mark": 1, "done": 1})", R"({"mark": "a", "done": -1})",
        R"({"mark": "a", "done": 1, "more": 1})", R"({"mark": "a", "other": 1})"}) {
    m_folder.write("state", content);
    const auto run = emit({"--resume", m_folder / "state"});
    EXPECT_EQ(run.status, 1) << content;
    EXPECT_THAT(run.err, HasSubstr("qvrepos: " + (m_folder / "state") +
                                   " is no progress file of --emit; name one that is not there yet\n"));
    EXPECT_EQ(m_folder.read("state"), content);
  }
  EXPECT_THAT(emit({"--resume", m_folder / "jobs"}).err, HasSubstr("/jobs is no progress file of --emit;"));
  EXPECT_THAT(m_server.requests(batch), IsEmpty());
}

TEST_F(QvreposEmitMany, ShowsABarOnATerminal) {
  m_server.serve(batch, "");
  const std::string command = toolPath + " graph " + (m_folder / "jobs") + " --emit " + m_server.url("");
  const auto shown = runProcess({"script", "--quiet", "--return", "--command", command, "/dev/null"});
  EXPECT_THAT(shown.out, HasSubstr("200 of 250 events"));
}

TEST_F(QvreposEmit, FailsWhereItsProgressCannotBeKept) {
  m_server.serve(batch, "");
  const auto run = emit({"--resume", m_folder / "gone/state"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("cannot write " + (m_folder / "gone/state")));
  EXPECT_THAT(m_server.requests(batch), IsEmpty());
}

} // namespace
