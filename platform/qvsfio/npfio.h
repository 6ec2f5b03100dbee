// Files and folders.
//
// Paths are native paths or "file:" URIs; a "file:" URI without a native path (of another host) is
// NP_FIO_UNSUPPORTED, and a path that holds a zero byte is NP_FIO_NOT_FOUND, never cut there. Every operation
// that returns an int answers 0 on success, else one of the NP_FIO codes. Calls that a signal interrupts are
// retried; descriptors are close-on-exec. A handle is for one thread at a time.
#pragma once

#include "qvxbase/qvbstring.h"

#include <cstdint>

inline constexpr int NP_FIO_OK = 0;
inline constexpr int NP_FIO_ERROR = 1;
inline constexpr int NP_FIO_NOT_FOUND = 3; // nothing has the name, or (too long, a loop of links) can have it
inline constexpr int NP_FIO_ACCESS = 4;
inline constexpr int NP_FIO_PARTIAL = 6;
inline constexpr int NP_FIO_UNSUPPORTED = 9;
inline constexpr int NP_FIO_REFUSED = 12; // refused or temporary: no space, no memory, busy, too many files

// Open modes.
// A regular file: a directory, a pipe or a device is NP_FIO_UNSUPPORTED, at once.
inline constexpr int NP_FIO_READ = 1;
// A private copy: a new file, 0600, that takes the name's place whole when it is closed without a failed write; until
// then the name keeps what it had, and whoever holds the old file open keeps reading it. It is not flushed to disk, since
// a copy can be made again; np_fio_writeAll() is for what has to survive a power cut. Through a symbolic link, the file
// that it points at is replaced. Only a regular file can be: a directory or a device is NP_FIO_UNSUPPORTED. The
// permission that counts is the folder's, which must be readable and writable.
inline constexpr int NP_FIO_REPLACE = 86;

struct NpFile;
struct NpDir;

enum class NpFileKind { File, Directory, Other };

struct NpFileStat {
  NpFileKind kind;
  std::uint64_t device;
  std::uint64_t inode;
  std::int64_t size;
  std::int64_t modifiedSeconds; // since the epoch
  std::int64_t modifiedNanoseconds;
  // When content, permissions or names changed last: unlike the time above, no program can set it.
  std::int64_t changedSeconds = 0;
  std::int64_t changedNanoseconds = 0;
};

// `file` becomes the handle, null on failure.
QVPLATFORM_API int np_fio_open(const QvbString& path, int mode, NpFile** file);
// Ends the handle in every case. A file opened for replacement takes its name's place here; when that fails, or a write
// failed before, the old file stays, the new one is gone and the result tells why. Null does nothing.
QVPLATFORM_API int np_fio_close(NpFile* file);
// Ends the handle and gives up what was written: the old file stays, the new one is gone. Null does nothing.
QVPLATFORM_API void np_fio_discard(NpFile* file);
// The bytes read, fewer than asked for only before the end, 0 at the end, negative (the code's negative) on failure.
QVPLATFORM_API std::int64_t np_fio_getb(NpFile* file, void* buffer, std::size_t size);
// The bytes written, all of them; negative (the code's negative) on failure.
QVPLATFORM_API std::int64_t np_fio_putb(NpFile* file, const void* bytes, std::size_t size);
QVPLATFORM_API std::int64_t np_fio_puts(NpFile* file, const QvbString& text);
// Follows symbolic links. A null `stat` asks only whether there is an entry.
QVPLATFORM_API int np_fio_stat(const QvbString& path, NpFileStat* stat);
// Removes a file, or a symbolic link itself.
QVPLATFORM_API int np_fio_unlink(const QvbString& path);
// A short text for a code, in lower case without a full stop.
QVPLATFORM_API const char* np_fio_errdesc(int code);
// Joins both as qvbConcatPath does into the buffer of `size` bytes, zero-terminated; NP_FIO_ERROR with an empty buffer
// when they do not fit.
QVPLATFORM_API int np_fio_pcat(const char* directory, const char* name, char* buffer, std::size_t size);
// The code of a value of errno.
QVPLATFORM_API int np_fio_code(int errnoValue);

// The whole regular file. `content` is untouched on failure; a file over `limit` bytes is NP_FIO_REFUSED.
QVPLATFORM_API int np_fio_readAll(const QvbString& path, std::int64_t limit, QvbString* content);
// Replaces the file by the given bytes as NP_FIO_REPLACE does, with the permissions of the file that was there, or 0644
// less the umask, and with the bytes and their name on disk. On failure the old file stays and the new one is gone. Only
// when the new file has the name already and flushing the folder, the last step, fails, may the new file stay: on a file
// system that cannot exchange two names, where the old file is gone by then, and when exchanging them back fails too,
// which leaves the old file beside the new one as ".<name>.<unique>.tmp".
QVPLATFORM_API int np_fio_writeAll(const QvbString& path, const QvbString& content);

// Mode 8 is 0755 less the umask; only the last level is made.
QVPLATFORM_API int np_dir_create(const QvbString& path, int mode);
// Makes a new folder of this name, 0700, under TMPDIR or /tmp, writes its absolute path into the buffer and
// opens it. One that exists is NP_FIO_REFUSED, and so is a name that is not a single path segment. On failure
// there is no new folder, the buffer is empty and `directory` null. The folder is in use while its handle is open; one
// whose process ended without removing it is removed, with the files in it, when the same user makes the next one under
// the same root (on file systems that know locks and user attributes).
QVPLATFORM_API int np_dir_tmpdir(const char* name, char* buffer, std::size_t size, NpDir** directory);
// Opens a folder for np_dir_stat(); `directory` becomes the handle, null on failure. A folder that can be looked at need
// not be readable.
QVPLATFORM_API int np_dir_open(const QvbString& path, NpDir** directory);
// As np_fio_stat(), for many entries of one folder: the way to it is gone once. A path that is not the folder's own path
// and one name, and every path where `directory` is null, is np_fio_stat()'s.
QVPLATFORM_API int np_dir_stat(NpDir* directory, const QvbString& path, NpFileStat* stat);
QVPLATFORM_API void np_dir_close(NpDir* directory);
// Ends the handle and removes the new folder, which must be empty; it needs no memory. Null does nothing.
QVPLATFORM_API void np_dir_discard(NpDir* directory);
// Removes an empty folder.
QVPLATFORM_API int np_dir_unlink(const QvbString& path);
