// Job files, and what only collects the names in them.
#pragma once

#include "qvlineagegraph/parallel.h"
#include "qvlineagegraph/scan.h"
#include "qvreposres/qvlineage.h"
#include "qvreposres/qvsqlresources.h"
#include "qvxbase/qvbreleased.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#ifdef QV_WITH_LIBXML2
#include <libxml/parser.h>
#include <libxml/tree.h>
#endif

// A folder that is gone at the end.
class JobFolder {
public:
  JobFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "qvbench.XXXXXX").string();
    if (!mkdtemp(pattern.data()))
      throw std::runtime_error("no temporary folder: " + pattern);
    path = pattern;
  }
  ~JobFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
  JobFolder(const JobFolder&) = delete;
  JobFolder& operator=(const JobFolder&) = delete;

  std::string path;
};

// A step that writes one table and reads others of 10,000, with columns in between.
inline std::string jobText(std::size_t number, std::size_t reads, std::size_t columns) {
  const auto table = [](std::size_t of) {
    return std::pair("schema_" + std::to_string(of % 20), "table_" + std::to_string(of));
  };
  std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<SQLCreateTableSelect version=\"1\">\n"
                    "  <DatabaseConnectionObject Name=\"Warehouse\" DbDACType=\"ODBC\"/>\n"
                    "  <Create TargetName=\"" +
                    table(number).first + "." + table(number).second + "\"/>\n  <Query>\n    <From>\n";
  for (std::size_t i = 1; i <= reads; ++i) {
    const auto [schema, name] = table(reads > 100 ? i : (number * i + i) % 10'000);
    xml += "      <SourceTable Name=\"s" + std::to_string(i) +
           "\" PathURI=\"qvd:///Warehouse?type=ODBC&amp;schema=" + schema + "&amp;table=" + name + "\"/>\n";
  }
  xml += "    </From>\n    <Columns>\n";
  for (std::size_t i = 0; i < columns; ++i)
    xml += "      <Column Name=\"column_" + std::to_string(i) + "\" Expression=\"s" +
           std::to_string(i % 5 + 1) + ".column_" + std::to_string(i) + "\"/>\n";
  return xml + "    </Columns>\n  </Query>\n</SQLCreateTableSelect>\n";
}

// So many job files of six tables, in folders.
inline void fill(const JobFolder& folder, int count) {
  for (int i = 0; i < count; ++i) {
    const std::string below = folder.path + "/folder_" + std::to_string(i % 50);
    std::filesystem::create_directories(below);
    std::ofstream(below + "/job_" + std::to_string(i) + ".djf")
        << jobText(static_cast<std::size_t>(i), 5, 20);
  }
}

// As `qvrepos lineage` makes it: the lineage of the job files as XML with layout. The result is the number of jobs.
inline std::size_t lineageOf(const std::string& path, unsigned threads) {
  struct Scanner {
    Released<QvImpactAnalysis> store{getQvLineageAnalysis()};
    Released<QvResourceManager> manager{createQvResourceManager()};
  };
  const auto found = qvlineagegraph::findJobFiles(std::vector{path});
  std::vector<Released<QvResourceList>> used(found.files.size());
  std::size_t jobs = 0;
  Scanner recorder;
  qvlineagegraph::ParallelWork work;
  work.items = found.files.size();
  work.threads = threads;
  work.worker = [&] {
    return [&, scanner = std::make_shared<Scanner>()](std::size_t i) {
      used[i].reset(scanner->store->createResourceList());
      scanner->manager->addSQLResourcesFromFile(found.files[i].path.c_str(),
                                                scanner->store->getDefaultResourceFactory(), used[i].get());
    };
  };
  work.take = [&](std::size_t i) {
    const Released<QvResourceList> job(recorder.store->createResourceList());
    QvbString reference(found.files[i].path.c_str());
    recorder.manager->addJobFileNode(recorder.store->getDefaultResourceFactory(), job.get(), reference);
    if (job->next() && recorder.store->addDependentResources(job->getValue(), used[i].get()))
      ++jobs;
  };
  work.release = [&](std::size_t i) { used[i].reset(); };
  qvlineagegraph::workInOrder(work);
  QvbString xml;
  if (!recorder.store->getLineageAsString(&xml, nullptr, true) || xml.isEmpty())
    throw std::runtime_error("no lineage");
  return jobs;
}

#ifdef QV_WITH_LIBXML2
inline void collectNames(xmlNode* node, std::vector<std::string>& names) {
  for (; node; node = node->next) {
    if (node->type != XML_ELEMENT_NODE)
      continue;
    for (const char* attribute : {"Name", "PathURI", "TargetName"})
      if (xmlChar* value = xmlGetProp(node, reinterpret_cast<const xmlChar*>(attribute))) {
        names.emplace_back(reinterpret_cast<const char*>(value));
        xmlFree(value);
      }
    collectNames(node->children, names);
  }
}

// Nothing but a tree of each file, and the names in it.
inline std::size_t namesOf(const std::string& path) {
  std::size_t jobs = 0;
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(path)) {
    if (!entry.is_regular_file())
      continue;
    const xmlDocPtr tree = xmlReadFile(entry.path().c_str(), nullptr, XML_PARSE_NONET | XML_PARSE_HUGE);
    if (!tree)
      throw std::runtime_error("libxml2 does not read " + entry.path().string());
    names.clear();
    collectNames(xmlDocGetRootElement(tree), names);
    xmlFreeDoc(tree);
    jobs += names.empty() ? 0 : 1;
  }
  return jobs;
}
#endif
