#!/usr/bin/env bash
# What is under a lock cannot be touched without it: clang refuses to compile that. To other compilers the words mean
# nothing.
set -euo pipefail
cd "$1"
bad=0
compiles() { # compiles COMPILER STATEMENT
  "$1" -std=c++20 -Wall -Wextra -Werror $([[ $1 == clang++ ]] && echo -Wthread-safety) -fsyntax-only -Isrc -Iplatform -x c++ - 2>/dev/null <<<"
    #include \"guards.h\"
    struct Shared {
      void touch() { $2 }
      void add() QVB_REQUIRES(m_lock) { ++m_count; }
      Lock m_lock;
      int m_count QVB_GUARDED_BY(m_lock) = 0;
      QvbMutex m_mutex;
      int m_sum QVB_GUARDED_BY(m_mutex) = 0;
    };"
}
for statement in 'const LockGuard guard(m_lock, LockRequest::Reader); ++m_count; add();' 'const QvbMutexGuard guard(m_mutex); ++m_sum;' \
  'QvbMutexGuard guard(m_mutex); guard.unlock(); guard.lock(); ++m_sum;'; do
  for compiler in clang++ g++; do
    compiles "$compiler" "$statement" || { echo "$compiler refuses: $statement" >&2; bad=1; }
  done
done
for statement in '++m_count;' 'add();' 'const LockGuard guard(m_lock, LockRequest::Reader); ++m_sum;' \
  'QvbMutexGuard guard(m_mutex); guard.unlock(); ++m_sum;'; do
  ! compiles clang++ "$statement" || { echo "clang++ lets pass: $statement" >&2; bad=1; }
done
exit "$bad"
