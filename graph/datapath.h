// Data paths: the parts of a table's name, joined by dots.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace qvlineagegraph {

// The data source, where there is one, and the parts from the first that is not empty on: "W.catalog..table". A part that
// holds a dot or a double quote stands in double quotes, with each of its own doubled.
std::string joinDataPath(std::string_view dataSource, std::initializer_list<std::string_view> parts);

// The parts, without their quotes. Nothing where a quote is not closed.
std::vector<std::string> splitDataPath(std::string_view path);

// The parts, without their quotes, joined by dots; what people write who do not know of the quotes.
std::string withoutQuotes(std::string_view path);

} // namespace qvlineagegraph
