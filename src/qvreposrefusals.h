// What the definition folders hold that is not loaded.
#pragma once

#include "listcursor.h"
#include "qvreposconfigfile.h"

#include <vector>

// A file of a definition folder that is not loaded.
struct RefusedFile {
  DefinitionFilePtr file;
  DefinitionFilePtr winner; // the definition that has the name; null for a file without a definition
};

class QvReposRefusalListImpl final : public QvReposRefusalList {
public:
  bool next() override { return m_cursor.next(m_rows.size()); }
  QvbString getFilename() override { return m_cursor.onRow() ? row().filename : QvbString(""); }
  QvbString getReason() override { return m_cursor.onRow() ? row().reason : QvbString(""); }
  bool isDuplicate() override { return m_cursor.onRow() && row().isDuplicate; }
  void release() override { delete this; }

  // Adds the folder of an option when it cannot be opened.
  void addFolder(const QvbString& path, const char* option);
  void addFile(const RefusedFile& refused);

private:
  struct Row {
    QvbString filename;
    QvbString reason;
    bool isDuplicate;
  };
  const Row& row() const { return m_rows[m_cursor.row()]; }

  std::vector<Row> m_rows;
  ListCursor m_cursor;
};
