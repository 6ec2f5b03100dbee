#include "support/systemcalls.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

namespace {

struct Plan {
  const char* call = nullptr;
  long left = 0;
  int error = 0;
  bool reached = false;
};
thread_local Plan thePlan;

void tellThatItIsReached() {
  if (const char* path = std::getenv("QV_FAIL_REACHED"))
    ::syscall(SYS_close, ::syscall(SYS_openat, AT_FDCWD, path, O_WRONLY | O_CREAT, 0600));
}

// Whether this is the call that fails; errno is set then.
bool fails(const char* call) {
  if (!thePlan.call || std::strcmp(call, thePlan.call) != 0 || --thePlan.left != 0)
    return false;
  thePlan.reached = true;
  tellThatItIsReached();
  if (thePlan.error == ShortCount)
    return false;
  errno = thePlan.error;
  return true;
}

bool endsShort(const char* call, std::size_t size) {
  return size > 1 && thePlan.reached && thePlan.error == ShortCount && thePlan.left == 0 && thePlan.call &&
         std::strcmp(call, thePlan.call) == 0;
}

// The call, less of it when it is the one that ends short.
template<class Call>
ssize_t transfer(const char* name, std::size_t size, const Call& call) {
  if (fails(name))
    return -1;
  return static_cast<ssize_t>(call(endsShort(name, size) ? size / 2 : size));
}

int result(long value) { return static_cast<int>(value); }

int openFile(int folder, const char* path, int flags, mode_t mode) {
  return fails("open") ? -1 : result(::syscall(SYS_openat, folder, path, flags, mode));
}

// The permissions behind the flags, where there are any.
mode_t modeOf(int flags, va_list arguments) {
  return (flags & (O_CREAT | __O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
}

int status(int folder, const char* path, struct stat* out, int flags) {
  return fails("stat") ? -1 : result(::syscall(SYS_newfstatat, folder, path, out, flags));
}

// What the C library has under the name that this one takes.
template<class Function>
Function next(const char* name) {
  return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

// CALL:NUMBER:ERRNO
[[gnu::constructor]] void readEnvironment() {
  static char call[16];
  long number = 0;
  int error = 0;
  const char* const plan = std::getenv("QV_FAIL_CALL");
  if (plan && std::sscanf(plan, "%15[a-z]:%ld:%d", call, &number, &error) == 3)
    failSystemCall(call, number, error);
}

} // namespace

extern "C" {

[[gnu::visibility("default")]] void failSystemCall(const char* call, long number, int error) {
  thePlan = {call, number, error, false};
}
[[gnu::visibility("default")]] bool systemCallFailed() { return thePlan.reached; }

#pragma GCC visibility push(default)

#define QV_OPEN(name)                                                                                        \
  int name(const char* path, int flags, ...) {                                                               \
    va_list arguments;                                                                                       \
    va_start(arguments, flags);                                                                              \
    const mode_t mode = modeOf(flags, arguments);                                                            \
    va_end(arguments);                                                                                       \
    return openFile(AT_FDCWD, path, flags, mode);                                                            \
  }
#define QV_OPENAT(name)                                                                                      \
  int name(int folder, const char* path, int flags, ...) {                                                   \
    va_list arguments;                                                                                       \
    va_start(arguments, flags);                                                                              \
    const mode_t mode = modeOf(flags, arguments);                                                            \
    va_end(arguments);                                                                                       \
    return openFile(folder, path, flags, mode);                                                              \
  }
QV_OPEN(open)
QV_OPEN(open64)
QV_OPENAT(openat)
QV_OPENAT(openat64)

ssize_t read(int fd, void* buffer, std::size_t size) {
  return transfer("read", size, [&](std::size_t count) { return ::syscall(SYS_read, fd, buffer, count); });
}
ssize_t write(int fd, const void* buffer, std::size_t size) {
  return transfer("write", size, [&](std::size_t count) { return ::syscall(SYS_write, fd, buffer, count); });
}
// The C library's streams end in calls of its own; what a program sees of them fails here.
std::size_t fwrite(const void* buffer, std::size_t size, std::size_t count, FILE* stream) {
  static const auto original = next<decltype(&fwrite)>("fwrite");
  return fails("write") ? 0 : original(buffer, size, count, stream);
}
int fflush(FILE* stream) {
  static const auto original = next<decltype(&fflush)>("fflush");
  return fails("write") ? EOF : original(stream);
}
int fsync(int fd) { return fails("fsync") ? -1 : result(::syscall(SYS_fsync, fd)); }
int rename(const char* from, const char* to) noexcept {
  return fails("rename") ? -1 : result(::syscall(SYS_rename, from, to));
}
int renameat2(int fromFolder, const char* from, int toFolder, const char* to, unsigned flags) noexcept {
  return fails("rename") ? -1 : result(::syscall(SYS_renameat2, fromFolder, from, toFolder, to, flags));
}
int unlink(const char* path) noexcept { return fails("unlink") ? -1 : result(::syscall(SYS_unlink, path)); }
int rmdir(const char* path) noexcept { return fails("unlink") ? -1 : result(::syscall(SYS_rmdir, path)); }
int unlinkat(int folder, const char* path, int flags) noexcept {
  return fails("unlink") ? -1 : result(::syscall(SYS_unlinkat, folder, path, flags));
}
int stat(const char* path, struct stat* out) noexcept { return status(AT_FDCWD, path, out, 0); }
int lstat(const char* path, struct stat* out) noexcept {
  return status(AT_FDCWD, path, out, AT_SYMLINK_NOFOLLOW);
}
int fstat(int fd, struct stat* out) noexcept { return status(fd, "", out, AT_EMPTY_PATH); }
int fstatat(int folder, const char* path, struct stat* out, int flags) noexcept {
  return status(folder, path, out, flags);
}
int mkdir(const char* path, mode_t mode) noexcept {
  return fails("mkdir") ? -1 : result(::syscall(SYS_mkdir, path, mode));
}
dirent* readdir(DIR* directory) {
  static const auto original = next<decltype(&readdir)>("readdir");
  return fails("readdir") ? nullptr : original(directory);
}
dirent64* readdir64(DIR* directory) {
  static const auto original = next<decltype(&readdir64)>("readdir64");
  return fails("readdir") ? nullptr : original(directory);
}
int poll(pollfd* files, nfds_t count, int timeout) {
  return fails("poll") ? -1 : result(::syscall(SYS_poll, files, count, timeout));
}
ssize_t send(int fd, const void* buffer, std::size_t size, int flags) {
  return transfer("send", size, [&](std::size_t count) {
    return ::syscall(SYS_sendto, fd, buffer, count, flags, nullptr, 0);
  });
}
ssize_t recv(int fd, void* buffer, std::size_t size, int flags) {
  return transfer("recv", size, [&](std::size_t count) {
    return ::syscall(SYS_recvfrom, fd, buffer, count, flags, nullptr, nullptr);
  });
}

#pragma GCC visibility pop
}
