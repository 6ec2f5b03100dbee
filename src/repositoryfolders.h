// Which repository a file lies in.
#pragma once

#include "qvxlog/qvxlog.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

class DefinitionSet;

struct RepositoryPath {
  QvbString repository;
  QvbString path; // below its folder
};

// The folders of repositories, each path with the repository that came first.
class RepositoryTable {
public:
  RepositoryTable() = default;
  explicit RepositoryTable(const DefinitionSet& definitions);

  // The place of a file in the repository with the longest folder above it.
  std::optional<RepositoryPath> find(const QvbString& filename) const;

private:
  static constexpr std::size_t None = static_cast<std::size_t>(-1);

  struct Folder {
    QvbString path;
    QvbString repository;
    std::size_t prefix = None; // the place of the longest other path that this one begins with
  };
  std::vector<Folder> m_folders; // by path
};

// The same for the files of one piece of work: the definitions are looked at when the first one is asked for. Only where
// the definition manager's life cycle is logged they are looked at for each, so that each look is told.
class RepositoryFolders {
public:
  RepositoryFolders();

  std::optional<RepositoryPath> find(const QvbString& filename);

private:
  QvLogger* m_logger;
  std::shared_ptr<const RepositoryTable> m_table; // null before the first look
};

// generateURIReferenceFromFilename() with folders that are known; null for a look at the definitions.
bool generateURIReference(const QvbString& filename, RepositoryFolders* folders, QvbString* uriReference);
