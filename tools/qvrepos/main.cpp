// qvrepos: the services of the Repository Resource Library on the command line.
//
// Results go to standard output, everything else to standard error. Exit status: 0 success, 1 the operation failed (for
// some input), 2 wrong usage.
#include "host.h"
#include "interrupt.h"

#include "qvreposres/qvreposres.h"
#include "qvxbase/qvbconfig.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <sstream>

namespace {

struct GlobalOptions {
  std::string configFile;
  std::vector<std::string> settings;
};

void addGlobalOptions(CLI::App& app, GlobalOptions& options, Host& host) {
  app.add_option("--config", options.configFile, "Read options from this INI file")
      ->type_name("FILE")
      ->check(CLI::Validator(CLI::ExistingFile).description(""));
  app.add_option("--set", options.settings,
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
  app.add_option("--log-level", host.logLevel, "Log records from this level on, 1 (trace) to 6 (critical)")
      ->type_name("N")
      ->check(CLI::Validator(CLI::Range(1, 6)).description(""));
  app.add_flag("-q,--quiet", host.quiet, "Show no progress and no hints");
  app.set_version_flag("--version", qvx_build_info, "Print the library's version and exit");
  app.get_formatter()->label("TEXT", ""); // operands are named in capitals
  app.fallthrough();
  app.require_subcommand(1);
}

bool isKnownOption(const QvbString& key) {
  return std::ranges::any_of(
      QvbOptions::All, [&](const QvbOption* option) { return qvbEqualsIgnoreCase(key.view(), option->key); });
}

void applyGlobalOptions(const GlobalOptions& options, Host& host) {
  if (!options.configFile.empty())
    setenv("QV_CONFIG", options.configFile.c_str(), 1);
  for (const auto& setting : options.settings) {
    const auto key = text(setting.substr(0, setting.find('=')));
    if (!isKnownOption(key))
      host.note("no option is named " + str(key) + "; the manual page lists all");
    qvbSetConfigOption(key, text(setting.substr(setting.find('=') + 1)));
  }
  if (host.logLevel != 0)
    qvlogSetLevel(static_cast<QvLoggingLevel>(host.logLevel));
  host.setDefaultLogLevel(QvLoggingLevel::Error);
}

// The library's process-wide holders, for as long as the tool runs.
struct LibrarySession {
  LibrarySession() {
    void* reserved = nullptr;
    qvReposResStartup(nullptr, &reserved);
  }
  ~LibrarySession() { qvReposResShutdown(); }
};

// The names of the subcommands that a user may choose from.
std::string choicesOf(const CLI::App& command) {
  std::vector<std::string> names;
  for (const CLI::App* child :
       command.get_subcommands([](const CLI::App* sub) { return !sub->get_group().empty(); }))
    names.push_back(child->get_name());
  return CLI::detail::join(names, ", ");
}

// Why there is no subcommand, given the words that the parser did not know.
std::string whichIsMissing(const std::vector<std::string>& unexpected) {
  if (unexpected.empty())
    return "a subcommand is missing";
  const auto& word = unexpected.front();
  return word.starts_with('-') ? "there is no option " + word + " before a subcommand"
                               : "there is no subcommand " + word;
}

// What is wrong: the parser's own words, but for what it says less about than is known.
std::string whatIsWrong(const CLI::App& app, const CLI::App& command, const CLI::Error& error) {
  const auto unexpected = app.remaining(true);
  if (error.get_name() == "RequiredError" &&
      command.get_require_subcommand_min() > command.get_subcommands().size())
    return whichIsMissing(unexpected) + "; choose from " + choicesOf(command);
  return unexpected.empty() ? error.what() : "not expected: " + CLI::detail::join(unexpected, " ");
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

// Whether the word is an option, of any command, whose value is the next word.
bool takesValue(const CLI::App& app, const std::string& word) {
  const auto* option = word.starts_with('-') ? app.get_option_no_throw(word) : nullptr;
  return (option && option->get_items_expected_max() > 0) ||
         std::ranges::any_of(app.get_subcommands([](const CLI::App*) { return true; }),
                             [&](const CLI::App* command) { return takesValue(*command, word); });
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

// The words of the command line, last word first, as the parser wants them. Where files may be listed it would take an
// operand "[a,b]" for a list of its own; "./[a,b]" names the same file.
std::vector<std::string> reversedWords(const CLI::App& app, int argc, char** argv) {
  std::vector<std::string> words(argv + std::min(argc, 1), argv + argc);
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

// A parse that ends early: help and version, which are results, or wrong usage.
int endParsing(const CLI::App& app, const CLI::ParseError& error, Host& host) {
  std::ostringstream result;
  if (app.exit(error, result, std::cerr) != static_cast<int>(CLI::ExitCodes::Success))
    return exitUsage;
  host.print(result.str());
  return host.finish();
}

int run(int argc, char** argv) {
  Host host;
  GlobalOptions options;
  CLI::App app("The services of the Repository Resource Library on the command line.", "qvrepos");
  app.failure_message(usageMessage);
  addGlobalOptions(app, options, host);
  std::optional<LibrarySession> session; // begins once the options are known: logging depends on them
  app.parse_complete_callback([&] {
    applyGlobalOptions(options, host);
    session.emplace();
  });
  addLineageCommand(app, host);
  addResourcesCommand(app, host);
  addDefinitionsCommand(app, host);
  addIdentityCommand(app, host);
  addUriCommands(app, host);
  addTypesCommand(app, host);
  addCacheCommand(app, host);
  addVersionCommand(app, host);
  addGraphCommands(app, host);
  addDiffCommand(app, host);
  addAuditCommand(app, host);
  addGenerateCommand(app, host);

  try {
    app.parse(reversedWords(app, argc, argv));
  } catch (const CLI::ParseError& error) {
    return endParsing(app, error, host);
  } catch (const std::bad_alloc&) {
    host.fail("out of memory");
  } catch (const std::exception& error) {
    host.fail(error.what());
  }
  return host.finish();
}

} // namespace

int main(int argc, char** argv) {
  // A closed pipe and a limit on the size of files are failed writes, which are reported.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  try {
    Interrupts::watch();
    return run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "qvrepos: %s\n", error.what());
    return exitFailed;
  }
}
