// What an SQL step reads and writes, told to a visitor as it is met.
//
// The walk is the one by which the resource manager (qvresourcemgr.h) finds resources: steps, elements and attributes
// are known by their names without regard to case, and a connection counts for all that comes after it in the document.
#pragma once

#include "qvreposres/export.h"
#include "qvxbase/qvuri.h"

// The elements that name a table to be read.
enum class QvSQLTableElement { SourceTable, AliasTable };

// Implemented by the host. Called on the thread that walks, in document order, with texts that are good until the call
// returns.
class QVREPOSRES_API QvSQLStepVisitor {
public:
  // A connection: its name, which may be empty, its type ("ODBC" or "GRVS") and both as a connection string.
  virtual void visitConnection(const QvbString& name, const QvbString& type, const QvbString& connection) = 0;
  // A table that is read, known by a data URI that names at least its data source and the type of that; without a table
  // it names the data source alone. `name` is what the step calls the table; it may be empty.
  virtual void visitTableRead(QvSQLTableElement element, const QvDataURIComponents& table,
                              const QvbString& name) = 0;
  // A table that is read and known by its name alone, with the connection string of the latest connection before it,
  // empty when there is none.
  virtual void visitBareTableRead(QvSQLTableElement element, const QvbString& table,
                                  const QvbString& connection) = 0;
  // A table that is made or filled. Catalog and schema may be empty, the connection string and the table are not.
  virtual void visitTableWritten(const QvbString& connection, const QvbString& catalog,
                                 const QvbString& schema, const QvbString& table) = 0;
  // A name that is given and names no table: the element it stands in, the name as given, and why ("is no data URI").
  virtual void visitUnusableName(const QvbString& element, const QvbString& name,
                                 const QvbString& reason) = 0;
  // The document is none of the steps that are known, and this is its root element; nothing else is visited.
  virtual void visitUnknownRoot(const QvbString& name) = 0;

protected:
  ~QvSQLStepVisitor() = default;
};

extern "C" {

// Walk the SQL step in a file, or in a text. False, with nothing visited and the reason in `error` (which may be null),
// for what cannot be read: "<file>:<line>:<column>: <reason>", "<file>: <reason>", or "<line>:<column>: <reason>" for a
// text.
QVREPOSRES_API bool visitSQLStepInFile(const QvbString& path, QvSQLStepVisitor* visitor, QvbString* error);
QVREPOSRES_API bool visitSQLStepInString(const QvbString& xml, QvSQLStepVisitor* visitor, QvbString* error);
}
