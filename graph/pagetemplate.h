// The page as it is before it holds a graph; made of graph/page/bundle/page.html when the library is built.
#pragma once

#include <string_view>

namespace qvlineagegraph {

// Holds "@DATA@" once, where the text of the graph goes.
extern const std::string_view pageTemplate;

} // namespace qvlineagegraph
