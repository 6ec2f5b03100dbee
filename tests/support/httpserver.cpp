#include "support/httpserver.h"

#include "support/certificate.h"
#include "support/descriptors.h"
#include "support/tempdir.h"

#include <condition_variable>
#include <deque>
#include <future>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string_view>

#include <arpa/inet.h>
#include <httplib.h>
#include <netinet/in.h>
#include <sys/socket.h>

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

constexpr auto LongestHold = 10s;

std::string pathOf(const std::string& target) { return target.substr(0, target.find('?')); }

std::size_t ticketStart(const std::string& target) {
  return std::max(target.rfind("?ticket=") + 1, target.rfind("&ticket=") + 1);
}

std::string ticketOf(const std::string& target) {
  const std::size_t start = ticketStart(target);
  return start == 0 ? std::string() : target.substr(start + std::string_view("ticket=").size());
}

// The URL that the ticket of this request has to be for, less the origin.
std::string withoutTicket(const std::string& target) {
  const std::size_t start = ticketStart(target);
  return start == 0 ? target : target.substr(0, start - 1);
}

// A server with room for many connections to wait in and to live side by side.
template<class Base>
class Listening final : public Base {
public:
  template<class... Args>
  explicit Listening(Args... args) : Base(args...) {
    this->new_task_queue = [] { return new httplib::ThreadPool(40); };
    this->set_tcp_nodelay(true);
    this->set_keep_alive_max_count(10000);
    this->set_keep_alive_timeout(60);
  }
  int bindToPort() {
    const int port = this->bind_to_any_port("127.0.0.1");
    if (port < 0 || ::listen(this->svr_sock_, 128) != 0)
      throw std::runtime_error("no port on 127.0.0.1");
    return port;
  }
};

// The server's side of each connection. The server library keeps them to itself, and would wait for idle ones.
void endConnections(int port) {
  for (const int fd : openDescriptors()) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    if (::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) == 0 &&
        address.sin_family == AF_INET && ntohs(address.sin_port) == port)
      ::shutdown(fd, SHUT_RDWR);
  }
}

template<class T>
bool takeFirst(std::deque<T>& queue, T* value) {
  if (queue.empty())
    return false;
  *value = std::move(queue.front());
  queue.pop_front();
  return true;
}

template<class T>
void append(std::deque<T>& queue, const std::vector<T>& values) {
  queue.insert(queue.end(), values.begin(), values.end());
}

} // namespace

std::string ServedRequest::path() const { return pathOf(target); }

std::string ServedRequest::ticket() const { return ticketOf(target); }

std::string ServedRequest::header(const std::string& name) const {
  const auto found = headers.find(name);
  return found == headers.end() ? std::string() : found->second;
}

struct HttpServer::Impl {
  struct Resource {
    int status;
    std::string body;
    std::string contentType;
    Headers headers;
  };
  struct Ticket {
    std::string url;
    Clock::time_point end;
  };

  static constexpr std::string_view TicketServer = "/cas";
  static constexpr std::string_view Logins = "/cas/v1/tickets";

  explicit Impl(Transport transport) : scheme(transport == Transport::Plain ? "http" : "https") {
    if (transport == Transport::Plain)
      start(std::make_unique<Listening<httplib::Server>>());
    else
      startTls(transport == Transport::Tls ? "IP:127.0.0.1" : "DNS:other.example");
  }
  ~Impl() {
    {
      const std::lock_guard guard(mutex);
      isStopping = true;
    }
    changed.notify_all();
    server->stop();
    while (listener.wait_for(1ms) != std::future_status::ready)
      endConnections(port);
  }
  Impl(const Impl&) = delete;
  Impl& operator=(const Impl&) = delete;

  void startTls(const std::string& names) {
    const Certificate certificate(names);
    certificate.writePem(folder / "certificate.pem");
    start(std::make_unique<Listening<httplib::SSLServer>>(certificate.x509(), certificate.key()));
  }
  template<class Server>
  void start(std::unique_ptr<Server> made) {
    port = made->bindToPort();
    server = std::move(made);
    const auto handler = [this](const httplib::Request& request, httplib::Response& response) {
      respond(request, response);
    };
    server->Get(".*", handler).Post(".*", handler);
    listener = std::async(std::launch::async, [this] { server->listen_after_bind(); });
    while (!server->is_running() && listener.wait_for(1ms) != std::future_status::ready)
      ;
  }

