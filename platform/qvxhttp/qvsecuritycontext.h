// The security context: where service tickets come from.
//
// A service ticket admits one request for one URL on behalf of a subject. getSecurityContext() asks the factory that the
// host installed; without one it makes a client of the CAS REST protocol (Apereo CAS, "REST Protocol") when the option
// "AUTH/SERVER" names a ticket server (its base URL, for example "https://host/cas"), and otherwise a context whose
// ticket requests fail with a text that says which option is missing.
//
// The CAS client logs in once per subject (user and credentials) for a ticket-granting ticket and asks for one service
// ticket per request; a lost ticket-granting ticket logs in again, once. A ticket that is not 1 to 256 of
// [A-Za-z0-9._-] is refused. Neither tickets nor credentials appear in an error text.
#pragma once

#include "qvxbase/qvbsubject.h"

// May be used from several threads at once.
class QVPLATFORM_API QvSecurityContext {
public:
  // A new ticket for one request of the URL. False with `error` telling why.
  virtual bool getServiceTicket(ASSubject* subject, const QvbString& url, QvbString* ticket,
                                QvbString* error) = 0;
  // After a refusal: what is held for the subject is given up, so that the next ticket rests on a new login. False with
  // `error` telling why.
  virtual bool renew(ASSubject* subject, const QvbString& url, QvbString* error) = 0;
  virtual void release() = 0;

protected:
  ~QvSecurityContext() = default;
};

// A new context; the caller releases it. Null only when the host's factory gives null.
QVPLATFORM_API QvSecurityContext* getSecurityContext();

// The URL with "ticket=" and the ticket behind the separator ('?' or '&') in its query, which is before a fragment. The
// ticket is percent-encoded: a host's own may be any text.
QVPLATFORM_API QvbString qvbUrlWithTicket(const QvbString& url, char separator, const QvbString& ticket);

using QvbSecurityContextFactory = QvSecurityContext* (*)(void* data);
// Installs the host's factory, or (null) none. `data` is passed to it; it may be called from any thread.
QVPLATFORM_API void qvbSetSecurityContextFactory(QvbSecurityContextFactory factory, void* data);
