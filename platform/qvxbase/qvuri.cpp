#include "qvxbase/qvuri.h"

#include "qvxbase/private/qvuritext.h"
#include "qvxbase/qvbformat.h"

#include <algorithm>
#include <utility>

namespace {

constexpr std::string_view repositoryScheme = "qvr";
constexpr std::string_view referenceScheme = "dmsref";
constexpr std::string_view fileScheme = "file";
constexpr const char* typeParameter = "type";

QvbString toText(const std::string& bytes) { return QvbString(std::string_view(bytes)); }
QvbString toText(const std::optional<std::string>& bytes) { return bytes ? toText(*bytes) : QvbString(); }

bool isDataScheme(std::string_view scheme) {
  return qvbEqualsIgnoreCase(scheme, "qvd") || qvbEqualsIgnoreCase(scheme, "qvf");
}

std::string_view withoutLeadingSlashes(std::string_view path) {
  return path.substr(std::min(path.find_first_not_of('/'), path.size()));
}

// What a record knows of its own form.
enum class Form { Plain, RepositoryObject, Data, ServerReference };

Form formOf(std::string_view scheme) {
  if (qvbEqualsIgnoreCase(scheme, repositoryScheme))
    return Form::RepositoryObject;
  if (qvbEqualsIgnoreCase(scheme, referenceScheme))
    return Form::ServerReference;
  return isDataScheme(scheme) ? Form::Data : Form::Plain;
}

// The repository form and the data part of a repository object.
class ObjectView final : public QvReposURI, public QvDataURI {
public:
  explicit ObjectView(QvURI& uri) : m_uri(uri) {}

  QvbString getRepository() override { return m_uri.getAuthority(); }
  QvbString getPath() override { return m_uri.getPath(); }
  QvbString getObjectName() override {
    const QvbString path = getPath();
    return path.mid(path.rfind("/") + 1);
  }
  QvbString getObjectType() override { return m_uri.getParameter(typeParameter); }
  QvbString getServer() override { return {}; }
  QvbString getDataSource() override { return {}; }
  QvbString getDataSourceType() override { return {}; }
  QvbString getCatalog() override { return {}; }
  QvbString getSchema() override { return {}; }
  QvbString getTable() override { return {}; }
  QvbString getColumn() override { return {}; }
  QvbString asString() override { return m_uri.asString(); }

private:
  QvURI& m_uri;
};

// The data part of a data source, a table or a column.
class DataView final : public QvDataURI {
public:
  explicit DataView(QvURI& uri) : m_uri(uri) {}

  QvbString getServer() override { return m_uri.getAuthority(); }
  QvbString getDataSource() override {
    const QvbString path = m_uri.getPath();
    return path.mid(path.view().starts_with('/') ? 1 : 0);
  }
  QvbString getDataSourceType() override { return m_uri.getParameter(typeParameter); }
  QvbString getCatalog() override { return m_uri.getParameter("catalog"); }
  QvbString getSchema() override { return m_uri.getParameter("schema"); }
  QvbString getTable() override { return m_uri.getParameter("table"); }
  QvbString getColumn() override { return m_uri.getParameter("column"); }
  QvbString getObjectType() override { return {}; }
  QvbString getObjectName() override { return {}; }
  QvbString asString() override { return m_uri.asString(); }

private:
  QvURI& m_uri;
};

constexpr std::string_view wordBytes = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_";

// What is wrong with the name of a parameter, null when nothing is.
QvbString parameterNameError(const QvbString& name) {
  if (name.isEmpty())
    return "The name of a URI parameter is empty.";
  if (name.view().find_first_not_of(wordBytes) != std::string_view::npos)
    return qvbStringFormat("The name of the URI parameter \"%s\" may hold letters, digits and \"_\" only.",
                           name);
  return {};
}

class UriRecord final : public QvURI {
public:
  explicit UriRecord(QvUriText text) : m_text(std::move(text)), m_form(formOf(m_text.scheme)) {}
  UriRecord(const UriRecord&) = delete;
  UriRecord& operator=(const UriRecord&) = delete;

