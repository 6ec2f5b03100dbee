// The host tool and the sample, as built.
#pragma once

#include "support/process.h"

inline const std::string toolPath = QV_BINARY_DIR "/bin/qvrepos";
inline const std::string sampleConfig = QV_BINARY_DIR "/examples/qvrepos.ini";
inline const std::string sampleRepository = QV_SOURCE_DIR "/examples/repository";

inline ProcessResult runTool(std::vector<std::string> words,
                             const std::vector<std::string>& environment = {}) {
  words.insert(words.begin(), toolPath);
  return runProcess(words, environment);
}
