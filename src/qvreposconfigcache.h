// The definition files of a folder, read as far as they have changed since the process read them last.
#pragma once

#include "qvreposconfigfile.h"

#include <vector>

struct DefinitionFolder {
  QvReposConfigType type;
  QvbString path;
  std::vector<QvbString> files; // full paths, in load order
};

// The folder's files in their order, without those that cannot be read. What a file holds is shared by all
// callers of the process; a file is read again when it is another one, or has another size or other times,
// than when it was read. It may be called from any thread, and while the process ends.
std::vector<DefinitionFilePtr> readDefinitionFolder(const DefinitionFolder& folder);
