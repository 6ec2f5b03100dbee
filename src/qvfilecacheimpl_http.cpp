#include "qvfilecacheimpl_http.h"

#include "allocation.h"
#include "domchildren.h"
#include "qvsfio/npfio.h"
#include "qvsstr/qvsstr.h"
#include "qvxbase/qvbformat.h"

#include <algorithm>
#include <array>

namespace {

constexpr int unauthorized = 401;
constexpr int maxRetries = 3;

// Statuses from `first` to `last` have one result; every status that no row names is a plain failure, 1.
struct StatusResult {
  int first;
  int last;
  int result;
};
constexpr std::array statusResults{
    StatusResult{200, 202, NP_FIO_OK},        StatusResult{203, 205, NP_FIO_REFUSED},
    StatusResult{206, 206, NP_FIO_PARTIAL},   StatusResult{300, 301, NP_FIO_REFUSED},
    StatusResult{302, 302, NP_FIO_OK},        StatusResult{304, 307, NP_FIO_REFUSED},
    StatusResult{400, 400, NP_FIO_REFUSED},   StatusResult{401, 401, NP_FIO_ACCESS},
    StatusResult{402, 402, NP_FIO_REFUSED},   StatusResult{403, 403, NP_FIO_ACCESS},
    StatusResult{404, 404, NP_FIO_NOT_FOUND}, StatusResult{405, 406, NP_FIO_UNSUPPORTED},
    StatusResult{407, 409, NP_FIO_REFUSED},   StatusResult{410, 410, NP_FIO_NOT_FOUND},
    StatusResult{411, 417, NP_FIO_REFUSED},   StatusResult{503, 503, NP_FIO_REFUSED},
};

Released<httpResponse> send(const httpGet& request) {
  httpClient client;
  return Released<httpResponse>(client.execute(request));
}

// The URL of a description with its ticket.
QvbString urlOfDescription(const QvbString& name, const QvbString& ticket) {
  const auto query = name.find(RemoteHttpFileProvider::URI_QUERY_STRING);
  const auto fragment = name.find("#");
  const bool hasQuery = query > 0 && (fragment < 0 || query < fragment);
  return qvbUrlWithTicket(name, hasQuery ? '&' : '?', ticket);
}

// A caller's error text, which may be missing, as one that is always there. It is no plain result: a text that it holds
// already stays where a failure has none of its own, and is logged.
class ErrorText {
public:
  explicit ErrorText(QvbString* given) : m_text(given ? given : &m_own) {}
  QvbString* get() { return m_text; }
  void setIfEmpty(const QvbString& text) {
    if (m_text->isEmpty())
      *m_text = text;
  }

private:
  QvbString m_own;
  QvbString* m_text;
};

} // namespace

const QvbString RemoteHttpFileProvider::NODE_PROCESSJOB{"processjob"};
const QvbString RemoteHttpFileProvider::NODE_LINKS{"links"};
const QvbString RemoteHttpFileProvider::NODE_LINK{"link"};
const QvbString RemoteHttpFileProvider::ATTR_MODIFIEDDATE{"modifiedDate"};
const QvbString RemoteHttpFileProvider::ATTR_PATH{"path"};
const QvbString RemoteHttpFileProvider::ATTR_REL{"rel"};
const QvbString RemoteHttpFileProvider::ATTR_HREF{"href"};
const QvbString RemoteHttpFileProvider::ATTR_VALUE_SELF{"self"};
const QvbString RemoteHttpFileProvider::CONTENT_TYPE_TEXT{"text/plain"};
const QvbString RemoteHttpFileProvider::URI_QUERY_STRING{"?"};

RemoteHttpFileProvider::RemoteHttpFileProvider()
    : m_log("QV.FileAccessCache.HttpSystemProvider", "src/qvfilecacheimpl"),
      m_context(Released<QvSecurityContext>(getSecurityContext())) {
  if (!m_lock)
    m_log.critical("Failed to create file access cache lock");
}

RemoteHttpFileProvider::~RemoteHttpFileProvider() {
  m_context.reset();
  m_log.trace("Remote HTTP File cache provider, releasing resources...");
}

int RemoteHttpFileProvider::getResponseCodeFromHTTPResponseCode(int status) {
  const auto* const row =
      std::find_if(statusResults.begin(), statusResults.end(),
                   [&](const StatusResult& range) { return range.first <= status && status <= range.last; });
  return row == statusResults.end() ? NP_FIO_ERROR : row->result;
}

