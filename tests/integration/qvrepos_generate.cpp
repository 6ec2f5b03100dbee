// The manual page and the completions say what --help says, and hold in the programs that read them.
#include "support/tool.h"

#include <gmock/gmock.h>

#include <functional>
#include <regex>
#include <sstream>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::UnorderedElementsAre;

namespace {

using Words = std::vector<std::string>;

const std::string manualFile = QV_BINARY_DIR "/share/man/man1/qvrepos.1";
const std::string bashFile = QV_BINARY_DIR "/share/bash-completion/completions/qvrepos";
const std::string zshFile = QV_BINARY_DIR "/share/zsh/vendor-completions/_qvrepos";

Words linesOf(const std::string& text) {
  Words lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);)
    lines.push_back(line);
  return lines;
}

std::string generated(const std::string& form) {
  const auto run = runTool({"generate", form});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.err, "");
  return run.out;
}

// One command as its --help shows it.
struct Helped {
  std::string words; // "qvrepos cache get"
  Words options;     // every name of every option
  Words subcommands;
};

Helped readHelp(const Words& words) {
  Words command = words;
  command.push_back("--help");
  Helped helped{"qvrepos", {}, {}};
  for (const auto& word : words)
    helped.words += " " + word;
  std::string section;
  static const std::regex optionName("(^|[ ,])(--?[a-z][-a-z]*)");
  for (const auto& line : linesOf(runTool(command).out)) {
    if (!line.empty() && line.front() != ' ')
      section = line;
    else if (section == "Subcommands:" && line.size() > 2)
      helped.subcommands.push_back(line.substr(2, line.find(' ', 2) - 2));
    else if (section == "Options:" && line.rfind("  -", 0) == 0) {
      const std::string names = line.substr(2, line.find(' ', 2) - 2);
      for (std::sregex_iterator at(names.begin(), names.end(), optionName), end; at != end; ++at)
        helped.options.push_back((*at)[2]);
    }
  }
  return helped;
}

std::vector<Helped> allHelp() {
  std::vector<Helped> all;
  const std::function<void(const Words&)> collect = [&](const Words& words) {
    all.push_back(readHelp(words));
    for (const auto& name : Words(all.back().subcommands)) {
      Words child = words;
      child.push_back(name);
      collect(child);
    }
  };
  collect({});
  return all;
}

std::string replaced(const std::string& text, const std::string& what, const std::string& by) {
  return std::regex_replace(text, std::regex(what), by);
}

// The part of a text from a mark up to the next line that begins with `end`.
std::string partOf(const std::string& text, const std::string& mark, const std::string& end) {
  const auto from = text.find(mark);
  if (from == std::string::npos)
    return {};
  return text.substr(from, text.find("\n" + end, from) - from);
}

// What bash offers for the last of the words.
Words completed(Words words, const std::string& folder = "/") {
  words.insert(words.begin(), "qvrepos");
  Words command{"bash", "--norc", "-c",
                "source \"$0\" && COMP_WORDS=(\"$@\") COMP_CWORD=$(($# - 1)) && _qvrepos && "
                "((${#COMPREPLY[@]} == 0)) || printf '%s\\n' \"${COMPREPLY[@]}\"",
                bashFile};
  command.insert(command.end(), words.begin(), words.end());
  const auto run = runProcess(command, {}, "", folder);
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.err, "");
  return linesOf(run.out);
}

TEST(QvreposGenerate, TheCommandThatMakesTheFilesIsNotInTheHelpNorInTheFiles) {
  EXPECT_THAT(runTool({"--help"}).out, Not(HasSubstr("generate")));
  EXPECT_THAT(generated("man"), Not(HasSubstr("generate")));
  EXPECT_THAT(completed({"gen"}), IsEmpty()); // the completions call it, and do not offer it
  EXPECT_THAT(generated("zsh"), Not(HasSubstr("'generate:")));
}

TEST(QvreposGenerate, AnotherFormIsWrongUsage) {
  const auto run = runTool({"generate", "html"});
  EXPECT_EQ(run.status, 2);
  EXPECT_EQ(run.out, "");
  EXPECT_THAT(
      run.err,
      HasSubstr("FORM: there is no html; choose from bash, commands, definitions, man, options, types, zsh"));
}

