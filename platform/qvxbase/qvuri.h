// URI records.
//
// Syntax is that of RFC 3986: every text that begins with a scheme and a colon is a URI, and no other. One
// letter before the colon is a drive ("C:\jobs"), not a scheme. Characters that their place does not allow,
// and a "%" that two hexadecimal digits do not follow, are percent-encoded on the way in; an authority that is
// not user@host:port is a name as a whole. Accessors decode, and any byte can stand in any component. A "+" is
// a "+", in queries too. Forms known beyond plain URIs:
//   repository object   qvr://<repository>/<path>?type=<ObjectType>
//   data                qvd://<server>/<data source>?type=&catalog=&schema=&table=&column= (qvf:// alike)
//   server reference    dmsref://<server>/<object path>?ServiceType=&ObjectType=
//   file                file:///a/b for an absolute path, file:a/b for a relative one
// Empty query components are left out. An empty repository gives qvr:///foundations?type=Folder. Schemes are
// compared without regard to case, names of query parameters with it; of equal names the first one counts.
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

// The data part: of a "qvd" or "qvf" URI, or, with object type and name alone, of a "qvr" URI. What a URI does
// not say is null.
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
  // The server, or the repository of a "qvr" URI; null when the URI has none, as in "file:a/b".
  virtual QvbString getAuthority() = 0;
  // Without a leading "/" for "qvr" and "dmsref", with it for the others that have an authority or an
  // absolute path.
  virtual QvbString getPath() = 0;
  // The text form: a parsed URI as it was given, but for what had to be encoded, a built one as it was built.
  virtual QvbString asString() = 0;
  // The text after syntax-based normalisation (RFC 3986, section 6.2.2): scheme and host in lower case, no
  // needless encoding, no dot segments. A path without a root keeps its leading ".." ("file:../a").
  virtual QvbString getNormalizedString() = 0;
  // The value of a query parameter, null when it is absent.
  virtual QvbString getParameter(const QvbString& name) = 0;
  // Sets a query parameter, or replaces it where it stands. False, with a text that names the parameter in
  // getErrorText(), for a name that is empty or holds anything but letters, digits and "_".
  virtual bool setParameter(const QvbString& name, const QvbString& value) = 0;
  // Why the latest setParameter() failed, null when it did not.
  virtual QvbString getErrorText() = 0;
  // Null when the URI has no such form.
  virtual QvReposURI* getReposURI() = 0;
  virtual QvDataURI* getDataURI() = 0;

protected:
  ~QvURI() = default;
};

// Whether a text that may be a path or a URI counts as a URI: it begins with a scheme and holds "://". A file name with a
// colon in it ("load:1.djf") is a path, though it would parse.
QVPLATFORM_API bool isURIReference(const QvbString& text);
// Null when the text is not a URI.
QVPLATFORM_API QvURI* getURIFromURIString(const QvbString& text);
// Null for a scheme that is not one (RFC 3986, section 3.1, two characters at least). A "file" URI with an
// empty host and a relative path is built without "//"; in every other a "/" is put before a relative path.
QVPLATFORM_API QvURI* getURI(const QvbString& scheme, const QvbString& host, const QvbString& path);
// Null for an empty path. Leading "/" of the path are dropped.
QVPLATFORM_API QvURI* getReposURIFromComponents(const QvbString& repository, const QvbString& path,
                                                const QvbString& objectType);
// Null when server or path is empty. Leading "/" of the path are dropped. An empty object type leaves the
// parameter out.
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
// The text of the URI that getDataURIFromComponents() makes of these, without a record of it; null where it makes none.
QVPLATFORM_API QvbString getDataURIString(const QvDataURIComponents& components);
// Reads exactly what getDataURIFromComponents writes, for every byte in every component; components that are
// absent become empty. False, with nothing written, for a text that is not a "qvd" or "qvf" URI.
QVPLATFORM_API bool getDataURIComponentsFromString(const QvbString& text, QvDataURIComponents* components);

// The native path of a "file" URI whose host is empty or "localhost": absolute or relative as the URI is.
// False, with nothing written, for every other URI, for null and for a path with a zero byte, which no file
// has.
QVPLATFORM_API bool getNativePath(QvURI* uri, QvbString* path);

// True, with the converted text in `out`, when the text holds a back slash; else false with `out` untouched.
QVPLATFORM_API bool convertBackSlashesToSlashes(const QvbString& in, QvbString* out);
