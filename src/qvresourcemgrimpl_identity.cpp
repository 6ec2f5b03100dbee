// Resource identities and the connection strings that feed them.
#include "qvresourcemgrimpl.h"

#include "identity.h"
#include "qvreposres/qvreposobjecttypes.h"
#include "qvxbase/qvbpath.h"
#include "qvxdom/qvdomelements.h"

#include <array>
#include <initializer_list>
#include <new>
#include <string>

namespace {

struct IdentityKind {
  std::string_view documentClass;
  std::string_view element;
};

constexpr IdentityKind fileKind{"fileresource", "file"};
constexpr IdentityKind unifiedKind{"unifiedresource", "unified"};
constexpr IdentityKind tableKind{"tableresource", "tabledatasource"};
constexpr IdentityKind dataSourceKind{"datasourceresource", "datasource"};

enum class Presence { Always, UnlessEmpty };

struct IdentityPart {
  std::string_view attribute;
  const QvbString& value;
  Presence presence = Presence::Always;
};

constexpr std::size_t maxIdentityParts = 5;

struct IdentityOutput {
  std::string_view attribute;
  QvbString* value;
};

void appendAttribute(std::string& text, std::string_view name, const QvbString& value) {
  text.append(" ").append(name).append("=\"").append(qvDomEscapeAttribute(value).view()).append("\"");
}

// As QvDom writes such a document: null where that would be too large.
void writeIdentity(const IdentityKind& kind, std::initializer_list<IdentityPart> parts, QvbString* identity) {
  std::string text = "<morvaxeldocument class=\"";
  text.reserve(256);
  text.append(kind.documentClass).append("\" version=\"1\"><resource><").append(kind.element);
  for (const auto& part : parts)
    if (part.presence == Presence::Always || !part.value.isEmpty())
      appendAttribute(text, part.attribute, part.value);
  text += "/></resource></morvaxeldocument>";
  *identity = text.size() > QvDom::MaxSize ? QvbString() : QvbString(std::string_view(text));
}

// Finds the kind's element on the way along first children, and what it says; neither the root's name nor its attributes
// count.
// Kept: Identity.IsReadByItsInnerElementAlone
class IdentityReading final : public QvDomElementVisitor {
public:
  IdentityReading(const IdentityKind& kind, std::initializer_list<IdentityOutput> outputs)
      : m_kind(kind), m_outputs(outputs) {}

  bool visitElement(const QvDomElement& element) override {
    if (element.depth != m_level++)
      return false;
    if (!qvbEqualsIgnoreCase(element.name, m_kind.element))
      return true;
    m_isFound = true;
    for (const auto& attribute : element.attributes)
      for (std::size_t part = 0; part < m_outputs.size(); ++part)
        if (m_outputs.begin()[part].attribute == attribute.name)
          m_values[part] = QvbString(attribute.value);
    return false;
  }

  // What is missing or empty leaves its output as it was.
  bool give() {
    for (std::size_t part = 0; m_isFound && part < m_outputs.size(); ++part)
      if (!m_values[part].isEmpty())
        *m_outputs.begin()[part].value = m_values[part];
    return m_isFound;
  }

private:
  const IdentityKind& m_kind;
  std::initializer_list<IdentityOutput> m_outputs;
  std::array<QvbString, maxIdentityParts> m_values; // all are read before one is written: memory may be short
  std::size_t m_level = 0;
  bool m_isFound = false;
};

bool readIdentity(const QvbString& identity, const IdentityKind& kind,
                  std::initializer_list<IdentityOutput> outputs) {
  if (identity.isEmpty())
    return false;
  IdentityReading reading(kind, outputs);
  QvbString error;
  if (!qvDomVisitElements(identity, reading, &error) && error.view() == "out of memory")
    throw std::bad_alloc();
  return reading.give();
}

// The text between the key, found anywhere in the connection string, and the next ";".
bool readDsnValue(const QvbString& dsn, std::string_view key, QvbString* value) {
  // Kept: ConnectionString.GivesNameAndType
  const auto found = dsn.find(key);
  if (found < 0)
    return false;
  const auto start = found + static_cast<QvbString::Index>(key.size());
  const auto semicolon = dsn.find(";", start);
  const auto end = semicolon < 0 ? dsn.length() : semicolon;
  if (end <= start)
    return false;
  *value = dsn.mid(start, end - start);
  return true;
}

// As shortDsn(), by the operation of a manager: a derived one that reads connection strings in its own way makes its
// identities so, too.
QvbString shortDsnBy(QvResourceManager& manager, const QvbString& dsn) {
  QvbString name;
  return manager.generateShortDSN(dsn, &name) ? name : dsn;
}

} // namespace

bool readDsnName(const QvbString& dsn, QvbString* name) { return readDsnValue(dsn, "DSN=", name); }

bool readDsnType(const QvbString& dsn, QvbString* type) { return readDsnValue(dsn, "QVXTYPE=", type); }

QvbString shortDsn(const QvbString& dsn) {
  QvbString name;
  return readDsnName(dsn, &name) ? name : dsn;
}

