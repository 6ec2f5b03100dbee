#include "qvresource.h"

#include "allocation.h"

#include <utility>

namespace {

// Whether a column, which callers pass as the bits of a signed 32-bit number, is one of a row's.
bool isColumn(unsigned long column, int columns) {
  const auto index = static_cast<int>(column);
  return index >= 0 && index < columns;
}

// Appends a row of these values; false when memory is short.
template<class Rows, class... Values>
bool appendRow(Rows& rows, const Values&... values) {
  return tryAllocate([&] { rows.emplace_back(values...); });
}

} // namespace

void QvResourceImpl::adoptProperties(Released<QvResourcePropertyList> properties) {
  m_ownProperties = std::move(properties);
  m_properties = m_ownProperties.get();
}

void QvResourceImpl::copyFields(const QvResourceImpl& source) noexcept {
  m_id = source.m_id;
  m_analysisDate = source.m_analysisDate;
  m_name = source.m_name;
  m_resourceIdentity = source.m_resourceIdentity;
  m_type = source.m_type;
  m_location = source.m_location;
  m_resolved = source.m_resolved;
  m_identityIsMacroValue = source.m_identityIsMacroValue;
}

void QvResourceImpl::copyFrom(QvResource& source) {
  if (const auto* own = dynamic_cast<QvResourceImpl*>(&source)) {
    copyFields(*own);
  } else {
    m_id = source.getId();
    m_analysisDate = source.getAnalysisDate();
    m_name = source.getName();
    m_resourceIdentity = source.getResourceIdentity();
    m_type = source.getResourceType();
    m_location = source.getResourceLocation();
    m_resolved = source.IsResolved();
    m_identityIsMacroValue = source.IsResourceIdentityMacroValue();
  }
  auto* properties = source.getProperties();
  while (properties && properties->next())
    if (m_properties && m_properties->addRow())
      m_properties->setLastRow(properties->getKey(), properties->getValue());
}

bool QvResourceListImpl::addRow() { return appendRow(m_rows); }

// Kept: ResourceList.WritesIntoTheLastRowWhateverTheColumn
void QvResourceListImpl::setLastRowElement(unsigned long, QvResource* value) {
  if (!value || m_rows.empty())
    return;
  if (m_latestDataSource && m_latestDataSource->row + 1 == m_rows.size())
    m_latestDataSource.reset();
  m_rows.back().copyFrom(*value);
}

bool QvResourceListImpl::append(const QvResourceImpl& resource) {
  const bool added = addRow();
  if (added)
    m_rows.back().copyFields(resource);
  return added;
}

QvResource* QvResourceListImpl::getValue(unsigned long column) {
  return m_cursor.onRow() && isColumn(column, 1) ? &m_rows[m_cursor.row()] : nullptr;
}

// Kept: ResourceListContains.LeavesTheCursorOnTheRowAfterTheMatch
std::size_t QvResourceListImpl::find(const QvbString& identity) {
  const auto row =
      m_index.find(identity, m_rows.size(), [this](std::size_t at) { return &m_rows[at].identity(); });
  m_cursor.place(row + 1, m_rows.size());
  return row;
}

bool QvResourceListImpl::contains(QvResource* resource) {
  return resource && find(resource->getResourceIdentity()) < m_rows.size();
}

std::size_t QvResourceListImpl::addUnlessListed(const QvbString& name, const QvbString& type,
                                                const QvbString& identity) {
  const std::size_t row = find(identity);
  if (row == m_rows.size())
    appendRow(m_rows, name, type, identity);
  return row;
}

void QvResourceListImpl::rememberDataSource(const QvbString& dsn, const QvbString& dsnType, std::size_t row) {
  if (row < m_rows.size())
    m_latestDataSource = {dsn, dsnType, row};
}

bool QvResourceListImpl::containsDataSource(const QvbString& dsn, const QvbString& dsnType) {
  const bool isRemembered =
      m_latestDataSource && m_latestDataSource->dsn == dsn && m_latestDataSource->dsnType == dsnType;
  if (isRemembered)
    m_cursor.place(m_latestDataSource->row + 1, m_rows.size());
  return isRemembered;
}

bool QvResourceListImpl::copyList(QvResourceList* source) {
  source->reset();
  return copyRows(*this, *source, m_cursor, m_rows.size(), [&] { setLastRowElement(0, source->getValue()); });
}

bool addUnlessListed(QvResourceList& list, QvResource& resource) {
  if (list.contains(&resource) || !list.addRow())
    return false;
  list.setLastRowElement(0, &resource);
  return true;
}

QvbString QvResourcePropertyListImpl::getKey() {
  return m_cursor.onRow() ? m_rows[m_cursor.row()].key : QvbString("");
}

QvbString QvResourcePropertyListImpl::getValue() {
  return m_cursor.onRow() ? m_rows[m_cursor.row()].value : QvbString("");
}

bool QvResourcePropertyListImpl::addRow() {
  return tryAllocate([&] { m_rows.emplace_back(); });
}

void QvResourcePropertyListImpl::setLastRow(const QvbString& key, const QvbString& value) {
  if (!m_rows.empty())
    m_rows.back() = {key, value};
}

bool QvResourcePropertyListImpl::copyList(QvResourcePropertyList* source) {
  return copyRows(*this, *source, m_cursor, m_rows.size(),
                  [&] { setLastRow(source->getKey(), source->getValue()); });
}

QvbString QvStringListImpl::getValue(unsigned long column) {
  if (!m_cursor.onRow() || !isColumn(column, m_columns))
    return "";
  // A row keeps the number of columns that the list had when the row was made.
  const auto& row = m_rows[m_cursor.row()];
  const auto index = static_cast<unsigned>(column);
  return index < row.size() ? row[index] : QvbString("");
}

bool QvStringListImpl::addRow() {
  return appendRow(m_rows, static_cast<std::size_t>(m_columns), QvbString(""));
}

void QvStringListImpl::setLastRowElement(unsigned long column, const QvbString& value) {
  if (!m_rows.empty() && column < m_rows.back().size())
    m_rows.back()[column] = value;
}

bool QvStringListImpl::contains(QvbString& text) {
  const auto row = m_index.find(text, m_rows.size(), [this](std::size_t at) {
    return m_rows[at].empty() ? nullptr : &m_rows[at].front();
  });
  m_cursor.place(row + 1, m_rows.size());
  return row < m_rows.size();
}

bool QvStringListImpl::copyList(QvStringListImpl* source) {
  m_columns = static_cast<int>(source->getNumCols());
  return copyRows(*this, *source, m_cursor, m_rows.size(), [&] {
    for (unsigned long column = 0; column < getNumCols(); ++column)
      setLastRowElement(column, source->getValue(column));
  });
}
