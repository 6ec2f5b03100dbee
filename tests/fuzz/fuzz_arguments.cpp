// Any words, one a line, as the tool's arguments, which are parsed but not acted upon: they are taken, or refused with
// a message of two lines that instructs no terminal. "help WORD..." asks for what "WORD... --help" asks for.
#include "commandline.h"
#include "fuzz.h"
#include "host.h"
#include "settings.h"
#include "usage.h"

#include <algorithm>
#include <sstream>

namespace {

void doNothing(CLI::App& command) {
  command.final_callback(nullptr);
  command.parse_complete_callback(nullptr);
  for (CLI::App* child : command.get_subcommands([](const CLI::App*) { return true; }))
    doNothing(*child);
}

struct Answer {
  int status = exitSuccess;
  std::string result;
  std::string message;
  bool operator==(const Answer&) const = default;
};

Answer answerTo(std::vector<std::string> words) {
  Host host;
  Settings settings;
  CLI::App app("", "qvrepos");
  addCommands(app, settings, host);
  doNothing(app);
  words.insert(words.begin(), "qvrepos");
  std::vector<char*> arguments;
  for (auto& word : words)
    arguments.push_back(word.data());
  try {
    app.parse(reversedWords(app, static_cast<int>(arguments.size()), arguments.data()));
  } catch (const CLI::ParseError& error) {
    std::ostringstream result;
    std::ostringstream message;
    const int status = app.exit(error, result, message) == 0 ? exitSuccess : exitUsage;
    return {status, result.str(), message.str()};
  }
  return {};
}

// Whether each is a command of the one before.
bool areCommands(std::span<const std::string> words) {
  Host host;
  Settings settings;
  CLI::App app("", "qvrepos");
  addCommands(app, settings, host);
  const CLI::App* command = &app;
  for (const auto& word : words) {
    command = command->get_subcommand_no_throw(word);
    if (!command)
      return false;
  }
  return true;
}

void checkMessage(const Answer& answer) {
  require(answer.message.starts_with("qvrepos") && answer.message.ends_with('\n'));
  require(std::ranges::count(answer.message, '\n') == 2);
  std::string text = answer.message;
  std::erase(text, '\n');
  require(toString(qvbEscapeControls(text)) == text);
  require(answer.result.empty());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<std::string> words;
  std::istringstream lines(std::string(reinterpret_cast<const char*>(data), size));
  for (std::string line; std::getline(lines, line);)
    words.emplace_back(line.c_str()); // a zero byte ends a word of a command line

  Answer answer;
  costsAtMost(4096, size, [&] { answer = answerTo(words); });
  require(answer == answerTo(words));
  if (answer.status == exitUsage)
    checkMessage(answer);
  else
    require(answer.message.empty());

  if (!words.empty() && areCommands(words)) {
    auto asked = words;
    asked.insert(asked.begin(), "help");
    words.emplace_back("--help");
    require(answerTo(asked) == answerTo(words) && answerTo(words).status == exitSuccess);
  }
  return 0;
}
