// The lineage resource record and the lists that carry resources, properties and rows of text.
//
// The lists end through release() alone. Their rows are made by addRow(), which is false when memory is short, and
// are never removed.
#pragma once

#include "allocation.h"
#include "guards.h"
#include "listcursor.h"
#include "positionindex.h"
#include "qvreposres/qvresource.h"

#include <algorithm>
#include <deque>
#include <memory>
#include <optional>
#include <vector>

class QVREPOSRES_API QvResourceImpl final : public QvResource {
public:
  QvResourceImpl() = default;
  QVREPOSRES_HIDDEN QvResourceImpl(const QvbString& name, const QvbString& type,
                                   const QvbString& identity) noexcept
      : m_type(type), m_resourceIdentity(identity), m_name(name) {}
  QvResourceImpl(const QvResourceImpl&) = delete;
  QvResourceImpl& operator=(const QvResourceImpl&) = delete;

  void release() override { delete this; }
  QvbString getId() override { return m_id; }
  QvbString getName() override { return m_name; }
  QvbString getResourceType() override { return m_type; }
  QvbString getResourceIdentity() override { return m_resourceIdentity; }
  int getDependencyType() override { return m_dependencyType; }
  QvResourcePropertyList* getProperties() override { return m_properties; }
  QvbDate getAnalysisDate() override { return m_analysisDate; }
  QvbString getResourceLocation() override { return m_location; }
  bool IsResolved() override { return m_resolved; }
  bool IsResourceIdentityMacroValue() override { return m_identityIsMacroValue; }

  void setType(const QvbString& type) { m_type = type; }
  void setResourceIdentity(const QvbString& identity) { m_resourceIdentity = identity; }
  void setResourceLocation(const QvbString& location) { m_location = location; }
  void setName(const QvbString& name) { m_name = name; }
  void setId(const QvbString& id) { m_id = id; }
  void setAnalysisDate(const QvbDate& date) { m_analysisDate = date; }
  void setDependencyType(int type) { m_dependencyType = type; }
  // Refers to a list that stays its owner's and outlives the record's use of it.
  void setProperties(QvResourcePropertyList* properties) { m_properties = properties; }
  // The list becomes the record's own and ends with it.
  QVREPOSRES_HIDDEN void adoptProperties(Released<QvResourcePropertyList> properties);
  void setResolved(bool resolved) { m_resolved = resolved; }
  void setIdentityIsMacroValue(bool isMacroValue) { m_identityIsMacroValue = isMacroValue; }

  // Takes over id, date, name, identity, type, location and the two flags. Properties are appended only where this
  // record has a list for them already; the source's list is read to its end in any case.
  QVREPOSRES_HIDDEN void copyFrom(QvResource& source);
  // The same without any look at properties.
  QVREPOSRES_HIDDEN void copyFields(const QvResourceImpl& source) noexcept;

  // The fields without a copy, for the library's own use.
  const QvbString& id() const noexcept { return m_id; }
  const QvbString& name() const noexcept { return m_name; }
  const QvbString& type() const noexcept { return m_type; }
  const QvbString& identity() const noexcept { return m_resourceIdentity; }
  const QvbString& location() const noexcept { return m_location; }
  const QvbDate& analysisDate() const noexcept { return m_analysisDate; }
  bool isResolved() const noexcept { return m_resolved; }
  bool isMacroValue() const noexcept { return m_identityIsMacroValue; }

private:
  QvbString m_type{""};
  QvbString m_resourceIdentity{m_type};
  QvbString m_location{""};
  QvbString m_name{m_location};
  QvbString m_id{m_location};
  QvbDate m_analysisDate;
  int m_dependencyType = 0;
  QvResourcePropertyList* m_properties = nullptr;
  bool m_resolved = true;
  bool m_identityIsMacroValue = false;
  Released<QvResourcePropertyList> m_ownProperties;
};

// Finds the rows of a list by their text, without regard to case. A list too short for it, or that nobody searches, has
// none; and memory that cannot be had for it costs time alone. The last row, which may still change, is never entered.
class QVREPOSRES_HIDDEN RowIndex {
public:
  // The first row of the text, or the number of rows. `keyOf` gives a row's text, or null for a row without one.
  template<class KeyOf>
  std::size_t find(const QvbString& text, std::size_t rows, const KeyOf& keyOf) {
    const std::size_t hash = text.hashIgnoreCase();
    const auto isSame = [&](const QvbString* key) {
      return key && key->hashIgnoreCase() == hash && qvbEqualsIgnoreCase(key->view(), text.view());
    };
    if (rows > LongestSearched)
      enter(rows - 1, keyOf);
    const auto isSameRow = [&](std::size_t at) { return isSame(keyOf(at)); };
    std::size_t row = m_rows.find(hash, isSameRow);
    if (row == PositionIndex::None)
      for (row = m_entered; row < rows && !isSameRow(row);)
        ++row;
    return row;
  }

private:
  static constexpr std::size_t LongestSearched = 8;

