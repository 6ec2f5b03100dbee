// What the writers of formats share.
#pragma once

#include "qvlineagegraph/graph.h"

#include <string>
#include <string_view>

namespace qvlineagegraph {

// The bytes as text that XML can carry: what is not UTF-8, and control characters other than tab, line feed and
// carriage return, become U+FFFD.
std::string cleanText(std::string_view bytes);

// The text in which every character that means something somewhere is its number: "&#124;" between the prefix "&#" and a
// semicolon. What stays as it is: letters, digits, "/", all that is not ASCII, single blanks, and ".", "_" and "-" within a word.
std::string codedText(std::string_view bytes, std::string_view prefix);

// " (inferred)" behind the name of what an inferred edge leads to.
std::string_view inferredMark(bool isInferred);

} // namespace qvlineagegraph
