#include "qvxhttp/qvsecuritycontext.h"

#include "qvxbase/private/qvuritext.h"
#include "qvxbase/qvbconfig.h"
#include "qvxbase/qvbformat.h"
#include "qvxbase/qvbreleased.h"
#include "qvxbase/qvbunload.h"
#include "qvxhttp/private/qvhttpurl.h"
#include "qvxhttp/qvxhttp.h"

#include <algorithm>
#include <chrono>
#include <future>
#include <map>
#include <mutex>
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

// An outcome is a ticket, or the text that tells why there is none.
struct Outcome {
  QvbString ticket;
  QvbString error;
  bool isLoginLost = false;
};

Outcome failure(const QvbString& error) { return {{}, error}; }

Outcome refusal(const char* what, httpResponse& response) {
  const QvbString message = response.getStatusCodeMessage();
  return failure(qvbStringFormat("%s: %d %S", what, response.getStatusCode(), &message));
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
    QvbString error;
    const Released<httpResponse> response = post(m_tickets, form, &error);
    if (!response)
      return failure(error);
    if (response->getStatusCode() != 201)
      return refusal("The ticket server refused the login", *response);
    const QvbString location = response->getHeader("Location");
    const std::string_view grant = lastSegment(location.view());
    return isTicket(grant) ? Outcome{QvbString(grant), {}}
                           : failure("The ticket server answered a login without a ticket-granting ticket");
  }

  // A service ticket.
  Outcome requestTicket(const QvbString& grant, const QvbString& service) const {
    const QvbString form(std::string_view("service=" + encoded(service)));
    QvbString error;
    const Released<httpResponse> response = post(qvbStringFormat("%S/%S", &m_tickets, &grant), form, &error);
    if (!response)
      return failure(error);
    const int status = response->getStatusCode();
    if (status != 200) {
      Outcome refused = refusal("The ticket server refused a service ticket", *response);
      refused.isLoginLost = status == 401 || status == 404 || status == 410;
      return refused;
    }
    const QvbString ticket = response->getBody();
    return isTicket(ticket.view()) ? Outcome{ticket, {}}
                                   : failure("The ticket server gave a service ticket that is not one");
  }

private:
  static std::string encoded(const QvbString& text) { return qvEncodeUriName(text.view()); }

  static Released<httpResponse> post(const QvbString& url, const QvbString& form, QvbString* error) {
    httpGet request;
    request.url = url;
    request.contentType = "application/x-www-form-urlencoded";
    httpClient client;
    Released<httpResponse> response(client.post(request, form));
    if (!response) {
      const QvbString reason = client.getErrorText();
      *error = qvbStringFormat("The ticket server did not answer: %S", &reason);
    }
    return response;
  }

  QvbString m_tickets; // the URL of logins, and the parent of those of ticket-granting tickets
};

// --- Contexts

bool fail(QvbString* error, const QvbString& text) {
  if (error)
    *error = text;
  return false;
}

class CasContext final : public QvSecurityContext {
public:
  explicit CasContext(const QvbString& server) : m_server(server) {}

  bool getServiceTicket(ASSubject* subject, const QvbString& url, QvbString* ticket,
                        QvbString* error) override {
    QvbSubjectInfoParm user;
    if (!getUser(subject, &user, error))
      return false;
    Outcome outcome = ticketFor(user, url);
    if (outcome.isLoginLost)
      outcome = ticketFor(user, url);
    if (outcome.ticket.isNull())
      return fail(error, outcome.error);
    *ticket = outcome.ticket;
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
           fail(error,
                qvbStringFormat("The user %S has no credentials for the ticket server", &user->userId));
  }

  // One attempt; a login that failed or is lost is given up.
  Outcome ticketFor(const QvbSubjectInfoParm& user, const QvbString& url) {
    const Outcome login = outcomeOf(loginOf(user), user);
    Outcome outcome = login.ticket.isNull() ? login : m_server.requestTicket(login.ticket, url);
    if (login.ticket.isNull() || outcome.isLoginLost)
      giveUp(user, login.ticket);
    return outcome;
  }

  Login loginOf(const QvbSubjectInfoParm& user) {
    const std::lock_guard guard(m_mutex);
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
    const std::lock_guard guard(m_mutex);
    m_logins.erase(keyOf(user));
  }
  // Another thread may have put a newer login in its place, which stays.
  void giveUp(const QvbSubjectInfoParm& user, const QvbString& ticket) {
    const std::lock_guard guard(m_mutex);
    const auto found = m_logins.find(keyOf(user));
    if (found != m_logins.end() && isDone(found->second) && found->second.get().ticket == ticket)
      m_logins.erase(found);
  }
  static bool isDone(const Login& login) {
    return login.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
  }

  const TicketServer m_server;
  std::mutex m_mutex;
  std::map<Key, Login> m_logins;
};

class FailingContext final : public QvSecurityContext {
public:
  explicit FailingContext(const QvbString& reason) : m_reason(reason) {}

  bool getServiceTicket(ASSubject*, const QvbString&, QvbString*, QvbString* error) override {
    return fail(error, m_reason);
  }
  bool renew(ASSubject*, const QvbString&, QvbString* error) override { return fail(error, m_reason); }
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
  std::mutex mutex;
  QvbSecurityContextFactory make = nullptr;
  void* data = nullptr;
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
  std::unique_lock lock(host.mutex);
  const QvbSecurityContextFactory make = host.make;
  void* const data = host.data;
  lock.unlock();
  return make ? make(data) : makeContext();
}

void qvbSetSecurityContextFactory(QvbSecurityContextFactory factory, void* data) {
  HostFactory& host = hostFactory();
  const std::lock_guard guard(host.mutex);
  host.make = factory;
  host.data = data;
}
