#!/usr/bin/env bash
# A format that its arguments do not fit, or that is not known before the program runs, does not compile.
set -euo pipefail
cd "$1"
bad=0
compiles() { # compiles STATEMENT
  ${CXX:-g++} -std=c++20 -fsyntax-only -Iplatform -x c++ - 2>/dev/null <<<"#include \"qvxlog/qvlog.h\"
    void f(const QvLog& log, const QvbString& text) { $1; }"
}
for statement in 'log.trace("plain")' 'log.error("%s of %d%%", text, 3)' 'log.trace("%s", text.view())'; do
  compiles "$statement" || { echo "does not compile: $statement" >&2; bad=1; }
done
for statement in 'log.trace("%s")' 'log.trace("%s", text, 3)' 'log.trace("100%")' 'log.trace("%y", 3)' 'log.trace(text)' \
  'log.trace(text.asCstr())'; do
  ! compiles "$statement" || { echo "compiles: $statement" >&2; bad=1; }
done
exit "$bad"
