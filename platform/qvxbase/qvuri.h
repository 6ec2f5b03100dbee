// URI records.
//
// Syntax is that of RFC 3986: a text without a scheme is not a URI. Characters that a component may not hold
// are percent-encoded on the way in, accessors decode them, and any byte can stand in any component. Forms
// known beyond plain URIs:
//   repository object   qvr://<repository>/<path>?type=<ObjectType>
//   data                qvd://<server>/<data source>?type=&catalog=&schema=&table=&column= (qvf:// alike)
//   server reference    dmsref://<server>/<object path>?ServiceType=&ObjectType=
//   file                file:///a/b for an absolute path, file:a/b for a relative one
// Empty query components are left out. An empty repository gives qvr:///foundations?type=Folder.
//
// Every function that returns a QvURI makes a new record that the caller releases; the parts that a record
// hands out belong to it. A record is for one thread at a time.
#pragma once

#include "qvxbase/qvbstring.h"

// The repository form of a "qvr" URI.
class QVPLATFORM_API QvReposURI {
public:
  virtual QvbString getRepository() = 0;
  virtual QvbString getPath() = 0;       // without a leading "/"
  virtual QvbString getObjectName() = 0; // the last segment of the path
  virtual QvbString getObjectType() = 0;

protected:
  ~QvReposURI() = default;
};

// The data part: of a "qvd" or "qvf" URI, or, with object type and name alone, of a "qvr" URI.
class QVPLATFORM_API QvDataURI {
public:
  virtual QvbString getServer() = 0;
  virtual QvbString getDataSource() = 0;
  virtual QvbString getDataSourceType() = 0;
  virtual QvbString getCatalog() = 0;
  virtual QvbString getSchema() = 0;
  virtual QvbString getTable() = 0;
  virtual QvbString getColumn() = 0;
  virtual QvbString getObjectType() = 0;
  virtual QvbString getObjectName() = 0;
  // The whole URI's text.
  virtual QvbString asString() = 0;

protected:
  ~QvDataURI() = default;
};

class QVPLATFORM_API QvURI {
public:
  virtual void release() = 0;
  virtual QvbString getScheme() = 0;
  virtual QvbString getAuthority() = 0; // server, or repository of a "qvr" URI
  // Without a leading "/" for "qvr" and "dmsref", with it for the others that have an authority or an
  // absolute path.
  virtual QvbString getPath() = 0;
  // The text form: a parsed URI as it was given, a built one as it was built.
  virtual QvbString asString() = 0;
  // The text after syntax-based normalisation (RFC 3986, section 6.2.2).
  virtual QvbString getNormalizedString() = 0;
  // The value of a query parameter, null when it is absent.
  virtual QvbString getParameter(const QvbString& name) = 0;
  // Sets or replaces a query parameter. False, with a text in getErrorText(), for a name that is empty or
  // holds anything but letters, digits and "_".
  virtual bool setParameter(const QvbString& name, const QvbString& value) = 0;
  virtual QvbString getErrorText() = 0;
  // Null when the URI has no such form.
  virtual QvReposURI* getReposURI() = 0;
  virtual QvDataURI* getDataURI() = 0;

protected:
  ~QvURI() = default;
};

// Null when the text is not a URI.
QVPLATFORM_API QvURI* getURIFromURIString(const QvbString& text);
// Null for a scheme that is not one (RFC 3986, section 3.1). A "file" URI with an empty host and a relative
// path is built without "//".
QVPLATFORM_API QvURI* getURI(const QvbString& scheme, const QvbString& host, const QvbString& path);
// Null for an empty path. Leading "/" of the path are dropped.
QVPLATFORM_API QvURI* getReposURIFromComponents(const QvbString& repository, const QvbString& path,
                                                const QvbString& objectType);
// Null when server or path is empty. An empty object type leaves the parameter out.
QVPLATFORM_API QvURI* getDMSRefURIFromComponents(const QvbString& server, const QvbString& objectPath,
                                                 const QvbString& objectType);
// Null for a scheme other than "qvd" and "qvf" (any case) and for an empty data source.
QVPLATFORM_API QvURI* getDataURIFromComponents(const QvbString& scheme, const QvbString& server,
                                               const QvbString& dataSource, const QvbString& dataSourceType,
                                               const QvbString& catalog, const QvbString& schema,
                                               const QvbString& table, const QvbString& column);

struct QvDataURIComponents {
  QvbString scheme;
  QvbString server;
  QvbString dataSource;
  QvbString dataSourceType;
  QvbString catalog;
  QvbString schema;
  QvbString table;
  QvbString column;
};
// Reads exactly what getDataURIFromComponents writes, for every byte in every component; components that are
// absent become empty. False, with nothing written, for a text that is not a data URI.
QVPLATFORM_API bool getDataURIComponentsFromString(const QvbString& text, QvDataURIComponents* components);

// The native path of a "file" URI whose host is empty or "localhost": absolute or relative as the URI is.
// False, with nothing written, for every other URI.
QVPLATFORM_API bool getNativePath(QvURI* uri, QvbString* path);

// True, with the converted text in `out`, when the text holds a back slash; else false with `out` untouched.
QVPLATFORM_API bool convertBackSlashesToSlashes(const QvbString& in, QvbString* out);
