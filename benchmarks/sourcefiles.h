// Small files with names of a usual length, and a folder for copies of them; all gone at the end.
#pragma once

#include "qvxbase/qvbstring.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

class SourceFiles {
public:
  explicit SourceFiles(int count = 64) {
    std::string pattern = (std::filesystem::temp_directory_path() / "qvbench.XXXXXX").string();
    if (!mkdtemp(pattern.data()))
      throw std::runtime_error("no temporary folder: " + pattern);
    m_folder = pattern;
    for (int i = 0; i < count; ++i) {
      paths.push_back(m_folder / ("customers_" + std::to_string(i) + ".job"));
      std::ofstream(paths.back()) << "<ProcessJob/>\n";
      uris.emplace_back(("file://" + paths.back().string()).c_str());
    }
    std::filesystem::create_directory(copies());
  }
  ~SourceFiles() {
    std::error_code ignored;
    std::filesystem::remove_all(m_folder, ignored);
  }
  SourceFiles(const SourceFiles&) = delete;
  SourceFiles& operator=(const SourceFiles&) = delete;

  std::filesystem::path copies() const { return m_folder / "copies"; }

  std::vector<std::filesystem::path> paths;
  std::vector<QvbString> uris;

private:
  std::filesystem::path m_folder;
};
