#!/usr/bin/env bash
# What the built libraries and the tool hold by their symbols and headers alone: nothing in a library writes to standard
# output or ends its process, and all are hardened.
set -euo pipefail
build=$2
bad=0
refuse() { # refuse FILE WHAT, of the lines of standard input, if any
  local lines
  lines=$(cat)
  [[ -z $lines ]] && return
  echo "$1 $2: $(tr '\n' ' ' <<<"$lines")" >&2
  bad=1
}
require() { # require FILE WHAT PATTERN TEXT
  grep -qE -- "$3" <<<"$4" || { echo "$1 has no $2" >&2; bad=1; }
}
# The names that a file takes from others, without their versions.
taken() { nm -D --undefined-only --format=posix "$1" | sed -E 's/[@ ].*//'; }

writes='v?f?printf|__v?f?printf_chk|puts|fputs|fputc|putc|putchar|_IO_putc|fwrite|perror|psignal|v?warnx?|v?syslog|stdout'
writes+='|_ZSt4(cout|cerr|clog)|_ZSt5(wcout|wcerr|wclog)|_ZNSt8ios_base4InitC1Ev'
ends='abort|_?_?exit|_Exit|quick_exit|__assert_fail|__assert|v?errx?|raise|kill|_ZSt21__glibcxx_assert_fail.*|system|popen|exec[vl]p?e?|fork'
# What does not know the size of what it writes to.
unchecked='v?sprintf|gets|st[rp]n?cpy|strn?cat|realpath|getcwd|readlink'

for name in qvplatform qvreposres qvlineagegraph; do
  library=$build/lib/lib$name.so
  symbols=$(taken "$library")
  [[ -n $symbols ]] || { echo "$library takes nothing" >&2; exit 1; }
  refuse "$library" "writes to the standard streams" < <(grep -xE "$writes" <<<"$symbols" || true)
  refuse "$library" "ends its process, or starts another one" < <(grep -xE "$ends" <<<"$symbols" || true)
done
# Files are the platform's: the others neither open, read nor write any by themselves, but for graphs that are read as streams.
for name in qvreposres qvlineagegraph; do
  refuse "lib$name.so" "calls the operating system for files" \
    < <(taken "$build/lib/lib$name.so" | grep -xE 'open(at)?(64)?|read|write|rename(at2?)?|unlink(at)?|mkdir(at)?|fopen(64)?|socket|connect' || true)
done

for file in "$build"/lib/lib{qvplatform,qvreposres,qvlineagegraph}.so "$build/bin/qvrepos"; do
  headers=$(readelf -hdlW "$file")
  symbols=$(taken "$file")
  require "$file" "check of its stack" '^__stack_chk_fail$' "$symbols"
  refuse "$file" "calls what does not know its sizes" < <(grep -xE "$unchecked" <<<"$symbols" || true)
  require "$file" "position of its own choice" 'Type: +DYN' "$headers"
  require "$file" "table of symbols that is read-only" 'GNU_RELRO' "$headers"
  require "$file" "binding at the start" 'FLAGS.*(BIND_)?NOW' "$headers"
  require "$file" "stack without code" 'GNU_STACK .* RW +0x' "$headers"
  refuse "$file" "has memory that is both written and run" < <(grep -E '\b(LOAD|GNU_STACK).* RWE ' <<<"$headers" || true)
  refuse "$file" "has code that the loader changes" < <(grep -E 'TEXTREL' <<<"$headers" || true)
done
# Some function of each knows the sizes of what it is given.
for file in "$build"/lib/lib{qvplatform,qvlineagegraph}.so; do
  require "$file" "check of sizes" '^__[a-z]+_chk$' "$(taken "$file" | grep -v __stack_chk_fail)"
done
exit "$bad"
