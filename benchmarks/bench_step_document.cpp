// A step document of 1.1 MB, laid out as an editor leaves it, into a tree 100 times.
#include "documents.h"

namespace {

std::string stepDocument() {
  std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<ProcessJob Name=\"load\">\n";
  for (int step = 0; xml.size() < 1'100'000; ++step) {
    const auto number = std::to_string(step);
    xml += "  <Step Id=\"S" + number +
           "\" Type=\"SQL\" Enabled=\"true\">\n    <Sql>SELECT a, b FROM Sales.dbo.T" + number +
           " WHERE a &lt; 100</Sql>\n    <DataSource DSN=\"Sales\"/>\n  </Step>\n";
  }
  return xml + "</ProcessJob>\n";
}

} // namespace

int main(int count, char** words) { return bench(count, words, treeMakers(stepDocument(), 100)); }
