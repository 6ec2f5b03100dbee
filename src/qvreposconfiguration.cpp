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

struct CopiedText {
  QvbString (QvReposConfiguration::*get)();
  void (QvReposConfiguration::*set)(const QvbString&);
};

constexpr CopiedText copiedTexts[] = {
    {&QvReposConfiguration::getVaultPath,
     &QvReposConfiguration::setVaultPath}, // first: it alone may lack memory
    {&QvReposConfiguration::getName, &QvReposConfiguration::setName},
    {&QvReposConfiguration::getUnifiedRepositoryConnect, &QvReposConfiguration::setUnifiedRepositoryConnect},
    {&QvReposConfiguration::getUnifiedRepositoryConnectType,
     &QvReposConfiguration::setUnifiedRepositoryConnectType},
    {&QvReposConfiguration::getUnifiedRepositoryPrefix, &QvReposConfiguration::setUnifiedRepositoryPrefix},
    {&QvReposConfiguration::getUnifiedRepositoryName, &QvReposConfiguration::setUnifiedRepositoryName},
    {&QvReposConfiguration::getUnifiedRepositoryVersion, &QvReposConfiguration::setUnifiedRepositoryVersion},
    {&QvReposConfiguration::getFilename, &QvReposConfiguration::setFilename},
    {&QvReposConfiguration::getVaultLogFile, &QvReposConfiguration::setVaultLogFile},
};
static_assert(std::size(copiedTexts) == definitionTextCount, "a copy takes over every text");

// Neither the repository id nor the connection type.
// Kept: DefinitionList.ARowDoesNotTakeOverTheConnectionType
void copyFields(QvReposConfiguration& from, QvReposConfiguration& to) {
  for (const auto& text : copiedTexts)
    (to.*text.set)((from.*text.get)());
  to.setType(from.getType());
  to.setActive(from.isActive());
}

} // namespace

const char* getUnifiedReposConnectTypeName(QvUnifiedReposConnectType type) {
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
  m_unifiedConnectionType = m_texts.connectType.isEmpty() ? source->getUnifiedConnectionType()
                                                          : connectionTypeOf(m_texts.connectType);
}

void QvReposConfigurationImpl::setVaultPath(const QvbString& path) {
  auto trimmed = path;
  trimFileSeperators(&trimmed);
  m_texts.vaultPath = trimmed;
}

void QvReposConfigurationImpl::parseUnifiedRepositoryPrefixSchema(QvbString* prefix, QvbString* schema) {
  const auto dot = m_texts.prefix.find(".");
  if (dot < 0) {
    *prefix = m_texts.prefix;
    schema->setNull();
  } else {
    *schema = m_texts.prefix.mid(0, dot);
    *prefix = m_texts.prefix.mid(dot + 1);
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
