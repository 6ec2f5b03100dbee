// Path operations, directory iteration and unique identifiers.
#pragma once

#include "qvxbase/qvbstring.h"

// Both joined with exactly one "/" between them; the other one alone when either is empty.
QVPLATFORM_API QvbString qvbConcatPath(const QvbString& directory, const QvbString& name);

// Splits at the last "/" into the folder, without that "/" unless it is the root itself, and the name after
// it. A path without "/" has an empty folder. Outputs may be null. False for an empty path, which leaves them
// untouched.
QVPLATFORM_API bool qvbParsePath(const QvbString& path, QvbString* folder, QvbString* name = nullptr);

// A fresh random identifier (RFC 4122 version 4), 36 characters in lower case.
QVPLATFORM_API QvbString qvbGetUUID();

// An iterator over the entries of a directory, "." and ".." left out, in byte order of their names. It stands
// before the first entry until next() is called. Entries made or removed after it was opened do not show.
class QVPLATFORM_API QvbDirectory {
public:
  virtual bool next() = 0;
  // Empty off the entries.
  virtual QvbString getName() = 0;
  virtual QvbString getPath() = 0;
  virtual void release() = 0;

protected:
  ~QvbDirectory() = default;
};

// Null when the directory cannot be opened; `error`, where given, then names the path and the reason. The
// flags are reserved: pass 0. The caller releases the iterator.
QVPLATFORM_API QvbDirectory* qvbDirectoryOpen(const QvbString& path, int flags, QvbString* error);
