#include "qvxhttp/qvsecuritycontext.h"

#include "qvxbase/qvbconfig.h"
#include "qvxbase/qvbreleased.h"
#include "qvxhttp/qvxhttp.h"
#include "support/faultserver.h"
#include "support/httpserver.h"
#include "support/textio.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <future>
#include <memory>
#include <vector>

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

namespace {

using Context = Released<QvSecurityContext>;
using Answer = Released<httpResponse>;

ReleasedSubject subject(const char* user, const char* password) {
  return ReleasedSubject(qvbSubjectCreate(user, password));
}

int statusOf(const std::string& url) {
  httpGet request;
  request.url = text(url);
  httpClient client;
  const Answer answer(client.execute(request));
  EXPECT_NE(answer, nullptr) << client.getErrorText();
  return answer ? answer->getStatusCode() : 0;
}

class QvSecurity : public testing::Test {
protected:
  void TearDown() override {
    qvbSetSecurityContextFactory(nullptr, nullptr);
    qvbClearConfigOptions();
  }
  static Context contextFor(const QvbString& server) {
    qvbSetConfigOption("AUTH/SERVER", server);
    return Context(getSecurityContext());
  }
  // What both operations fail with.
  static std::string failureOf(QvSecurityContext& context, ASSubject* who) {
    QvbString ticket = "untouched", error, renewError;
    EXPECT_FALSE(context.getServiceTicket(who, "http://service/", &ticket, &error));
    EXPECT_FALSE(context.renew(who, "http://service/", &renewError));
    EXPECT_EQ(ticket, "untouched");
    EXPECT_EQ(error, renewError);
    EXPECT_FALSE(context.getServiceTicket(who, "http://service/", &ticket, nullptr));
    EXPECT_FALSE(context.renew(who, "http://service/", nullptr));
    return str(error);
  }
};

// A ticket server that knows alice.
class QvTickets : public QvSecurity {
protected:
  void SetUp() override {
    server.addUser("alice", "wonder-secret");
    context = contextFor(text(server.ticketServer()));
  }
  // Empty when there is none, with the error text in `error`.
  std::string ticketFor(ASSubject* who, const std::string& url) {
    QvbString ticket;
    error.clear();
    QvbString told;
    const bool ok = context->getServiceTicket(who, text(url), &ticket, &told);
    EXPECT_EQ(ok, told.isNull());
    EXPECT_EQ(ok, !ticket.isNull());
    error = str(told);
    EXPECT_THAT(error, AllOf(Not(HasSubstr("secret")), Not(HasSubstr("TGT-"))));
    return str(ticket);
  }
  std::string ticketFor(const std::string& url) { return ticketFor(alice.get(), url); }

  // A thread for each of the subjects, which asks for one ticket and tells whether it got it.
  std::vector<std::future<bool>> askInThreads(const std::vector<ASSubject*>& subjects) {
    std::vector<std::future<bool>> threads(subjects.size());
    std::ranges::transform(subjects, threads.begin(), [this](ASSubject* who) {
      return std::async(std::launch::async, [this, who] {
        QvbString ticket;
        return context->getServiceTicket(who, "http://service/", &ticket, nullptr);
      });
    });
    return threads;
  }

  HttpServer server;
  ReleasedSubject alice = subject("alice", "wonder-secret");
  Context context;
  std::string error;
};

} // namespace

// --- Which context there is

TEST(TicketUrl, HasTheTicketInItsQuery) {
  EXPECT_EQ(qvbUrlWithTicket("http://h/a", '?', "ST-1"), "http://h/a?ticket=ST-1");
  EXPECT_EQ(qvbUrlWithTicket("http://h/a?b=c", '&', "ST-1"), "http://h/a?b=c&ticket=ST-1");
  EXPECT_EQ(qvbUrlWithTicket("http://h/a#b?c#d", '?', "ST-1"), "http://h/a?ticket=ST-1#b?c#d");
  EXPECT_EQ(qvbUrlWithTicket("#b", '?', "ST-1"), "?ticket=ST-1#b");
  EXPECT_EQ(qvbUrlWithTicket("", '?', ""), "?ticket=");
  EXPECT_EQ(qvbUrlWithTicket("http://h/a", '?', "a&b c%/?#"), "http://h/a?ticket=a%26b%20c%25%2F%3F%23");
}

