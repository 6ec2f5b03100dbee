// Data paths: the parts of a table's name, joined by dots.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace qvlineagegraph {

// The parts that are not empty. One that holds a dot or a double quote stands in double quotes, with each of its own
// doubled.
std::string joinDataPath(std::initializer_list<std::string_view> parts);

// The parts, without their quotes. Nothing where a quote is not closed.
std::vector<std::string> splitDataPath(std::string_view path);

} // namespace qvlineagegraph
