// Expected texts kept as files under tests/data.
#pragma once

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

// The golden's text. With QV_REGENERATE_GOLDENS set, `actual` is written as the new golden first.
inline std::string golden(const std::string& name, const std::string& actual) {
  const std::string path = std::string(QV_TEST_DATA) + "/" + name;
  if (std::getenv("QV_REGENERATE_GOLDENS"))
    std::ofstream(path, std::ios::binary) << actual;
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}