TEST_F(QvSecurity, SaysWhichOptionIsMissing) {
  const Context context(getSecurityContext());
  const ReleasedSubject someone = subject("someone", "secret");
  EXPECT_EQ(failureOf(*context, someone.get()),
            "There is no ticket server: the option AUTH/SERVER is not set");
  EXPECT_EQ(failureOf(*context, nullptr), "There is no ticket server: the option AUTH/SERVER is not set");
}

TEST_F(QvSecurity, TakesAnEmptyOptionForAMissingOne) {
  EXPECT_EQ(failureOf(*contextFor(""), nullptr),
            "There is no ticket server: the option AUTH/SERVER is not set");
}

TEST_F(QvSecurity, RefusesAServerThatIsNoHttpUrl) {
  const ReleasedSubject someone = subject("someone", "secret");
  for (const char* server :
       {"ftp://host/cas", "host", "file:///cas", "http://", "https://", "httpx://host", "http:///cas",
        "http:host/cas", "http://host/cas?a=b", "http://host/cas#top", "127.0.0.1:80"})
    EXPECT_EQ(failureOf(*contextFor(server), someone.get()),
              "The option AUTH/SERVER is not an http or https URL without a query")
        << server;
}

namespace {

struct HostContext final : QvSecurityContext {
  bool getServiceTicket(ASSubject*, const QvbString&, QvbString*, QvbString*) override { return true; }
  bool renew(ASSubject*, const QvbString&, QvbString*) override { return true; }
  void release() override {}
};

} // namespace

TEST_F(QvSecurity, AsksTheHostsFactoryFirst) {
  HostContext own;
  qvbSetConfigOption("AUTH/SERVER", "http://127.0.0.1:1/cas");
  qvbSetSecurityContextFactory([](void* data) { return static_cast<QvSecurityContext*>(data); },
                               static_cast<QvSecurityContext*>(&own));
  EXPECT_EQ(getSecurityContext(), &own);
  qvbSetSecurityContextFactory([](void*) -> QvSecurityContext* { return nullptr; }, nullptr);
  EXPECT_EQ(getSecurityContext(), nullptr);
  qvbSetSecurityContextFactory(nullptr, nullptr);
  EXPECT_NE(Context(getSecurityContext()), nullptr);
}

// --- Subjects

TEST_F(QvTickets, FailsForNoSubject) {
  EXPECT_THAT(failureOf(*context, nullptr), Not(IsEmpty()));
  EXPECT_THAT(server.requests(), IsEmpty());
}

TEST_F(QvTickets, FailsForASubjectWithoutCredentials) {
  const ReleasedSubject nobody = subject("alice", nullptr);
  EXPECT_EQ(failureOf(*context, nobody.get()), "The user alice has no credentials for the ticket server");
  EXPECT_THAT(server.requests(), IsEmpty());
}

TEST_F(QvTickets, LogsInOnceForEachSubject) {
  server.addUser("bob", "builder");
  const ReleasedSubject bob = subject("bob", "builder");
  for (int i = 0; i < 3; ++i) {
    EXPECT_NE(ticketFor(alice.get(), "http://service/"), "");
    EXPECT_NE(ticketFor(bob.get(), "http://service/"), "");
  }
  EXPECT_EQ(server.logins(), 2);
  EXPECT_EQ(server.ticketsIssued(), 6);
}

TEST_F(QvTickets, SharesALoginAmongSubjectsOfOneUser) {
  const ReleasedSubject again = subject("alice", "wonder-secret");
  EXPECT_NE(ticketFor("http://service/"), "");
  EXPECT_NE(ticketFor(again.get(), "http://service/"), "");
  EXPECT_EQ(server.logins(), 1);
}

TEST_F(QvTickets, SharesNoLoginWithWhoeverNamesTheSameUser) {
  EXPECT_NE(ticketFor("http://service/"), "");
  const ReleasedSubject impostor = subject("alice", "guessed");
  EXPECT_EQ(ticketFor(impostor.get(), "http://service/"), "");
  EXPECT_EQ(error, "The ticket server refused the login: 401 Unauthorized");
}

// --- Logins

