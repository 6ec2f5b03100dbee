#include "qvsfio/npfio.h"

#include "qvsfio/private/npnative.h"
#include "qvsfio/private/npreplacement.h"
#include "qvxbase/qvbpath.h"
#include "qvxbase/qvbreleased.h"
#include "qvxbase/qvuri.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

using npfio::attempt;
using npfio::Descriptor;
using npfio::lastCode;
using npfio::nativePath;
using npfio::Replacement;

struct NpFile {
  QvbString path;
  Descriptor source;                        // of a file that is read
  std::unique_ptr<Replacement> replacement; // of a file that is written
};

namespace {

// Only a regular file has an end that is sure to come: a pipe may never tell, and a device may have none. Opening a pipe
// does not wait for its writer either. For a regular file O_NONBLOCK changes nothing.
QvbResult<Descriptor> openForReading(const char* path, struct stat* stat) {
  Descriptor opened(attempt(QvbFaultPoint::FileOpen, path,
                            [&] { return ::open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY); }));
  if (!opened || npfio::uninterrupted([&] { return ::fstat(opened.get(), stat); }) != 0)
    return QvbFailure{lastCode()};
  if (!S_ISREG(stat->st_mode))
    return QvbFailure{NP_FIO_UNSUPPORTED};
  return opened;
}

// Fewer bytes than asked for mean the end. It is taken for the end, too, where a read stops at the one that is expected.
std::int64_t readFully(const Descriptor& source, const char* path, char* buffer, std::size_t size,
                       std::int64_t expectedEnd = 0) {
  std::size_t total = 0;
  while (total < size) {
    const auto count = attempt(QvbFaultPoint::FileRead, path,
                               [&] { return ::read(source.get(), buffer + total, size - total); });
    if (count < 0)
      return -lastCode();
    total += static_cast<std::size_t>(count);
    if (count == 0 || (count == expectedEnd && total < size))
      break;
  }
  return static_cast<std::int64_t>(total);
}

// The size that the file had when it was opened is only a hint: it may grow, and some files tell none. Where one byte more
// was asked for and there was none, there is no need to ask again.
int readToEnd(const Descriptor& source, const char* path, std::int64_t sizeHint, std::int64_t limit,
              std::string* bytes) {
  constexpr std::size_t minStep = 4096;
  std::size_t total = 0;
  std::size_t step = std::max(minStep, static_cast<std::size_t>(sizeHint) + 1);
  for (;;) {
    bytes->resize(total + step);
    const auto count = readFully(source, path, bytes->data() + total, step, total == 0 ? sizeHint : 0);
    if (count < 0)
      return static_cast<int>(-count);
    total += static_cast<std::size_t>(count);
    if (static_cast<std::int64_t>(total) > limit)
      return NP_FIO_REFUSED;
    if (static_cast<std::size_t>(count) < step)
      break;
    step = total;
  }
  bytes->resize(total);
  return NP_FIO_OK;
}

NpFileKind kindOf(const struct stat& entry) {
  if (S_ISREG(entry.st_mode))
    return NpFileKind::File;
  return S_ISDIR(entry.st_mode) ? NpFileKind::Directory : NpFileKind::Other;
}

// Keeps what was opened, a result's value, in `place`; the result's code.
template<class T>
int keep(QvbResult<T> opened, T* place) {
  if (!opened)
    return opened.code();
  *place = *std::move(opened);
  return NP_FIO_OK;
}

int openAs(int mode, NpFile* file) {
  struct stat unused {};
  switch (mode) {
  case NP_FIO_READ:
    return keep(openForReading(file->path.asCstr(), &unused), &file->source);
  case NP_FIO_REPLACE:
    return keep(Replacement::open(file->path, Replacement::Kind::PrivateCopy), &file->replacement);
  default:
    return NP_FIO_UNSUPPORTED;
  }
}

} // namespace

namespace npfio {

int nativePath(const QvbString& path, QvbString* native) {
  QvbString plain = path;
  if (qvbEqualsIgnoreCase(path.view().substr(0, 5), "file:")) {
    const Released<QvURI> uri(getURIFromURIString(path));
    if (uri && !getNativePath(uri.get(), &plain))
      return NP_FIO_UNSUPPORTED;
  }
  if (plain.view().find('\0') != std::string_view::npos)
    return NP_FIO_NOT_FOUND;
  *native = plain;
  return NP_FIO_OK;
}

Descriptor::~Descriptor() {
  if (m_fd != -1)
    ::close(m_fd);
}

// Not called again after EINTR: the descriptor is gone by then, and its number may be another thread's.
int Descriptor::close(const char* subject) {
  const int fault = qvbFault(QvbFaultPoint::FileClose, subject);
  const int failure = ::close(release()) == 0 ? 0 : errno;
  const int error = fault ? fault : failure;
  return error == EINTR ? NP_FIO_OK : np_fio_code(error);
}

int statAt(int folder, const char* name, const char* subject, NpFileStat* stat) {
  struct stat entry;
  if (attempt(QvbFaultPoint::FileStat, subject, [&] { return ::fstatat(folder, name, &entry, 0); }) != 0)
    return lastCode();
  if (stat)
    *stat = {kindOf(entry),        entry.st_dev,          entry.st_ino,         entry.st_size,
             entry.st_mtim.tv_sec, entry.st_mtim.tv_nsec, entry.st_ctim.tv_sec, entry.st_ctim.tv_nsec};
  return NP_FIO_OK;
}

int readAll(const QvbString& path, std::int64_t limit, std::string* bytes) {
  QvbString native;
  if (const int code = nativePath(path, &native))
    return code;
  struct stat opened {};
  const auto source = openForReading(native.asCstr(), &opened);
  if (!source)
    return source.code();
  return opened.st_size > limit ? NP_FIO_REFUSED
                                : readToEnd(*source, native.asCstr(), opened.st_size, limit, bytes);
}

int writeAll(const QvbString& path, std::string_view bytes) {
  QvbString native;
  if (const int code = nativePath(path, &native))
    return code;
  const auto replacement = Replacement::open(native, Replacement::Kind::Document);
  if (!replacement)
    return replacement.code();
  (*replacement)->write(bytes.data(), bytes.size());
  return (*replacement)->commit();
}

} // namespace npfio

