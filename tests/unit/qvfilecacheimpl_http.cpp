#include "qvfilecacheimpl_http.h"

#include "qvfilecacheimpl.h"
#include "qvxbase/qvbconfig.h"
#include "support/faults.h"
#include "support/httpserver.h"
#include "support/logcapture.h"
#include "support/tempdir.h"
#include "support/textio.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <sys/stat.h>

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

namespace {

constexpr const char* category = "QV.FileAccessCache.HttpSystemProvider";
constexpr const char* firstDate = "2026-01-02T03:04:05.006";

LogLine line(int level, const std::string& text) { return {category, level, "src/qvfilecacheimpl", text}; }

std::string readFile(const QvbString& path) {
  std::ifstream in(path.asCstr(), std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

// A host's own source of tickets, which numbers them.
class CountingContext final : public QvSecurityContext {
public:
  struct Record {
    std::vector<std::string> calls;
    int made = 0;
    int released = 0;
    std::function<bool(QvbString* ticket, QvbString* error)> ticketFor;
    bool renews = true;
    QvbString renewError = "no renewal";
  };

  // Makes the contexts of the provider under test while it lives.
  class Factory {
  public:
    explicit Factory(Record* record) {
      qvbSetSecurityContextFactory(
          [](void* data) -> QvSecurityContext* {
            auto* const target = static_cast<Record*>(data);
            ++target->made;
            return new CountingContext(target);
          },
          record);
    }
    ~Factory() { qvbSetSecurityContextFactory(nullptr, nullptr); }
    Factory(const Factory&) = delete;
    Factory& operator=(const Factory&) = delete;
  };

  bool getServiceTicket(ASSubject*, const QvbString& url, QvbString* ticket, QvbString* error) override {
    m_record->calls.push_back("ticket " + str(url));
    if (m_record->ticketFor)
      return m_record->ticketFor(ticket, error);
    *ticket = text("T-" + std::to_string(m_record->calls.size()));
    return true;
  }
  bool renew(ASSubject*, const QvbString& url, QvbString* error) override {
    m_record->calls.push_back("renew " + str(url));
    if (!m_record->renews)
      *error = m_record->renewError;
    return m_record->renews;
  }
  void release() override {
    ++m_record->released;
    delete this;
  }

private:
  explicit CountingContext(Record* record) : m_record(record) {}
  Record* m_record;
};

struct Answer {
  int result;
  std::string error;

  bool operator==(const Answer&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Answer& answer) {
  return out << '{' << answer.result << ", \"" << answer.error << "\"}";
}

// A web service with the job "/job" whose content is at "/content", and a provider whose tickets are T-1, T-2, ...
class HttpSource : public testing::Test {
protected:
  HttpSource() {
    server.serveJob("/job", firstDate, "jobs/load", server.url("/content"));
    server.serve("/content", "the content");
  }

  // What the provider logged since the last call.
  std::vector<LogLine> logged() {
    auto lines = log.lines(category);
    log.clear();
    return lines;
  }
  Answer getDate(const std::string& path, bool refresh, QvbDate* date) {
    QvbString error;
    const int result = provider.getModifiedDate(alice.get(), url(path), date, &error, refresh);
    return {result, str(error)};
  }
  Answer getDate(const std::string& path = "/job", bool refresh = true) {
    QvbDate date;
    return getDate(path, refresh, &date);
  }
  Answer fetch(const std::string& path = "/job") {
    QvbString error;
    const int result = provider.updateLocalFileContent(alice.get(), url(path), local, &error);
    return {result, str(error)};
  }
  bool exists(const std::string& path = "/job") { return provider.exists(alice.get(), url(path), &unread); }
  QvbString url(const std::string& path) const { return text(server.url(path)); }
  std::string job(const std::string& path = "/job") const { return server.url(path); }
  std::size_t requests() const { return server.requests().size(); }
  // The records of a request for the description, up to its answer; `ticket` is its ticket.
  std::vector<LogLine> asks(const std::string& ticket, const std::string& path = "/job") const {
    return {line(1, "Fetching HTTPInfo for: " + job(path)),
            line(1, "Fetching service ticket for: " + job(path)),
            line(1, "Obtained service ticket for: " + ticket),
            line(1, "HTTP (GET) for: " + job(path) + "?ticket=" + ticket)};
  }
  std::vector<LogLine> asksForContent(const std::string& ticket) const {
    return {line(1, "fetching content for: " + job()),
            line(1, "fetching service ticket for: " + job("/content")),
            line(1, "HTTP (GET) of content: " + job("/content") + "?ticket=" + ticket)};
  }

  HttpServer server;
  TempDir folder;
  const QvbString local = text(folder.write("copy", "old copy"));
  const ReleasedSubject alice{qvbSubjectCreate("alice", QvbString())};
  QvbString unread;
  CountingContext::Record tickets;
  CountingContext::Factory factory{&tickets};
  LogCapture log;
  RemoteHttpFileProvider provider;
};

std::vector<LogLine> records(std::initializer_list<LogLine> lines) { return lines; }

std::vector<LogLine> operator+(std::vector<LogLine> lines, const std::vector<LogLine>& more) {
  lines.insert(lines.end(), more.begin(), more.end());
  return lines;
}

HTTPRemoteFileInfo read(const std::string& xml) {
  HTTPRemoteFileInfo record;
  record.contentLink = "link before";
  record.modifiedDate = "date before";
  record.path = "path before";
  RemoteHttpFileProvider::populateFileInfo(&record, text(xml));
  EXPECT_TRUE(record.reserved.isEmpty());
  return record;
}

} // namespace

// --- The mapping of statuses

TEST(HttpStatus, HasASmallResultCode) {
  std::map<int, int> expected;
  const auto set = [&](int first, int last, int result) {
    for (int status = first; status <= last; ++status)
      expected[status] = result;
  };
  set(0, 199, 1);
  set(200, 202, 0);
  set(203, 205, 12);
  set(206, 206, 6);
  set(207, 299, 1);
  set(300, 301, 12);
  set(302, 302, 0);
  set(303, 303, 1);
  set(304, 307, 12);
  set(308, 399, 1);
  set(400, 400, 12);
  set(401, 401, 4);
  set(402, 402, 12);
  set(403, 403, 4);
  set(404, 404, 3);
  set(405, 406, 9);
  set(407, 409, 12);
  set(410, 410, 3);
  set(411, 417, 12);
  set(418, 502, 1);
  set(503, 503, 12);
  set(504, 505, 1);
  set(506, 700, 1);
  ASSERT_THAT(expected, SizeIs(701));
  for (const auto& [status, result] : expected) {
    EXPECT_EQ(RemoteHttpFileProvider::getResponseCodeFromHTTPResponseCode(status), result) << status;
    EXPECT_EQ(RemoteHttpFileProvider::isHTTPError(status), result != 0) << status;
  }
  EXPECT_EQ(RemoteHttpFileProvider::getResponseCodeFromHTTPResponseCode(-1), 1);
}

TEST(HttpSourceWords, AreThoseOfTheService) {
  EXPECT_EQ(RemoteHttpFileProvider::NODE_PROCESSJOB, "processjob");
  EXPECT_EQ(RemoteHttpFileProvider::NODE_LINKS, "links");
  EXPECT_EQ(RemoteHttpFileProvider::NODE_LINK, "link");
  EXPECT_EQ(RemoteHttpFileProvider::ATTR_MODIFIEDDATE, "modifiedDate");
  EXPECT_EQ(RemoteHttpFileProvider::ATTR_PATH, "path");
  EXPECT_EQ(RemoteHttpFileProvider::ATTR_REL, "rel");
  EXPECT_EQ(RemoteHttpFileProvider::ATTR_HREF, "href");
  EXPECT_EQ(RemoteHttpFileProvider::ATTR_VALUE_SELF, "self");
  EXPECT_EQ(RemoteHttpFileProvider::CONTENT_TYPE_TEXT, "text/plain");
  EXPECT_EQ(RemoteHttpFileProvider::URI_QUERY_STRING, "?");
}

// --- Descriptions

TEST(JobDescription, IsReadFromTheRootOrItsFirstJob) {
  const std::string job =
      R"(<processjob modifiedDate="D" path="P"><links><link rel="self" href="L"/></links></processjob>)";
  for (
      const std::string& xml :
      {job, "<answer><other/>" + job + "<processjob path=\"second\"/></answer>",
       std::string(
           R"(<ProcessJob modifiedDate="D" path="P"><LINKS><Link rel="self" href="L"/></LINKS></ProcessJob>)")}) {
    const auto record = read(xml);
    EXPECT_EQ(record.modifiedDate, "D") << xml;
    EXPECT_EQ(record.path, "P") << xml;
    EXPECT_EQ(record.contentLink, "L") << xml;
  }
}

TEST(JobDescription, LinksToItsContentInTwoShapes) {
  struct Case {
    const char* links;
    const char* link;
  };
  for (
      const auto& [links, link] : {
          Case{R"(<links><link rel="self" href="L"/></links>)", "L"},
          Case{R"(<links><links rel="self" href="L"/></links>)", "L"},
          Case{R"(<links><links rel="self" href="no"/><link rel="self" href="L"/></links>)", "L"},
          Case{
              R"(<links><link rel="up" href="no"/><link rel="self" href="L"/><link rel="self" href="no"/></links>)",
              "L"},
          Case{R"(<links rel="any"><link rel="self" href="L"/></links>)", "L"},
          Case{R"(<links><link rel="SELF" href="no"/></links>)", "link before"},
          Case{R"(<links><link href="no"/></links>)", "link before"},
          Case{R"(<links/>)", "link before"},
          Case{R"(<links/><links><link rel="self" href="no"/></links>)", "link before"},
          Case{R"(<link rel="self" href="no"/>)", "link before"},
          Case{"", "link before"},
      }) {
    const auto record = read("<processjob modifiedDate=\"D\">" + std::string(links) + "</processjob>");
    EXPECT_EQ(record.contentLink, link) << links;
    EXPECT_EQ(record.modifiedDate, "D") << links;
    EXPECT_TRUE(record.path.isEmpty()) << links;
  }
}

TEST(JobDescription, ChangesNothingWhenItIsNone) {
  for (const char* xml : {"", "no XML", "<processjob path=\"P\">", "<other path=\"P\"/>",
                          "<other><another><processjob path=\"P\"/></another></other>"}) {
    const auto record = read(xml);
    EXPECT_EQ(record.modifiedDate, "date before") << xml;
    EXPECT_EQ(record.path, "path before") << xml;
    EXPECT_EQ(record.contentLink, "link before") << xml;
  }
}

TEST(JobDescription, IsSearchedByNameAndAttribute) {
  QvDom document;
  ASSERT_TRUE(document.loadXML(R"(<r><a k="1"/><b/><A k="2"/><a k="2" n="3"/></r>)"));
  const auto find = [&](const QvbString& name, const QvbString& attribute, const QvbString& value) {
    return RemoteHttpFileProvider::getChildNodeByName(document.getRoot(), name, attribute, value);
  };
  EXPECT_EQ(find("a", QvbString(), QvbString()).getAttributeValue("k"), "1");
  EXPECT_EQ(find("a", "k", "2").getName(), "A");
  EXPECT_EQ(find("a", "n", "3").getAttributeValue("k"), "2");
  EXPECT_TRUE(find("a", "k", "3").null());
  EXPECT_TRUE(find("c", QvbString(), QvbString()).null());
  EXPECT_TRUE(RemoteHttpFileProvider::getChildNodeByName(QvDomNode(), "a", QvbString(), QvbString()).null());
}

// --- Dates

TEST_F(HttpSource, ReadsDates) {
  QvbDate date;
  provider.assignDateObject(firstDate, &date);
  EXPECT_EQ(date.asString(false), firstDate);
  EXPECT_THAT(logged(), IsEmpty());

  provider.assignDateObject("yesterday", &date);
  EXPECT_EQ(date.asString(false), firstDate);
  EXPECT_THAT(logged(), ElementsAre(line(5, "assignDateObject: Unable to convert date string to object")));
  provider.assignDateObject("yesterday", nullptr);
  EXPECT_THAT(logged(), ElementsAre(line(5, "assignDateObject: Unable to convert date string to object")));

  provider.assignDateObject(firstDate, nullptr);
  EXPECT_THAT(logged(),
              ElementsAre(line(5, "assignDateObject: date assignment unable to complete, invalid inDate")));

  for (const QvbString& none : {QvbString(), QvbString("")}) {
    provider.assignDateObject(firstDate, &date);
    provider.assignDateObject(none, &date);
    EXPECT_TRUE(date.isNull());
    provider.assignDateObject(none, nullptr);
    const auto refusal = line(5, "assignDateObject given invalid input of NULL");
    EXPECT_THAT(logged(), ElementsAre(refusal, refusal));
  }
}

TEST_F(HttpSource, FetchesADateOnceUnlessAskedForARefresh) {
  QvbDate date;
  EXPECT_EQ(getDate("/job", false, &date), (Answer{0, ""}));
  EXPECT_EQ(date.asString(false), firstDate);
  EXPECT_EQ(logged(), records({line(1, "getModifiedDate using fetched cache if possible for: " + job())}) +
                          asks("T-1") +
                          records({line(1, std::string("getModifiedDate setting new date: ") + firstDate)}));

  server.serveJob("/job", "2027-01-01", "jobs/load", job("/content"));
  EXPECT_EQ(getDate("/job", false, &date), (Answer{0, ""}));
  EXPECT_EQ(date.asString(false), firstDate);
  EXPECT_EQ(logged(), (records({line(1, "getModifiedDate using fetched cache if possible for: " + job()),
                                line(1, std::string("getModifiedDate found cached date: ") + firstDate)})));

  EXPECT_EQ(getDate("/job", true, &date), (Answer{0, ""}));
  EXPECT_EQ(date.asString(false), "2027-01-01T00:00:00.000");
  EXPECT_EQ(logged(), records({line(1, "getModifiedDate forcing cache ignore for: " + job())}) + asks("T-2") +
                          records({line(1, "getModifiedDate setting new date: 2027-01-01")}));
  EXPECT_EQ(requests(), 2U);
}

TEST_F(HttpSource, SendsPlainGetRequests) {
  getDate();
  fetch();
  const auto all = server.requests();
  ASSERT_THAT(all, SizeIs(2));
  EXPECT_EQ(all[0].method, "GET");
  EXPECT_EQ(all[0].target, "/job?ticket=T-1");
  EXPECT_EQ(all[0].header("Content-Type"), "text/plain");
  EXPECT_EQ(all[1].method, "GET");
  EXPECT_EQ(all[1].target, "/content?ticket=T-2");
  EXPECT_EQ(all[1].header("Content-Type"), "text/plain");
  EXPECT_EQ(all[1].header("Accept"), "application/vnd.zel.ProcessJob");
}

TEST_F(HttpSource, AddsTheTicketToAQueryThatIsThere) {
  EXPECT_TRUE(exists("/job?a=b"));
  EXPECT_EQ(server.requests().front().target, "/job?a=b&ticket=T-1");
  EXPECT_EQ(tickets.calls.front(), "ticket " + job("/job?a=b"));
}

TEST_F(HttpSource, GivesAContentLinkAlwaysAQueryOfItsOwn) {
  FaultServer simple;
  const std::string link = simple.urlAnswering("HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nabc") + "?a=b";
  server.serveJob("/job", firstDate, "jobs/load", link);
  EXPECT_EQ(fetch().result, 0);
  EXPECT_EQ(readFile(local), "abc");
  EXPECT_THAT(simple.lastHead(), StartsWith("GET /answer/0?a=b?ticket=T-2 HTTP/1.1\r\n"));
  EXPECT_EQ(tickets.calls.back(), "ticket " + link);
}

TEST_F(HttpSource, KeepsADescriptionThatIsAskedForAgain) {
  const auto first = provider.populateObjectEntry(alice.get(), url("/job"), &unread, nullptr, false);
  ASSERT_TRUE(first);
  EXPECT_EQ(first->path, "jobs/load");
  EXPECT_EQ(first->contentLink, url("/content"));
  logged();
  ASSERT_TRUE(provider.populateObjectEntry(alice.get(), url("/job"), &unread, nullptr, false));
  EXPECT_THAT(logged(), ElementsAre(line(1, "Updating cached HTTPInfo for: " + job())));
  EXPECT_EQ(requests(), 1U);
}

TEST_F(HttpSource, ReadsADescriptionWithBlanksAroundIt) {
  server.serve("/job", "\r\n\t <processjob modifiedDate=\"2026-01-01\"/> \n");
  QvbDate date;
  EXPECT_EQ(getDate("/job", true, &date).result, 0);
  EXPECT_EQ(date.asString(true), "2026-01-01");
}

TEST_F(HttpSource, KeepsWhatItKnewWhenADescriptionIsEmptyOrBroken) {
  getDate();
  for (const char* body : {"", "  \n", "no XML"}) {
    server.serve("/job", body);
    QvbDate date;
    EXPECT_EQ(getDate("/job", true, &date), (Answer{0, ""})) << body;
    EXPECT_EQ(date.asString(false), firstDate) << body;
  }
  EXPECT_EQ(fetch().result, 0);
}

TEST_F(HttpSource, HasAnEmptyDescriptionOfWhatDescribesNothing) {
  server.serve("/job", "");
  QvbDate date = QvbDate::currentDate(false);
  EXPECT_TRUE(exists());
  logged();
  EXPECT_EQ(getDate("/job", false, &date), (Answer{0, ""}));
  EXPECT_TRUE(date.isNull());
  EXPECT_THAT(logged(), ElementsAre(line(1, "getModifiedDate using fetched cache if possible for: " + job()),
                                    line(1, "getModifiedDate found cached date: "),
                                    line(5, "assignDateObject given invalid input of NULL")));
  // and no link to a content
  EXPECT_EQ(fetch(), (Answer{1, ""}));
  EXPECT_THAT(logged(), ElementsAre(line(1, "fetching content for: " + job())));
  EXPECT_EQ(readFile(local), "old copy");
}

// --- Existence

TEST_F(HttpSource, ExistsWithoutARequestOnceItIsDescribed) {
  EXPECT_TRUE(exists());
  EXPECT_EQ(logged(), asks("T-1"));
  EXPECT_TRUE(exists());
  EXPECT_THAT(logged(), IsEmpty());
  EXPECT_EQ(requests(), 1U);
}

TEST_F(HttpSource, DoesNotExistWhenTheServiceRefuses) {
  EXPECT_FALSE(exists("/nothing"));
  EXPECT_EQ(logged(),
            asks("T-1", "/nothing") +
                records({line(2, "404 http error code, 0 retries"),
                         line(5, "http error 404: Not Found, requesting " + job("/nothing")),
                         line(2, "Exists found no object entry for filename: " + job("/nothing"))}));
  EXPECT_TRUE(unread.isNull());
}

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
    EXPECT_THAT(answer.error, testing::MatchesRegex("http error " + std::to_string(status) +
                                                    ": [A-Za-z ]+, requesting " + job("/content")));
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

TEST_F(HttpSource, GivesUpAfterFour401s) {
  server.answer("/job", {401, 401, 401, 401, 200});
  EXPECT_EQ(getDate(), (Answer{4, "Unable to obtain modified date for file"}));
  EXPECT_EQ(requests(), 4U);
  EXPECT_THAT(tickets.calls,
              ElementsAre("ticket " + job(), "renew " + job(), "ticket " + job(), "renew " + job(),
                          "ticket " + job(), "renew " + job(), "ticket " + job()));
  std::vector<LogLine> levelsAboveTrace = logged();
  std::erase_if(levelsAboveTrace, [](const LogLine& record) { return record.level == 1; });
  EXPECT_THAT(
      levelsAboveTrace,
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
                          asksForContent("T-4") +
                          records({line(1, "Opening local file cache entry: " + str(local)),
                                   line(1, "Writing file cache entry contents: " + str(local)),
                                   line(1, "Closing file cache entry: " + str(local))}));
  EXPECT_THAT(tickets.calls, ElementsAre("ticket " + job(), "ticket " + job("/content"),
                                         "renew " + job("/content"), "ticket " + job("/content")));
}

TEST_F(HttpSource, GivesUpOnTheContentAfterFour401s) {
  getDate();
  server.clearRequests();
  server.answer("/content", {401, 401, 401, 401, 200});
  EXPECT_EQ(fetch(), (Answer{4, "http error 401: Unauthorized, requesting " + job("/content")}));
  EXPECT_EQ(requests(), 4U);
  EXPECT_EQ(readFile(local), "old copy");
}

TEST_F(HttpSource, AsksAgainThoughARenewalFails) {
  tickets.renews = false;
  server.answer("/job", {401});
  EXPECT_EQ(getDate("/job", false).result, 0);
  EXPECT_THAT(logged(), Contains(line(5, "no renewal")));
  server.answer("/content", {401});
  EXPECT_EQ(fetch().result, 0);
  const auto lines = logged();
  ASSERT_THAT(lines, SizeIs(12));
  EXPECT_EQ(lines[3], line(2, "401 http error code, 0 retries"));
  EXPECT_EQ(lines[4], line(5, "no renewal"));
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

TEST_F(HttpSource, NeedsNoErrorText) {
  QvbDate date;
  EXPECT_EQ(provider.getModifiedDate(alice.get(), url("/nothing"), &date, nullptr, true), 3);
  EXPECT_FALSE(provider.exists(alice.get(), url("/nothing"), nullptr));
  EXPECT_EQ(provider.updateLocalFileContent(alice.get(), url("/nothing"), local, nullptr), 1);
}

// --- Contents

TEST_F(HttpSource, FetchesTheDescriptionOnTheWayToTheContent) {
  EXPECT_EQ(fetch(), (Answer{0, ""}));
  EXPECT_EQ(readFile(local), "the content");
  EXPECT_EQ(logged(), records({line(1, "fetching content for: " + job())}) + asks("T-1") +
                          records({line(1, "fetching service ticket for: " + job("/content")),
                                   line(1, "HTTP (GET) of content: " + job("/content") + "?ticket=T-2"),
                                   line(1, "Opening local file cache entry: " + str(local)),
                                   line(1, "Writing file cache entry contents: " + str(local)),
                                   line(1, "Closing file cache entry: " + str(local))}));
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
    EXPECT_EQ(fetch().result, 0);
    EXPECT_EQ(readFile(local), content);
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

TEST_F(HttpSource, TellsThatTheContentDidNotCome) {
  const ClosedPort closed;
  server.serveJob("/job", firstDate, "jobs/load", closed.url("/content"));
  EXPECT_EQ(fetch(), (Answer{1, "Unavlid response from HTTP get"}));
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
  EXPECT_EQ(tickets.made, 2);
  EXPECT_EQ(tickets.released, 1);
  EXPECT_TRUE(exists());
  EXPECT_EQ(requests(), 2U);
}

TEST_F(HttpSource, ReleasesItsContextAtTheEnd) {
  auto* const other = new RemoteHttpFileProvider;
  EXPECT_EQ(tickets.made, 2);
  EXPECT_THAT(logged(), IsEmpty());
  other->release();
  EXPECT_EQ(tickets.released, 1);
  EXPECT_THAT(logged(), ElementsAre(line(1, "Remote HTTP File cache provider, releasing resources...")));
}

TEST_F(HttpSource, GoesOnWithoutALock) {
  const Faults faults(QvbFaultPoint::LockCreate, ENOMEM);
  RemoteHttpFileProvider unlocked;
  EXPECT_THAT(logged(), ElementsAre(line(6, "Failed to create file access cache lock")));
  EXPECT_TRUE(unlocked.exists(alice.get(), url("/job"), nullptr));
}

// --- The whole cache over HTTP, with service tickets of a real ticket server

namespace {

class HttpCache : public testing::Test {
protected:
  HttpCache() {
    server.serveJob("/job", firstDate, "jobs/load", server.url("/content"));
    server.serve("/content", "first");
    server.addUser("alice", "a-secret");
    server.addUser("bob", "b-secret");
    server.requireTickets();
    qvbSetConfigOption("AUTH/SERVER", text(server.ticketServer()));
    remake("2000000000");
  }
  ~HttpCache() override { qvbClearConfigOptions(); }

  void remake(const char* interval) {
    qvbSetConfigOption("BASE/REMOTEFILECACHE_TIMEBETWEENCHECKS", interval);
    cache.reset(new FileAccessCacheImpl);
  }
  // The local copy's content, or the result and the error text.
  std::string get(ASSubject* subject) {
    error.setNull();
    const int result = cache->getCacheFilename(subject, text(server.url("/job")), &local, &error);
    return result == 0 ? readFile(local) : std::to_string(result) + " " + str(error);
  }
  std::string get() { return get(alice.get()); }
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
  Released<FileAccessCacheImpl> cache;
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
  EXPECT_EQ(readFile(local), "first");
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

TEST_F(HttpCache, ShowsTicketsToNobodyButTheTrace) {
  server.answer("/job", {401, 403});
  get();
  server.answer("/content", {401, 500});
  get();
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
      EXPECT_THAT(record.text, AllOf(Not(HasSubstr("ST-")), Not(HasSubstr("ticket="))));
    }
  }
  EXPECT_EQ(local.find("ST-"), -1);
}
