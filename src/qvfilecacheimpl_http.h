// The cache's source for "http" and "https": process jobs that a web service publishes.
//
// A remote name answers with a small XML description (modification date, path, link to the content), which is kept until
// flush; the content comes from the link. Every request carries a service ticket of its own; a request that is answered
// with 401 is repeated with a fresh one, up to three times. Operations may be called from any thread, and fail when memory
// is short; no lock is held during a request.
#pragma once

#include "guards.h"
#include "qvreposres/qvfilecache.h"
#include "qvxdom/qvdom.h"
#include "qvxhttp/qvsecuritycontext.h"
#include "qvxhttp/qvxhttp.h"
#include "qvxlog/qvlog.h"

#include <map>
#include <memory>
#include <optional>

// One fetched description.
struct HTTPRemoteFileInfo {
  QvbString reserved{""};
  QvbString contentLink{""};
  QvbString modifiedDate{""};
  QvbString path{""};
};

class QVREPOSRES_API RemoteHttpFileProvider : public FileAccessCacheSourceProvider {
public:
  static const QvbString NODE_PROCESSJOB;
  static const QvbString NODE_LINKS;
  static const QvbString NODE_LINK;
  static const QvbString ATTR_MODIFIEDDATE;
  static const QvbString ATTR_PATH;
  static const QvbString ATTR_REL;
  static const QvbString ATTR_HREF;
  static const QvbString ATTR_VALUE_SELF;
  static const QvbString CONTENT_TYPE_TEXT;
  static const QvbString URI_QUERY_STRING;

  RemoteHttpFileProvider();
  ~RemoteHttpFileProvider() override;
  RemoteHttpFileProvider(const RemoteHttpFileProvider&) = delete;
  RemoteHttpFileProvider& operator=(const RemoteHttpFileProvider&) = delete;

  void release() override { delete this; }
  bool exists(ASSubject* subject, const QvbString& name, QvbString* errorText) override;
  int getModifiedDate(ASSubject* subject, const QvbString& name, QvbDate* date, QvbString* errorText,
                      bool refresh) override;
  int updateLocalFileContent(ASSubject* subject, const QvbString& name, const QvbString& localFilename,
                             QvbString* errorText) override;
  bool flush(bool flag) override;

  // The description of a name: the one that is kept, or (none kept, or force) a fetched one. It stays the provider's,
  // until it is flushed or ends, and follows every later fetch. Null when the service refuses, with its mapped status in
  // `httpCode` (optional).
  HTTPRemoteFileInfo* populateObjectEntry(ASSubject* subject, const QvbString& name, QvbString* errorText,
                                          int* httpCode, bool force);
  // Takes from the document what it holds; a text that is no document changes nothing.
  static void populateFileInfo(HTTPRemoteFileInfo* record, const QvbString& body);
  // The first child of that name and, unless the attribute's name is null, with that value of that attribute.
  static QvDomNode getChildNodeByName(const QvDomNode& parent, const QvbString& name,
                                      const QvbString& attributeName, const QvbString& attributeValue);
  // ISO 8601; a text that is no date leaves the date as it was, an empty one makes it null.
  void assignDateObject(const QvbString& text, QvbDate* date);

  // The small result code of an HTTP status: 0 for success.
  static int getResponseCodeFromHTTPResponseCode(int status);
  static bool isHTTPError(int status) { return getResponseCodeFromHTTPResponseCode(status) != 0; }

private:
  using Context = std::shared_ptr<QvSecurityContext>;
  using Description = std::optional<HTTPRemoteFileInfo>; // a copy, for whoever holds no lock

  QVREPOSRES_HIDDEN Description describe(ASSubject* subject, const QvbString& name, QvbString* errorText,
                                         int* httpCode, bool force);
  QVREPOSRES_HIDDEN Description populateObjectEntry_IN(ASSubject* subject, const QvbString& name,
                                                       QvbString* errorText, int* httpCode, bool force,
                                                       int* retries);
  QVREPOSRES_HIDDEN int fetchModifiedDate(ASSubject* subject, const QvbString& name, QvbDate* date,
                                          QvbString* errorText, bool refresh);
  QVREPOSRES_HIDDEN int updateLocalFileContent_IN(ASSubject* subject, const QvbString& name,
                                                  const QvbString& localFilename, QvbString* errorText,
                                                  int* retries);
  QVREPOSRES_HIDDEN Description keptRecord(const QvbString& name) const;
  QVREPOSRES_HIDDEN HTTPRemoteFileInfo keepRecord(const QvbString& name, const QvbString& body);
  QVREPOSRES_HIDDEN QvbString contentLinkOf(ASSubject* subject, const QvbString& name, QvbString* errorText);
  QVREPOSRES_HIDDEN int writeContent(const QvbString& name, const QvbString& localFilename,
                                     const QvbString& content, QvbString* errorText);
  QVREPOSRES_HIDDEN bool getDescriptionTicket(ASSubject* subject, const QvbString& name, QvbString* ticket,
                                              QvbString* errorText);
  QVREPOSRES_HIDDEN bool getTicket(ASSubject* subject, const QvbString& url, QvbString* ticket,
                                   QvbString* errorText);
  QVREPOSRES_HIDDEN void renewTicket(ASSubject* subject, const QvbString& url);
  QVREPOSRES_HIDDEN Released<httpResponse> requestDescription(const QvbString& name,
                                                              const QvbString& ticket) const;
  QVREPOSRES_HIDDEN Released<httpResponse> requestContent(const QvbString& url) const;
  QVREPOSRES_HIDDEN bool mayRetry(int status, int* retries) const;
  QVREPOSRES_HIDDEN Context context();

  QvLog m_log;
  mutable Lock m_lock;
  std::map<QvbString, HTTPRemoteFileInfo> m_records QVB_GUARDED_BY(m_lock);
  Context m_context QVB_GUARDED_BY(m_lock); // shared with requests under way, which a flush does not wait for
};