TEST(QvreposGenerate, TheBuildHoldsWhatTheToolPrints) {
  for (const auto& [form, file] : {std::pair{"man", manualFile}, {"bash", bashFile}, {"zsh", zshFile}}) {
    std::ostringstream built;
    built << std::ifstream(file).rdbuf();
    EXPECT_EQ(built.str(), generated(form));
  }
}

TEST(QvreposGenerate, EverySubcommandAndOptionOfTheHelpIsInEachForm) {
  const std::string man = generated("man"), bash = generated("bash"), zsh = generated("zsh");
  const auto all = allHelp();
  EXPECT_GT(all.size(), 15U);
  for (const auto& helped : all) {
    const bool root = helped.words == "qvrepos";
    const std::string page = partOf(man, root ? ".SH OPTIONS" : ".SS \\fB" + helped.words + "\\fR", ".S");
    const std::string words = partOf(bash, "    '" + helped.words + "')", "      ;;");
    const std::string function = partOf(zsh, "_" + replaced(helped.words, " ", "_") + "() {", "}");
    ASSERT_FALSE(page.empty() || words.empty() || function.empty()) << helped.words;
    EXPECT_FALSE(helped.options.empty()) << helped.words;
    for (const auto& option : helped.options) {
      EXPECT_THAT(page, HasSubstr("\\fB" + replaced(option, "-", "\\-") + "\\fR")) << helped.words;
      EXPECT_TRUE(std::regex_search(words, std::regex("[' ]" + option + "[' ]"))) << helped.words << option;
      EXPECT_THAT(function, HasSubstr(option + "[")) << helped.words;
    }
    for (const auto& name : helped.subcommands) {
      EXPECT_TRUE(std::regex_search(words, std::regex("[' ]" + name + "[' ]"))) << helped.words << name;
      EXPECT_THAT(function, HasSubstr("\n        '" + name + ":")) << helped.words;
    }
  }
}

TEST(QvreposGenerate, TheManualPageHasItsSectionsInOrder) {
  Words sections;
  for (const auto& line : linesOf(generated("man")))
    if (line.rfind(".SH ", 0) == 0)
      sections.push_back(line.substr(4));
  EXPECT_THAT(sections, ElementsAre("NAME", "SYNOPSIS", "DESCRIPTION", "OPTIONS", "SUBCOMMANDS",
                                    "\"LIBRARY OPTIONS\"", "\"EXIT STATUS\"", "ENVIRONMENT", "EXAMPLES"));
}

// Text is escaped: only known requests begin a line, and only known escapes follow a backslash.
TEST(QvreposGenerate, TheManualPageHoldsNoAccidentalRequestOrEscape) {
  static const std::regex request("\\.(TH|SH|SS|TP|PP|RS|RE|nf|fi|B)( .*)?");
  static const std::regex plain("[^.'\\\\](.*)");
  static const std::regex formatted("\\\\(f[BIR]|&|\\(aq|\\(dq).*");
  static const std::regex stray("\\\\(?!f[BIR]|-|e|&|\\(aq|\\(dq)");
  for (const auto& line : linesOf(generated("man"))) {
    EXPECT_TRUE(std::regex_match(line, request) || std::regex_match(line, plain) ||
                std::regex_match(line, formatted))
        << line;
    EXPECT_FALSE(std::regex_search(line, stray)) << line;
  }
}

TEST(QvreposGenerate, TheManualPageShowsTheExamplesOfTheHelpAsTyped) {
  const std::string man = generated("man");
  EXPECT_THAT(man, HasSubstr(".nf\nqvrepos cache get file:///etc/hostname \\-o copy.txt\n.fi\n"));
  EXPECT_THAT(
      man,
      HasSubstr("qvrepos identity parse \\(dq$(qvrepos identity make datasource \\-\\-dsn Sales)\\(dq\n"));
}

TEST(QvreposGenerate, BashTakesTheCompletionForTheTool) {
  const auto run = runProcess({"bash", "--norc", "-c", "source \"$0\"; complete -p qvrepos", bashFile});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "complete -F _qvrepos qvrepos\n");
  EXPECT_EQ(run.err, "");
}

