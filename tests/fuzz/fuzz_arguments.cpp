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

// Thrown when all is parsed, before any command begins.
struct Taken {};

struct Answer {
  int status = exitSuccess;
  std::string result;
  std::string message;
  bool operator==(const Answer&) const = default;
};

// Made once, which takes longer than a parse.
class CommandLine {
public:
  CommandLine() {
    addCommands(m_app, m_settings, m_host);
    m_app.parse_complete_callback([] { throw Taken(); });
  }

  Answer answerTo(std::vector<std::string> words) {
    words.insert(words.begin(), "qvrepos");
    std::vector<char*> arguments;
    for (auto& word : words)
      arguments.push_back(word.data());
    try {
      m_app.parse(reversedWords(m_app, static_cast<int>(arguments.size()), arguments.data()));
    } catch (const CLI::ParseError& error) {
      std::ostringstream result;
      std::ostringstream message;
      const int status = m_app.exit(error, result, message) == 0 ? exitSuccess : exitUsage;
      return {status, result.str(), message.str()};
    } catch (const Taken&) {
      return {};
    }
    std::abort(); // a parse ends in one of these ways
  }

  // Whether each is a command of the one before, that help lists.
  bool areCommands(const std::vector<std::string>& words) const {
    const CLI::App* command = &m_app;
    for (const auto& word : words) {
      const auto named = command->get_subcommands(
          [&](const CLI::App* child) { return child->get_name() == word && !child->get_group().empty(); });
      if (named.empty())
        return false;
      command = named.front();
    }
    return true;
  }

private:
  Host m_host;
  Settings m_settings;
  CLI::App m_app{"", "qvrepos"};
};

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

  static CommandLine line;
  Answer answer;
  costsAtMost(4096, size, [&] { answer = line.answerTo(words); });
  require(answer == line.answerTo(words));
  if (answer.status == exitUsage)
    checkMessage(answer);
  else
    require(answer.message.empty());

  if (!words.empty() && line.areCommands(words)) {
    auto asked = words;
    asked.insert(asked.begin(), "help");
    words.emplace_back("--help");
    const auto help = line.answerTo(words);
    require(help.status == exitSuccess && !help.result.empty() && line.answerTo(asked) == help);
  }
  return 0;
}
