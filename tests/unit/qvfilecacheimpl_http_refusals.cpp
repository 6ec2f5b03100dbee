#include "qvfilecacheimpl_http.h"

#include "qvxbase/qvbconfig.h"
#include "support/faults.h"
#include "support/httpsourcefixture.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <map>
#include <string>
#include <vector>

using testing::Contains;
using testing::ElementsAre;
using testing::SizeIs;
using testing::StartsWith;

// --- Refusals

TEST_F(HttpSource, MapsARefusalOfTheDescription) {
  struct Case {
    int status;
    const char* phrase;
    int result;
  };
  for (const auto& [status, phrase, result] :
       {Case{403, "Forbidden", 4}, Case{404, "Not Found", 3}, Case{406, "Not Acceptable", 9},
        Case{410, "Gone", 3}, Case{429, "Too Many Requests", 1}, Case{500, "Internal Server Error", 1},
        Case{503, "Service Unavailable", 12}, Case{206, "Partial Content", 6},
        Case{203, "Non-Authoritative Information", 12}}) {
    server.answer("/job", {status});
    QvbDate date = QvbDate::currentDate(false);
    EXPECT_EQ(getDate("/job", true, &date), (Answer{result, "Unable to obtain modified date for file"}))
        << status;
    EXPECT_TRUE(date.isNull());
    const auto lines = logged();
    ASSERT_THAT(lines, SizeIs(9));
    EXPECT_EQ(lines[5], line(2, std::to_string(status) + " http error code, 0 retries"));
    EXPECT_EQ(lines[6],
              line(5, "http error " + std::to_string(status) + ": " + phrase + ", requesting " + job()));
    EXPECT_EQ(lines[7], line(5, "Unable to obtain modified date for file: " + job()));
    EXPECT_EQ(lines[8], line(5, "assignDateObject given invalid input of NULL"));
  }
  EXPECT_EQ(requests(), 9U);
}

TEST_F(HttpSource, MapsARefusalOfTheContent) {
  getDate();
  for (const auto& [status, result] : std::map<int, int>{
           {400, 12}, {403, 4}, {404, 3}, {405, 9}, {410, 3}, {429, 1}, {500, 1}, {503, 12}, {304, 12}}) {
    logged();
    server.answer("/content", {status});
    const Answer answer = fetch();
    EXPECT_EQ(answer.result, result) << status;
    EXPECT_THAT(answer.error,
                testing::MatchesRegex("http error " + std::to_string(status) + ": [A-Za-z ]+, requesting " +
                                      job("/content") + "\\?ticket=T-[0-9]+"));
    const auto lines = logged();
    ASSERT_THAT(lines, SizeIs(5));
    EXPECT_EQ(lines[3], line(2, std::to_string(status) + " http error code, 0 retries"));
    EXPECT_EQ(lines[4], line(5, answer.error));
    EXPECT_EQ(readFile(local), "old copy");
  }
}

TEST_F(HttpSource, AsksAgainWithAFreshTicketAfterA401) {
  server.answer("/job", {401});
  EXPECT_EQ(getDate("/job", false), (Answer{0, ""}));
  EXPECT_EQ(logged(), records({line(1, "getModifiedDate using fetched cache if possible for: " + job())}) +
                          asks("T-1") +
                          records({line(2, "401 http error code, 0 retries"),
                                   line(2, "Trying to refetch, 401 encountered")}) +
                          asks("T-3") +
                          records({line(1, std::string("getModifiedDate setting new date: ") + firstDate)}));
  EXPECT_THAT(tickets.calls, ElementsAre("ticket " + job(), "renew " + job(), "ticket " + job()));
  const auto all = server.requests();
  ASSERT_THAT(all, SizeIs(2));
  EXPECT_NE(all[0].ticket(), all[1].ticket());
}

TEST_F(HttpSource, RepeatsARefreshAsARefresh) {
  getDate();
  server.serveJob("/job", "2027-01-01", "jobs/load", job("/content"));
  server.answer("/job", {401});
  QvbDate date;
  EXPECT_EQ(getDate("/job", true, &date), (Answer{0, ""}));
  EXPECT_EQ(date.asString(true), "2027-01-01");
}