TEST_F(QvTickets, EncodesUserAndPasswordAndService) {
  server.addUser("a&b=c d", "p%+/\xc3\xbc&password=x");
  const ReleasedSubject odd = subject("a&b=c d", "p%+/\xc3\xbc&password=x");
  EXPECT_NE(ticketFor(odd.get(), "http://service/a?b=c&d=%20"), "");
  const auto requests = server.requests();
  ASSERT_THAT(requests, SizeIs(2));
  EXPECT_EQ(requests[0].method, "POST");
  EXPECT_EQ(requests[0].target, "/cas/v1/tickets");
  EXPECT_EQ(requests[0].header("Content-Type"), "application/x-www-form-urlencoded");
  EXPECT_EQ(requests[0].body, "username=a%26b%3Dc%20d&password=p%25%2B%2F%C3%BC%26password%3Dx");
  EXPECT_EQ(requests[1].method, "POST");
  EXPECT_THAT(requests[1].target, StartsWith("/cas/v1/tickets/TGT-"));
  EXPECT_EQ(requests[1].header("Content-Type"), "application/x-www-form-urlencoded");
  EXPECT_EQ(requests[1].body, "service=http%3A%2F%2Fservice%2Fa%3Fb%3Dc%26d%3D%2520");
}

TEST_F(QvTickets, TakesAServerNamedWithASlashAtTheEnd) {
  context = contextFor(text(server.ticketServer() + "/"));
  EXPECT_NE(ticketFor("http://service/"), "");
  EXPECT_EQ(server.requests().front().target, "/cas/v1/tickets");
}

TEST_F(QvTickets, KeepsNoLoginThatFailed) {
  const ReleasedSubject carol = subject("carol", "sea");
  EXPECT_EQ(ticketFor(carol.get(), "http://service/"), "");
  EXPECT_EQ(error, "The ticket server refused the login: 401 Unauthorized");
  server.addUser("carol", "sea");
  EXPECT_NE(ticketFor(carol.get(), "http://service/"), "");
}

TEST_F(QvTickets, FailsWhenALoginIsAnsweredOtherwiseThanWithCreated) {
  for (const int status : {202, 302, 400, 403, 404, 500, 503}) {
    server.answer(server.loginPath(), {status});
    EXPECT_EQ(ticketFor("http://service/"), "") << status;
    EXPECT_THAT(error, StartsWith("The ticket server refused the login: " + std::to_string(status) + " "));
  }
  EXPECT_EQ(server.logins(), 0);
}

TEST_F(QvTickets, FollowsNoLoginElsewhere) {
  HttpServer elsewhere;
  server.redirect(server.loginPath(), elsewhere.url("/cas/v1/tickets"));
  server.answer(server.loginPath(), {307});
  EXPECT_EQ(ticketFor("http://service/"), "");
  EXPECT_THAT(elsewhere.requests(), IsEmpty());
}

TEST_F(QvTickets, AsksItsOwnServerWhateverTheLocationSays) {
  HttpServer elsewhere;
  for (const char* path : {"/cas/v1/tickets/TGT-9", "/TGT-9?a=b/c", "/x/../TGT-9#TGT-8"}) {
    server.setLoginLocation(elsewhere.url(path));
    EXPECT_EQ(ticketFor("http://service/"), "");
    EXPECT_EQ(error, "The ticket server refused a service ticket: 404 Not Found");
  }
  EXPECT_THAT(elsewhere.requests(), IsEmpty());
  EXPECT_THAT(server.requests("/cas/v1/tickets/TGT-9"), SizeIs(6));
}

TEST_F(QvTickets, FailsForALocationWithoutATicket) {
  for (const std::string& location : {server.url("/cas/v1/tickets/"), server.url("/cas/v1/tickets/TGT%2F1"),
                                      server.url("/cas/v1/tickets/" + std::string(257, 'T')),
                                      server.url("/cas/v1/tickets/TGT 1"), std::string("?TGT-1")}) {
    server.setLoginLocation(location);
    EXPECT_EQ(ticketFor("http://service/"), "") << location;
    EXPECT_EQ(error, "The ticket server answered a login without a ticket-granting ticket");
  }
}

// --- Service tickets

