#include "qvreposres/qvsqlstep.h"

#include "domchildren.h"
#include "qvresourcemgrimpl.h"
#include "qvsstr/qvsstr.h"
#include "qvxbase/qvbformat.h"
#include "sqlstepwalk.h"

#include <algorithm>
#include <array>
#include <optional>

namespace {

using Names = QvResourceManagerImpl;

constexpr std::array sqlSteps{"QueryBuilderService",          "SQLCreateTableSelect",
                              "SQLInsertRowsSelect",          "SQLInsertRowsQueryReference",
                              "SQLCreateTableQueryReference", "SQLUpdateRows"};

bool isSQLStep(const QvDomNode& element) {
  return std::any_of(sqlSteps.begin(), sqlSteps.end(),
                     [&](const char* name) { return isNamed(element, name); });
}

// The value of the attribute of this name without regard to case, empty when there is none; the name as it is written
// here counts first.
QvbString attributeOf(const QvDomNode& element, const QvbString& name) {
  auto value = element.getAttributeValue(name);
  QvbString other;
  for (int i = 0; value.isNull() && element.getAttributeNameValue(i, &other, nullptr); ++i)
    if (qvbEqualsIgnoreCase(other.view(), name.view()))
      element.getAttributeNameValue(i, nullptr, &value);
  return value.isNull() ? QvbString("") : value;
}

struct TableName {
  QvbString catalog;
  QvbString schema;
  QvbString table;
};

// Splits "catalog.schema.table", of which the table alone is needed; a part in double quotes may hold dots. Nothing when
// the text has more parts or is too long to be a name.
std::optional<TableName> parseTableName(const QvbString& text) {
  std::array<char, 1024> buffer;
  std::array<char*, 3> fields;
  const int count = qvs_parse_text_ex2(text.asCstr(), '.', '"', buffer.data(), buffer.size(), fields.data(),
                                       static_cast<int>(fields.size()));
  if (count < 0)
    return std::nullopt;
  const auto fromEnd = [&](int place) {
    return place <= count ? QvbString(fields[static_cast<std::size_t>(count - place)]) : QvbString("");
  };
  return TableName{.catalog = fromEnd(3), .schema = fromEnd(2), .table = fromEnd(1)};
}

void visitConnection(const QvDomNode& element, QvSQLStepVisitor& visitor, QvbString& connection) {
  const bool isTableServices = attributeOf(element, Names::DB_DAC_TYPE_String).find("QVTK") >= 0;
  const auto type = isTableServices ? QvbString("GRVS") : Names::ODBC_String;
  const auto name = attributeOf(element, Names::Name_String);
  connection = qvbStringFormat("DSN=%S;QVXTYPE=%S;", &name, &type);
  visitor.visitConnection(name, type, connection);
}

// Why the table's URI cannot be used, null when it can be.
const char* refusalOf(const QvDataURIComponents& table, bool isDataURI) {
  if (!isDataURI)
    return "is no data URI";
  if (table.dataSource.isEmpty())
    return "names no data source";
  if (table.dataSourceType.isEmpty())
    return "names no type of its data source";
  return table.table.isEmpty() ? "names no table" : nullptr;
}

void visitTableByURI(const QvDomNode& element, QvSQLTableElement kind, const QvbString& pathUri,
                     QvSQLStepVisitor& visitor) {
  QvDataURIComponents table;
  const bool isDataURI = getDataURIComponentsFromString(pathUri, &table);
  if (isDataURI && !table.dataSource.isEmpty() && !table.dataSourceType.isEmpty())
    visitor.visitTableRead(kind, table, attributeOf(element, Names::Name_String));
  if (const char* reason = refusalOf(table, isDataURI))
    visitor.visitUnusableName(element.getName(), pathUri, reason);
}

void visitTable(const QvDomNode& element, QvSQLTableElement kind, QvSQLStepVisitor& visitor,
                const QvbString& connection) {
  const auto pathUri = attributeOf(element, Names::PATHURI_String);
  if (!pathUri.isEmpty()) {
    visitTableByURI(element, kind, pathUri, visitor);
    return;
  }
  const auto table = attributeOf(element, Names::Name_String);
  if (!table.isEmpty())
    visitor.visitBareTableRead(kind, table, connection);
}

void visitTarget(const QvDomNode& element, QvSQLStepVisitor& visitor, const QvbString& connection) {
  const auto target = attributeOf(element, Names::TARGETNAME_String);
  if (target.isEmpty())
    return;
  const auto name = parseTableName(target);
  if (!name)
    visitor.visitUnusableName(element.getName(), target, "is not catalog, schema and table");
  else if (name->table.isEmpty())
    visitor.visitUnusableName(element.getName(), target, "names no table");
  else if (connection.isEmpty())
    visitor.visitUnusableName(element.getName(), target, "has no connection before it");
  else
    visitor.visitTableWritten(connection, name->catalog, name->schema, name->table);
}

void visitElement(const QvDomNode& element, QvSQLStepVisitor& visitor, QvbString& connection) {
  if (isNamed(element, "DatabaseConnectionObject"))
    visitConnection(element, visitor, connection);
  else if (isNamed(element, "SourceTable"))
    visitTable(element, QvSQLTableElement::SourceTable, visitor, connection);
  else if (isNamed(element, "AliasTable"))
    visitTable(element, QvSQLTableElement::AliasTable, visitor, connection);
  else if (isNamed(element, "Create"))
    visitTarget(element, visitor, connection);
}

bool walkLoaded(bool isLoaded, const QvDom& document, QvSQLStepVisitor& visitor, QvbString* error) {
  if (isLoaded)
    walkSQLStep(document, visitor);
  else if (error)
    *error = document.getErrorMessage();
  return isLoaded;
}

} // namespace

void walkSQLStep(const QvDom& document, QvSQLStepVisitor& visitor) {
  const auto root = document.getRoot();
  if (!isSQLStep(root)) {
    visitor.visitUnknownRoot(root.getName());
    return;
  }
  QvbString connection("");
  walkSQLNodes(root.getFirstChild(false), visitor, connection);
}

// Siblings are a loop, so that their number costs no stack; the depth of a document is limited by its reader.
void walkSQLNodes(const QvDomNode& node, QvSQLStepVisitor& visitor, QvbString& connection) {
  for (auto element = node; !element.null(); element = element.getNextSibling(false)) {
    visitElement(element, visitor, connection);
    walkSQLNodes(element.getFirstChild(false), visitor, connection);
  }
}

bool visitSQLStepInFile(const QvbString& path, QvSQLStepVisitor* visitor, QvbString* error) {
  QvDom document;
  return walkLoaded(document.loadFile(path), document, *visitor, error);
}

bool visitSQLStepInString(const QvbString& xml, QvSQLStepVisitor* visitor, QvbString* error) {
  QvDom document;
  return walkLoaded(document.loadXML(xml), document, *visitor, error);
}