  void release() override { delete this; }
  QvbString getScheme() override { return toText(m_text.scheme); }
  QvbString getAuthority() override {
    return m_text.authority ? toText(qvDecodeUri(*m_text.authority)) : QvbString();
  }
  QvbString getPath() override {
    const std::string path = qvDecodeUri(m_text.path);
    const bool rootless = m_form == Form::RepositoryObject || m_form == Form::ServerReference;
    return QvbString(rootless ? withoutLeadingSlashes(path) : std::string_view(path));
  }
  QvbString asString() override { return toText(m_text.toString()); }
  QvbString getNormalizedString() override { return toText(m_text.normalized()); }
  QvbString getParameter(const QvbString& name) override { return toText(m_text.parameter(name.view())); }
  bool setParameter(const QvbString& name, const QvbString& value) override {
    m_error = parameterNameError(name);
    if (!m_error.isNull())
      return false;
    m_text.setParameter(name.view(), value.view());
    return true;
  }
  QvbString getErrorText() override { return m_error; }
  QvReposURI* getReposURI() override { return m_form == Form::RepositoryObject ? &m_object : nullptr; }
  QvDataURI* getDataURI() override {
    if (m_form == Form::RepositoryObject)
      return &m_object;
    return m_form == Form::Data ? &m_data : nullptr;
  }

private:
  QvUriText m_text;
  Form m_form;
  QvbString m_error;
  ObjectView m_object{*this};
  DataView m_data{*this};
};

// A URI of the components, which are data throughout: a "%" is one more character.
QvUriText buildUri(std::string_view scheme, std::string_view authority, std::string_view path) {
  QvUriText text;
  text.scheme = scheme;
  text.authority = qvEncodeUriAuthority(authority, QvPercent::Literal);
  text.path = qvEncodeUriPath(path, QvPercent::Literal);
  if (!text.path.empty() && text.path.front() != '/')
    text.path.insert(0, 1, '/');
  return text;
}

void addParameter(QvUriText& text, const char* name, const QvbString& value) {
  if (!value.isEmpty())
    text.addParameter(name, value.view());
}

QvbString decoded(std::string_view encoded) {
  return encoded.find('%') == std::string_view::npos ? QvbString(encoded) : toText(qvDecodeUri(encoded));
}

// The query parameters of a data URI, in the order in which they are written.
struct DataParameter {
  std::string_view name;
  QvbString QvDataURIComponents::*value;
};
constexpr DataParameter dataParameters[] = {{typeParameter, &QvDataURIComponents::dataSourceType},
                                            {"catalog", &QvDataURIComponents::catalog},
                                            {"schema", &QvDataURIComponents::schema},
                                            {"table", &QvDataURIComponents::table},
                                            {"column", &QvDataURIComponents::column}};

// Of equal names the first one counts: the others find a value that is not null.
void readDataParameters(std::string_view query, QvDataURIComponents& components) {
  while (!query.empty()) {
    const auto parameter = QvUriParameter::take(query);
    for (const auto& known : dataParameters)
      if (QvbString& value = components.*known.value; value.isNull() && parameter.isNamed(known.name))
        value = decoded(parameter.value);
  }
  for (const auto& known : dataParameters)
    if (QvbString& value = components.*known.value; value.isNull())
      value = "";
}

// Empty where there is no such URI.
std::string dataUriText(const QvDataURIComponents& components) {
  if (!isDataScheme(components.scheme.view()) || components.dataSource.isEmpty())
    return {};
  std::string text;
  text.reserve(128);
  text.append(components.scheme.view()).append("://");
  if (!components.server.isEmpty())
    text += qvEncodeUriAuthority(components.server.view(), QvPercent::Literal);
  text += '/';
  qvAppendUriName(text, components.dataSource.view());
  char separator = '?';
  for (const auto& parameter : dataParameters) {
    const auto value = (components.*parameter.value).view();
    if (value.empty())
      continue;
    text += separator;
    text.append(parameter.name) += '=';
    qvAppendUriName(text, value);
    separator = '&';
  }
  return text;
}

} // namespace

