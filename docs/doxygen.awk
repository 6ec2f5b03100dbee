# Makes documentation comments of the headers' plain ones. The first block describes the file; every other one counts for
# the declarations below it up to the next comment or empty line, and so stands before each of them. A comment behind an
# enumerator or a field describes that. What every interface has (release(), next()) is described here, once.
# Names in angle brackets and what stands behind an @ are text.
BEGIN {
  usual["virtual void release() = 0;"] = "Ends the object, which its owner alone does; see Ownership in qvreposres/export.h."
  usual["virtual bool next() = 0;"] = "Moves the cursor one row on; true while it stands on a row. See qvreposres/qvresource.h."
}

function spoken(line) {
  while (match(line, /<[A-Za-z ]*>/))
    line = substr(line, 1, RSTART - 1) "\\<" substr(line, RSTART + 1, RLENGTH - 2) "\\>" substr(line, RSTART + RLENGTH)
  gsub(/@[a-z]/, "\\\\&", line)
  return line
}

# The conventions of a header: "//   Ownership   What ..." begins an item, and deeper lines go on with it.
function item(line, word) {
  if (match(line, /^\/\/   [A-Z][a-z]*  */)) {
    word = substr(line, 6, RLENGTH - 5)
    sub(/ *$/, "", word)
    return "/// - **" word "**: " substr(line, RLENGTH + 1)
  }
  sub(/^\/\/       */, "///   ", line)
  return line
}

function documentation(line) {
  if (line ~ /^\/\/   /)
    line = item(line)
  if (line ~ /^ *\/\/( |$)/)
    sub(/\/\//, "///", line)
  return line ~ /^ *\/\/\/     / ? line : spoken(line) # or an example
}

# What was collected, before a declaration; a block that stands alone is none of anything.
function flush(isDocumentation,   i) {
  for (i = 1; i <= waiting; ++i)
    print isDocumentation ? documentation(block[i]) : block[i]
  waiting = 0
}

function repeat(   i) {
  for (i = 1; i <= count; ++i)
    print documentation(block[i])
}

# Whether what is open here are members rather than statements.
function isOutside() { return depth == 0 || container[depth] }

function step(line, i, c) {
  gsub(/"[^"]*"|'[^']*'|\/\/.*/, "", line)
  if (isComplete)
    isContainer = 0
  if (line ~ /^ *(class|struct|enum|union|namespace|extern) / && line !~ /\(/)
    isContainer = 1
  for (i = 1; i <= length(line); ++i) {
    c = substr(line, i, 1)
    if (c == "{")
      container[++depth] = isContainer
    else if (c == "}")
      --depth
    else if (c == "(")
      ++parentheses
    else if (c == ")")
      --parentheses
  }
  sub(/ *$/, "", line)
  isComplete = !parentheses && (line ~ /[;},:{]$/ || line ~ /^#/) && isOutside()
}

NR == 1 { print "/// @file"; isFile = 1; isComplete = 1 }
isFile {
  if (/^\/\//) { print documentation($0); next }
  isFile = 0
}
/^ *\/\// && isOutside() && isComplete {
  if (!waiting)
    count = 0
  block[++count] = $0
  waiting = count
  next
}
/^ *$/ && isOutside() {
  flush(0)
  count = 0
  print
  next
}
{
  code = $0
  gsub(/^ +| +$/, "", code)
  isDeclaration = code !~ /^(#|}|public:|private:|protected:)/ || code ~ /^#define/
  isOwnCase = code ~ /^~| = (delete|default);|other\)/ # an end, a copy or a move: what was said of others is not said of it
  behind = isOutside() && code !~ /^}/ && match($0, /[^ ]  *\/\/ /)
  if (isComplete && isOutside()) {
    if (!isDeclaration) {
      flush(0)
      count = 0
    } else if (waiting) {
      flush(1)
    } else if (code in usual) {
      print "/// " usual[code]
    } else if (count && !behind && !isOwnCase) {
      repeat()
    }
  }
  print behind && match($0, /[^ ]  *\/\/ /) ? substr($0, 1, RSTART) " ///< " substr($0, RSTART + RLENGTH) : $0
  before = depth
  step($0)
  if (depth > before && container[depth])
    count = 0
}
END { flush(0) }
