// What the definition folders hold, listed and read as far as it has changed since the process looked last.
//
// What is known is shared by all callers of the process. The functions may be called from any thread, and while the
// process ends. `now`, in seconds since the epoch, decides what is kept: a file or a folder that was changed just before
// could be changed once more without a trace, within the step of its file system's clock, so that it is not kept until
// it has settled.
#pragma once

#include "qvreposconfigfile.h"

#include <cstdint>
#include <vector>

// Full paths of definition files, in load order.
using DefinitionPaths = std::vector<QvbString>;

// Never changes. What has not changed in a folder is the same object at the next look.
struct DefinitionFiles {
  std::vector<DefinitionFilePtr> all; // in load order
  bool areKept = true; // whether the process keeps them all anyway, so that others may do so, too
};

struct DefinitionFolder {
  QvReposConfigType type;
  QvbString path;
  std::shared_ptr<const DefinitionPaths> files; // null for none
};

std::int64_t secondsNow();

// The definition files of the folder; null without a folder that can be opened. It is listed again when it is another
// one, or has other times, than when it was listed.
std::shared_ptr<const DefinitionPaths> listDefinitionFolder(const QvbString& path,
                                                            std::int64_t now = secondsNow());

// The folder's files, never null. Each is looked at, and read again when it could not be read, is another one, or has another size
// or other times, than when it was read. Memory that cannot be had is std::bad_alloc and changes nothing that is known.
std::shared_ptr<const DefinitionFiles> readDefinitionFolder(const DefinitionFolder& folder,
                                                            std::int64_t now = secondsNow());
