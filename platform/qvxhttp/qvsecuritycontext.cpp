#include "qvxhttp/qvsecuritycontext.h"

#include "qvsfio/npfio.h"
#include "qvxbase/private/qvuritext.h"
#include "qvxbase/qvbconfig.h"
#include "qvxbase/qvbformat.h"
#include "qvxbase/qvbreleased.h"
#include "qvxbase/qvbresult.h"
#include "qvxbase/qvbthreads.h"
#include "qvxbase/qvbunload.h"
#include "qvxhttp/private/qvhttpurl.h"
#include "qvxhttp/qvxhttp.h"

#include <algorithm>
#include <chrono>
#include <future>
#include <map>
#include <new>
#include <string>
#include <string_view>
#include <utility>

namespace {

// --- The CAS REST protocol

constexpr std::size_t maxTicketLength = 256;

bool isTicket(std::string_view text) {
  constexpr std::string_view characters = "0123456789._-"
                                          "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
  return !text.empty() && text.size() <= maxTicketLength && text.find_first_not_of(characters) == text.npos;
}

// The last segment of a URL's path.
std::string_view lastSegment(std::string_view url) {
  url = url.substr(0, url.find_first_of("?#"));
  return url.substr(url.rfind('/') + 1);
}

// A ticket, or why there is none.
using Outcome = QvbResult<QvbString>;
constexpr int loginIsLost = NP_FIO_ACCESS;

QvbFailure failure(const QvbString& text) { return {NP_FIO_ERROR, text}; }

QvbFailure refusal(const char* what, httpResponse& response) {
  return failure(
      qvbStringFormat("%s: %d %s", what, response.getStatusCode(), response.getStatusCodeMessage()));
}

// What the ticket server answers. Requests go to URLs below its own, wherever its answers point to.
class TicketServer {
public:
  explicit TicketServer(const QvbString& base) : m_tickets(base) {
    m_tickets.trimChar('/', false, true).append("/v1/tickets");
  }

  // A ticket-granting ticket.
  Outcome logIn(const QvbString& user, const QvbString& password) const {
    const QvbString form(std::string_view("username=" + encoded(user) + "&password=" + encoded(password)));
    const auto answer = post(m_tickets, form);
    if (!answer)
      return answer.failure();
    const auto& response = *answer;
    if (response->getStatusCode() != 201)
      return refusal("The ticket server refused the login", *response);
    const QvbString location = response->getHeader("Location");
    const std::string_view grant = lastSegment(location.view());
    if (!isTicket(grant))
      return failure("The ticket server answered a login without a ticket-granting ticket");
    return QvbString(grant);
  }

  // A service ticket.
  Outcome requestTicket(const QvbString& grant, const QvbString& service) const {
    const QvbString form(std::string_view("service=" + encoded(service)));
    const auto answer = post(qvbStringFormat("%s/%s", m_tickets, grant), form);
    if (!answer)
      return answer.failure();
    const auto& response = *answer;
    const int status = response->getStatusCode();
    if (status != 200) {
      QvbFailure refused = refusal("The ticket server refused a service ticket", *response);
      if (status == 401 || status == 404 || status == 410)
        refused.code = loginIsLost;
      return refused;
    }
    const QvbString ticket = response->getBody();
    if (!isTicket(ticket.view()))
      return failure("The ticket server gave a service ticket that is not one");
    return ticket;
  }

private:
  static std::string encoded(const QvbString& text) { return qvEncodeUriName(text.view()); }

  static QvbResult<Released<httpResponse>> post(const QvbString& url, const QvbString& form) {
    httpGet request;
    request.url = url;
    request.contentType = "application/x-www-form-urlencoded";
    httpClient client;
    Released<httpResponse> response(client.post(request, form));
    if (!response)
      return failure(qvbStringFormat("The ticket server did not answer: %s", client.getErrorText()));
    return response;
  }

  QvbString m_tickets; // the URL of logins, and the parent of those of ticket-granting tickets
};

// --- Contexts

class CasContext final : public QvSecurityContext {
public:
  explicit CasContext(const QvbString& server) : m_server(server) {}

  bool getServiceTicket(ASSubject* subject, const QvbString& url, QvbString* ticket,
                        QvbString* error) override {
    QvbSubjectInfoParm user;
    if (!getUser(subject, &user, error))
      return false;
    Outcome outcome = ticketFor(user, url);
    if (outcome.code() == loginIsLost)
      outcome = ticketFor(user, url);
    if (!outcome)
      return qvbFailWith(outcome.failure().text, error);
    *ticket = *outcome;
    return true;
  }

  bool renew(ASSubject* subject, const QvbString&, QvbString* error) override {
    QvbSubjectInfoParm user;
    if (!getUser(subject, &user, error))
      return false;
    forget(user);
    return true;
  }

