#include "qvsfio/private/npabandoned.h"

#include "qvsfio/private/npnative.h"

#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace npfio {
namespace {

constexpr const char* Mark = "user.qv.temporary";
constexpr int openMode = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// Calls the visitor with each entry of the folder, as long as it can be read. The descriptor stays open.
template<class Visitor>
void forEachEntry(int folder, const Visitor& visitor) {
  Descriptor own(::openat(folder, ".", openMode));
  const auto close = [](DIR* directory) { ::closedir(directory); };
  const std::unique_ptr<DIR, decltype(close)> directory(own ? ::fdopendir(own.get()) : nullptr, close);
  if (!directory)
    return;
  own.release(); // closed with the directory
  while (const dirent* entry = ::readdir(directory.get()))
    visitor(*entry);
}

bool isAbandoned(int folder) {
  struct stat about {};
  return ::fstat(folder, &about) == 0 && about.st_uid == ::geteuid() &&
         ::fgetxattr(folder, Mark, nullptr, 0) >= 0 && ::flock(folder, LOCK_EX | LOCK_NB) == 0;
}

} // namespace

// The lock comes first: whoever sees the mark finds the lock taken for as long as the folder is in use.
void markTemporary(int folder) {
  if (::flock(folder, LOCK_SH | LOCK_NB) == 0)
    static_cast<void>(::fsetxattr(folder, Mark, "", 0, 0));
}

void removeAbandoned(const std::string& root) {
  const Descriptor folders(::open(root.c_str(), openMode & ~O_NOFOLLOW));
  if (!folders)
    return;
  forEachEntry(folders.get(), [&](const dirent& entry) {
    if ((entry.d_type != DT_DIR && entry.d_type != DT_UNKNOWN) || std::string_view(entry.d_name) == "." ||
        std::string_view(entry.d_name) == "..")
      return;
    const Descriptor folder(::openat(folders.get(), entry.d_name, openMode));
    if (!folder || !isAbandoned(folder.get()))
      return;
    forEachEntry(folder.get(), [&](const dirent& file) { ::unlinkat(folder.get(), file.d_name, 0); });
    ::unlinkat(folders.get(), entry.d_name, AT_REMOVEDIR);
  });
}

} // namespace npfio
