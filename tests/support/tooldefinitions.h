// A system folder and a user folder of a test's own, and the tool's definitions in them.
#pragma once

#include "support/tool.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

class Definitions : public testing::Test {
protected:
  Definitions() {
    std::filesystem::create_directory(m_folder.path() / "system");
    std::filesystem::create_directory(m_folder.path() / "user");
  }
  ProcessResult run(std::vector<std::string> words) const {
    words.insert(words.begin(), "definitions");
    for (const char* setting : {"SYS", "USER"}) {
      words.emplace_back("--set");
      words.push_back("BASE/REPOS_" + std::string(setting) +
                      "_PATH=" + (m_folder / (setting == std::string("SYS") ? "system" : "user")));
    }
    return runTool(words);
  }
  nlohmann::json show(const std::string& name) const {
    return nlohmann::json::parse(run({"show", name, "--json"}).out);
  }
  std::string definition(const std::string& name) const {
    return "<VaultRepositoryInfo Name=\"" + name + "\"/>";
  }

  const TempDir m_folder;
};
