// The lineage resource and the lists that carry resources, properties and rows of text.
//
// Every list of the library is read with the same cursor. It stands before the first row until next() is called;
// next() moves it one row on and is true while it stands on a row; past the last row it stays false. Rows are appended
// at the end and never removed. A list holds copies and ends, rows and all, with release().
#pragma once

#include "qvreposres/export.h"
#include "qvxbase/qvbdate.h"
#include "qvxbase/qvbstring.h"

// Key and value pairs.
class QVREPOSRES_API QvResourcePropertyList {
public:
  virtual ~QvResourcePropertyList() = default;
  virtual bool next() = 0;
  // The texts under the cursor; empty off the rows.
  virtual QvbString getKey() = 0;
  virtual QvbString getValue() = 0;
  virtual void release() = 0;
  // False when memory is short.
  virtual bool addRow() = 0;
  // Nothing on an empty list.
  virtual void setLastRow(const QvbString& key, const QvbString& value) = 0;
};

// One thing that a job touches. Made by a QvResourceFactory; its fields do not change after that.
class QVREPOSRES_API QvResource {
public:
  virtual ~QvResource() = default;
  virtual void release() = 0;
  // An identifier of the factory's own, which may be empty.
  virtual QvbString getId() = 0;
  // The display name.
  virtual QvbString getName() = 0;
  // The object type, as qvreposobjecttypes.h has them: "ProcessJob", "Table".
  virtual QvbString getResourceType() = 0;
  // What tells it apart from other resources of its type, see qvresourcemgr.h.
  virtual QvbString getResourceIdentity() = 0;
  // How the resource relates to the one that uses it: 0 for every resource of this library. Other numbers are a host's own
  // and mean what it says; lists and the lineage store do not keep them.
  virtual int getDependencyType() = 0;
  // The resource's own list, which the caller must not release; may be null. All its readers share its one cursor, which
  // cannot be put back: it is read once, and setLastRowElement of a resource list reads it to its end.
  virtual QvResourcePropertyList* getProperties() = 0;
  // Null when it was never analysed.
  virtual QvbDate getAnalysisDate() = 0;
  // Where it lives, as far as its factory knows.
  virtual QvbString getResourceLocation() = 0;
  // False where its factory could not tell what it stands for.
  virtual bool IsResolved() = 0;
  // Whether the identity still holds a macro that was not expanded.
  virtual bool IsResourceIdentityMacroValue() = 0;
};

// Resources, as a job touches them.
class QVREPOSRES_API QvResourceList {
public:
  virtual bool next() = 0;
  // The resource under the cursor, owned by the list; null off the rows.
  virtual QvResource* getValue() = 0;
  virtual void release() = 0;
  // False when memory is short.
  virtual bool addRow() = 0;
  // Copies id, analysis date, name, identity, type, location and the two flags into the last row, whatever the column;
  // nothing on an empty list. Dependency type and properties are not kept.
  virtual void setLastRowElement(unsigned long column, QvResource* value) = 0;
  // Whether a row has the same identity, without regard to case: one hash lookup. It leaves the cursor on the row after
  // the match, or past the end.
  virtual bool contains(QvResource* resource) = 0;
  // Puts the cursor before the first row.
  virtual void reset() = 0;

protected:
  ~QvResourceList() = default;
};

// Rows of a fixed number of texts.
class QVREPOSRES_API QvStringList {
public:
  virtual ~QvStringList() = default;
  virtual bool next() = 0;
  // The number of texts in a row.
  virtual unsigned long getNumCols() = 0;
  // The text in a column, from 0; empty off the rows and columns.
  virtual QvbString getValue(unsigned long column) = 0;
  // The text in the first column; empty off the rows.
  virtual QvbString getValue() = 0;
  virtual void release() = 0;
  // The number of rows.
  virtual unsigned long length() = 0;
};
