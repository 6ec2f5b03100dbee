#include "qvreposconfiguration.h"

#include "allocation.h"
#include "guards.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace {

constexpr unsigned long columnCount = 1;

struct ConnectionType {
  QvUnifiedReposConnectType type;
  const char* name;
};

constexpr ConnectionType connectionTypes[] = {
    {QvUnifiedReposConnectFile, "File"},
    {QvUnifiedReposConnectODBC, "ODBC"},
    {QvUnifiedReposConnectGRVS, "GRVS"},
};

// What a copy takes over: neither the repository id nor the connection type.
void copyFields(QvReposConfiguration& from, QvReposConfiguration& to) {
  to.setVaultPath(from.getVaultPath()); // first: it alone may lack memory
  to.setName(from.getName());
  to.setUnifiedRepositoryConnect(from.getUnifiedRepositoryConnect());
  to.setUnifiedRepositoryPrefix(from.getUnifiedRepositoryPrefix());
  to.setType(from.getType());
  to.setFilename(from.getFilename());
  to.setUnifiedRepositoryConnectType(from.getUnifiedRepositoryConnectType());
  to.setUnifiedRepositoryName(from.getUnifiedRepositoryName());
  to.setUnifiedRepositoryVersion(from.getUnifiedRepositoryVersion());
  to.setVaultLogFile(from.getVaultLogFile());
  to.setActive(from.isActive());
}

} // namespace

QvbString connectionTypeName(QvUnifiedReposConnectType type) {
  const auto known = std::find_if(std::begin(connectionTypes), std::end(connectionTypes),
                                  [&](const auto& candidate) { return candidate.type == type; });
  return known == std::end(connectionTypes) ? "" : known->name;
}

QvUnifiedReposConnectType connectionTypeOf(const QvbString& name) {
  const auto known =
      std::find_if(std::begin(connectionTypes), std::end(connectionTypes),
                   [&](const auto& candidate) { return qvbEqualsIgnoreCase(name.view(), candidate.name); });
  return known == std::end(connectionTypes) ? QvUnifiedReposConnectODBC : known->type;
}

bool trimFileSeperators(QvbString* path) {
  if (!path)
    return false;
  auto trimmed = *path;
  trimmed.trimChar('\\', false, true).trimChar('/', false, true);
  std::swap(*path, trimmed);
  return path->length() != trimmed.length();
}

QvReposConfigurationImpl::QvReposConfigurationImpl(QvReposConfiguration* source) {
  copyFields(*source, *this);
  m_unifiedConnectionType =
      m_connectType.isEmpty() ? source->getUnifiedConnectionType() : connectionTypeOf(m_connectType);
}

void QvReposConfigurationImpl::setVaultPath(const QvbString& path) {
  auto trimmed = path;
  trimFileSeperators(&trimmed);
  m_vaultPath = trimmed;
}

void QvReposConfigurationImpl::parseUnifiedRepositoryPrefixSchema(QvbString* prefix, QvbString* schema) {
  const auto dot = m_prefix.find(".");
  if (dot < 0) {
    *prefix = m_prefix;
    schema->setNull();
  } else {
    *schema = m_prefix.mid(0, dot);
    *prefix = m_prefix.mid(dot + 1);
  }
}

bool QvReposConfigurationListImpl::addRow() {
  return tryAllocate([&] { m_rows.emplace_back(); });
}

void QvReposConfigurationListImpl::setLastRowElement(QvReposConfiguration* definition) {
  if (definition && !m_rows.empty())
    copyFields(*definition, m_rows.back());
}

QvReposConfiguration* QvReposConfigurationListImpl::getValue(unsigned long column) {
  return m_cursor.onRow() && column < columnCount ? m_rows[m_cursor.row()].copyOf() : nullptr;
}

bool QvReposConfigurationListImpl::copyList(QvReposConfigurationList* source) {
  const auto setRow = [&] {
    try {
      setLastRowElement(Released<QvReposConfiguration>(source->getValue()).get());
    } catch (const std::bad_alloc&) {
      m_rows.pop_back(); // no row is left half copied
      throw;
    }
  };
  return resultOr(false, [&] { return copyRows(*this, *source, m_cursor, m_rows.size(), setRow); });
}

void QvReposConfigurationListImpl::append(QvReposConfiguration* definition) {
  copyFields(*definition, m_rows.emplace_back());
}
