#include "qvresource.h"

#include "allocation.h"

#include <optional>
#include <utility>

namespace {

// Whether a column, which callers pass as the bits of a signed 32-bit number, is one of a row's.
bool isColumn(unsigned long column, int columns) {
  const auto index = static_cast<int>(column);
  return index >= 0 && index < columns;
}

// The text that a row is found by.
std::optional<QvbString> keyOf(QvResourceImpl& row) { return row.getResourceIdentity(); }
std::optional<QvbString> keyOf(const std::vector<QvbString>& row) {
  return row.empty() ? std::nullopt : std::optional(row.front());
}

// Appends a row of these values, and enters the one before it, which changes no more. False when memory is short.
template<class Rows, class... Values>
bool appendRow(Rows& rows, RowIndex& firstRows, const Values&... values) {
  const auto count = rows.size();
  const bool added = tryAllocate([&] {
    rows.emplace_back(values...);
    if (const auto key = count > 0 ? keyOf(rows[count - 1]) : std::nullopt)
      firstRows.try_emplace(*key, count - 1);
  });
  if (!added && rows.size() > count)
    rows.pop_back();
  return added;
}

// The first row of this text, or the number of rows.
template<class Rows>
std::size_t findRow(Rows& rows, const RowIndex& firstRows, const QvbString& text) {
  if (const auto found = firstRows.find(text); found != firstRows.end())
    return found->second;
  const auto last = rows.empty() ? std::nullopt : keyOf(rows.back());
  return last && qvbEqualsIgnoreCase(last->view(), text.view()) ? rows.size() - 1 : rows.size();
}

// Whether there is such a row; the cursor is left on the one after it.
template<class Rows>
bool findAndPass(Rows& rows, const RowIndex& firstRows, const QvbString& text, ListCursor& cursor) {
  const auto row = findRow(rows, firstRows, text);
  cursor.place(row + 1, rows.size());
  return row < rows.size();
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

bool QvResourceListImpl::addRow() { return appendRow(m_rows, m_firstRows); }

void QvResourceListImpl::setLastRowElement(unsigned long, QvResource* value) {
  if (value && !m_rows.empty())
    m_rows.back().copyFrom(*value);
}

QvResource* QvResourceListImpl::getValue(unsigned long column) {
  return m_cursor.onRow() && isColumn(column, 1) ? &m_rows[m_cursor.row()] : nullptr;
}

bool QvResourceListImpl::contains(QvResource* resource) {
  return resource && findAndPass(m_rows, m_firstRows, resource->getResourceIdentity(), m_cursor);
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
  return appendRow(m_rows, m_firstRows, static_cast<std::size_t>(m_columns), QvbString(""));
}

void QvStringListImpl::setLastRowElement(unsigned long column, const QvbString& value) {
  if (!m_rows.empty() && column < m_rows.back().size())
    m_rows.back()[column] = value;
}

bool QvStringListImpl::contains(QvbString& text) { return findAndPass(m_rows, m_firstRows, text, m_cursor); }

bool QvStringListImpl::copyList(QvStringListImpl* source) {
  m_columns = static_cast<int>(source->getNumCols());
  return copyRows(*this, *source, m_cursor, m_rows.size(), [&] {
    for (unsigned long column = 0; column < getNumCols(); ++column)
      setLastRowElement(column, source->getValue(column));
  });
}
