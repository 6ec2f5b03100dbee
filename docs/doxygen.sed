# Makes documentation comments of the headers' plain ones: the first block describes the file, a comment behind an
# enumerator or a field describes that, and every other one what it precedes.
# Names in angle brackets and what stands behind an @ are text.
\,^ *//, s,<\([A-Za-z ]*\)>,\\<\1\\>,g
\,^ *//, s,@\([a-z]\),\\@\1,g
# The conventions of a header: "//   Ownership   What ..." begins an item, and deeper lines go on with it.
s,^//   \([A-Z][a-z]*\)   *\([^ ].*\)$,/// - **\1**: \2,
t
s,^//       *\([^ ]\),///   \1,
t
1s,^// ,/// @file\n/// ,
t
s,^\( *\)//\( \|$\),\1///\2,
t
s,\([^ ]\)  *// ,\1 ///< ,
