#include "settings.h"
#include "usage.h"

#include "qvxbase/qvbconfig.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace fs = std::filesystem;

namespace {

std::string environment(const char* name) {
  const char* value = std::getenv(name);
  return value ? value : "";
}

// Empty when there is none.
std::string ownOptionFile() {
  fs::path folder = environment("XDG_CONFIG_HOME");
  if (folder.empty() && !environment("HOME").empty())
    folder = fs::path(environment("HOME")) / ".config";
  std::error_code ignored;
  const fs::path file = folder / "qvrepos.ini";
  return !folder.empty() && fs::exists(file, ignored) ? file.string() : "";
}

// A file that somebody named has to be one.
void useOptionFile(const std::string& file, const std::string& namedBy) {
  std::error_code ignored;
  if (const auto status = fs::status(file, ignored); fs::exists(status) && !fs::is_regular_file(status))
    throw std::runtime_error(file + ": no regular file, where an option file is due; " + namedBy +
                             " names it");
  QvbString fault;
  if (!qvbCheckConfigFile(QvbString(file), &fault))
    throw std::runtime_error(toString(fault) + "; " + namedBy + " names it");
  setenv("QV_CONFIG", file.c_str(), 1);
}

void setOption(const std::string& setting, Host& host) {
  const auto equals = setting.find('=');
  const auto key = setting.substr(0, equals);
  const auto known = optionKeys();
  if (std::ranges::none_of(known, [&](const auto& one) { return qvbEqualsIgnoreCase(one, key); })) {
    const auto hint = didYouMean(key, known);
    host.note("no option is named " + key + (hint.empty() ? "; the manual page lists all" : hint));
  }
  qvbSetConfigOption(QvbString(key), QvbString(setting.substr(equals + 1)));
}

} // namespace

std::vector<std::string> optionKeys() {
  std::vector<std::string> keys;
  for (const QvbOption* option : QvbOptions::All)
    keys.emplace_back(option->key);
  return keys;
}

void addSettings(CLI::App& app, Settings& settings, Host& host) {
  app.add_option("--config", settings.configFile,
                 "Read options from this INI file, instead of that of QV_CONFIG or "
                 "$XDG_CONFIG_HOME/qvrepos.ini")
      ->type_name("FILE")
      ->check(notEmpty());
  app.add_option("--set", settings.options,
                 "Set an option, for example DMSERVER/NAME=main; wins over --config")
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->allow_extra_args(false)
      ->type_name("KEY=VALUE")
      ->expected(1)
      ->check([](const std::string& setting) {
        const auto equals = setting.find('=');
        return equals == std::string::npos || equals == 0 ? "write it as KEY=VALUE: " + setting
                                                          : std::string();
      });
  app.add_option("--log-level", host.logLevel,
                 "Log records from this level on; a number from 1 to 6 is a level too")
      ->type_name("LEVEL")
      ->transform(logLevel());
}

void applySettings(const Settings& settings, Host& host) {
  const std::pair<std::string, const char*> places[] = {{settings.configFile, "--config"},
                                                        {environment("QV_CONFIG"), "QV_CONFIG"},
                                                        {ownOptionFile(), "XDG_CONFIG_HOME"}};
  for (const auto& [file, namedBy] : places)
    if (!file.empty()) {
      useOptionFile(file, namedBy);
      break;
    }
  for (const auto& setting : settings.options)
    setOption(setting, host);
  if (host.logLevel != 0)
    qvlogSetLevel(static_cast<QvLoggingLevel>(host.logLevel));
  host.setDefaultLogLevel(QvLoggingLevel::Error);
}