  // Of rows with the same text the first one is entered.
  template<class KeyOf>
  void enter(std::size_t rows, const KeyOf& keyOf) {
    tryAllocate([&] {
      for (; m_entered < rows; ++m_entered) {
        const QvbString* key = keyOf(m_entered);
        const auto isSame = [&](std::size_t at) {
          return qvbEqualsIgnoreCase(keyOf(at)->view(), key->view());
        };
        if (key && m_rows.find(key->hashIgnoreCase(), isSame) == PositionIndex::None)
          m_rows.insert(key->hashIgnoreCase(), m_entered);
      }
    });
  }

  PositionIndex m_rows;
  std::size_t m_entered = 0; // rows
};

// The addresses of the rows are stable. A row's identity changes through setLastRowElement alone.
class QVREPOSRES_API QvResourceListImpl final : public QvResourceList {
public:
  bool next() override { return m_cursor.next(m_rows.size()); }
  QvResource* getValue() override { return getValue(0); }
  void release() override { delete this; }
  bool addRow() override;
  void setLastRowElement(unsigned long column, QvResource* value) override;
  bool contains(QvResource* resource) override;
  void reset() override { m_cursor.reset(); }

  QvResource* getValue(unsigned long column);
  // Appends every row of the source, read from its first row; false when memory is short. The source may be this list: it
  // then doubles.
  bool copyList(QvResourceList* source);
  // A row of the resource's fields; false when memory is short.
  QVREPOSRES_HIDDEN bool append(const QvResourceImpl& resource);
  // As addUnlessListed() with a resource of these. The row that it has; the number of rows when memory is short.
  QVREPOSRES_HIDDEN std::size_t addUnlessListed(const QvbString& name, const QvbString& type,
                                                const QvbString& identity);

  // A step names the same data source again and again: the latest one is known by the texts that it was added by, without
  // its identity.
  QVREPOSRES_HIDDEN void rememberDataSource(const QvbString& dsn, const QvbString& dsnType, std::size_t row);
  // As contains() for the one that is remembered; false, and nothing done, for every other one.
  QVREPOSRES_HIDDEN bool containsDataSource(const QvbString& dsn, const QvbString& dsnType);

private:
  struct DataSourceRow {
    QvbString dsn;
    QvbString dsnType;
    std::size_t row;
  };

  ~QvResourceListImpl() = default;

  // Sets the cursor as contains() does. The number of rows where there is no such row.
  QVREPOSRES_HIDDEN std::size_t find(const QvbString& identity);

  std::deque<QvResourceImpl> m_rows;
  RowIndex m_index; // by identity
  ListCursor m_cursor;
  std::optional<DataSourceRow> m_latestDataSource;
};

// Adds the resource unless the list has one of the same identity; true when a row was added.
bool addUnlessListed(QvResourceList& list, QvResource& resource);

class QVREPOSRES_API QvResourcePropertyListImpl final : public QvResourcePropertyList {
public:
  bool next() override { return m_cursor.next(m_rows.size()); }
  QvbString getKey() override;
  QvbString getValue() override;
  void release() override { delete this; }
  bool addRow() override;
  void setLastRow(const QvbString& key, const QvbString& value) override;

  // Appends the rows of the source from its cursor on; false when memory is short. The source may be this list, whose
  // rows so far are copied then.
  bool copyList(QvResourcePropertyList* source);

private:
  struct Property {
    QvbString key{""};
    QvbString value{""};
  };

  ~QvResourcePropertyListImpl() override = default;

  std::vector<Property> m_rows;
  ListCursor m_cursor;
};

class QVREPOSRES_API QvStringListImpl final : public QvStringList {
public:
  explicit QvStringListImpl(int columns = 0) : m_columns(std::max(columns, 0)) {}

  bool next() override { return m_cursor.next(m_rows.size()); }
  unsigned long getNumCols() override { return static_cast<unsigned long>(m_columns); }
  QvbString getValue(unsigned long column) override;
  QvbString getValue() override { return getValue(0); }
  void release() override { delete this; }
  unsigned long length() override { return m_rows.size(); }

  bool addRow();
  // Nothing on an empty list or off the row's columns.
  void setLastRowElement(unsigned long column, const QvbString& value);
  // Whether a row's first column is this text, without regard to case: one hash lookup. It leaves the cursor on the row
  // after the match, or past the end.
  bool contains(QvbString& text);
  // Takes over the source's number of columns and appends its rows from its cursor on; false when memory is short. The
  // source may be this list, whose rows so far are copied then.
  bool copyList(QvStringListImpl* source);

private:
  ~QvStringListImpl() override = default;

  int m_columns;
  std::vector<std::vector<QvbString>> m_rows;
  RowIndex m_index; // by the text in the first column
  ListCursor m_cursor;
};
