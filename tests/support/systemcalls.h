// Makes single system calls fail, for the thread that asks alone. The program links the library `systemcalls`, whose
// functions come before the C library's own; a tool has it by LD_PRELOAD and is told by its environment:
//
//   QV_FAIL_CALL     CALL:NUMBER:ERRNO, of the main thread
//   QV_FAIL_REACHED  a file that is made when the call is reached
#pragma once

// Each stands for all functions of its kind: open for openat, stat for fstat, unlink for rmdir, rename for renameat2.
inline constexpr const char* SystemCalls[] = {"open", "read",  "write",   "fsync", "rename", "unlink",
                                              "stat", "mkdir", "readdir", "poll",  "send",   "recv"};

// Instead of an errno: the call does a part of its work and says so.
inline constexpr int ShortCount = -1;

// The call of this name with that number, counted from 1 for this thread and from now on, fails with the errno. A null
// name ends it.
extern "C" void failSystemCall(const char* call, long number, int error);
// Whether it was reached.
extern "C" bool systemCallFailed();
