#include "qvsfio/private/npabandoned.h"
#include "qvsfio/private/npnative.h"

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

using npfio::attempt;
using npfio::codeOf;
using npfio::Descriptor;
using npfio::lastCode;
using npfio::nativePath;

struct NpDir {
  QvbString path;
  Descriptor descriptor;
};

namespace {

int createFolder(const char* path, mode_t permissions) {
  return npfio::codeOfCall(
      attempt(QvbFaultPoint::DirCreate, path, [&] { return ::mkdir(path, permissions); }));
}

// Absolute, so that the folder is found again when the process changes its working directory.
int temporaryRoot(std::string* root) {
  const char* named = std::getenv("TMPDIR");
  std::error_code error;
  *root = std::filesystem::absolute(named && *named ? named : "/tmp", error).string();
  return np_fio_code(error.value());
}

bool isSingleName(std::string_view name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos &&
         name.find('\0') == std::string_view::npos;
}

// The name in the path of an entry of the folder; null for another path.
const char* nameIn(const NpDir& directory, const QvbString& path) {
  const std::string_view folder = directory.path.view();
  std::string_view name = path.view();
  if (!name.starts_with(folder))
    return nullptr;
  name.remove_prefix(folder.size());
  if (!folder.ends_with('/') && !name.starts_with('/'))
    return nullptr;
  name.remove_prefix(folder.ends_with('/') ? 0 : 1);
  return isSingleName(name) ? name.data() : nullptr;
}

int openNewFolder(const char* path, std::unique_ptr<NpDir>* directory) {
  auto opened = std::make_unique<NpDir>();
  opened->path = path;
  if (const int code = createFolder(path, 0700))
    return code;
  opened->descriptor = Descriptor(attempt(QvbFaultPoint::DirOpen, path, [&] {
    return ::open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  }));
  if (opened->descriptor) {
    npfio::markTemporary(opened->descriptor.get());
    *directory = std::move(opened);
    return NP_FIO_OK;
  }
  const int code = lastCode();
  ::rmdir(path);
  return code;
}

} // namespace

int np_dir_create(const QvbString& path, int mode) {
  constexpr int readableByAll = 8;
  if (mode != readableByAll)
    return NP_FIO_UNSUPPORTED;
  return npfio::withNativePath(path, [](const char* native) { return createFolder(native, 0755); });
}

int np_dir_tmpdir(const char* name, char* buffer, std::size_t size, NpDir** directory) {
  *directory = nullptr;
  if (size > 0)
    *buffer = '\0';
  if (!name || !isSingleName(name))
    return NP_FIO_REFUSED;
  std::unique_ptr<NpDir> opened;
  const int code = codeOf([&] {
    std::string root;
    int failed = temporaryRoot(&root);
    if (!failed)
      npfio::removeAbandoned(root);
    if (!failed)
      failed = np_fio_pcat(root.c_str(), name, buffer, size);
    return failed ? failed : openNewFolder(buffer, &opened);
  });
  if (code && size > 0)
    *buffer = '\0';
  *directory = opened.release();
  return code;
}

int np_dir_open(const QvbString& path, NpDir** directory) {
  *directory = nullptr;
  return codeOf([&] {
    auto opened = std::make_unique<NpDir>();
    if (const int code = nativePath(path, &opened->path))
      return code;
    const char* const named = opened->path.asCstr();
    opened->descriptor = Descriptor(attempt(QvbFaultPoint::FileStat, named,
                                            [&] { return ::open(named, O_PATH | O_DIRECTORY | O_CLOEXEC); }));
    if (!opened->descriptor)
      return lastCode();
    *directory = opened.release();
    return NP_FIO_OK;
  });
}

int np_dir_stat(NpDir* directory, const QvbString& path, NpFileStat* stat) {
  const char* const name = directory ? nameIn(*directory, path) : nullptr;
  return name ? npfio::statAt(directory->descriptor.get(), name, path.asCstr(), stat)
              : np_fio_stat(path, stat);
}

void np_dir_close(NpDir* directory) { delete directory; }

void np_dir_discard(NpDir* directory) {
  const std::unique_ptr<NpDir> ended(directory);
  if (ended)
    np_dir_unlink(ended->path);
}

int np_dir_unlink(const QvbString& path) {
  return npfio::withNativePath(path, [](const char* native) {
    return npfio::codeOfCall(attempt(QvbFaultPoint::FileUnlink, native, [&] { return ::rmdir(native); }));
  });
}