TEST(QvreposGenerate, BashCompletesSubcommandsAtEachLevel) {
  EXPECT_THAT(completed({"li"}), ElementsAre("lineage"));
  EXPECT_THAT(completed({"identity", ""}), ElementsAre("make", "parse"));
  EXPECT_THAT(completed({"he"}), ElementsAre("help"));
  EXPECT_THAT(completed({"help", "cache", ""}), ElementsAre("get"));
  EXPECT_THAT(completed({"cache", "he"}), IsEmpty());
  EXPECT_THAT(completed({"identity", "make", ""}), ElementsAre("datasource", "file", "table", "unified"));
  EXPECT_THAT(completed({"-q", "--set", "lineage", "cache", ""}), ElementsAre("get"));
  EXPECT_THAT(completed({"--set", "KEY", "=", "lineage", "cache", ""}), ElementsAre("get"));
}

TEST(QvreposGenerate, BashCompletesTheCommandsOwnOptionsAndThoseOfTheTool) {
  EXPECT_THAT(completed({"lineage", "--co"}), UnorderedElementsAre("--compact", "--config"));
  EXPECT_THAT(completed({"cache", "get", "--k"}), ElementsAre("--keep"));
  EXPECT_THAT(completed({"version", "--k"}), IsEmpty());
}

TEST(QvreposGenerate, BashCompletesFilesWhereAFileIsDue) {
  const TempDir folder;
  folder.write("a job.djf", "");
  folder.write("other", "");
  for (const Words& words :
       {Words{"resources", "a"}, Words{"lineage", "--compact", "a"}, Words{"--config", "a"},
        Words{"--config", "=", "a"}, Words{"version", "--config", "a"}, Words{"lineage", "-o", "a"}})
    EXPECT_THAT(completed(words, folder.path()), ElementsAre("a job.djf")) << words.front();
  EXPECT_THAT(completed({"--config", "="}, folder.path()), UnorderedElementsAre("a job.djf", "other"));
  EXPECT_THAT(completed({"version", "a"}, folder.path()), IsEmpty());
  EXPECT_THAT(completed({"--set", "a"}, folder.path()), IsEmpty());
}

TEST(QvreposGenerate, BashCompletesFoldersAndTheValuesOfASmallSet) {
  const TempDir folder;
  folder.write("vault/file", "");
  folder.write("values", "");
  EXPECT_THAT(completed({"definitions", "create", "--vault", "va"}, folder.path()), ElementsAre("vault"));
  EXPECT_THAT(completed({"definitions", "create", "--type", ""}), ElementsAre("system", "user"));
  EXPECT_THAT(completed({"version", "--log-level", "d"}), ElementsAre("debug"));
  EXPECT_THAT(completed({"definitions", "create", "--connection", "O"}), ElementsAre("ODBC"));
}

TEST(QvreposGenerate, ANoteOfACommandIsNotRepeatedForItsSubcommands) {
  const std::string man = generated("man"), note = "The folders are the options";
  EXPECT_EQ(man.find(note), man.rfind(note));
  EXPECT_NE(man.find(note), std::string::npos);
}

TEST(QvreposGenerate, ZshTakesTheFileForTheToolAndFindsEveryFunctionThatItCalls) {
  const std::string zsh = generated("zsh");
  EXPECT_EQ(zsh.rfind("#compdef qvrepos\n", 0), 0U);
  static const std::regex call("\n +[a-z]+\\) (_qvrepos[a-z_]*) ;;");
  std::size_t calls = 0;
  for (std::sregex_iterator at(zsh.begin(), zsh.end(), call), end; at != end; ++at, ++calls)
    EXPECT_THAT(zsh, HasSubstr("\n" + std::string((*at)[1]) + "() {\n"));
  EXPECT_EQ(calls, allHelp().size()); // the tool's own behind "help"
  EXPECT_THAT(zsh, HasSubstr("user or system (default\\: user)]:TYPE:(user system)'"));
  EXPECT_THAT(
      zsh, HasSubstr("'(--config)--config[Read options from this INI file, instead of that of QV_CONFIG or "
                     "$XDG_CONFIG_HOME/qvrepos.ini]:FILE:_files'"));
  EXPECT_THAT(
      zsh, HasSubstr("'*--set[Set an option, for example DMSERVER/NAME=main; wins over --config]:KEY=VALUE:"
                     "_qvrepos_keys'"));
}

} // namespace