int np_fio_open(const QvbString& path, int mode, NpFile** file) {
  *file = nullptr;
  return npfio::codeOf([&] {
    auto opened = std::make_unique<NpFile>();
    if (const int code = nativePath(path, &opened->path))
      return code;
    if (const int code = openAs(mode, opened.get()))
      return code;
    *file = opened.release();
    return NP_FIO_OK;
  });
}

int np_fio_close(NpFile* file) {
  if (!file)
    return NP_FIO_OK;
  const std::unique_ptr<NpFile> ended(file);
  return file->replacement ? file->replacement->commit() : file->source.close(file->path.asCstr());
}

void np_fio_discard(NpFile* file) { const std::unique_ptr<NpFile> ended(file); }

std::int64_t np_fio_getb(NpFile* file, void* buffer, std::size_t size) {
  if (!file->source)
    return -NP_FIO_UNSUPPORTED;
  return readFully(file->source, file->path.asCstr(), static_cast<char*>(buffer), size);
}

std::int64_t np_fio_putb(NpFile* file, const void* bytes, std::size_t size) {
  return file->replacement ? file->replacement->write(bytes, size) : -NP_FIO_UNSUPPORTED;
}

std::int64_t np_fio_puts(NpFile* file, const QvbString& text) {
  return np_fio_putb(file, text.view().data(), text.view().size());
}

int np_fio_stat(const QvbString& path, NpFileStat* stat) {
  return npfio::withNativePath(
      path, [&](const char* native) { return npfio::statAt(AT_FDCWD, native, native, stat); });
}

int np_fio_unlink(const QvbString& path) {
  return npfio::withNativePath(path, [](const char* native) {
    return npfio::codeOfCall(attempt(QvbFaultPoint::FileUnlink, native, [&] { return ::unlink(native); }));
  });
}

const char* np_fio_errdesc(int code) {
  switch (code) {
  case NP_FIO_OK:
    return "success";
  case NP_FIO_ERROR:
    return "general error";
  case NP_FIO_NOT_FOUND:
    return "not found";
  case NP_FIO_ACCESS:
    return "access denied";
  case NP_FIO_PARTIAL:
    return "only a part was transferred";
  case NP_FIO_UNSUPPORTED:
    return "not supported";
  case NP_FIO_REFUSED:
    return "refused or temporarily unavailable";
  default:
    return "unknown error";
  }
}

int np_fio_pcat(const char* directory, const char* name, char* buffer, std::size_t size) {
  if (size > 0)
    *buffer = '\0';
  return npfio::codeOf([&] {
    const QvbString joined = qvbConcatPath(directory, name);
    const bool fits = joined.cStrSize() <= size;
    if (fits)
      std::memcpy(buffer, joined.asCstr(), joined.cStrSize());
    return fits ? NP_FIO_OK : NP_FIO_ERROR;
  });
}

int np_fio_code(int errnoValue) {
  switch (errnoValue) {
  case 0:
    return NP_FIO_OK;
  case ENOENT:
  case ENOTDIR:
  case ELOOP:        // nothing is reached by following the links
  case ENAMETOOLONG: // nothing can have the name
    return NP_FIO_NOT_FOUND;
  case EACCES:
  case EPERM:
  case EROFS:
    return NP_FIO_ACCESS;
  case EISDIR:
  case ENOTSUP:
  case ENOSYS:
  case EXDEV:
  case ENXIO:
  case ENODEV:
    return NP_FIO_UNSUPPORTED;
  case ENOSPC:
  case EDQUOT:
  case EFBIG:
  case EBUSY:
  case ETXTBSY:
  case EAGAIN:
  case EMFILE:
  case ENFILE:
  case ENOMEM:
  case EEXIST:
  case ENOTEMPTY:
    return NP_FIO_REFUSED;
  default:
    return NP_FIO_ERROR;
  }
}

int np_fio_readAll(const QvbString& path, std::int64_t limit, QvbString* content) {
  return npfio::codeOf([&] {
    std::string bytes;
    const int code = npfio::readAll(path, limit, &bytes);
    if (!code)
      *content = QvbString(std::string_view(bytes));
    return code;
  });
}

int np_fio_writeAll(const QvbString& path, const QvbString& content) {
  return npfio::codeOf([&] { return npfio::writeAll(path, content.view()); });
}
