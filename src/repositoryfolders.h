// Which repository a file lies in.
#pragma once

#include "qvreposres/qvreposconfigmgr.h"
#include "qvxlog/qvxlog.h"

#include <cstddef>
#include <optional>
#include <vector>

// How often a definition has been copied when it comes out of a lookup by its name, and out of the list of all.
inline constexpr int copiesOfLookup = 1;
inline constexpr int copiesOfList = 2;

// The folder as a definition that was copied so often has it: each copy drops separators that a back slash before a slash
// has kept.
QvbString vaultPathOf(QvReposConfiguration& definition, int copies);

struct RepositoryPath {
  QvbString repository;
  QvbString path; // below its folder
};

// The place of a file in the repository with the longest folder above it, the first one loaded among equals. The
// definitions are looked at anew.
std::optional<RepositoryPath> findRepositoryPath(const QvbString& filename);

// The same for many files: the definitions are looked at when the first one is asked for. Only where the definition
// manager's life cycle is logged they are looked at for each, so that each look is told.
class RepositoryFolders {
public:
  RepositoryFolders();

  std::optional<RepositoryPath> find(const QvbString& filename);

private:
  static constexpr std::size_t none = static_cast<std::size_t>(-1);

  struct Folder {
    QvbString path;
    QvbString repository;
    std::size_t prefix = none; // the place of the longest other path that this one begins with
  };

  void read();

  QvLogger* m_logger;
  bool m_isRead = false;
  std::vector<Folder> m_folders; // by path
};

// generateURIReferenceFromFilename() with folders that are known; null for a look at the definitions.
bool generateURIReference(const QvbString& filename, RepositoryFolders* folders, QvbString* uriReference);
