// Resource identities and the connection strings that feed them.
#include "qvresourcemgrimpl.h"

#include "identity.h"
#include "qvreposres/qvreposobjecttypes.h"
#include "qvxbase/qvbpath.h"
#include "qvxdom/qvdomelements.h"

#include <algorithm>
#include <array>
#include <initializer_list>
#include <new>
#include <optional>
#include <span>
#include <utility>

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

// What stands around the attributes, with a kind's class and element in between.
constexpr std::string_view beforeClass = "<morvaxeldocument class=\"";
constexpr std::string_view beforeElement = "\" version=\"1\"><resource><";
constexpr std::string_view afterAttributes = "/></resource></morvaxeldocument>";

// As QvDom writes such a document: null where that would be too large.
void writeIdentity(const IdentityKind& kind, std::initializer_list<IdentityPart> parts, QvbString* identity) {
  std::array<QvbString, maxIdentityParts> values;
  std::array<std::string_view, 5 + 5 * maxIdentityParts> pieces{beforeClass, kind.documentClass,
                                                                beforeElement, kind.element};
  std::size_t count = 4;
  std::size_t size = 0;
  auto* value = values.begin();
  for (const auto& part : parts) {
    if (part.presence == Presence::UnlessEmpty && part.value.isEmpty())
      continue;
    *value = qvDomEscapeAttribute(part.value);
    for (const auto piece : {std::string_view(" "), part.attribute, std::string_view("=\""),
                             (value++)->view(), std::string_view("\"")})
      pieces[count++] = piece;
  }
  pieces[count++] = afterAttributes;
  for (const auto piece : pieces)
    size += piece.size();
  *identity = size > QvDom::MaxSize ? QvbString() : QvbString::joined(std::span(pieces).first(count));
}

// What an identity of a kind says, found before any of it is given: memory may be short.
class IdentityValues {
public:
  IdentityValues(const IdentityKind& kind, std::initializer_list<IdentityOutput> outputs)
      : m_kind(kind), m_outputs(outputs) {}

  const IdentityKind& kind() const { return m_kind; }
  std::initializer_list<IdentityOutput> outputs() const { return m_outputs; }
  void set(std::size_t part, std::string_view value) { m_values[part] = QvbString(value); }

  // What is missing or empty leaves its output as it was.
  void give() {
    for (std::size_t part = 0; part < m_outputs.size(); ++part)
      if (!m_values[part].isEmpty())
        *m_outputs.begin()[part].value = std::move(m_values[part]);
  }

private:
  const IdentityKind& m_kind;
  std::initializer_list<IdentityOutput> m_outputs;
  std::array<QvbString, maxIdentityParts> m_values;
};

// Finds the kind's element on the way along first children, and what it says; neither the root's name nor its attributes
// count.
// Kept: Identity.IsReadByItsInnerElementAlone
class IdentityReading final : public QvDomElementVisitor {
public:
  explicit IdentityReading(IdentityValues& values) : m_values(values) {}

  bool visitElement(const QvDomElement& element) override {
    if (element.depth != m_level++)
      return false;
    if (!qvbEqualsIgnoreCase(element.name, m_values.kind().element))
      return true;
    m_isFound = true;
    for (const auto& attribute : element.attributes)
      take(attribute);
    return false;
  }

  bool isFound() const { return m_isFound; }

private:
  void take(const QvDomElementAttribute& attribute) {
    std::size_t part = 0;
    for (const auto& output : m_values.outputs()) {
      if (output.attribute == attribute.name)
        m_values.set(part, attribute.value);
      ++part;
    }
  }

  IdentityValues& m_values;
  std::size_t m_level = 0;
  bool m_isFound = false;
};

bool takes(std::string_view& text, std::string_view expected) {
  const bool isExpected = text.starts_with(expected);
  text.remove_prefix(isExpected ? expected.size() : 0);
  return isExpected;
}

// Whether a byte in the value of an attribute means itself, wherever it stands.
bool isPlainInValue(char byte) { return byte >= ' ' && byte < '\x7F' && byte != '&' && byte != '<'; }

// The value up to its closing quote; nothing for one that is not plain.
std::optional<std::string_view> takePlainValue(std::string_view& text) {
  const auto value = text.substr(0, text.find('"'));
  if (value.size() == text.size() || !std::ranges::all_of(value, isPlainInValue))
    return std::nullopt;
  text.remove_prefix(value.size() + 1);
  return value;
}

// Reads an identity of exactly the form in which writeIdentity() writes most of them, and tells whether it is one. Every
// other text is left to the XML reader, which gives to this form the same meaning.
bool readAsWritten(std::string_view text, IdentityValues& values) {
  if (text.size() > QvDom::MaxSize || !takes(text, beforeClass) ||
      !takes(text, values.kind().documentClass) || !takes(text, beforeElement) ||
      !takes(text, values.kind().element))
    return false;
  std::size_t part = 0;
  for (const auto& output : values.outputs()) {
    auto rest = text;
    if (takes(rest, " ") && takes(rest, output.attribute) && takes(rest, "=\"")) {
      const auto value = takePlainValue(rest);
      if (!value)
        return false;
      values.set(part, *value);
      text = rest;
    }
    ++part;
  }
  return text == afterAttributes;
}

bool readIdentity(const QvbString& identity, const IdentityKind& kind,
                  std::initializer_list<IdentityOutput> outputs) {
  if (identity.isEmpty())
    return false;
  if (IdentityValues values(kind, outputs); readAsWritten(identity.view(), values)) {
    values.give();
    return true;
  }
  IdentityValues values(kind, outputs);
  IdentityReading reading(values);
  QvbString error;
  if (!qvDomVisitElements(identity, reading, &error) && error.view() == "out of memory")
    throw std::bad_alloc();
  if (reading.isFound())
    values.give();
  return reading.isFound();
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

void makeTableIdentity(const DataSource& source, QvbString* identity) {
  writeIdentity(tableKind,
                {{"dsn", source.name},
                 {"dsntype", source.type},
                 {"catalog", source.catalog, Presence::UnlessEmpty},
                 {"schema", source.schema, Presence::UnlessEmpty},
                 {"table", source.table}},
                identity);
}

void makeDataSourceIdentity(const DataSource& source, QvbString* identity) {
  writeIdentity(dataSourceKind, {{"dsn", source.name}, {"dsntype", source.type}}, identity);
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
  if (table.isEmpty())
    return false;
  makeTableIdentity({shortDsnBy(*this, dsn), dsntype, catalog, schema, table}, identity);
  return true;
}

bool QvResourceManagerImpl::generateDataSourceResourceId(const QvbString& dsn, const QvbString& dsntype,
                                                         QvbString* identity) {
  if (dsn.isEmpty())
    return false;
  makeDataSourceIdentity({.name = shortDsnBy(*this, dsn), .type = dsntype}, identity);
  return true;
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
