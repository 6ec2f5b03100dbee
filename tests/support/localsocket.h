// Sockets on 127.0.0.1 for the tests' servers.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

inline sockaddr_in loopback(int port) {
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