bool isURIReference(const QvbString& text) {
  return !qvUriSchemeOf(text.view()).empty() && text.find("://") >= 0;
}

QvURI* getURIFromURIString(const QvbString& text) {
  auto parsed = QvUriText::parse(text.view());
  return parsed ? new UriRecord(std::move(*parsed)) : nullptr;
}

QvURI* getURI(const QvbString& scheme, const QvbString& host, const QvbString& path) {
  if (!qvIsUriScheme(scheme.view()))
    return nullptr;
  QvUriText text = buildUri(scheme.view(), host.view(), path.view());
  if (qvbEqualsIgnoreCase(scheme.view(), fileScheme) && host.isEmpty() && !path.view().starts_with('/')) {
    text.authority.reset();
    text.path = qvEncodeUriPath(path.view(), QvPercent::Literal);
  }
  return new UriRecord(std::move(text));
}

QvURI* getReposURIFromComponents(const QvbString& repository, const QvbString& path,
                                 const QvbString& objectType) {
  const auto objectPath = withoutLeadingSlashes(path.view());
  if (objectPath.empty())
    return nullptr;
  QvUriText text = buildUri(repositoryScheme, repository.view(), objectPath);
  addParameter(text, typeParameter, objectType);
  return new UriRecord(std::move(text));
}

QvURI* getDMSRefURIFromComponents(const QvbString& server, const QvbString& objectPath,
                                  const QvbString& objectType) {
  const auto path = withoutLeadingSlashes(objectPath.view());
  if (server.isEmpty() || path.empty())
    return nullptr;
  QvUriText text = buildUri(referenceScheme, server.view(), path);
  addParameter(text, "ObjectType", objectType);
  return new UriRecord(std::move(text));
}

QvURI* getDataURIFromComponents(const QvbString& scheme, const QvbString& server, const QvbString& dataSource,
                                const QvbString& dataSourceType, const QvbString& catalog,
                                const QvbString& schema, const QvbString& table, const QvbString& column) {
  auto text = QvUriText::parse(
      dataUriText({scheme, server, dataSource, dataSourceType, catalog, schema, table, column}));
  return text ? new UriRecord(std::move(*text)) : nullptr;
}

QvbString getDataURIString(const QvDataURIComponents& components) {
  const std::string text = dataUriText(components);
  return text.empty() ? QvbString() : toText(text);
}

bool getDataURIComponentsFromString(const QvbString& text, QvDataURIComponents* components) {
  const auto uri = QvUriRanges::of(text.view());
  if (!uri || !isDataScheme(uri->scheme))
    return false;
  QvDataURIComponents read;
  read.scheme = QvbString(uri->scheme);
  read.server = decoded(uri->authority.value_or(""));
  const QvbString path = decoded(uri->path);
  read.dataSource = path.mid(path.view().starts_with('/') ? 1 : 0);
  readDataParameters(uri->query.value_or(""), read);
  *components = std::move(read);
  return true;
}

// A path that holds a zero byte names no file: the operating system would read another path.
bool getNativePath(QvURI* uri, QvbString* path) {
  if (!uri || !qvbEqualsIgnoreCase(uri->getScheme().view(), fileScheme))
    return false;
  const QvbString host = uri->getAuthority();
  const QvbString native = uri->getPath();
  const bool local = host.isEmpty() || qvbEqualsIgnoreCase(host.view(), "localhost");
  if (!local || native.view().find('\0') != std::string_view::npos)
    return false;
  *path = native;
  return true;
}

bool convertBackSlashesToSlashes(const QvbString& in, QvbString* out) {
  std::string converted(in.view());
  if (converted.find('\\') == std::string::npos)
    return false;
  std::ranges::replace(converted, '\\', '/');
  *out = toText(converted);
  return true;
}
