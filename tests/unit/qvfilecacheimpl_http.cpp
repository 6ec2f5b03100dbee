#include "qvfilecacheimpl_http.h"

#include "qvxbase/qvbconfig.h"
#include "support/faultserver.h"
#include "support/httpsourcefixture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <functional>
#include <initializer_list>
#include <map>
#include <string>
#include <vector>

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

namespace {

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
          Case{R"(<links><link rel="selfish" href="no"/></links>)", "link before"},
          Case{R"(<links><link rel="self"/></links>)", "link before"},
          Case{R"(<links><link rel="self" HREF="no"/></links>)", "link before"},
          Case{R"(<links><link rel="self" href=""/></links>)", ""},
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

TEST(JobDescription, HasEmptyTextsForWhatItDoesNotSay) {
  HTTPRemoteFileInfo record;
  for (int i = 0; i < 2; ++i) {
    for (const QvbString& field : {record.reserved, record.contentLink, record.modifiedDate, record.path}) {
      EXPECT_TRUE(field.isEmpty());
      EXPECT_FALSE(field.isNull());
    }
    RemoteHttpFileProvider::populateFileInfo(&record,
                                             "<processjob><links><link rel=\"self\"/></links></processjob>");
  }
  const std::vector<const void*> fields{&record.reserved, &record.contentLink, &record.modifiedDate,
                                        &record.path};
  EXPECT_TRUE(std::ranges::is_sorted(fields, std::less<>()));
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
  EXPECT_EQ(all[0].header("Accept"), "*/*");
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

// A "?" that begins the name begins no query.
TEST_F(HttpSource, TakesALeadingQuestionMarkForAName) {
  EXPECT_TRUE(provider.exists(alice.get(), "?a", &unread));
  EXPECT_EQ(logged().back(), line(1, "HTTP (GET) for: ?a?ticket=T-1"));
  EXPECT_TRUE(provider.exists(alice.get(), "a?", &unread));
  EXPECT_EQ(logged().back(), line(1, "HTTP (GET) for: a?&ticket=T-2"));
}

// A fragment stays with the client: behind one, the ticket would reach nobody.
TEST_F(HttpSource, PutsTheTicketBeforeAFragment) {
  struct Case {
    const char* name;
    const char* target;
    const char* shown;
  };
  for (const auto& [name, target, shown] :
       {Case{"/job#part", "/job?ticket=T-1", "/job?ticket=T-1#part"},
        Case{"/job?a=b#part", "/job?a=b&ticket=T-1", "/job?a=b&ticket=T-1#part"},
        Case{"/job#part?c", "/job?ticket=T-1", "/job?ticket=T-1#part?c"}}) {
    tickets.calls.clear();
    server.clearRequests();
    EXPECT_TRUE(exists(name));
    EXPECT_EQ(server.requests().front().target, target);
    EXPECT_EQ(logged().back(), line(1, "HTTP (GET) for: " + job(shown)));
  }
  server.serveJob("/job", firstDate, "jobs/load", job("/content#part"));
  getDate();
  EXPECT_EQ(fetch(), (Answer{0, ""}));
  EXPECT_EQ(server.requests("/content").back().target, "/content" + latestTicket());
  EXPECT_THAT(logged(),
              Contains(line(1, "HTTP (GET) of content: " + job("/content" + latestTicket() + "#part"))));
}

// A host's ticket may be any text, and is one value of the query all the same.
TEST_F(HttpSource, EncodesATicket) {
  tickets.ticketFor = [](QvbString* ticket, QvbString*) {
    *ticket = "a b&c=d#e/\xC3\xA9~-._";
    return true;
  };
  EXPECT_TRUE(exists());
  EXPECT_EQ(server.requests().front().target, "/job?ticket=a%20b%26c%3Dd%23e%2F%C3%A9~-._");
  EXPECT_THAT(logged(), Contains(line(1, "Obtained service ticket for: a b&c=d#e/\xC3\xA9~-._")));
  EXPECT_EQ(fetch(), (Answer{0, ""}));
  EXPECT_EQ(server.requests("/content").front().target, "/content?ticket=a%20b%26c%3Dd%23e%2F%C3%A9~-._");
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
  const HTTPRemoteFileInfo* const first =
      provider.populateObjectEntry(alice.get(), url("/job"), &unread, nullptr, false);
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first->path, "jobs/load");
  EXPECT_EQ(first->contentLink, url("/content"));
  logged();
  EXPECT_EQ(provider.populateObjectEntry(alice.get(), url("/job"), &unread, nullptr, false), first);
  EXPECT_THAT(logged(), ElementsAre(line(1, "Updating cached HTTPInfo for: " + job())));
  EXPECT_EQ(requests(), 1U);
  server.serveJob("/job", firstDate, "jobs/moved", job("/content"));
  EXPECT_EQ(provider.populateObjectEntry(alice.get(), url("/job"), &unread, nullptr, true), first);
  EXPECT_EQ(first->path, "jobs/moved");
  int code = 0;
  EXPECT_EQ(provider.populateObjectEntry(alice.get(), url("/nothing"), &unread, &code, false), nullptr);
  EXPECT_EQ(code, 3);
}

TEST_F(HttpSource, ReadsADescriptionWithBlanksAroundIt) {
  // a declaration may stand at the very beginning only, and XML does not know all of the blanks
  server.serve("/job", "\r\n\t <?xml version=\"1.0\"?><processjob modifiedDate=\"2027-01-01\"/>");
  QvbDate date;
  EXPECT_EQ(getDate("/job", true, &date).result, 0);
  EXPECT_EQ(date.asString(true), "2027-01-01");
  server.serve("/job", "<processjob modifiedDate=\"2028-01-01\"/> \v\f\n");
  EXPECT_EQ(getDate("/job", true, &date).result, 0);
  EXPECT_EQ(date.asString(true), "2028-01-01");
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

// Silence is no refusal: the name is described by nothing.
TEST_F(HttpSource, ExistsWhenTheServiceDoesNotAnswer) {
  const ClosedPort closed;
  const QvbString name = text(closed.url("/job"));
  QvbString error;
  for (int i = 0; i < 2; ++i)
    EXPECT_TRUE(provider.exists(alice.get(), name, &error));
  EXPECT_THAT(tickets.calls, SizeIs(1));
  QvbDate date = QvbDate::currentDate(false);
  EXPECT_EQ(provider.getModifiedDate(alice.get(), name, &date, &error, true), 0);
  EXPECT_TRUE(date.isNull());
  EXPECT_TRUE(error.isNull());
  EXPECT_THAT(tickets.calls, SizeIs(2));
}

TEST_F(HttpSource, KeepsWhatItKnewWhenTheServiceFallsSilent) {
  getDate();
  qvbSetConfigOption("HTTP/MAX_BODY", "1"); // no response is small enough
  QvbDate date;
  EXPECT_EQ(getDate("/job", true, &date), (Answer{0, ""}));
  EXPECT_EQ(date.asString(false), firstDate);
  qvbClearConfigOptions();
  EXPECT_EQ(fetch().result, 0);
  EXPECT_EQ(requests(), 3U);
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