  std::string origin() const { return scheme + "://127.0.0.1:" + std::to_string(port); }

  void respond(const httplib::Request& request, httplib::Response& response) {
    const std::string path = pathOf(request.target);
    std::unique_lock lock(mutex);
    log.push_back({request.method,
                   request.target,
                   {request.headers.begin(), request.headers.end()},
                   request.body,
                   request.remote_port});
    waitWhileHeld(path, lock);
    response.status = 200;
    takeFirst(statuses[path], &response.status);
    if (response.status == 200)
      respondAsUsual(request, path, response);
  }
  void waitWhileHeld(const std::string& path, std::unique_lock<std::mutex>& lock) {
    if (!heldPaths.contains(path))
      return;
    ++waiting[path];
    changed.notify_all();
    changed.wait_for(lock, LongestHold, [&] { return isStopping || !heldPaths.contains(path); });
    --waiting[path];
  }

  void respondAsUsual(const httplib::Request& request, const std::string& path, httplib::Response& response) {
    if (path == Logins)
      logIn(request, response);
    else if (path.starts_with(Logins))
      issueTicket(request, path.substr(Logins.size() + 1), response);
    else if (areTicketsRequired && !redeem(request))
      response.status = 401;
    else
      give(path, response);
  }
  void give(const std::string& path, httplib::Response& response) {
    const auto found = resources.find(path);
    if (found == resources.end()) {
      response.status = 404;
      return;
    }
    const Resource& resource = found->second;
    response.status = resource.status;
    for (const auto& [name, value] : resource.headers)
      response.set_header(name, value);
    response.set_content(resource.body, resource.contentType);
  }

  void logIn(const httplib::Request& request, httplib::Response& response) {
    const auto found = users.find(request.get_param_value("username"));
    if (request.method != "POST" || found == users.end() ||
        found->second != request.get_param_value("password")) {
      response.status = 401;
      return;
    }
    const std::string grant = "TGT-" + std::to_string(++loginCount) + "-abcDEF.granting";
    grants.insert(grant);
    response.status = 201;
    const std::string location = origin() + std::string(Logins) + "/" + grant;
    response.set_header("Location", loginLocation.empty() ? location : loginLocation);
  }
  void issueTicket(const httplib::Request& request, const std::string& grant, httplib::Response& response) {
    takeFirst(ticketStatuses, &response.status);
    if (response.status == 200 && (request.method != "POST" || !grants.contains(grant)))
      response.status = 404;
    if (response.status != 200)
      return;
    std::string ticket;
    if (!takeFirst(foreignTickets, &ticket)) {
      ticket = "ST-" + std::to_string(issuedCount + 1) + "-xyzUVW.service";
      tickets[ticket] = {request.get_param_value("service"), Clock::now() + ticketLife};
    }
    ++issuedCount;
    response.set_content(ticket, "text/plain");
  }
  // A ticket is used up by being shown, to the right place or not.
  bool redeem(const httplib::Request& request) {
    const auto found = tickets.find(ticketOf(request.target));
    if (found == tickets.end())
      return false;
    const Ticket ticket = found->second;
    tickets.erase(found);
    return ticket.url == origin() + withoutTicket(request.target) && Clock::now() < ticket.end;
  }

  const std::string scheme;
  const TempDir folder;
  int port = 0;
  std::unique_ptr<httplib::Server> server;
  std::future<void> listener;

  mutable std::mutex mutex; // guards everything below
  std::condition_variable changed;
  bool isStopping = false;
  std::map<std::string, Resource> resources;
  std::map<std::string, std::deque<int>> statuses;
  std::set<std::string> heldPaths;
  std::map<std::string, int> waiting;
  std::vector<ServedRequest> log;
  bool areTicketsRequired = false;
  std::map<std::string, std::string> users;
  std::set<std::string> grants;
  std::map<std::string, Ticket> tickets;
  std::chrono::milliseconds ticketLife = 60s;
  std::deque<int> ticketStatuses;
  std::deque<std::string> foreignTickets;
  std::string loginLocation;
  int loginCount = 0;
  int issuedCount = 0;
};

