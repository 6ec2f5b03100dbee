// The seam by which tests make single platform operations fail. Applications have no use for it.
#pragma once

#include "qvxbase/qvbexport.h"

enum class QvbFaultPoint {
  LockCreate,
  FileOpen,
  FileRead,
  FileWrite,
  FileSync,
  FileClose,
  FileRename,
  FileUnlink,
  FileStat,
  DirCreate,
  DirOpen
};

// Called before each operation with its subject (a path, or an empty text); 0 lets it go on, any other value
// is the errno that it fails with.
using QvbFaultHook = int (*)(QvbFaultPoint point, const char* subject);

// Installs the hook, or (null) none. It may be called from any thread that uses the platform.
QVPLATFORM_API void qvbSetFaultHook(QvbFaultHook hook);
// What the hook says, 0 without one. For the platform's own operations.
QVPLATFORM_API int qvbFault(QvbFaultPoint point, const char* subject = "");