TEST_F(QvTickets, GetsTicketsThatAdmitOneRequestOfTheUrl) {
  server.serve("/x", "x");
  server.requireTickets();
  const std::string url = server.url("/x");
  EXPECT_EQ(statusOf(url), 401);
  const std::string ticket = ticketFor(url);
  EXPECT_EQ(statusOf(url + "?ticket=" + ticket), 200);
  EXPECT_EQ(statusOf(url + "?ticket=" + ticket), 401);
  EXPECT_EQ(statusOf(url + "?a=b&ticket=" + ticketFor(url + "?a=b")), 200);
  EXPECT_EQ(statusOf(url + "?a=b&ticket=" + ticketFor(url)), 401);
  server.setTicketLife(std::chrono::milliseconds(0));
  EXPECT_EQ(statusOf(url + "?ticket=" + ticketFor(url)), 401);
}

TEST_F(QvTickets, TakesWhatIsATicket) {
  for (const std::string& ticket : {std::string("a"), std::string("ST-1_x.Y-9"), std::string(256, 'S')}) {
    server.issueTickets({ticket});
    EXPECT_EQ(ticketFor("http://service/"), ticket);
  }
}

TEST_F(QvTickets, RefusesWhatIsNoTicket) {
  for (const std::string& ticket :
       {std::string(), std::string("ST-1\n"), std::string("\nST-1"), std::string("ST-1\r\nX: y"),
        std::string("ST-1&admin=1"), std::string("ST-1#"), std::string("ST 1"), std::string("ST/1"),
        std::string("ST%41"), std::string("ST-1\0", 5), std::string("ST-\xc3\xbc"), std::string(257, 'S')}) {
    server.issueTickets({ticket});
    EXPECT_EQ(ticketFor("http://service/"), "") << ticket;
    EXPECT_EQ(error, "The ticket server gave a service ticket that is not one");
  }
  EXPECT_EQ(server.logins(), 1);
}

TEST_F(QvTickets, LogsInAgainOnceWhenTheLoginIsLost) {
  EXPECT_NE(ticketFor("http://service/"), "");
  server.expireLogins();
  EXPECT_NE(ticketFor("http://service/"), "");
  EXPECT_EQ(server.logins(), 2);
  EXPECT_NE(ticketFor("http://service/"), "");
  EXPECT_EQ(server.logins(), 2);
}

TEST_F(QvTickets, TakesThreeStatusesForALostLogin) {
  int logins = 0;
  for (const int status : {401, 404, 410}) {
    server.answerTicketRequests({status});
    EXPECT_NE(ticketFor("http://service/"), "") << status;
    logins += logins == 0 ? 2 : 1;
    EXPECT_EQ(server.logins(), logins) << status;
  }
}

TEST_F(QvTickets, GivesUpWhenTheSecondLoginIsLostToo) {
  server.answerTicketRequests({404, 410});
  EXPECT_EQ(ticketFor("http://service/"), "");
  EXPECT_EQ(error, "The ticket server refused a service ticket: 410 Gone");
  EXPECT_EQ(server.logins(), 2);
  EXPECT_NE(ticketFor("http://service/"), "");
  EXPECT_EQ(server.logins(), 3);
}

TEST_F(QvTickets, KeepsTheLoginOnOtherRefusals) {
  for (const int status : {201, 302, 400, 403, 500, 503}) {
    server.answerTicketRequests({status});
    EXPECT_EQ(ticketFor("http://service/"), "") << status;
    EXPECT_THAT(error,
                StartsWith("The ticket server refused a service ticket: " + std::to_string(status) + " "));
  }
  EXPECT_NE(ticketFor("http://service/"), "");
  EXPECT_EQ(server.logins(), 1);
}

TEST_F(QvTickets, LogsInAgainAfterARenewal) {
  QvbString told;
  EXPECT_TRUE(context->renew(alice.get(), "http://service/", &told)); // nothing is held yet
  EXPECT_NE(ticketFor("http://service/"), "");
  EXPECT_TRUE(context->renew(alice.get(), "http://service/", &told));
  EXPECT_TRUE(context->renew(alice.get(), "http://service/", nullptr));
  EXPECT_TRUE(told.isNull());
  EXPECT_NE(ticketFor("http://service/"), "");
  EXPECT_EQ(server.logins(), 2);
}

// --- Ticket servers that fail

TEST_F(QvTickets, FailsWhenTheTicketServerIsDown) {
  const ClosedPort closed;
  context = contextFor(text(closed.url("/cas")));
  EXPECT_EQ(ticketFor("http://service/?a=secret"), "");
  EXPECT_THAT(error, StartsWith("The ticket server did not answer: " + closed.url("") + ": "));
}

