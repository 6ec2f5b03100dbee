# Writes a source that holds the text of a file: cmake -D INPUT=FILE -D OUTPUT=SOURCE -P embed.cmake
file(READ ${INPUT} text)
file(WRITE ${OUTPUT} "#include \"pagetemplate.h\"

#pragma GCC diagnostic ignored \"-Woverlength-strings\"

namespace qvlineagegraph {

const std::string_view pageTemplate = R\"qvpage(${text})qvpage\";

} // namespace qvlineagegraph
")
