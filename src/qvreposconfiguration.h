// The definition record and the list that carries definitions.
#pragma once

#include "listcursor.h"
#include "qvreposres/qvreposconfigmgr.h"

#include <cstddef>
#include <deque>

// The texts of a definition that are saved and copied, each with the value of a new one.
struct DefinitionTexts {
  QvbString name{""};
  QvbString vaultPath;
  QvbString connect{""};
  QvbString connectType;
  QvbString prefix{""};
  QvbString unifiedName;
  QvbString version;
  QvbString filename{""};
  QvbString vaultLogFile{""};
};
// What goes through all of them is held to this number by the compiler.
inline constexpr std::size_t definitionTextCount = sizeof(DefinitionTexts) / sizeof(QvbString);

class QVREPOSRES_API QvReposConfigurationImpl final : public QvReposConfiguration {
public:
  QvReposConfigurationImpl() = default;
  // A copy of any definition, but for its repository id. The connection type follows the source's connection
  // type text where there is one; a text that names none of the three types gives the default.
  explicit QvReposConfigurationImpl(QvReposConfiguration* source);
  QvReposConfigurationImpl(const QvReposConfigurationImpl&) = delete;
  QvReposConfigurationImpl& operator=(const QvReposConfigurationImpl&) = delete;

  void release() override { delete this; }
  QvbString getName() override { return m_texts.name; }
  void setName(const QvbString& name) override { m_texts.name = name; }
  bool isActive() override { return m_active; }
  void setActive(bool active) override { m_active = active; }
  QvbString getVaultPath() override { return m_texts.vaultPath; }
  void setVaultPath(const QvbString& path) override;
  QvbString getUnifiedRepositoryConnect() override { return m_texts.connect; }
  void setUnifiedRepositoryConnect(const QvbString& connect) override { m_texts.connect = connect; }
  QvbString getUnifiedRepositoryConnectType() override { return m_texts.connectType; }
  void setUnifiedRepositoryConnectType(const QvbString& type) override { m_texts.connectType = type; }
  QvUnifiedReposConnectType getUnifiedConnectionType() override { return m_unifiedConnectionType; }
  void setUnifiedConnectionType(QvUnifiedReposConnectType type) override { m_unifiedConnectionType = type; }
  QvbString getUnifiedRepositoryPrefix() override { return m_texts.prefix; }
  void setUnifiedRepositoryPrefix(const QvbString& prefix) override { m_texts.prefix = prefix; }
  QvbString getUnifiedRepositoryName() override { return m_texts.unifiedName; }
  void setUnifiedRepositoryName(const QvbString& name) override { m_texts.unifiedName = name; }
  QvbString getUnifiedRepositoryVersion() override { return m_texts.version; }
  void setUnifiedRepositoryVersion(const QvbString& version) override { m_texts.version = version; }
  QvReposConfigType getType() override { return m_type; }
  void setType(QvReposConfigType type) override { m_type = type; }
  QvbString getFilename() override { return m_texts.filename; }
  void setFilename(const QvbString& filename) override { m_texts.filename = filename; }
  QvbString getVaultLogFile() override { return m_texts.vaultLogFile; }
  void setVaultLogFile(const QvbString& path) override { m_texts.vaultLogFile = path; }
  QvbString getRepositoryId() override { return m_repositoryId; }
  void setRepositoryId(const QvbString& id) override { m_repositoryId = id; }
  QvReposConfiguration* copyOf() override { return new QvReposConfigurationImpl(this); }
  void parseUnifiedRepositoryPrefixSchema(QvbString* prefix, QvbString* schema) override;

private:
  DefinitionTexts m_texts;
  QvbString m_repositoryId;
  QvReposConfigType m_type = QvReposConfigTypeSystem;
  QvUnifiedReposConnectType m_unifiedConnectionType = QvUnifiedReposConnectODBC;
  bool m_active = true;
};

// The type of that name, without regard to case; ODBC for every other text.
QvUnifiedReposConnectType connectionTypeOf(const QvbString& name);

class QVREPOSRES_API QvReposConfigurationListImpl final : public QvReposConfigurationList {
public:
  bool next() override { return m_cursor.next(m_rows.size()); }
  QvReposConfiguration* getValue() override { return getValue(0); }
  void release() override { delete this; }
  bool addRow() override;
  // The connection type is not taken over: the connection type text stands for it when the row is read.
  void setLastRowElement(QvReposConfiguration* definition) override;

  QvReposConfiguration* getValue(unsigned long column);
  // Appends the rows of the source from its cursor on; false when memory is short.
  bool copyList(QvReposConfigurationList* source);
  // Appends a row with this definition. Memory that cannot be had is std::bad_alloc.
  QVREPOSRES_HIDDEN void append(QvReposConfiguration* definition);

private:
  ~QvReposConfigurationListImpl() = default;

  std::deque<QvReposConfigurationImpl> m_rows;
  ListCursor m_cursor;
};
