// Repository definitions: the named repositories that applications can connect to.
//
// A definition lives in a file of its own, in the folder of option "BASE/REPOS_SYS_PATH" (system) or
// "BASE/REPOS_USER_PATH" (user), a native path or a "file:" URI; a relative path is made absolute when it is first read.
// Everything handed out is a copy: a change is kept when it is saved. A manager may be used from several threads at once;
// records and lists are for one thread at a time. Managers know nothing of each other, in this process or another one:
// each reads the files as they are, and of two that save the same definition the later one wins.
#pragma once

#include "qvreposres/export.h"
#include "qvxbase/qvbstring.h"

// Where a definition comes from.
enum QvReposConfigType : int { QvReposConfigTypeSystem = 0, QvReposConfigTypeUser = 1 };

// How the repository's metadata database is reached: a file, an ODBC data source, or the table services
// ("GRVS").
enum QvUnifiedReposConnectType : int {
  QvUnifiedReposConnectFile = 0,
  QvUnifiedReposConnectODBC = 1,
  QvUnifiedReposConnectGRVS = 2
};

// One definition. Getters copy; setters store what they are given, without validation.
class QVREPOSRES_API QvReposConfiguration {
public:
  virtual ~QvReposConfiguration() = default;
  virtual void release() = 0;
  // Unique among loaded definitions, without regard to case.
  virtual QvbString getName() = 0;
  virtual void setName(const QvbString& name) = 0;
  // Kept as it is: lookups find inactive definitions, too.
  virtual bool isActive() = 0;
  virtual void setActive(bool active) = 0;
  // The folder of the repository's files; stored without trailing separators.
  virtual QvbString getVaultPath() = 0;
  virtual void setVaultPath(const QvbString& path) = 0;
  // The connection string of the metadata database.
  virtual QvbString getUnifiedRepositoryConnect() = 0;
  virtual void setUnifiedRepositoryConnect(const QvbString& connect) = 0;
  // The connection type as text ("File", "ODBC", "GRVS"), kept apart from the enumeration below.
  virtual QvbString getUnifiedRepositoryConnectType() = 0;
  virtual void setUnifiedRepositoryConnectType(const QvbString& type) = 0;
  // The connection type that is saved.
  virtual QvUnifiedReposConnectType getUnifiedConnectionType() = 0;
  virtual void setUnifiedConnectionType(QvUnifiedReposConnectType type) = 0;
  // The prefix of the repository's tables, with a schema and a dot before it where there is one.
  virtual QvbString getUnifiedRepositoryPrefix() = 0;
  virtual void setUnifiedRepositoryPrefix(const QvbString& prefix) = 0;
  // The repository's name in its database.
  virtual QvbString getUnifiedRepositoryName() = 0;
  virtual void setUnifiedRepositoryName(const QvbString& name) = 0;
  // The repository's version.
  virtual QvbString getUnifiedRepositoryVersion() = 0;
  virtual void setUnifiedRepositoryVersion(const QvbString& version) = 0;
  // In which of the two folders it is saved.
  virtual QvReposConfigType getType() = 0;
  virtual void setType(QvReposConfigType type) = 0;
  // The file that it was read from or saved to.
  virtual QvbString getFilename() = 0;
  virtual void setFilename(const QvbString& filename) = 0;
  // The repository's log file.
  virtual QvbString getVaultLogFile() = 0;
  virtual void setVaultLogFile(const QvbString& path) = 0;
  // The application's own mark; neither saved nor copied.
  virtual QvbString getRepositoryId() = 0;
  virtual void setRepositoryId(const QvbString& id) = 0;
  // A new record with everything but the repository id; the caller releases it.
  virtual QvReposConfiguration* copyOf() = 0;
  // Splits the prefix at its first dot; without one the schema becomes null.
  virtual void parseUnifiedRepositoryPrefixSchema(QvbString* prefix, QvbString* schema) = 0;
};

