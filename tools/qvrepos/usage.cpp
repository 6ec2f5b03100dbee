#include "usage.h"
#include "host.h"

#include "qvxbase/qvbstring.h"

#include <algorithm>
#include <charconv>
#include <optional>

namespace {

// The least number of letters to change, add or leave out.
std::size_t distanceOf(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  for (std::size_t j = 0; j < row.size(); ++j)
    row[j] = j;
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i + 1);
    for (std::size_t j = 0; j < b.size(); ++j) {
      const std::size_t change = diagonal + (qvbEqualsIgnoreCase(a.substr(i, 1), b.substr(j, 1)) ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({change, row[j] + 1, diagonal + 1});
    }
  }
  return row.back();
}

std::optional<unsigned> numberOf(std::string_view text) {
  unsigned number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

std::vector<const CLI::App*> commandsOf(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App* sub) { return !sub->get_group().empty(); });
}

std::vector<std::string> namesOf(const CLI::App& command) {
  std::vector<std::string> names;
  for (const CLI::App* child : commandsOf(command))
    names.push_back(child->get_name());
  return names;
}

// As typed, those of every command too.
std::vector<std::string> optionNames(const CLI::App& app, const CLI::App& command) {
  std::vector<std::string> names;
  for (const CLI::App* one : {&command, &app})
    for (const CLI::Option* option : one->get_options())
      for (const auto& name : option->get_lnames())
        names.push_back("--" + name);
  return names;
}

// Why there is no subcommand, given the words that the parser did not know.
std::string whichIsMissing(const CLI::App& command, const std::vector<std::string>& unexpected) {
  const auto choices = namesOf(command);
  const std::string all = "; choose from " + CLI::detail::join(choices, ", ");
  if (unexpected.empty())
    return "a subcommand is missing" + all;
  const auto& word = unexpected.front();
  if (word.starts_with('-'))
    return "there is no option " + word + " before a subcommand" + all;
  const auto hint = didYouMean(word, choices);
  return "there is no subcommand " + word + (hint.empty() ? all : hint);
}

// Words that no option or operand takes.
std::string notExpected(const CLI::App& app, const CLI::App& command,
                        const std::vector<std::string>& unexpected) {
  const auto& word = unexpected.front();
  const auto name = word.substr(0, word.find('='));
  const bool isKnown =
      command.get_option_no_throw(name) || app.get_option_no_throw(name); // and stands behind "--"
  if (word.starts_with('-') && word != "-" && !isKnown)
    return "there is no option " + name + didYouMean(name, optionNames(app, command));
  return "not expected: " + CLI::detail::join(unexpected, " ");
}

// "NAME", and what the parser says of it.
std::pair<std::string, std::string> split(const std::string& text, std::string_view mark) {
  const auto at = text.find(mark);
  return at == std::string::npos ? std::pair(text, std::string())
                                 : std::pair(text.substr(0, at), text.substr(at + mark.size()));
}

// The parser's message of this kind in the tool's own words.
std::string inOwnWords(const std::string& kind, const std::string& message) {
  if (kind == "ExcludesError") {
    const auto [one, other] = split(message, " excludes ");
    return one + " and " + other + " do not go together; give one of them";
  }
  if (kind == "RequiredError")
    return split(message, " is required").first + " is missing";
  if (message.ends_with(" was given a disallowed flag override"))
    return (message.find(" was") == 1 ? "-" : "--") + split(message, " was given").first + " takes no value";
  if (kind == "ArgumentMismatch") {
    const auto [name, what] = split(message, ": ");
    if (what.ends_with(" missing")) {
      const std::string type = split(split(what, " required ").second, " missing").first;
      return name + ": a value is missing: " + split(type, ":").first;
    }
    return name + " is given more than once";
  }
  return message;
}

// What is wrong, in the tool's own words.
std::string whatIsWrong(const CLI::App& app, const CLI::App& command, const CLI::Error& error) {
  auto unexpected = app.remaining(true);
  std::erase(unexpected, "--");
  if (error.get_name() == "RequiredError" &&
      command.get_require_subcommand_min() > command.get_subcommands().size())
    return whichIsMissing(command, unexpected);
  return unexpected.empty() ? inOwnWords(error.get_name(), error.what())
                            : notExpected(app, command, unexpected);
}

// Whether the word is an option, of any command, whose value is the next word.
bool takesValue(const CLI::App& app, const std::string& word) {
  const auto* option = word.starts_with('-') ? app.get_option_no_throw(word) : nullptr;
  return (option && option->get_items_expected_max() > 0) ||
         std::ranges::any_of(app.get_subcommands([](const CLI::App*) { return true; }),
                             [&](const CLI::App* command) { return takesValue(*command, word); });
}

