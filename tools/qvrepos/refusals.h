// The definition files that are loaded, and those that are not, with the reason.
#pragma once

#include "host.h"

#include "qvreposres/qvreposconfigmgr.h"
#include "qvxbase/qvboptions.h"

#include <set>

// The options that name the folders of the system's and of the user's definitions.
inline constexpr const QvbOption* folderOptions[] = {&QvbOptions::SystemDefinitions,
                                                     &QvbOptions::UserDefinitions};

// A file that is not loaded, or a folder that cannot be read.
struct Refusal {
  std::string file;
  std::string reason; // names the file
  bool isDuplicate = false;
};

std::set<std::string> loadedFiles(QvReposConfigManager& manager);

// What is in the folders and not among the files that are loaded.
std::vector<Refusal> findRefusals(QvReposConfigManager& manager, const std::set<std::string>& loaded);
