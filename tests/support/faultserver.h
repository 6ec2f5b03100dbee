// What goes wrong on the other side of HTTP, on 127.0.0.1 and ports of its own. Everything ends with its object; endless
// answers have bounds besides.
//
//   FaultServer  a server that breaks the protocol, each fault at a URL of its own, in threads of this process
//   ClosedPort   a port that refuses connections
//   DeafPort     a port where connections wait in vain
//
// All operations may be called from any thread, also while requests are served.
#pragma once

#include <memory>
#include <string>

enum class HttpFault {
  Silent,         // takes the request and never answers
  SilentBody,     // headers and the first bytes, then nothing
  Slow,           // one byte a second, from the status line on
  ResetInBody,    // a reset in the middle of the body
  ShortBody,      // closes before Content-Length is reached
  ShortChunk,     // closes within a chunked body
  EndlessBody,    // no Content-Length, as fast as it goes
  EndlessHeaders, // header lines without end
  HugeLength,     // announces 1 TiB and sends on as EndlessBody does
  CloseAtOnce,    // takes the request and closes
  NotHttp,        // bytes that are no HTTP
};

class FaultServer {
public:
  FaultServer();
  ~FaultServer();
  FaultServer(const FaultServer&) = delete;
  FaultServer& operator=(const FaultServer&) = delete;

  // A URL whose requests meet the fault; `tail` follows in the path, to tell URLs apart, and may carry a query.
  std::string url(HttpFault fault, const std::string& tail = "") const;
  // A URL that answers these bytes, whatever they are, and closes.
  std::string urlAnswering(const std::string& bytes);
  int requestCount() const;
  // The latest request's lines, byte for byte, up to and with the empty one.
  std::string lastHead() const;

private:
  struct Impl;
  std::unique_ptr<Impl> m_impl;
};

// A port that nobody listens on and that nobody else gets while this lives.
class ClosedPort {
public:
  ClosedPort();
  ~ClosedPort();
  ClosedPort(const ClosedPort&) = delete;
  ClosedPort& operator=(const ClosedPort&) = delete;

  std::string url(const std::string& path) const;

private:
  struct Impl;
  std::unique_ptr<Impl> m_impl;
};

// A port whose connections never come to stand.
class DeafPort {
public:
  DeafPort();
  ~DeafPort();
  DeafPort(const DeafPort&) = delete;
  DeafPort& operator=(const DeafPort&) = delete;

  std::string url(const std::string& path) const;

private:
  struct Impl;
  std::unique_ptr<Impl> m_impl;
};