bool areCommands(const CLI::App& app, std::span<const std::string> words) {
  if (words.empty())
    return true;
  const auto commands = commandsOf(app);
  const auto named = std::ranges::find(commands, words.front(), &CLI::App::get_name);
  return named != commands.end() && areCommands(**named, words.subspan(1));
}

// Whether the command, or one below it, takes a list as its operands.
bool takesList(const CLI::App& command) {
  return std::ranges::any_of(command.get_options(),
                             [](const auto* option) {
                               return option->get_positional() && option->get_items_expected_max() > 1;
                             }) ||
         std::ranges::any_of(command.get_subcommands([](const CLI::App*) { return true; }),
                             [](const auto* child) { return takesList(*child); });
}

} // namespace

std::string didYouMean(std::string_view given, std::span<const std::string> known) {
  constexpr std::size_t longestWord = 60;
  std::size_t least = std::max<std::size_t>(1, std::min<std::size_t>(given.size(), longestWord) / 3) + 1;
  const std::string* nearest = nullptr;
  for (const auto& word : known)
    if (const auto far = given.size() > longestWord ? least : distanceOf(given, word); far < least) {
      least = far;
      nearest = &word;
    }
  return nearest ? "; did you mean " + *nearest + "?" : "";
}

CLI::Validator oneOf(std::vector<std::string> values) {
  const std::string all = "{" + CLI::detail::join(values, ",") + "}";
  return {[values = std::move(values)](std::string& given) -> std::string {
            for (const auto& value : values)
              if (qvbEqualsIgnoreCase(value, given)) {
                given = value;
                return {};
              }
            return (given.empty() ? "must not be empty" : "there is no " + given) + "; choose from " +
                   CLI::detail::join(values, ", ");
          },
          all};
}

CLI::Validator numberFrom(unsigned least, unsigned most) {
  return {[least, most](const std::string& given) -> std::string {
            const auto number = numberOf(given);
            return number && *number >= least && *number <= most
                       ? ""
                       : "not a whole number from " + std::to_string(least) + " to " + std::to_string(most) +
                             ": " + given;
          },
          ""};
}

CLI::Validator logLevel() {
  static const std::vector<std::string> names{"trace", "debug", "info", "warning", "error", "critical"};
  return {[](std::string& given) -> std::string {
            for (std::size_t i = 0; i < names.size(); ++i)
              if (qvbEqualsIgnoreCase(names[i], given)) {
                given = std::to_string(i + 1);
                return {};
              }
            const auto number = numberOf(given);
            return number && *number >= 1 && *number <= names.size()
                       ? ""
                       : "there is no level " + given + "; choose from " + CLI::detail::join(names, ", ") +
                             ", or 1 to 6";
          },
          "{" + CLI::detail::join(names, ",") + "}"};
}

void refuseFlagValues(CLI::App& app) {
  for (CLI::Option* option : app.get_options())
    if (option->get_items_expected_max() == 0)
      option->disable_flag_override();
  for (CLI::App* command : app.get_subcommands([](CLI::App*) { return true; }))
    refuseFlagValues(*command);
}

std::string usageMessage(const CLI::App* app, const CLI::Error& error) {
  const CLI::App* command = app;
  std::string words = app->get_name();
  while (!command->get_subcommands().empty()) {
    command = command->get_subcommands().front();
    words += " " + command->get_name();
  }
  const std::string common =
      command == app ? "" : ", `" + app->get_name() + " --help` what every command takes";
  return words + ": " + visible(whatIsWrong(*app, *command, error)) + "\n`" + words +
         " --help` shows what it takes" + common + "\n";
}

// "help lineage" is "lineage --help". Where files may be listed the parser would take an operand "[a,b]" for a list of its
// own; "./[a,b]" names the same file.
std::vector<std::string> reversedWords(const CLI::App& app, int argc, char** argv) {
  std::vector<std::string> words(argv + std::min(argc, 1), argv + argc);
  if (!words.empty() && words.front() == "help") {
    words.erase(words.begin());
    if (areCommands(app, words))
      words.emplace_back("--help");
  }
  const auto commands = app.get_subcommands([](const CLI::App* command) { return takesList(*command); });
  const bool mayList = std::ranges::any_of(words, [&](const std::string& word) {
    return std::ranges::find(commands, word, &CLI::App::get_name) != commands.end();
  });
  for (std::size_t i = 1; mayList && i < words.size(); ++i)
    if (words[i].starts_with('[') && words[i].ends_with(']') && !takesValue(app, words[i - 1]))
      words[i].insert(0, "./");
  std::ranges::reverse(words);
  return words;
}
