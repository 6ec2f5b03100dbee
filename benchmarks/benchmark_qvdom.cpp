// XML documents of the sizes the library meets: identities by the thousand, and job files. The same documents are
// parsed by other tree parsers where these are installed.
#include "qvxdom/qvdom.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>

#ifdef QV_WITH_PUGIXML
#include <pugixml.hpp>
#endif
#ifdef QV_WITH_LIBXML2
#include <libxml/parser.h>
#endif

namespace {

// That of a table, as the resource manager writes it.
const std::string identity =
    R"(<morvaxeldocument class="tableresource" version="1"><resource>)"
    R"(<tabledatasource dsn="Sales" dsntype="ODBC" catalog="main" schema="dbo" table="CUSTOMERS"/>)"
    R"(</resource></morvaxeldocument>)";

// A job file of about 1 MB, laid out as an editor leaves it.
std::string jobFile() {
  std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<ProcessJob Name=\"load\">\n";
  for (int step = 0; xml.size() < 1'000'000; ++step) {
    const auto number = std::to_string(step);
    xml += "  <Step Id=\"S" + number +
           "\" Type=\"SQL\" Enabled=\"true\">\n    <Sql>SELECT a, b FROM Sales.dbo.T" + number +
           " WHERE a &lt; 100</Sql>\n    <DataSource DSN=\"Sales\"/>\n  </Step>\n";
  }
  return xml + "</ProcessJob>\n";
}

QvbString text(const std::string& bytes) { return QvbString(std::string_view(bytes)); }

// Makes and forgets the document's tree, again and again.
template<class Parse>
void parseWith(benchmark::State& state, const std::string& xml, const Parse& parse) {
  for (auto _ : state)
    if (!parse())
      state.SkipWithError("the document is not read");
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * xml.size()));
}

void parse(benchmark::State& state, const std::string& xml) {
  parseWith(state, xml, [document = text(xml)] {
    QvDom dom;
    const bool read = dom.loadXML(document);
    benchmark::DoNotOptimize(dom.getRoot());
    return read;
  });
}

#ifdef QV_WITH_PUGIXML
void parsePugixml(benchmark::State& state, const std::string& xml) {
  parseWith(state, xml, [&] {
    pugi::xml_document tree;
    const bool read = static_cast<bool>(tree.load_buffer(xml.data(), xml.size()));
    benchmark::DoNotOptimize(tree.document_element());
    return read;
  });
}
BENCHMARK_CAPTURE(parsePugixml, identity, identity);
BENCHMARK_CAPTURE(parsePugixml, job_file_1MB, jobFile());
#endif

#ifdef QV_WITH_LIBXML2
void parseLibxml2(benchmark::State& state, const std::string& xml) {
  parseWith(state, xml, [&] {
    const xmlDocPtr tree =
        xmlReadMemory(xml.data(), static_cast<int>(xml.size()), nullptr, nullptr, XML_PARSE_NONET);
    benchmark::DoNotOptimize(tree);
    xmlFreeDoc(tree);
    return tree != nullptr;
  });
}
BENCHMARK_CAPTURE(parseLibxml2, identity, identity);
BENCHMARK_CAPTURE(parseLibxml2, job_file_1MB, jobFile());
#endif

void write(benchmark::State& state, const std::string& xml, bool layout) {
  QvDom dom;
  if (!dom.loadXML(text(xml)))
    state.SkipWithError(dom.getErrorMessage().asCstr());
  std::int64_t written = 0;
  for (auto _ : state)
    written += dom.createXML(layout, dom.getRoot()).length();
  state.SetBytesProcessed(written);
}

void buildIdentity(benchmark::State& state) {
  const QvbString className("class");
  const QvbString version("version");
  for (auto _ : state) {
    QvDom dom;
    dom.startNewDocument("morvaxeldocument");
    auto root = dom.getRoot();
    root.setAttributeValue(className, "fileresource");
    root.setAttributeValue(version, "1");
    auto file = root.addChild("resource").addChild("file");
    file.setAttributeValue("filename", "/data/sales/customers.csv");
    file.setAttributeValue("name", "customers.csv");
    benchmark::DoNotOptimize(dom.createXML(false, root));
  }
}

BENCHMARK_CAPTURE(parse, identity, identity);
BENCHMARK_CAPTURE(parse, job_file_1MB, jobFile());
BENCHMARK_CAPTURE(write, identity, identity, false);
BENCHMARK_CAPTURE(write, job_file_1MB, jobFile(), true);
BENCHMARK(buildIdentity);

} // namespace