TEST_F(QvTickets, FailsWhenTheTicketServerGoesDown) {
  auto own = std::make_unique<HttpServer>();
  own->addUser("alice", "wonder-secret");
  context = contextFor(text(own->ticketServer()));
  EXPECT_NE(ticketFor("http://service/"), "");
  const std::string origin = own->url("");
  own.reset();
  EXPECT_EQ(ticketFor("http://service/?a=secret"), "");
  EXPECT_THAT(error, StartsWith("The ticket server did not answer: " + origin + ": "));
}

TEST_F(QvTickets, FailsWhenTheTicketServerIsSilent) {
  FaultServer faults;
  qvbSetConfigOption("HTTP/LOW_SPEED_TIME", "1");
  context = contextFor(text(faults.url(HttpFault::Silent)));
  EXPECT_EQ(ticketFor("http://service/"), "");
  EXPECT_THAT(error, StartsWith("The ticket server did not answer: http://127.0.0.1:"));
}

TEST_F(QvTickets, FailsWhenTheTicketServersCertificateIsUnknown) {
  HttpServer hidden(HttpServer::Transport::Tls);
  hidden.addUser("alice", "wonder-secret");
  context = contextFor(text(hidden.ticketServer()));
  EXPECT_EQ(ticketFor("http://service/"), "");
  EXPECT_THAT(error, StartsWith("The ticket server did not answer: " + hidden.url("") + ": "));
  EXPECT_THAT(hidden.requests(), IsEmpty());
  qvbSetConfigOption("HTTP/CA_FILE", text(hidden.certificateFile()));
  EXPECT_NE(ticketFor("http://service/"), "");
}

// --- Threads

TEST_F(QvTickets, LogsInOnceForAllThreadsOfOneSubject) {
  server.hold(server.loginPath(), true);
  auto threads = askInThreads(std::vector(16, alice.get()));
  EXPECT_TRUE(server.waitForHeld(server.loginPath(), 1));
  server.hold(server.loginPath(), false);
  for (auto& thread : threads)
    EXPECT_TRUE(thread.get());
  EXPECT_EQ(server.logins(), 1);
  EXPECT_EQ(server.ticketsIssued(), 16);
}

TEST_F(QvTickets, LetsSubjectsLogInSideBySide) {
  server.addUser("bob", "builder");
  const ReleasedSubject bob = subject("bob", "builder");
  server.hold(server.loginPath(), true);
  auto threads = askInThreads({alice.get(), bob.get()});
  EXPECT_TRUE(server.waitForHeld(server.loginPath(), 2));
  server.hold(server.loginPath(), false);
  for (auto& thread : threads)
    EXPECT_TRUE(thread.get());
}

TEST_F(QvTickets, LetsThreadsOfOneSubjectGetTicketsSideBySide) {
  EXPECT_NE(ticketFor("http://service/"), "");
  const std::string path = server.requests().back().target;
  server.hold(path, true);
  auto threads = askInThreads(std::vector(4, alice.get()));
  EXPECT_TRUE(server.waitForHeld(path, 4));
  server.hold(path, false);
  for (auto& thread : threads)
    EXPECT_TRUE(thread.get());
}

TEST_F(QvTickets, LogsInOnceForAllThreadsThatFindTheLoginLost) {
  EXPECT_NE(ticketFor("http://service/"), "");
  const std::string path = server.requests().back().target;
  server.hold(path, true);
  auto threads = askInThreads(std::vector(8, alice.get()));
  EXPECT_TRUE(server.waitForHeld(path, 8));
  server.expireLogins();
  server.hold(path, false);
  for (auto& thread : threads)
    EXPECT_TRUE(thread.get());
  EXPECT_EQ(server.logins(), 2);
}

TEST_F(QvTickets, SurvivesRenewalsFromManyThreads) {
  std::vector<std::future<void>> threads(8);
  for (auto& thread : threads)
    thread = std::async(std::launch::async, [this] {
      for (int i = 0; i < 10; ++i) {
        QvbString ticket;
        EXPECT_TRUE(context->getServiceTicket(alice.get(), "http://service/", &ticket, nullptr));
        EXPECT_TRUE(context->renew(alice.get(), "http://service/", nullptr));
      }
    });
  for (auto& thread : threads)
    thread.get();
  EXPECT_EQ(server.ticketsIssued(), 80);
}
