// What the file and folder operations share: native paths, descriptors, and calls that go through the seam for
// tests.
#pragma once

#include "qvsfio/npfio.h"
#include "qvxbase/qvbfault.h"

#include <cerrno>
#include <cstdint>
#include <new>
#include <string>
#include <string_view>
#include <utility>

namespace npfio {

// The native path of a path or "file:" URI. NP_FIO_UNSUPPORTED for a "file:" URI that has none;
// NP_FIO_NOT_FOUND for a path with a zero byte in it, since the system would silently cut it there. A path that is
// native already is shared, so that files can be removed when memory is short.
int nativePath(const QvbString& path, QvbString* native);

// np_fio_stat() of a name in an open folder, or of a native path with AT_FDCWD. `subject` is the whole path.
int statAt(int folder, const char* name, const char* subject, NpFileStat* stat);

// np_fio_readAll() and np_fio_writeAll() for those who have their bytes elsewhere than in a QvbString.
int readAll(const QvbString& path, std::int64_t limit, std::string* bytes);
int writeAll(const QvbString& path, std::string_view bytes);

inline int lastCode() { return np_fio_code(errno); }
// The code of a system call by its result.
inline int codeOfCall(int result) { return result == 0 ? NP_FIO_OK : lastCode(); }

// The code of an operation, which may run out of memory.
template<class Operation>
int codeOf(const Operation& operation) {
  try {
    return operation();
  } catch (const std::bad_alloc&) {
    return np_fio_code(ENOMEM);
  }
}

// What a step gives for the native path of a path, where there is one.
template<class Step>
int withNativePath(const QvbString& path, const Step& step) {
  QvbString native;
  const int code = codeOf([&] { return nativePath(path, &native); });
  return code ? code : step(native.asCstr());
}

// The result of a system call that answers -1 for a failure, called again while a signal interrupts it. The
// fault hook is asked before each call.
template<class Call>
auto attempt(QvbFaultPoint point, const char* subject, Call call) -> decltype(call()) {
  for (;;) {
    const int fault = qvbFault(point, subject);
    const auto result = fault ? -1 : call();
    if (fault)
      errno = fault;
    if (result != -1 || errno != EINTR)
      return result;
  }
}

// The same without the hook, for calls that only look or clean up.
template<class Call>
auto uninterrupted(Call call) -> decltype(call()) {
  for (;;) {
    const auto result = call();
    if (result != -1 || errno != EINTR)
      return result;
  }
}

// A file descriptor that is closed at the end.
class Descriptor {
public:
  explicit Descriptor(int fd = -1) noexcept : m_fd(fd) {}
  Descriptor(Descriptor&& other) noexcept : m_fd(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(m_fd, other.m_fd);
    return *this;
  }
  ~Descriptor();

  explicit operator bool() const noexcept { return m_fd != -1; }
  int get() const noexcept { return m_fd; }
  int release() noexcept { return std::exchange(m_fd, -1); }
  // The code of closing it, for those whose data depends on it. It is closed in every case.
  int close(const char* subject);

private:
  int m_fd;
};

} // namespace npfio