// A context that could not be made, since memory was short, is made when it is needed.
RemoteHttpFileProvider::Context RemoteHttpFileProvider::context() {
  const LockGuard guard(m_lock, LockRequest::Reader);
  if (!m_context)
    m_context = Released<QvSecurityContext>(getSecurityContext());
  return m_context;
}

RemoteHttpFileProvider::Description RemoteHttpFileProvider::keptRecord(const QvbString& name) const {
  const LockGuard guard(m_lock, LockRequest::Reader);
  const auto found = m_records.find(name);
  return found == m_records.end() ? std::nullopt : std::optional(found->second);
}

HTTPRemoteFileInfo RemoteHttpFileProvider::keepRecord(const QvbString& name, const QvbString& body) {
  const LockGuard guard(m_lock, LockRequest::Reader);
  const auto found = m_records.find(name);
  HTTPRemoteFileInfo record = found == m_records.end() ? HTTPRemoteFileInfo() : found->second;
  if (!body.isEmpty())
    populateFileInfo(&record, body);
  return m_records.insert_or_assign(name, std::move(record)).first->second;
}

bool RemoteHttpFileProvider::getTicket(ASSubject* subject, const QvbString& url, QvbString* ticket,
                                       QvbString* errorText) {
  const Context source = context();
  return source && source->getServiceTicket(subject, url, ticket, errorText);
}

void RemoteHttpFileProvider::renewTicket(ASSubject* subject, const QvbString& url) {
  const Context source = context();
  QvbString reason;
  if (source && !source->renew(subject, url, &reason))
    m_log.error("%s", reason);
}

HTTPRemoteFileInfo* RemoteHttpFileProvider::populateObjectEntry(ASSubject* subject, const QvbString& name,
                                                                QvbString* errorText, int* httpCode,
                                                                bool force) {
  return madeOrNull([&]() -> HTTPRemoteFileInfo* {
    if (!describe(subject, name, errorText, httpCode, force))
      return nullptr;
    const LockGuard guard(m_lock, LockRequest::Reader);
    const auto found = m_records.find(name);
    return found == m_records.end() ? nullptr : &found->second;
  });
}

RemoteHttpFileProvider::Description RemoteHttpFileProvider::describe(ASSubject* subject,
                                                                     const QvbString& name,
                                                                     QvbString* errorText, int* httpCode,
                                                                     bool force) {
  int retries = 0;
  return populateObjectEntry_IN(subject, name, errorText, httpCode, force, &retries);
}

RemoteHttpFileProvider::Description RemoteHttpFileProvider::populateObjectEntry_IN(ASSubject* subject,
                                                                                   const QvbString& name,
                                                                                   QvbString* errorText,
                                                                                   int* httpCode, bool force,
                                                                                   int* retries) {
  if (!force) {
    if (auto kept = keptRecord(name)) {
      m_log.trace("Updating cached HTTPInfo for: %s", name);
      return kept;
    }
  }
  QvbString ticket;
  if (!getDescriptionTicket(subject, name, &ticket, errorText))
    return std::nullopt;
  Released<httpResponse> response = requestDescription(name, ticket);
  if (!response)
    return keepRecord(name, QvbString());
  const int status = response->getStatusCode();
  if (!isHTTPError(status))
    return keepRecord(name, response->getBody().trim());

  if (mayRetry(status, retries)) {
    m_log.lifecycle("Trying to refetch, 401 encountered");
    response.reset();
    renewTicket(subject, name);
    return populateObjectEntry_IN(subject, name, errorText, httpCode, force, retries);
  }
  m_log.error("http error %d: %s, requesting %s", status, response->getStatusCodeMessage(), name);
  if (httpCode)
    *httpCode = getResponseCodeFromHTTPResponseCode(status);
  return std::nullopt;
}

bool RemoteHttpFileProvider::getDescriptionTicket(ASSubject* subject, const QvbString& name,
                                                  QvbString* ticket, QvbString* errorText) {
  m_log.trace("Fetching HTTPInfo for: %s", name);
  m_log.trace("Fetching service ticket for: %s", name);
  ErrorText error(errorText);
  if (!getTicket(subject, name, ticket, error.get())) {
    m_log.error("Unable to get service ticket to populate object for file %s: %s", name, *error.get());
    return false;
  }
  m_log.trace("Obtained service ticket for: %s", *ticket);
  return true;
}

