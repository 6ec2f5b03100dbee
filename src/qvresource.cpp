#include "qvresource.h"

#include "allocation.h"

#include <algorithm>
#include <utility>

namespace {

// Whether a column, which callers pass as the bits of a signed 32-bit number, is one of a row's.
bool isColumn(unsigned long column, int columns) {
  const auto index = static_cast<int>(column);
  return index >= 0 && index < columns;
}

} // namespace

void QvResourceImpl::adoptProperties(Released<QvResourcePropertyList> properties) {
  m_ownProperties = std::move(properties);
  m_properties = m_ownProperties.get();
}

void QvResourceImpl::copyFrom(QvResource& source) {
  m_id = source.getId();
  m_analysisDate = source.getAnalysisDate();
  m_name = source.getName();
  m_resourceIdentity = source.getResourceIdentity();
  m_type = source.getResourceType();
  m_location = source.getResourceLocation();
  m_resolved = source.IsResolved();
  m_identityIsMacroValue = source.IsResourceIdentityMacroValue();
  auto* properties = source.getProperties();
  while (properties && properties->next())
    if (m_properties && m_properties->addRow())
      m_properties->setLastRow(properties->getKey(), properties->getValue());
}

bool QvResourceListImpl::addRow() {
  const auto rows = m_rows.size();
  const bool added = tryAllocate([&] {
    m_rows.emplace_back();
    if (rows > 0)
      m_firstRows.try_emplace(m_rows[rows - 1].getResourceIdentity(), rows - 1);
  });
  if (!added && m_rows.size() > rows)
    m_rows.pop_back();
  return added;
}

void QvResourceListImpl::setLastRowElement(unsigned long, QvResource* value) {
  if (value && !m_rows.empty())
    m_rows.back().copyFrom(*value);
}

QvResource* QvResourceListImpl::getValue(unsigned long column) {
  return m_cursor.onRow() && isColumn(column, 1) ? &m_rows[m_cursor.row()] : nullptr;
}

std::size_t QvResourceListImpl::findRow(const QvbString& identity) {
  if (const auto found = m_firstRows.find(identity); found != m_firstRows.end())
    return found->second;
  const bool isLast =
      !m_rows.empty() && qvbEqualsIgnoreCase(m_rows.back().getResourceIdentity().view(), identity.view());
  return isLast ? m_rows.size() - 1 : m_rows.size();
}

bool QvResourceListImpl::contains(QvResource* resource) {
  if (!resource)
    return false;
  const auto row = findRow(resource->getResourceIdentity());
  m_cursor.place(row + 1, m_rows.size());
  return row < m_rows.size();
}

bool QvResourceListImpl::copyList(QvResourceList* source) {
  source->reset();
  while (source->next()) {
    if (!addRow())
      return false;
    setLastRowElement(0, source->getValue());
  }
  m_cursor.restart();
  return true;
}

bool addUnlessListed(QvResourceList& list, QvResource& resource) {
  if (list.contains(&resource) || !list.addRow())
    return false;
  list.setLastRowElement(0, &resource);
  return true;
}

QvbString QvResourcePropertyListImpl::getKey() {
  return m_cursor.onRow() ? m_rows[m_cursor.row()].key : QvbString();
}

QvbString QvResourcePropertyListImpl::getValue() {
  return m_cursor.onRow() ? m_rows[m_cursor.row()].value : QvbString();
}

bool QvResourcePropertyListImpl::addRow() {
  return tryAllocate([&] { m_rows.emplace_back(); });
}

void QvResourcePropertyListImpl::setLastRow(const QvbString& key, const QvbString& value) {
  if (!m_rows.empty())
    m_rows.back() = {key, value};
}

bool QvResourcePropertyListImpl::copyList(QvResourcePropertyList* source) {
  while (source->next()) {
    if (!addRow())
      return false;
    setLastRow(source->getKey(), source->getValue());
  }
  m_cursor.restart();
  return true;
}

QvbString QvStringListImpl::getValue(unsigned long column) {
  if (!m_cursor.onRow() || !isColumn(column, m_columns))
    return {};
  // A row keeps the number of columns that the list had when the row was made.
  const auto& row = m_rows[m_cursor.row()];
  const auto index = static_cast<unsigned>(column);
  return index < row.size() ? row[index] : QvbString();
}

bool QvStringListImpl::addRow() {
  return tryAllocate([&] { m_rows.emplace_back(static_cast<std::size_t>(m_columns)); });
}

void QvStringListImpl::setLastRowElement(unsigned long column, const QvbString& value) {
  if (!m_rows.empty() && column < m_rows.back().size())
    m_rows.back()[column] = value;
}

bool QvStringListImpl::contains(QvbString& text) {
  const auto matches = [&](const auto& row) {
    return !row.empty() && qvbEqualsIgnoreCase(row.front().view(), text.view());
  };
  const auto found = std::find_if(m_rows.begin(), m_rows.end(), matches);
  m_cursor.place(static_cast<std::size_t>(found - m_rows.begin()) + 1, m_rows.size());
  return found != m_rows.end();
}

bool QvStringListImpl::copyList(QvStringListImpl* source) {
  m_columns = static_cast<int>(source->getNumCols());
  while (source->next()) {
    if (!addRow())
      return false;
    for (unsigned long column = 0; column < getNumCols(); ++column)
      setLastRowElement(column, source->getValue(column));
  }
  m_cursor.restart();
  return true;
}
