#include "support/httpserver.h"

#include "support/descriptors.h"
#include "support/tempdir.h"

#include <charconv>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <future>
#include <mutex>
#include <optional>
#include <set>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <thread>

#include <arpa/inet.h>
#include <httplib.h>
#include <netinet/in.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

constexpr auto LongestHold = 10s;
constexpr auto LongestFault = 30s;

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

sockaddr_in loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

// A socket on 127.0.0.1 with a port that the system picks.
class LocalSocket {
public:
  LocalSocket() : m_fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (m_fd < 0 || ::bind(m_fd, generic, size) != 0 || ::getsockname(m_fd, generic, &size) != 0)
      throw std::runtime_error("no port on 127.0.0.1");
    m_port = ntohs(address.sin_port);
  }
  ~LocalSocket() { ::close(m_fd); }
  LocalSocket(const LocalSocket&) = delete;
  LocalSocket& operator=(const LocalSocket&) = delete;

  int fd() const { return m_fd; }
  int port() const { return m_port; }
  std::string origin() const { return "http://127.0.0.1:" + std::to_string(m_port); }
  void listen(int backlog) const {
    if (::listen(m_fd, backlog) != 0)
      throw std::runtime_error("cannot listen on 127.0.0.1");
  }
  void connectTo(const LocalSocket& other) const {
    sockaddr_in address = loopback(other.port());
    if (::connect(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
      throw std::runtime_error("cannot connect to 127.0.0.1");
  }

private:
  int m_fd;
  int m_port = 0;
};

// --- Certificates

template<auto Free>
struct Freed {
  template<class T>
  void operator()(T* object) const {
    Free(object);
  }
};
using Key = std::unique_ptr<EVP_PKEY, Freed<EVP_PKEY_free>>;
using Certificate = std::unique_ptr<X509, Freed<X509_free>>;
using Extension = std::unique_ptr<X509_EXTENSION, Freed<X509_EXTENSION_free>>;

// Signs itself; `names` is as OpenSSL's subjectAltName takes it.
Certificate makeCertificate(EVP_PKEY* key, const std::string& names) {
  Certificate certificate(X509_new());
  X509* const x509 = certificate.get();
  X509_set_version(x509, X509_VERSION_3);
  ASN1_INTEGER_set(X509_get_serialNumber(x509), 1);
  X509_gmtime_adj(X509_getm_notBefore(x509), -3600);
  X509_gmtime_adj(X509_getm_notAfter(x509), 86400);
  X509_set_pubkey(x509, key);
  X509_NAME* const name = X509_get_subject_name(x509);
  const auto* const common = reinterpret_cast<const unsigned char*>("test server");
  X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, common, -1, -1, 0);
  X509_set_issuer_name(x509, name);
  const Extension extension(X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name, names.c_str()));
  X509_add_ext(x509, extension.get(), -1);
  if (X509_sign(x509, key, EVP_sha256()) == 0)
    throw std::runtime_error("no certificate");
  return certificate;
}

void writePem(const std::string& path, X509* certificate) {
  std::FILE* const file = std::fopen(path.c_str(), "w");
  if (!file || PEM_write_X509(file, certificate) == 0 || std::fclose(file) != 0)
    throw std::runtime_error("cannot write " + path);
}

// --- The well-behaved server

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
    const Key key(EVP_EC_gen("P-256"));
    const Certificate certificate = makeCertificate(key.get(), names);
    writePem(folder / "certificate.pem", certificate.get());
    start(std::make_unique<Listening<httplib::SSLServer>>(certificate.get(), key.get()));
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

// --- The server that breaks the protocol

namespace {

// The server's side of one connection. Everything ends when the peer leaves, the server stops or time is up.
class FaultyConnection {
public:
  FaultyConnection(int fd, std::stop_token stop) : m_fd(fd), m_stop(std::move(stop)) {
    const timeval patience{0, 20000};
    ::setsockopt(m_fd, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
  }
  ~FaultyConnection() { ::close(m_fd); }
  FaultyConnection(const FaultyConnection&) = delete;
  FaultyConnection& operator=(const FaultyConnection&) = delete;

  // The head of a request, as far as it came.
  std::string readHead() {
    std::string head;
    char buffer[4096];
    while (head.find("\r\n\r\n") == std::string::npos && head.size() < 65536 && awaits(POLLIN)) {
      const ssize_t count = ::recv(m_fd, buffer, sizeof buffer, 0);
      if (count <= 0)
        break;
      head.append(buffer, static_cast<std::size_t>(count));
    }
    return head;
  }
  bool send(std::string_view bytes) {
    while (!bytes.empty() && !isOver()) {
      const ssize_t count = ::send(m_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (count < 0 && errno != EAGAIN && errno != EINTR)
        return false;
      bytes.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }
    return bytes.empty();
  }
  void sendForEver(std::string_view bytes) {
    while (send(bytes))
      ;
  }
  // False when the peer leaves meanwhile.
  bool pause(std::chrono::milliseconds length) {
    const auto end = Clock::now() + length;
    while (!isOver() && Clock::now() < end) {
      if (isReady(POLLRDHUP, 20))
        return false;
    }
    return !isOver();
  }
  void reset() {
    const linger now{1, 0};
    ::setsockopt(m_fd, SOL_SOCKET, SO_LINGER, &now, sizeof now);
  }

private:
  bool isOver() const { return m_stop.stop_requested() || Clock::now() > m_end; }
  bool isReady(int events, int milliseconds) const {
    pollfd waiting{m_fd, static_cast<short>(events), 0};
    return ::poll(&waiting, 1, milliseconds) > 0;
  }
  bool awaits(int events) const {
    while (!isOver()) {
      if (isReady(events, 20))
        return true;
    }
    return false;
  }

  int m_fd;
  std::stop_token m_stop;
  Clock::time_point m_end = Clock::now() + LongestFault;
};

std::string okHead(const std::string& fields) {
  return "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\n" + fields + "\r\n";
}

void dripSlowly(FaultyConnection& connection) {
  for (const char byte : okHead("Content-Length: 3\r\n") + "abc") {
    if (!connection.send({&byte, 1}) || !connection.pause(1s))
      return;
  }
}

void meet(HttpFault fault, FaultyConnection& connection) {
  const std::string block(65536, 'x');
  switch (fault) {
  case HttpFault::Silent:
    connection.pause(LongestFault);
    break;
  case HttpFault::SilentBody:
    connection.send(okHead("Content-Length: 100\r\n") + "first");
    connection.pause(LongestFault);
    break;
  case HttpFault::Slow:
    dripSlowly(connection);
    break;
  case HttpFault::ResetInBody:
    connection.send(okHead("") + "first");
    connection.pause(50ms);
    connection.reset();
    break;
  case HttpFault::ShortBody:
    connection.send(okHead("Content-Length: 100\r\n") + "first");
    break;
  case HttpFault::ShortChunk:
    connection.send(okHead("Transfer-Encoding: chunked\r\n") + "64\r\nfirst");
    break;
  case HttpFault::EndlessBody:
    connection.send(okHead(""));
    connection.sendForEver(block);
    break;
  case HttpFault::EndlessHeaders:
    connection.send("HTTP/1.1 200 OK\r\n");
    connection.sendForEver("X-More: of the same\r\n");
    break;
  case HttpFault::HugeLength:
    connection.send(okHead("Content-Length: 1099511627776\r\n"));
    connection.sendForEver(block);
    break;
  case HttpFault::CloseAtOnce:
    break;
  case HttpFault::NotHttp:
    connection.send("220 mail.example ready\r\n");
    break;
  }
}

} // namespace

struct FaultServer::Impl {
  static constexpr std::size_t MostConnections = 256;

