// The host tool and the sample, as built.
#pragma once

#include "support/process.h"

#include <regex>

inline const std::string toolPath = QV_BINARY_DIR "/bin/qvrepos";
inline const std::string sampleConfig = QV_BINARY_DIR "/examples/qvrepos.ini";
inline const std::string sampleRepository = QV_SOURCE_DIR "/examples/repository";

// What the tool adds where definitions are wanted and no folder is set.
inline const std::string noFolderHint = "qvrepos: neither BASE/REPOS_SYS_PATH nor BASE/REPOS_USER_PATH is "
                                        "set: name the folder of the definitions "
                                        "with --set KEY=FOLDER or in the file of --config\n";

inline ProcessResult runTool(std::vector<std::string> words,
                             const std::vector<std::string>& environment = {}) {
  words.insert(words.begin(), toolPath);
  return runProcess(words, environment);
}

// Every subcommand that has none of its own ("definitions list"), as the manual page lists them.
inline std::vector<std::string> leafCommands() {
  const std::string manual = runTool({"generate", "man"}).out;
  static const std::regex heading("\\n\\.SS \\\\fBqvrepos ([a-z ]+)\\\\fR([^\\n]*)");
  std::vector<std::string> commands;
  for (std::sregex_iterator at(manual.begin(), manual.end(), heading), end; at != end; ++at)
    if ((*at)[2].str().find("SUBCOMMAND") == std::string::npos)
      commands.push_back((*at)[1]);
  return commands;
}