TEST_F(HttpSource, TellsTheCallerHowARepeatedRequestFailed) {
  server.answer("/job", {401, 410});
  EXPECT_EQ(getDate(), (Answer{3, "Unable to obtain modified date for file"}));
  server.answer("/job", {401});
  runOutOfTickets();
  EXPECT_EQ(getDate(), (Answer{1, "the vault is locked"}));

  tickets.ticketFor = nullptr;
  getDate();
  server.answer("/content", {401, 410});
  const Answer gone = fetch();
  EXPECT_EQ(gone, (Answer{3, "http error 410: Gone, requesting " + job("/content") + latestTicket()}));
  server.answer("/content", {401});
  runOutOfTickets();
  EXPECT_EQ(fetch(), (Answer{1, "the vault is locked"}));
  EXPECT_EQ(readFile(local), "old copy");
}

TEST_F(HttpSource, GivesUpAfterFour401s) {
  server.answer("/job", {401, 401, 401, 401, 200});
  EXPECT_EQ(getDate(), (Answer{4, "Unable to obtain modified date for file"}));
  EXPECT_EQ(requests(), 4U);
  EXPECT_THAT(tickets.calls,
              ElementsAre("ticket " + job(), "renew " + job(), "ticket " + job(), "renew " + job(),
                          "ticket " + job(), "renew " + job(), "ticket " + job()));
  EXPECT_THAT(
      loggedAboveTrace(),
      ElementsAre(line(2, "401 http error code, 0 retries"), line(2, "Trying to refetch, 401 encountered"),
                  line(2, "401 http error code, 1 retries"), line(2, "Trying to refetch, 401 encountered"),
                  line(2, "401 http error code, 2 retries"), line(2, "Trying to refetch, 401 encountered"),
                  line(2, "401 http error code, 3 retries"),
                  line(5, "http error 401: Unauthorized, requesting " + job()),
                  line(5, "Unable to obtain modified date for file: " + job()),
                  line(5, "assignDateObject given invalid input of NULL")));
  // the count begins anew with each operation
  server.answer("/job", {401, 401});
  EXPECT_EQ(getDate().result, 0);
}

TEST_F(HttpSource, RenewsForTheContentToo) {
  getDate();
  logged();
  server.answer("/content", {401});
  EXPECT_EQ(fetch(), (Answer{0, ""}));
  EXPECT_EQ(readFile(local), "the content");
  EXPECT_EQ(logged(), asksForContent("T-2") +
                          records({line(2, "401 http error code, 0 retries"),
                                   line(2, "Got 401, retry content fetch")}) +
                          asksForContent("T-4") + writesLocalFile());
  EXPECT_THAT(tickets.calls, ElementsAre("ticket " + job(), "ticket " + job("/content"),
                                         "renew " + job("/content"), "ticket " + job("/content")));
}

TEST_F(HttpSource, GivesUpOnTheContentAfterFour401s) {
  getDate();
  logged();
  server.clearRequests();
  tickets.calls.clear();
  server.answer("/content", {401, 401, 401, 401, 200});
  const std::string refusal = "http error 401: Unauthorized, requesting " + job("/content") + "?ticket=T-7";
  EXPECT_EQ(fetch(), (Answer{4, refusal}));
  EXPECT_EQ(requests(), 4U);
  const std::string ticket = "ticket " + job("/content"), renewal = "renew " + job("/content");
  EXPECT_THAT(tickets.calls, ElementsAre(ticket, renewal, ticket, renewal, ticket, renewal, ticket));
  const LogLine again = line(2, "Got 401, retry content fetch");
  EXPECT_THAT(loggedAboveTrace(), ElementsAre(line(2, "401 http error code, 0 retries"), again,
                                              line(2, "401 http error code, 1 retries"), again,
                                              line(2, "401 http error code, 2 retries"), again,
                                              line(2, "401 http error code, 3 retries"), line(5, refusal)));
  EXPECT_EQ(readFile(local), "old copy");
}

TEST_F(HttpSource, AsksAgainThoughARenewalFails) {
  tickets.renews = false;
  tickets.renewError = "100% lost %s"; // whatever it holds
  server.answer("/job", {401});
  EXPECT_EQ(getDate("/job", false).result, 0);
  EXPECT_THAT(loggedAboveTrace(),
              ElementsAre(line(2, "401 http error code, 0 retries"),
                          line(2, "Trying to refetch, 401 encountered"), line(5, "100% lost %s")));
  server.answer("/content", {401});
  EXPECT_EQ(fetch().result, 0);
  const auto lines = logged();
  ASSERT_THAT(lines, SizeIs(12));
  EXPECT_EQ(lines[3], line(2, "401 http error code, 0 retries"));
  EXPECT_EQ(lines[4], line(5, "100% lost %s"));
  EXPECT_EQ(lines[5], line(2, "Got 401, retry content fetch"));
}

