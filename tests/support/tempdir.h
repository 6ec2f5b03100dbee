// A folder of the test's own, gone with everything in it at the end.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>

class TempDir {
public:
  TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "qvtest.XXXXXX").string();
    if (!mkdtemp(pattern.data()))
      throw std::runtime_error("no temporary folder: " + pattern);
    m_path = pattern;
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::filesystem::path& path() const { return m_path; }
  std::string operator/(std::string_view name) const { return (m_path / name).string(); }

  // Writes a file below the folder, making the folders on its way, and returns its path.
  std::string write(std::string_view name, std::string_view content) const {
    const auto target = m_path / name;
    std::filesystem::create_directories(target.parent_path());
    std::ofstream(target, std::ios::binary) << content;
    return target.string();
  }
  std::string read(std::string_view name) const {
    std::ifstream in(m_path / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }

private:
  std::filesystem::path m_path;
};
