#include "support/faultserver.h"

#include "support/localsocket.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <mutex>
#include <optional>
#include <string_view>
#include <system_error>
#include <thread>
#include <vector>

#include <poll.h>

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

constexpr auto LongestFault = 30s;

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
