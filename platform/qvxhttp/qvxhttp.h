// An HTTP client (RFC 9110) for GET requests and form posts.
//
// "http" and "https" only; certificates and host names are verified; no redirect is followed: a redirect is handed to
// the caller as it is. Neither proxy nor credentials come from the environment. Every thread keeps its own connections
// for reuse, until it ends. Options, read at each request:
//   HTTP/CONNECT_TIMEOUT   seconds until a connection must stand (1 to 2147483, default 10)
//   HTTP/LOW_SPEED_TIME    seconds at less than 1 byte/s after which a transfer is given up (1 to 2147483,
//                          default 30)
//   HTTP/MAX_BODY          bytes of the largest body taken (1 to 2147483647, default 1073741824)
//   HTTP/CA_FILE           certificates to trust instead of the system's, a PEM file
//   HTTP/PROXY             the proxy's URL (default: none)
// A number out of range is logged at level 5 under "QV.Base.Http", once per value, and the default counts. So is why a
// request had no response, each time.
#pragma once

#include "qvxbase/qvbstring.h"

#include <utility>
#include <vector>

// A request. The URL begins with "http://" or "https://" and a host, the names of headers are words (RFC 9110, section
// 5.6.2), and nothing holds a control character: any other request fails without being sent.
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
  // Complete: a body that was cut short, or announced with two different lengths, is no response.
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
  // why. The text names the server alone, since paths and queries may hold tickets.
  httpResponse* execute(const httpGet& request);
  // The same for a POST of the body, whose type is the request's content type.
  httpResponse* post(const httpGet& request, const QvbString& body);
  QvbString getErrorText() const { return m_error; }

private:
  QvbString m_error;
};