  Impl() {
    listener.listen(128);
    acceptor = std::jthread([this](const std::stop_token& stop) { acceptAll(stop); });
  }

  void acceptAll(const std::stop_token& stop) {
    std::vector<std::jthread> connections; // stopped and joined at the end
    while (!stop.stop_requested() && connections.size() < MostConnections) {
      pollfd waiting{listener.fd(), POLLIN, 0};
      if (::poll(&waiting, 1, 20) <= 0)
        continue;
      const int fd = ::accept4(listener.fd(), nullptr, nullptr, SOCK_CLOEXEC);
      if (fd >= 0)
        connections.emplace_back([this, fd](std::stop_token own) { serve(fd, std::move(own)); });
    }
  }
  // Targets are "/fault/NUMBER..." and "/answer/NUMBER".
  void serve(int fd, std::stop_token stop) {
    FaultyConnection connection(fd, std::move(stop));
    const std::string head = connection.readHead();
    if (!head.empty())
      record(head);
    if (const auto fault = numberAfter(" /fault/", head))
      meet(static_cast<HttpFault>(*fault), connection);
    else if (const auto number = numberAfter(" /answer/", head))
      connection.send(answer(static_cast<std::size_t>(*number)));
  }
  static std::optional<int> numberAfter(std::string_view prefix, const std::string& head) {
    const std::size_t start = head.find(prefix);
    int number = 0;
    if (start == head.npos ||
        std::from_chars(&head[start + prefix.size()], head.data() + head.size(), number).ec != std::errc())
      return std::nullopt;
    return number;
  }
  void record(const std::string& head) {
    const std::lock_guard guard(mutex);
    ++requests;
    latestHead = head;
  }
  std::string answer(std::size_t number) {
    const std::lock_guard guard(mutex);
    return answers.at(number);
  }
  LocalSocket listener;
  std::mutex mutex; // guards the next three
  std::vector<std::string> answers;
  int requests = 0;
  std::string latestHead;
  std::jthread acceptor;
};

FaultServer::FaultServer() : m_impl(std::make_unique<Impl>()) {}

FaultServer::~FaultServer() = default;

std::string FaultServer::url(HttpFault fault, const std::string& tail) const {
  return m_impl->listener.origin() + "/fault/" + std::to_string(static_cast<int>(fault)) + tail;
}

std::string FaultServer::urlAnswering(const std::string& bytes) {
  const std::lock_guard guard(m_impl->mutex);
  m_impl->answers.push_back(bytes);
  return m_impl->listener.origin() + "/answer/" + std::to_string(m_impl->answers.size() - 1);
}

int FaultServer::requestCount() const {
  const std::lock_guard guard(m_impl->mutex);
  return m_impl->requests;
}

std::string FaultServer::lastHead() const {
  const std::lock_guard guard(m_impl->mutex);
  return m_impl->latestHead;
}

struct ClosedPort::Impl {
  LocalSocket socket;
};

ClosedPort::ClosedPort() : m_impl(std::make_unique<Impl>()) {}

ClosedPort::~ClosedPort() = default;

std::string ClosedPort::url(const std::string& path) const { return m_impl->socket.origin() + path; }

// The one place in the queue is taken, and whoever else knocks gets no answer.
struct DeafPort::Impl {
  Impl() {
    socket.listen(0);
    first.connectTo(socket);
  }
  LocalSocket socket;
  LocalSocket first;
};

DeafPort::DeafPort() : m_impl(std::make_unique<Impl>()) {}

DeafPort::~DeafPort() = default;

std::string DeafPort::url(const std::string& path) const { return m_impl->socket.origin() + path; }
