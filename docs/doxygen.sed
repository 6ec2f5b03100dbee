# Makes documentation comments of the headers' plain ones: the first block describes the file, a comment behind an
# enumerator or a field describes that, and every other one what it precedes.
1s,^// ,/// @file\n/// ,
t
s,^\( *\)//\( \|$\),\1///\2,
t
s,\([^ ]\)  *// ,\1 ///< ,