bool makeTableIdentity(const DataSource& source, QvbString* identity) {
  if (source.table.isEmpty())
    return false;
  writeIdentity(tableKind,
                {{"dsn", source.name},
                 {"dsntype", source.type},
                 {"catalog", source.catalog, Presence::UnlessEmpty},
                 {"schema", source.schema, Presence::UnlessEmpty},
                 {"table", source.table}},
                identity);
  return true;
}

bool makeDataSourceIdentity(const DataSource& source, QvbString* identity) {
  if (source.name.isEmpty())
    return false;
  writeIdentity(dataSourceKind, {{"dsn", source.name}, {"dsntype", source.type}}, identity);
  return true;
}

bool readTableIdentity(const QvbString& identity, DataSource* source) {
  return readIdentity(identity, tableKind,
                      {{"dsn", &source->name},
                       {"dsntype", &source->type},
                       {"catalog", &source->catalog},
                       {"schema", &source->schema},
                       {"table", &source->table}});
}

bool readDataSourceIdentity(const QvbString& identity, DataSource* source) {
  return readIdentity(identity, dataSourceKind, {{"dsn", &source->name}, {"dsntype", &source->type}});
}

bool readFileIdentity(const QvbString& identity, QvbString* filename, QvbString* name) {
  return readIdentity(identity, fileKind, {{"filename", filename}, {"name", name}});
}

bool isUnifiedIdentity(const QvbString& identity) { return readIdentity(identity, unifiedKind, {}); }

bool QvResourceManagerImpl::generateFileResourceId(const QvbString& filename, QvbString& name,
                                                   QvbString* identity) {
  if (filename.isEmpty())
    return false;
  auto encodedName = name;
  if (encodedName.isEmpty())
    qvbParsePath(filename, nullptr, &encodedName);
  if (encodedName.isEmpty())
    encodedName = filename;
  QvbString text;
  writeIdentity(fileKind, {{"filename", filename}, {"name", encodedName}}, &text);
  name = encodedName;
  *identity = text;
  return true;
}

bool QvResourceManagerImpl::generateUnifiedObjectResourceId(const QvbString&, const QvbString& type,
                                                            const QvbString& id, const QvbString& uuid,
                                                            QvbString* identity) {
  if (id.isEmpty() && uuid.isEmpty())
    return false;
  writeIdentity(unifiedKind, {{"type", type}, {"id", id}, {"uuid", uuid}}, identity);
  return true;
}

bool QvResourceManagerImpl::generateTableDataSourceResourceId(const QvbString& dsn, const QvbString& dsntype,
                                                              const QvbString& catalog,
                                                              const QvbString& schema, const QvbString& table,
                                                              QvbString* identity) {
  return !table.isEmpty() &&
         makeTableIdentity({shortDsnBy(*this, dsn), dsntype, catalog, schema, table}, identity);
}

bool QvResourceManagerImpl::generateDataSourceResourceId(const QvbString& dsn, const QvbString& dsntype,
                                                         QvbString* identity) {
  return !dsn.isEmpty() &&
         makeDataSourceIdentity({.name = shortDsnBy(*this, dsn), .type = dsntype}, identity);
}

bool QvResourceManagerImpl::getFilenameFromResourceId(const QvbString& identity, QvbString* filename,
                                                      QvbString* name) {
  return readFileIdentity(identity, filename, name);
}

bool QvResourceManagerImpl::getUnifiedObjectFromResourceId(const QvbString& identity, QvbString*,
                                                           QvbString* type, QvbString* id, QvbString* uuid) {
  return readIdentity(identity, unifiedKind, {{"type", type}, {"id", id}, {"uuid", uuid}});
}

bool QvResourceManagerImpl::getTableObjectFromResourceId(const QvbString& identity, QvbString* dsn,
                                                         QvbString* dsntype, QvbString* catalog,
                                                         QvbString* schema, QvbString* table) {
  return readIdentity(
      identity, tableKind,
      {{"dsn", dsn}, {"dsntype", dsntype}, {"catalog", catalog}, {"schema", schema}, {"table", table}});
}

bool QvResourceManagerImpl::getDataSourceObjectFromResourceId(const QvbString& identity, QvbString* dsn,
                                                              QvbString* dsntype) {
  return readIdentity(identity, dataSourceKind, {{"dsn", dsn}, {"dsntype", dsntype}});
}

bool QvResourceManagerImpl::generateShortDSN(const QvbString& dsn, QvbString* shortDsn) {
  return getNameFromDSN(dsn, shortDsn);
}

bool QvResourceManagerImpl::getNameFromDSN(const QvbString& dsn, QvbString* name) {
  return readDsnName(dsn, name);
}

bool QvResourceManagerImpl::getDSNTypeFromDSN(const QvbString& dsn, QvbString* type) {
  return readDsnType(dsn, type);
}

bool QvResourceManagerImpl::getResourceTypeFromFilename(QvbString& filename, QvbString* name,
                                                        QvbString* type) {
  QvbString extension;
  QvbString folder;
  auto displayName = *name;
  auto objectType = *type;
  if (!getComponentsFromFilesystemPath(filename, &extension, &folder, &displayName) ||
      !getTypeForFileExtension(extension, &objectType))
    return false;
  if (qvbEqualsIgnoreCase(objectType.view(), "File") && !extension.isEmpty())
    displayName.append(".").append(extension);
  *name = displayName;
  *type = objectType;
  return true;
}
