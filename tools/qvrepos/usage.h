// Wrong usage: what it says, and the values that options take.
#pragma once

#include <CLI/CLI.hpp>

#include <span>
#include <string>
#include <string_view>
#include <vector>

// "; did you mean --json?" where one of the known words is like what was given, else nothing.
std::string didYouMean(std::string_view given, std::span<const std::string> known);

// One of these values, without regard to case. The option gets it as it is written here.
CLI::Validator oneOf(std::vector<std::string> values);
template<class Map>
CLI::Validator oneOfKeys(const Map& map) {
  std::vector<std::string> values;
  values.reserve(map.size());
  for (const auto& [key, value] : map)
    values.push_back(key);
  return oneOf(std::move(values));
}
// A whole number of that range.
CLI::Validator numberFrom(unsigned least, unsigned most);
// A level of the log, by name or number; the option gets the number.
CLI::Validator logLevel();

// Has no flag of any command take a value ("--quiet=1").
void refuseFlagValues(CLI::App& app);

// What a failed parse says: what is wrong, and where to read on.
std::string usageMessage(const CLI::App* app, const CLI::Error& error);

// The words of the command line, last word first, as the parser wants them.
std::vector<std::string> reversedWords(const CLI::App& app, int argc, char** argv);
