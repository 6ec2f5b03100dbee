// The data models of tests/data/health-models.tsv: as rows, as a graph, and as job files.
#pragma once

#include "qvlineagegraph/graph.h"
#include "support/tempdir.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

struct HealthModel {
  std::string path; // models/a/b
  std::string makes;
  std::vector<std::string> reads;
};

inline std::vector<HealthModel> healthModels() {
  std::vector<HealthModel> models;
  std::ifstream in(QV_TEST_DATA "/health-models.tsv");
  for (std::string line; std::getline(in, line);) {
    std::istringstream fields(line);
    HealthModel model;
    std::getline(fields, model.path, '\t');
    std::getline(fields, model.makes, '\t');
    for (std::string table; std::getline(fields, table, '\t');)
      model.reads.push_back(table);
    models.push_back(std::move(model));
  }
  return models;
}

// The graph as a scan would make it, without the files.
inline qvlineagegraph::Graph graphOf(const std::vector<HealthModel>& models) {
  using namespace qvlineagegraph;
  GraphBuilder builder;
  const auto source = builder.add({.type = NodeType::DataSource, .name = "Health"});
  const auto table = [&](const std::string& name) {
    const std::string path = "Health." + name;
    return builder.add(
        {.type = NodeType::Table, .name = path, .identity = "table:" + path, .source = source});
  };
  for (const auto& model : models) {
    const std::string file = "/jobs/" + model.path + ".xsq";
    const auto job = builder.add(
        {.type = NodeType::Job, .name = model.path, .identity = file, .file = file, .kind = "XMLSQLQuery"});
    for (const auto& read : model.reads)
      builder.addEdge({table(read), job, Access::Read, false});
    builder.addEdge({job, table(model.makes), Access::Write, false});
  }
  return builder.build();
}

// A job file for each model, below the folder.
inline void writeJobs(const TempDir& folder, const std::vector<HealthModel>& models) {
  for (const auto& model : models) {
    std::string step = "<SQLCreateTableSelect><DatabaseConnectionObject Name=\"Health\" DbDACType=\"ODBC\"/>"
                       "<Create TargetName=\"" +
                       model.makes + "\"/>\n";
    for (const auto& read : model.reads) {
      const auto dot = read.find('.');
      step += "<SourceTable PathURI=\"qvd:///Health?type=ODBC&amp;schema=" + read.substr(0, dot) +
              "&amp;table=" + read.substr(dot + 1) + "\"/>\n";
    }
    folder.write(model.path + ".xsq", step + "</SQLCreateTableSelect>");
  }
}