  void release() override { delete this; }

private:
  // A login counts for the credentials that made it, not for whoever names the same user.
  using Key = std::pair<QvbString, QvbString>;
  // Deferred: the first thread that asks for the outcome logs in, the others of the same user wait for it.
  using Login = std::shared_future<Outcome>;

  static Key keyOf(const QvbSubjectInfoParm& user) { return {user.userId, user.credentials}; }

  static bool getUser(ASSubject* subject, QvbSubjectInfoParm* user, QvbString* error) {
    if (!qvbSubjectInfo(subject, user, error))
      return false;
    return !user->credentials.isNull() ||
           qvbFailWith(qvbStringFormat("The user %s has no credentials for the ticket server", user->userId),
                       error);
  }

  // One attempt; a login that failed or is lost is given up.
  Outcome ticketFor(const QvbSubjectInfoParm& user, const QvbString& url) {
    const Outcome login = outcomeOf(loginOf(user), user);
    Outcome outcome = login ? m_server.requestTicket(*login, url) : login;
    if (!login || outcome.code() == loginIsLost)
      giveUp(user, login);
    return outcome;
  }

  Login loginOf(const QvbSubjectInfoParm& user) {
    const QvbMutexGuard guard(m_mutex);
    Login& login = m_logins[keyOf(user)];
    if (!login.valid())
      login = std::async(std::launch::deferred,
                         [this, user] { return m_server.logIn(user.userId, user.credentials); });
    return login;
  }
  // A login that ran out of memory says so for ever.
  Outcome outcomeOf(const Login& login, const QvbSubjectInfoParm& user) {
    try {
      return login.get();
    } catch (const std::bad_alloc&) {
      forget(user);
      throw;
    }
  }
  void forget(const QvbSubjectInfoParm& user) {
    const QvbMutexGuard guard(m_mutex);
    m_logins.erase(keyOf(user));
  }
  // Another thread may have put a newer login in its place, which stays.
  void giveUp(const QvbSubjectInfoParm& user, const Outcome& login) {
    const QvbMutexGuard guard(m_mutex);
    const auto found = m_logins.find(keyOf(user));
    if (found != m_logins.end() && isDone(found->second) && ticketOf(found->second.get()) == ticketOf(login))
      m_logins.erase(found);
  }
  static QvbString ticketOf(const Outcome& login) { return login ? *login : QvbString(); }
  static bool isDone(const Login& login) {
    return login.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
  }

  const TicketServer m_server;
  QvbMutex m_mutex;
  std::map<Key, Login> m_logins QVB_GUARDED_BY(m_mutex);
};

class FailingContext final : public QvSecurityContext {
public:
  explicit FailingContext(const QvbString& reason) : m_reason(reason) {}

  bool getServiceTicket(ASSubject*, const QvbString&, QvbString*, QvbString* error) override {
    return qvbFailWith(m_reason, error);
  }
  bool renew(ASSubject*, const QvbString&, QvbString* error) override { return qvbFailWith(m_reason, error); }
  void release() override { delete this; }

private:
  QvbString m_reason;
};

QvSecurityContext* makeContext() {
  const QvbString server = qvbGetConfigOption(QvbOptions::TicketServer);
  if (server.isEmpty())
    return new FailingContext("There is no ticket server: the option AUTH/SERVER is not set");
  if (!qvIsHttpUrl(server.view()) || server.view().find_first_of("?#") != std::string_view::npos)
    return new FailingContext("The option AUTH/SERVER is not an http or https URL without a query");
  return new CasContext(server);
}

// --- The host's factory

struct HostFactory {
  QvbMutex mutex;
  QvbSecurityContextFactory make QVB_GUARDED_BY(mutex) = nullptr;
  void* data QVB_GUARDED_BY(mutex) = nullptr;
};

HostFactory& hostFactory() {
  static HostFactory& factory = qvbUntilUnload<HostFactory>();
  return factory;
}

} // namespace

QvbString qvbUrlWithTicket(const QvbString& url, char separator, const QvbString& ticket) {
  const std::string_view whole = url.view();
  const std::size_t end = std::min(whole.find('#'), whole.size());
  std::string admitted(whole.substr(0, end));
  admitted += separator;
  admitted += "ticket=";
  admitted += qvEncodeUriName(ticket.view());
  admitted += whole.substr(end);
  return QvbString(std::string_view(admitted));
}

QvSecurityContext* getSecurityContext() {
  HostFactory& host = hostFactory();
  QvbMutexGuard lock(host.mutex);
  const QvbSecurityContextFactory make = host.make;
  void* const data = host.data;
  lock.unlock();
  return make ? make(data) : makeContext();
}

void qvbSetSecurityContextFactory(QvbSecurityContextFactory factory, void* data) {
  HostFactory& host = hostFactory();
  const QvbMutexGuard guard(host.mutex);
  host.make = factory;
  host.data = data;
}
