// XML documents of the sizes the library meets: identities by the thousand, and job files.
#include "qvxdom/qvdom.h"

#include <benchmark/benchmark.h>

#include <string>

namespace {

const std::string identity =
    R"(<morvaxeldocument class="tableresource" version="1"><tabledatasource tablename="CUSTOMERS" )"
    R"(schema="dbo"><datasource dsn="DSN=Sales;QVXTYPE=ODBC;" type="ODBC"/></tabledatasource></morvaxeldocument>)";

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

void parse(benchmark::State& state, const std::string& xml) {
  const auto document = text(xml);
  for (auto _ : state) {
    QvDom dom;
    if (!dom.loadXML(document))
      state.SkipWithError(dom.getErrorMessage().asCstr());
    benchmark::DoNotOptimize(dom.getRoot());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * document.length());
}

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
    root.addChild("file").setAttributeValue("path", "/data/sales/customers.csv");
    benchmark::DoNotOptimize(dom.createXML(false, root));
  }
}

BENCHMARK_CAPTURE(parse, identity, identity);
BENCHMARK_CAPTURE(parse, job_file_1MB, jobFile());
BENCHMARK_CAPTURE(write, identity, identity, false);
BENCHMARK_CAPTURE(write, job_file_1MB, jobFile(), true);
BENCHMARK(buildIdentity);

} // namespace

BENCHMARK_MAIN();
