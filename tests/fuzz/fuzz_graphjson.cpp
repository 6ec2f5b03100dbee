// Any text as a saved graph: what is read of it is written as JSON, to another parser, too, that reads and writes the same
// again. The input itself may be less than JSON in members that a graph has no use for, which are passed over unread.
#include "fuzz.h"
#include "qvlineagegraph/json.h"

#include <nlohmann/json.hpp>

using namespace qvlineagegraph;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const auto graph = readJson(text);
  if (!graph)
    return 0;
  std::string once, twice;
  writeJson(View(*graph, ViewKind::All), once);
  require(nlohmann::json::accept(once));
  const auto again = readJson(once);
  require(static_cast<bool>(again));
  writeJson(View(*again, ViewKind::All), twice);
  require(once == twice);
  return 0;
}