HttpServer::HttpServer(Transport transport) : m_impl(std::make_unique<Impl>(transport)) {}

HttpServer::~HttpServer() = default;

std::string HttpServer::url(const std::string& path) const { return m_impl->origin() + path; }

std::string HttpServer::certificateFile() const { return m_impl->folder / "certificate.pem"; }

void HttpServer::serve(const std::string& path, const std::string& body, const std::string& contentType,
                       const Headers& headers) {
  const std::lock_guard guard(m_impl->mutex);
  m_impl->resources[path] = {200, body, contentType, headers};
}

void HttpServer::serveJob(const std::string& path, const std::string& modifiedDate,
                          const std::string& jobPath, const std::string& contentLink) {
  serve(path,
        "<processjob modifiedDate=\"" + modifiedDate + "\" path=\"" + jobPath +
            "\"><links><link rel=\"self\" href=\"" + contentLink + "\"/></links></processjob>",
        "application/xml");
}

void HttpServer::remove(const std::string& path) {
  const std::lock_guard guard(m_impl->mutex);
  m_impl->resources.erase(path);
}

void HttpServer::answer(const std::string& path, const std::vector<int>& statuses) {
  const std::lock_guard guard(m_impl->mutex);
  append(m_impl->statuses[path], statuses);
}

void HttpServer::redirect(const std::string& path, const std::string& location) {
  const std::lock_guard guard(m_impl->mutex);
  m_impl->resources[path] = {302, "", "text/plain", {{"Location", location}}};
}

void HttpServer::hold(const std::string& path, bool held) {
  const std::lock_guard guard(m_impl->mutex);
  if (held)
    m_impl->heldPaths.insert(path);
  else
    m_impl->heldPaths.erase(path);
  m_impl->changed.notify_all();
}

bool HttpServer::waitForHeld(const std::string& path, int requests) {
  std::unique_lock lock(m_impl->mutex);
  return m_impl->changed.wait_for(lock, LongestHold, [&] { return m_impl->waiting[path] >= requests; });
}

std::string HttpServer::ticketServer() const { return url(std::string(Impl::TicketServer)); }

std::string HttpServer::loginPath() const { return std::string(Impl::Logins); }

void HttpServer::addUser(const std::string& user, const std::string& password) {
  const std::lock_guard guard(m_impl->mutex);
  m_impl->users[user] = password;
}

void HttpServer::requireTickets() {
  const std::lock_guard guard(m_impl->mutex);
  m_impl->areTicketsRequired = true;
}

void HttpServer::setTicketLife(std::chrono::milliseconds life) {
  const std::lock_guard guard(m_impl->mutex);
  m_impl->ticketLife = life;
}

void HttpServer::expireLogins() {
  const std::lock_guard guard(m_impl->mutex);
  m_impl->grants.clear();
}

void HttpServer::answerTicketRequests(const std::vector<int>& statuses) {
  const std::lock_guard guard(m_impl->mutex);
  append(m_impl->ticketStatuses, statuses);
}

void HttpServer::issueTickets(const std::vector<std::string>& tickets) {
  const std::lock_guard guard(m_impl->mutex);
  append(m_impl->foreignTickets, tickets);
}

void HttpServer::setLoginLocation(const std::string& location) {
  const std::lock_guard guard(m_impl->mutex);
  m_impl->loginLocation = location;
}

int HttpServer::logins() const {
  const std::lock_guard guard(m_impl->mutex);
  return m_impl->loginCount;
}

int HttpServer::ticketsIssued() const {
  const std::lock_guard guard(m_impl->mutex);
  return m_impl->issuedCount;
}

std::vector<ServedRequest> HttpServer::requests() const {
  const std::lock_guard guard(m_impl->mutex);
  return m_impl->log;
}

std::vector<ServedRequest> HttpServer::requests(const std::string& path) const {
  auto all = requests();
  std::erase_if(all, [&](const ServedRequest& request) { return request.path() != path; });
  return all;
}

void HttpServer::clearRequests() {
  const std::lock_guard guard(m_impl->mutex);
  m_impl->log.clear();
}
