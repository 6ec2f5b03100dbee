// An HTTP client (RFC 9110) for GET requests and form posts.
//
// "http" and "https" only; certificates and host names are verified; no redirect is followed: a redirect is handed to
// the caller as it is. Neither proxy nor credentials come from the environment. Every thread keeps its own connections
// for reuse. Options, read at each request:
//   HTTP/CONNECT_TIMEOUT   seconds until a connection must stand (default 10)
//   HTTP/LOW_SPEED_TIME    seconds at less than 1 byte/s after which a transfer is given up (default 30)
//   HTTP/MAX_BODY          bytes of the largest body taken (default 1073741824)
//   HTTP/CA_FILE           certificates to trust, a PEM file (default: the system's)
//   HTTP/PROXY             the proxy's URL (default: none)
#pragma once

#include "qvxbase/qvbstring.h"

#include <utility>
#include <vector>

// A request. Names and values of headers must be free of control characters: a request that holds any fails.
struct httpGet {
  QvbString url;
  std::vector<std::pair<QvbString, QvbString>> headers;
  QvbString contentType;
};

class QVPLATFORM_API httpResponse {
public:
  virtual int getStatusCode() = 0;
  // The reason phrase that the server gave, or the registered one of the status.
  virtual QvbString getStatusCodeMessage() = 0;
  // Complete: a body that was cut short is no response.
  virtual QvbString getBody() = 0;
  // The first header of this name, without regard to case; null when there is none.
  virtual QvbString getHeader(const QvbString& name) = 0;
  virtual void release() = 0;

protected:
  ~httpResponse() = default;
};

// For one thread at a time; making one costs nothing.
class QVPLATFORM_API httpClient {
public:
  // The response, whatever its status, which the caller releases; null when there is none, with getErrorText() telling
  // why, without query parameters, since they may hold tickets.
  httpResponse* execute(const httpGet& request);
  // The same for a POST of the body, whose type is the request's content type.
  httpResponse* post(const httpGet& request, const QvbString& body);
  QvbString getErrorText() const { return m_error; }

private:
  QvbString m_error;
};
