// Resource identities and connection strings, as functions: what the resource manager's operations of these kinds come
// down to, and what serves whoever has no manager.
#pragma once

#include "qvxbase/qvbstring.h"

// A data source, or a table in one. Every part is a text, empty where there is none.
struct DataSource {
  QvbString name{""}; // of a data source; where a connection string may stand for it, that
  QvbString type{""};
  QvbString catalog{""};
  QvbString schema{""};
  QvbString table{""};
};

// Connection strings. False, with nothing written, when the key is missing or its value empty.
bool readDsnName(const QvbString& dsn, QvbString* name);
bool readDsnType(const QvbString& dsn, QvbString* type);
// The name that a connection string gives; the text as it is where it gives none.
QvbString shortDsn(const QvbString& dsn);

// Identities. The makers take the name of the data source as it is; what has to be named is for the caller to look at.
void makeTableIdentity(const DataSource& source, QvbString* identity);
void makeDataSourceIdentity(const DataSource& source, QvbString* identity);
// The readers are false for a text that is no identity of the kind and leave a part that is missing or empty as it was.
bool readTableIdentity(const QvbString& identity, DataSource* source);
bool readDataSourceIdentity(const QvbString& identity, DataSource* source);
bool readFileIdentity(const QvbString& identity, QvbString* filename, QvbString* name);
// Whether the text identifies an object of a repository.
bool isUnifiedIdentity(const QvbString& identity);