TEST_F(HttpSource, TellsWhyThereIsNoTicket) {
  tickets.ticketFor = [](QvbString*, QvbString* error) {
    *error = "the vault is locked";
    return false;
  };
  EXPECT_EQ(getDate(), (Answer{1, "the vault is locked"}));
  EXPECT_THAT(logged(), ElementsAre(line(1, "getModifiedDate forcing cache ignore for: " + job()),
                                    line(1, "Fetching HTTPInfo for: " + job()),
                                    line(1, "Fetching service ticket for: " + job()),
                                    line(5, "Unable to get service ticket to populate object for file " +
                                                job() + ": the vault is locked"),
                                    line(5, "the vault is locked: " + job()),
                                    line(5, "assignDateObject given invalid input of NULL")));
  EXPECT_EQ(fetch(), (Answer{1, "the vault is locked"}));
  EXPECT_EQ(logged().back(),
            line(5, "Unable to populate local file content for " + job() + ": the vault is locked"));
  EXPECT_EQ(requests(), 0U);
}

TEST_F(HttpSource, SaysThatThereIsNoTicketForTheContent) {
  getDate();
  tickets.ticketFor = [](QvbString*, QvbString*) { return false; };
  EXPECT_EQ(fetch(), (Answer{1, "Error getting service ticket for service: " + job("/content")}));
  tickets.ticketFor = [](QvbString*, QvbString* error) {
    *error = "the vault is locked";
    return false;
  };
  EXPECT_EQ(fetch(), (Answer{1, "the vault is locked"}));
  EXPECT_EQ(readFile(local), "old copy");
}

TEST_F(HttpSource, ReplacesAnErrorTextOnlyByWhatItKnowsBetter) {
  QvbDate date;
  QvbString error = "before";
  EXPECT_EQ(provider.getModifiedDate(alice.get(), url("/nothing"), &date, &error, true), 3);
  EXPECT_EQ(error, "before");
  EXPECT_THAT(logged(), Contains(line(5, "before: " + job("/nothing"))));

  getDate();
  server.answer("/content", {404});
  const Answer missing = fetch("/job", "before");
  EXPECT_EQ(missing.error, "http error 404: Not Found, requesting " + job("/content") + latestTicket());
  {
    const Faults full(QvbFaultPoint::FileOpen, ENOSPC);
    EXPECT_THAT(fetch("/job", "before").error, StartsWith("Error writing contents to local cache file ("));
  }
  tickets.ticketFor = [](QvbString*, QvbString*) { return false; };
  EXPECT_EQ(fetch("/job", "before").error, "before");
  tickets.ticketFor = nullptr;
  qvbSetConfigOption("HTTP/MAX_BODY", "1");
  EXPECT_EQ(fetch("/job", "before").error, "Unavlid response from HTTP get");
  qvbClearConfigOptions();
}

TEST_F(HttpSource, HasNoTicketsWithoutASecurityContext) {
  qvbSetSecurityContextFactory([](void*) -> QvSecurityContext* { return nullptr; }, nullptr);
  RemoteHttpFileProvider without;
  QvbDate date;
  QvbString error;
  EXPECT_EQ(without.getModifiedDate(alice.get(), url("/job"), &date, &error, true), 1);
  EXPECT_EQ(error, "Unable to obtain modified date for file");
  logged();
  EXPECT_TRUE(without.flush(true));
  EXPECT_THAT(logged(), ElementsAre(line(1, "Flushing http cache provider")));
}

TEST_F(HttpSource, LogsWhyThereIsNoDateWithoutAnErrorTextToo) {
  tickets.ticketFor = [](QvbString*, QvbString* error) {
    *error = "the vault is locked";
    return false;
  };
  QvbDate date;
  EXPECT_EQ(provider.getModifiedDate(alice.get(), url("/job"), &date, nullptr, true), 1);
  EXPECT_THAT(loggedAboveTrace(),
              ElementsAre(line(5, "Unable to get service ticket to populate object for file " + job() +
                                      ": the vault is locked"),
                          line(5, "the vault is locked: " + job()),
                          line(5, "assignDateObject given invalid input of NULL")));
}

TEST_F(HttpSource, NeedsNoErrorText) {
  QvbDate date;
  EXPECT_EQ(provider.getModifiedDate(alice.get(), url("/nothing"), &date, nullptr, true), 3);
  EXPECT_FALSE(provider.exists(alice.get(), url("/nothing"), nullptr));
  EXPECT_EQ(provider.updateLocalFileContent(alice.get(), url("/nothing"), local, nullptr), 1);
}