// Definitions in load order, read with the cursor that qvresource.h describes.
class QVREPOSRES_API QvReposConfigurationList {
public:
  virtual bool next() = 0;
  // A new copy of the definition under the cursor, null off the rows; the caller releases it.
  virtual QvReposConfiguration* getValue() = 0;
  virtual void release() = 0;
  // Appends a blank definition.
  virtual bool addRow() = 0;
  // Copies the definition's saved fields into the last row; nothing on an empty list. Of the connection type a
  // row keeps the text alone: what is read from it has the type of that text, ODBC without one.
  virtual void setLastRowElement(QvReposConfiguration* definition) = 0;

protected:
  ~QvReposConfigurationList() = default;
};

// What the definition folders hold that is not loaded, each with the reason. Read with the cursor that qvresource.h
// describes; off the rows the texts are empty.
class QVREPOSRES_API QvReposRefusalList {
public:
  virtual bool next() = 0;
  // The file, or the folder that cannot be opened.
  virtual QvbString getFilename() = 0;
  // For people; it names the file, with line and column where that is malformed.
  virtual QvbString getReason() = 0;
  // Whether the file is a whole definition whose name another one took first.
  virtual bool isDuplicate() = 0;
  virtual void release() = 0;

protected:
  ~QvReposRefusalList() = default;
};

// Loads, looks up, saves and deletes definitions.
class QVREPOSRES_API QvReposConfigManager {
public:
  virtual ~QvReposConfigManager() = default;
  virtual void release() = 0;
  // The last message of an operation that has no output for one.
  virtual QvbString getErrorMessage() = 0;
  // The definition of that name, without regard to case, as a new copy; null when there is none.
  virtual QvReposConfiguration* getConfigurationByName(const QvbString& name) = 0;
  // Those of one of the two folders, as a new list of copies in name order.
  virtual QvReposConfigurationList* getConfigurationsByType(QvReposConfigType type) = 0;
  // Reads the folders again; always true. Lookups do so themselves; getDefaultConfiguration() reads the files that were
  // listed last.
  virtual bool refresh() = 0;
  // All, as a new list of copies in load order: system definitions before user ones, each folder in name order.
  virtual QvReposConfigurationList* getConfigurations() = 0;
  // A new, active record that is not saved yet; null for an empty name.
  virtual QvReposConfiguration* createConfiguration(const QvbString& name, QvReposConfigType type) = 0;
  // Whether there is a definition of that name, without regard to case.
  virtual bool configurationExists(const QvbString& name) = 0;
  // `error` (optional) tells why a deletion or a save failed. The file of a definition is called by its name as
  // that stands, "<name>.rcf": isInvalidCharInName() tells whether it holds a character, such as a slash, that a
  // name should not. Saving writes the connection type, not its text. It replaces the file atomically and records
  // the new file name in the definition; a rename deletes the old file. When only that fails, the save has
  // succeeded and `error` tells why the old file is still there.
  virtual bool deleteConfiguration(QvReposConfiguration* definition, QvbString* error) = 0;
  virtual bool saveConfiguration(QvReposConfiguration* definition, QvbString* error) = 0;
  // The name of the first loaded definition.
  virtual bool getDefaultConfiguration(QvbString* name) = 0;
  // Why those definition files are not loaded that are not, as a new list: folders that cannot be opened, then files in
  // load order.
  virtual QvReposRefusalList* getRefusals() = 0;
  // The file in which a definition of that name and type is saved. False, with `filename` null, while its folder's option
  // is not set.
  virtual bool getConfigurationFilename(const QvbString& name, QvReposConfigType type,
                                        QvbString* filename) = 0;
};

extern "C" {

// A new, independent manager; the caller releases it.
QVREPOSRES_API QvReposConfigManager* getRepositoryConfigurationManager();

// "File", "ODBC" or "GRVS", a text that lasts as long as the library; empty for every other value.
QVREPOSRES_API const char* getUnifiedReposConnectTypeName(QvUnifiedReposConnectType type);
}

// Removes trailing back slashes, then trailing slashes; whether anything was removed. False for a null path.
QVREPOSRES_API bool trimFileSeperators(QvbString* path);
