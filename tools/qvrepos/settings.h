// What every command takes: where options are read from, single options, and the level of the log.
#pragma once

#include "host.h"

struct Settings {
  std::string configFile;
  std::vector<std::string> options; // KEY=VALUE
};

// The keys of all options, as they are written in --set.
std::vector<std::string> optionKeys();

void addSettings(CLI::App& app, Settings& settings, Host& host);
// Takes the options from one file - that of --config, else of QV_CONFIG, else the user's own,
// $XDG_CONFIG_HOME/qvrepos.ini - and those of --set over it. Throws when the file cannot be read or is no option file.
void applySettings(const Settings& settings, Host& host);