Released<httpResponse> RemoteHttpFileProvider::requestDescription(const QvbString& name,
                                                                  const QvbString& ticket) const {
  const httpGet request{
      .url = urlOfDescription(name, ticket), .headers = {}, .contentType = CONTENT_TYPE_TEXT};
  m_log.trace("HTTP (GET) for: %s", request.url);
  return send(request);
}

// Whether a refusal is worth another attempt, which then counts as one.
bool RemoteHttpFileProvider::mayRetry(int status, int* retries) const {
  m_log.lifecycle("%d http error code, %d retries", status, *retries);
  if (status != unauthorized || *retries >= maxRetries)
    return false;
  ++*retries;
  return true;
}

QvDomNode RemoteHttpFileProvider::getChildNodeByName(const QvDomNode& parent, const QvbString& name,
                                                     const QvbString& attributeName,
                                                     const QvbString& attributeValue) {
  return findChildNamed(parent, name.view(), [&](const QvDomNode& child) {
    return attributeName.isNull() || child.getAttributeValue(attributeName) == attributeValue;
  });
}

void RemoteHttpFileProvider::populateFileInfo(HTTPRemoteFileInfo* record, const QvbString& body) {
  const QvbString any;
  QvDom document;
  if (!document.loadXML(body)) {
    // What there is no memory for is no broken document.
    if (lackedMemory(document))
      throw std::bad_alloc();
    return;
  }
  const QvDomNode root = document.getRoot();
  const QvDomNode job =
      isNamed(root, NODE_PROCESSJOB.view()) ? root : getChildNodeByName(root, NODE_PROCESSJOB, any, any);
  if (job.null())
    return;
  record->modifiedDate = qvbOrEmpty(job.getAttributeValue(ATTR_MODIFIEDDATE));
  record->path = qvbOrEmpty(job.getAttributeValue(ATTR_PATH));
  const QvDomNode links = getChildNodeByName(job, NODE_LINKS, any, any);
  QvDomNode self = getChildNodeByName(links, NODE_LINK, ATTR_REL, ATTR_VALUE_SELF);
  if (self.null())
    self = getChildNodeByName(links, NODE_LINKS, ATTR_REL, ATTR_VALUE_SELF);
  if (const QvbString link = self.getAttributeValue(ATTR_HREF); !link.isNull())
    record->contentLink = link;
}

bool RemoteHttpFileProvider::exists(ASSubject* subject, const QvbString& name, QvbString* errorText) {
  if (resultOr(false, [&] { return keptRecord(name) || describe(subject, name, errorText, nullptr, false); }))
    return true;
  m_log.lifecycle("Exists found no object entry for filename: %s", name);
  return false;
}

int RemoteHttpFileProvider::getModifiedDate(ASSubject* subject, const QvbString& name, QvbDate* date,
                                            QvbString* errorText, bool refresh) {
  const auto fetch = [&] { return fetchModifiedDate(subject, name, date, errorText, refresh); };
  return resultOr(NP_FIO_REFUSED, fetch);
}

int RemoteHttpFileProvider::fetchModifiedDate(ASSubject* subject, const QvbString& name, QvbDate* date,
                                              QvbString* errorText, bool refresh) {
  ErrorText error(errorText);
  int result = 0;
  auto record = refresh ? std::nullopt : keptRecord(name);
  if (refresh)
    m_log.trace("getModifiedDate forcing cache ignore for: %s", name);
  else
    m_log.trace("getModifiedDate using fetched cache if possible for: %s", name);
  if (record) {
    m_log.trace("getModifiedDate found cached date: %s", record->modifiedDate);
  } else if ((record = describe(subject, name, error.get(), &result, refresh))) {
    m_log.trace("getModifiedDate setting new date: %s", record->modifiedDate);
  } else {
    error.setIfEmpty("Unable to obtain modified date for file");
    m_log.error("%s: %s", *error.get(), name);
    if (result == 0)
      result = NP_FIO_ERROR;
  }
  assignDateObject(record ? record->modifiedDate : "", date);
  return result;
}

void RemoteHttpFileProvider::assignDateObject(const QvbString& text, QvbDate* date) {
  if (text.isEmpty()) {
    if (date)
      date->setNull();
    m_log.error("assignDateObject given invalid input of NULL");
    return;
  }
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, millisecond = 0;
  if (!qvs_string_to_date_milli(text.asCstr(), &year, &month, &day, &hour, &minute, &second, &millisecond, 2))
    m_log.error("assignDateObject: Unable to convert date string to object");
  else if (!date)
    m_log.error("assignDateObject: date assignment unable to complete, invalid inDate");
  else
    date->assign(year, month, day, hour, minute, second, millisecond);
}

