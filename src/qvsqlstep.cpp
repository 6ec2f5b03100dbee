#include "qvreposres/qvsqlstep.h"

#include "qvresourcemgrimpl.h"
#include "qvsstr/qvsstr.h"
#include "qvxbase/qvbformat.h"
#include "qvxdom/qvdomelements.h"
#include "sqlstepwalk.h"

#include <algorithm>
#include <array>
#include <optional>

namespace {

using Names = QvResourceManagerImpl;

constexpr std::array sqlSteps{"QueryBuilderService",          "SQLCreateTableSelect",
                              "SQLInsertRowsSelect",          "SQLInsertRowsQueryReference",
                              "SQLCreateTableQueryReference", "SQLUpdateRows"};

bool isNamed(const QvDomElement& element, std::string_view name) {
  return qvbEqualsIgnoreCase(element.name, name);
}

bool isSQLStep(const QvDomElement& element) {
  return std::any_of(sqlSteps.begin(), sqlSteps.end(),
                     [&](const char* name) { return isNamed(element, name); });
}

// The value of the attribute of this name without regard to case, empty when there is none; the name as it is written
// here counts first.
QvbString attributeOf(const QvDomElement& element, const QvbString& name) {
  const auto& all = element.attributes;
  auto found = std::find_if(all.begin(), all.end(),
                            [&](const auto& attribute) { return attribute.name == name.view(); });
  if (found == all.end())
    found = std::find_if(all.begin(), all.end(), [&](const auto& attribute) {
      return qvbEqualsIgnoreCase(attribute.name, name.view());
    });
  return found == all.end() ? QvbString("") : QvbString(found->value);
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

void visitConnection(const QvDomElement& element, QvSQLStepVisitor& visitor, QvbString& connection) {
  const bool isTableServices = attributeOf(element, Names::DB_DAC_TYPE_String).find("QVTK") >= 0;
  const auto type = isTableServices ? QvbString("GRVS") : Names::ODBC_String;
  const auto name = attributeOf(element, Names::Name_String);
  connection = qvbStringFormat("DSN=%s;QVXTYPE=%s;", name, type);
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

void visitTableByURI(const QvDomElement& element, QvSQLTableElement kind, const QvbString& pathUri,
                     QvSQLStepVisitor& visitor) {
  QvDataURIComponents table;
  const bool isDataURI = getDataURIComponentsFromString(pathUri, &table);
  if (isDataURI && !table.dataSource.isEmpty() && !table.dataSourceType.isEmpty())
    visitor.visitTableRead(kind, table, attributeOf(element, Names::Name_String));
  if (const char* reason = refusalOf(table, isDataURI))
    visitor.visitUnusableName(QvbString(element.name), pathUri, reason);
}

void visitTable(const QvDomElement& element, QvSQLTableElement kind, QvSQLStepVisitor& visitor,
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

void visitTarget(const QvDomElement& element, QvSQLStepVisitor& visitor, const QvbString& connection) {
  const auto target = attributeOf(element, Names::TARGETNAME_String);
  if (target.isEmpty())
    return;
  const auto name = parseTableName(target);
  if (!name)
    visitor.visitUnusableName(QvbString(element.name), target, "is not catalog, schema and table");
  else if (name->table.isEmpty())
    visitor.visitUnusableName(QvbString(element.name), target, "names no table");
  else if (connection.isEmpty())
    visitor.visitUnusableName(QvbString(element.name), target, "has no connection before it");
  else
    visitor.visitTableWritten(connection, name->catalog, name->schema, name->table);
}

void visitElement(const QvDomElement& element, QvSQLStepVisitor& visitor, QvbString& connection) {
  if (isNamed(element, "DatabaseConnectionObject"))
    visitConnection(element, visitor, connection);
  else if (isNamed(element, "SourceTable"))
    visitTable(element, QvSQLTableElement::SourceTable, visitor, connection);
  else if (isNamed(element, "AliasTable"))
    visitTable(element, QvSQLTableElement::AliasTable, visitor, connection);
  else if (isNamed(element, "Create"))
    visitTarget(element, visitor, connection);
}

// Tells of the elements that it is told of, one after the other.
class StepWalk final : public QvDomElementVisitor {
public:
  StepWalk(QvSQLStepVisitor& visitor, QvbString& connection) : m_visitor(visitor), m_connection(connection) {}

  bool visitElement(const QvDomElement& element) override {
    ::visitElement(element, m_visitor, m_connection);
    return true;
  }

private:
  QvSQLStepVisitor& m_visitor;
  QvbString& m_connection;
};

// The same, from the root of a document on, which must be a step.
class DocumentWalk final : public QvDomElementVisitor {
public:
  explicit DocumentWalk(QvSQLStepVisitor& visitor) : m_visitor(visitor), m_walk(visitor, m_connection) {}

  bool visitElement(const QvDomElement& element) override {
    if (element.depth > 0)
      return m_walk.visitElement(element);
    const bool isStep = isSQLStep(element);
    if (!isStep)
      m_visitor.visitUnknownRoot(QvbString(element.name));
    return isStep;
  }

private:
  QvSQLStepVisitor& m_visitor;
  QvbString m_connection{""};
  StepWalk m_walk;
};

} // namespace

void walkSQLStep(const QvDom& document, QvSQLStepVisitor& visitor) {
  DocumentWalk walk(visitor);
  qvDomVisitElements(document.getRoot(), walk);
}

void walkSQLNodes(const QvDomNode& node, QvSQLStepVisitor& visitor, QvbString& connection) {
  StepWalk walk(visitor, connection);
  qvDomVisitElements(node, walk);
}

bool visitSQLStepInFile(const QvbString& path, QvSQLStepVisitor* visitor, QvbString* error) {
  DocumentWalk walk(*visitor);
  return qvDomVisitElementsOfFile(path, walk, error);
}

bool visitSQLStepInString(const QvbString& xml, QvSQLStepVisitor* visitor, QvbString* error) {
  DocumentWalk walk(*visitor);
  return qvDomVisitElements(xml, walk, error);
}
