// The resources that an SQL step names, added to a list as the walk over the step (qvsqlstep.h) tells of them.
#pragma once

#include "qvreposres/qvresourcemgr.h"
#include "qvreposres/qvsqlstep.h"

// Adds what it is told of by the operations of a manager: what QvResourceManager::addSQLResourcesFromFile() and
// addSQLResourcesFromString() add. Whoever wants to know more of a step (why it cannot be read, which names are unusable)
// derives from it. Manager, factory and list stay their owners' and outlive it.
class QvSQLResourceAdder : public QvSQLStepVisitor {
public:
  // For one step, or for several after each other.
  QvSQLResourceAdder(QvResourceManager& manager, QvResourceFactory* factory, QvResourceList* list)
      : m_manager(manager), m_factory(factory), m_list(list) {}

  void visitConnection(const QvbString& name, const QvbString& type, const QvbString& connection) override {
    if (!name.isEmpty())
      addDataSource(connection, type);
  }
  void visitTableRead(QvSQLTableElement, const QvDataURIComponents& table, const QvbString&) override {
    addDataSource(table.dataSource, table.dataSourceType);
    addTable(table.dataSource, table.dataSourceType, table.catalog, table.schema, table.table);
  }
  // Known by its name alone, whatever connection came before it.
  // Kept: Scan.NamesASourceTableWithoutAURIByItsNameAlone
  void visitBareTableRead(QvSQLTableElement, const QvbString& table, const QvbString&) override {
    const QvbString none("");
    addTable(none, "ODBC", none, none, table);
  }
  // The connection has added the data source already, so that the table alone is left to add.
  void visitTableWritten(const QvbString& connection, const QvbString& catalog, const QvbString& schema,
                         const QvbString& table) override {
    addTable(connection, "", catalog, schema, table);
  }
  // Nothing is added for these.
  void visitUnusableName(const QvbString&, const QvbString&, const QvbString&) override {}
  void visitUnknownRoot(const QvbString&) override {}

protected:
  ~QvSQLResourceAdder() = default;

private:
  void addDataSource(QvbString dsn, QvbString type) {
    m_manager.addDataSourceResource(m_factory, m_list, dsn, type);
  }
  void addTable(QvbString dsn, QvbString type, QvbString catalog, QvbString schema, QvbString table) {
    m_manager.addTableResource(m_factory, m_list, dsn, type, catalog, schema, table);
  }

  QvResourceManager& m_manager;
  QvResourceFactory* m_factory;
  QvResourceList* m_list;
};