int RemoteHttpFileProvider::updateLocalFileContent(ASSubject* subject, const QvbString& name,
                                                   const QvbString& localFilename, QvbString* errorText) {
  int retries = 0;
  return resultOr(NP_FIO_REFUSED, [&] {
    return updateLocalFileContent_IN(subject, name, localFilename, errorText, &retries);
  });
}

// The link to the content of a name, empty when there is none.
QvbString RemoteHttpFileProvider::contentLinkOf(ASSubject* subject, const QvbString& name,
                                                QvbString* errorText) {
  m_log.trace("fetching content for: %s", name);
  auto record = keptRecord(name);
  if (!record && !(record = describe(subject, name, errorText, nullptr, false))) {
    m_log.error("Unable to populate local file content for %s: %s", name, *errorText);
    return "";
  }
  return record->contentLink;
}

int RemoteHttpFileProvider::updateLocalFileContent_IN(ASSubject* subject, const QvbString& name,
                                                      const QvbString& localFilename, QvbString* errorText,
                                                      int* retries) {
  ErrorText error(errorText);
  const QvbString link = contentLinkOf(subject, name, error.get());
  if (link.isEmpty())
    return NP_FIO_ERROR;
  m_log.trace("fetching service ticket for: %s", link);
  QvbString ticket;
  if (!getTicket(subject, link, &ticket, error.get())) {
    error.setIfEmpty(qvbStringFormat("Error getting service ticket for service: %s", link));
    return NP_FIO_ERROR;
  }
  const QvbString url = qvbUrlWithTicket(link, '?', ticket);
  Released<httpResponse> response = requestContent(url);
  if (!response) {
    *error.get() = "Unavlid response from HTTP get";
    m_log.error("updateLocalFileContent: %s", *error.get());
    return NP_FIO_ERROR;
  }
  const int status = response->getStatusCode();
  if (!isHTTPError(status))
    return writeContent(name, localFilename, response->getBody(), error.get());

  if (mayRetry(status, retries)) {
    response.reset();
    renewTicket(subject, link);
    m_log.lifecycle("Got 401, retry content fetch");
    return updateLocalFileContent_IN(subject, name, localFilename, errorText, retries);
  }
  *error.get() =
      qvbStringFormat("http error %d: %s, requesting %s", status, response->getStatusCodeMessage(), url);
  m_log.error("%s", *error.get());
  return getResponseCodeFromHTTPResponseCode(status);
}

Released<httpResponse> RemoteHttpFileProvider::requestContent(const QvbString& url) const {
  httpGet request{.url = url, .headers = {}, .contentType = CONTENT_TYPE_TEXT};
  if (!tryAllocate([&] { request.headers.emplace_back("Accept", "application/vnd.zel.ProcessJob"); }))
    m_log.error("Unable to create post headers for http authentication.");
  m_log.trace("HTTP (GET) of content: %s", request.url);
  return send(request);
}

int RemoteHttpFileProvider::writeContent(const QvbString& name, const QvbString& localFilename,
                                         const QvbString& content, QvbString* errorText) {
  m_log.trace("Opening local file cache entry: %s", localFilename);
  NpFile* opened = nullptr;
  const int failed = np_fio_open(localFilename, NP_FIO_REPLACE, &opened);
  OpenFile file(opened);
  if (failed) {
    *errorText = qvbStringFormat("Error writing contents to local cache file (%s) for remote file (%s)",
                                 localFilename, name);
    m_log.error("%s", *errorText);
    return failed;
  }
  m_log.trace("Writing file cache entry contents: %s", localFilename);
  // A failed write is told to the log alone. Kept: HttpSource.LogsAFailedWriteAndKeepsTheOldCopy
  if (np_fio_puts(file.get(), content) < 0)
    m_log.lifecycle("We had an issue writing bytes to: %s", localFilename);
  np_fio_close(file.release());
  m_log.trace("Closing file cache entry: %s", localFilename);
  return 0;
}

bool RemoteHttpFileProvider::flush(bool) {
  m_log.trace("Flushing http cache provider");
  const LockGuard guard(m_lock, LockRequest::Reader);
  if (m_context) {
    m_log.trace("Flushing http cache provider security context");
    m_context.reset();
    m_context = madeOrNull([] { return Context(Released<QvSecurityContext>(getSecurityContext())); });
  }
  m_records.clear();
  return true;
}
