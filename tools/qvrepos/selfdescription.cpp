// qvrepos generate: the manual page and the shell completions, made of the command line's own description, and the
// tables of README.md and docs/options.md. A hidden subcommand, which the build and scripts/docs run.
#include "host.h"
#include "settings.h"
#include "usage.h"

#include "qvreposres/cpp.h"
#include "qvxbase/qvboptions.h"

#include <fmt/format.h>

#include <map>

namespace {

// An option, or an operand: then the only name is the one that stands for its value.
struct Parameter {
  std::vector<std::string> names; // as typed, the short ones first
  std::string value;              // the name of its value, empty for a flag
  std::string help;
  std::vector<std::string> choices; // all values, where they are few
  std::string source;               // the form of this command that prints the values, where it is not a few
  bool required = false;
  bool repeated = false;
};

struct Command {
  std::string words; // "qvrepos cache get"
  std::string help;
  std::vector<std::string> notes;
  std::vector<std::string> examples;
  std::vector<Parameter> options;
  std::vector<Parameter> operands;
  std::vector<Command> subcommands;

  std::string name() const { return words.substr(words.rfind(' ') + 1); }
};

std::string replaceAll(std::string text, std::string_view from, std::string_view to) {
  for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
    text.replace(at, from.size(), to);
  return text;
}

// The description of a type is "NAME:{a,b}" where the values are a set.
std::vector<std::string> choicesIn(const std::string& type) {
  const auto open = type.find('{'), close = type.rfind('}');
  if (open == std::string::npos || close == std::string::npos)
    return {};
  return CLI::detail::split(type.substr(open + 1, close - open - 1), ',');
}

Parameter describe(const CLI::Option& option) {
  Parameter parameter;
  for (const auto& name : option.get_snames())
    parameter.names.push_back("-" + name);
  for (const auto& name : option.get_lnames())
    parameter.names.push_back("--" + name);
  const std::string type = option.get_type_name();
  if (parameter.names.empty())
    parameter.value = option.get_name(true);
  else if (option.get_items_expected_max() > 0)
    parameter.value = type.substr(0, type.find(':'));
  parameter.help = option.get_description();
  parameter.choices = choicesIn(type);
  parameter.required = option.get_required();
  parameter.repeated = option.get_items_expected_max() > 1 ||
                       option.get_multi_option_policy() == CLI::MultiOptionPolicy::TakeAll;
  return parameter;
}

// Which form prints what the operand of a command may be.
std::string sourceOf(const std::string& words, const Parameter& operand) {
  if (operand.value != "NAME")
    return {};
  if (words == "qvrepos types")
    return "types";
  return words.starts_with("qvrepos definitions ") && words != "qvrepos definitions create" ? "definitions"
                                                                                            : "";
}

Command describe(const CLI::App& app, const std::string& words) {
  Command command{words, app.get_description(), {}, {}, {}, {}, {}};
  static const std::string exampleMark = "Example: ";
  const bool inherited = app.get_parent() && app.get_parent()->get_footer() == app.get_footer();
  for (const auto& line : CLI::detail::split(inherited ? "" : app.get_footer(), '\n'))
    if (line.rfind(exampleMark, 0) == 0)
      command.examples.push_back(line.substr(exampleMark.size()));
    else if (!line.empty())
      command.notes.push_back(line);
  for (const CLI::Option* option : app.get_options())
    if (!option->get_group().empty())
      (option->nonpositional() ? command.options : command.operands).push_back(describe(*option));
  for (auto& operand : command.operands)
    operand.source = sourceOf(words, operand);
  for (const CLI::App* child :
       app.get_subcommands([](const CLI::App* sub) { return !sub->get_group().empty(); }))
    command.subcommands.push_back(describe(*child, words + " " + child->get_name()));
  return command;
}

template<class Visit>
void visitCommands(const Command& command, const Visit& visit) {
  visit(command);
  for (const auto& child : command.subcommands)
    visitCommands(child, visit);
}

bool isFolder(const Parameter& parameter) { return parameter.value == "DIR"; }
bool isFile(const Parameter& parameter) {
  return parameter.value == "FILE" || parameter.value == "PATH" || parameter.value == "URI";
}

// The manual page.

// Text that no formatter takes for a request or an escape.
std::string roff(const std::string& text) {
  std::string safe = replaceAll(replaceAll(text, "\\", "\\e"), "-", "\\-");
  safe = replaceAll(replaceAll(std::move(safe), "\"", "\\(dq"), "'", "\\(aq");
  return safe.rfind('.', 0) == 0 ? "\\&" + safe : safe;
}

std::string roffNames(const Parameter& parameter) {
  std::vector<std::string> names;
  for (const auto& name : parameter.names)
    names.push_back("\\fB" + roff(name) + "\\fR");
  std::string line = CLI::detail::join(names, ", ");
  if (!parameter.value.empty())
    line += (line.empty() ? "\\fI" : " \\fI") + roff(parameter.value) + "\\fR";
  return line;
}

std::string roffParameters(const std::vector<Parameter>& parameters) {
  std::string page;
  for (const auto& parameter : parameters)
    page += fmt::format(".TP\n{}\n{}\n", roffNames(parameter),
                        parameter.help.empty() ? "\\&" : roff(parameter.help));
  return page;
}

std::string roffSynopsis(const Command& command) {
  std::string line = "\\fB" + roff(command.words) + "\\fR [\\fIOPTIONS\\fR]";
  for (const auto& operand : command.operands) {
    const std::string value = "\\fI" + roff(operand.value) + "\\fR" + (operand.repeated ? "..." : "");
    line += operand.required ? " " + value : " [" + value + "]";
  }
  return line + (command.subcommands.empty() ? "" : " \\fISUBCOMMAND\\fR");
}

std::string roffNotes(const Command& command) {
  std::string page;
  for (const auto& note : command.notes)
    page += ".PP\n" + roff(note) + "\n";
  return page;
}

std::string roffCommands(const Command& root) {
  std::string page;
  visitCommands(root, [&](const Command& command) {
    if (&command != &root)
      page += ".SS " + roffSynopsis(command) + "\n" + roff(command.help) + ".\n" +
              roffParameters(command.operands) + roffParameters(command.options) + roffNotes(command);
  });
  return page;
}

std::string roffExamples(const Command& root) {
  std::string page;
  visitCommands(root, [&](const Command& command) {
    for (const auto& example : command.examples)
      page += fmt::format(".PP\n{}:\n.PP\n.RS 4\n.nf\n{}\n.fi\n.RE\n", roff(command.help), roff(example));
  });
  return page;
}

// What --set and --config set.
std::string roffLibraryOptions() {
  std::string page;
  for (const auto* option : QvbOptions::All) {
    const std::string standard = *option->standard ? fmt::format(" (default: {})", option->standard) : "";
    page += fmt::format(".TP\n\\fB{}\\fR\n{}\n", roff(option->key), roff(option->meaning + standard));
  }
  return page;
}

std::string manualPage(const Command& root) {
  std::string page = fmt::format(".TH QVREPOS 1 \"\" \"qvrepos {}\" \"User Commands\"\n", qvx_build_version);
  page += ".SH NAME\nqvrepos \\- " + roff(root.help) + "\n";
  page += ".SH SYNOPSIS\n" + roffSynopsis(root) + "\n";
  page += ".SH DESCRIPTION\nResults go to standard output, everything else to standard error.\n" +
          roffNotes(root);
  page += ".SH OPTIONS\nEvery subcommand takes these too.\n" + roffParameters(root.options);
  page += ".SH SUBCOMMANDS\n" + roffCommands(root);
  page += ".SH \"LIBRARY OPTIONS\"\nThese are set with \\fB\\-\\-set\\fR, or in the file of "
          "\\fB\\-\\-config\\fR, "
          "where the part before the slash is the section.\n" +
          roffLibraryOptions();
  page += fmt::format(
      ".SH \"EXIT STATUS\"\n.TP\n{}\nSuccess.\n.TP\n{}\nThe operation failed, for some input at least; "
      "standard error says why. With diff \\-\\-exit\\-code and audit \\-\\-fail\\-on: there is a "
      "difference, or a "
      "finding.\n.TP\n{}\nWrong usage; with these options a failure, too.\n",
      exitSuccess, exitFailed, exitUsage);
  page +=
      ".SH ENVIRONMENT\n.TP\n.B QV_CONFIG\nThe INI file of options, where \\fB\\-\\-config\\fR names none.\n"
      ".TP\n.B XDG_CONFIG_HOME\nThe folder of qvrepos.ini, which is read where neither names one; ~/.config "
      "where it is "
      "not set.\n"
      ".TP\n.B QVREPOS_PASSWORD\nThe password that goes with \\fB\\-\\-user\\fR.\n";
  return page + ".SH EXAMPLES\n" + roffExamples(root);
}

// The shells.

// Text as one word of a shell.
std::string shellWord(const std::string& text) { return "'" + replaceAll(text, "'", "'\\''") + "'"; }

bool isSetting(const Parameter& parameter) { return parameter.value == "KEY=VALUE"; }

// What bash completes a value to: "file", "directory", "words" and then the words, "keys" and then what goes before an
// equals sign, "names" and then the form that prints them, or "any" for text of any kind.
std::string bashValue(const Parameter& parameter) {
  if (isSetting(parameter))
    return "keys " + CLI::detail::join(optionKeys(), " ");
  if (!parameter.source.empty())
    return "names " + parameter.source;
  if (!parameter.choices.empty())
    return "words " + CLI::detail::join(parameter.choices, " ");
  return isFile(parameter) ? "file" : isFolder(parameter) ? "directory" : "any";
}

// That of the operands which can be listed, or else the last, which may be repeated.
std::string bashOperand(const Command& command) {
  if (command.operands.empty())
    return "any";
  const bool isListed = !command.operands.front().source.empty();
  return bashValue(isListed ? command.operands.front() : command.operands.back());
}

std::string bashCommand(const Command& command) {
  std::vector<std::string> subcommands, options;
  for (const auto& child : command.subcommands)
    subcommands.push_back(child.name());
  for (const auto& option : command.options)
    options.insert(options.end(), option.names.begin(), option.names.end());
  return fmt::format("    {})\n      subcommands={} options={} operand={}\n      ;;\n",
                     shellWord(command.words), shellWord(CLI::detail::join(subcommands, " ")),
                     shellWord(CLI::detail::join(options, " ")), shellWord(bashOperand(command)));
}

// The cases of those options that take a value; `scope` is how their pattern begins.
std::string bashValues(const Command& command, const std::string& scope) {
  std::string cases;
  for (const auto& option : command.options) {
    if (option.value.empty())
      continue;
    for (const auto& name : option.names)
      cases += fmt::format("    {} {}\") value={} ;;\n", scope, name, shellWord(bashValue(option)));
  }
  return cases;
}

constexpr const char* bashWalk = R"(_qvrepos() {
  local current=${COMP_WORDS[COMP_CWORD]} command=qvrepos value= word i subcommands options operand
  _qvrepos_command "$command"
  local common=$options
  ((COMP_CWORD > 1)) || subcommands+=" help"
  for ((i = 1; i < COMP_CWORD; i++)); do
    word=${COMP_WORDS[i]}
    if [[ $word == = ]]; then
      value=${value:-any} # "--option=value" is three words here, and "KEY=VALUE" too
    elif [[ $value ]]; then
      value=
    elif [[ $word == -* ]]; then
      _qvrepos_value "$command $word"
    elif [[ " $subcommands " == *" $word "* ]]; then
      command+=" $word"
      _qvrepos_command "$command"
    fi
  done
  [[ $current == = ]] && current=
  if [[ $value ]]; then
    operand=$value
  elif [[ $current == -* ]]; then
    operand="words $options $common"
  elif [[ $subcommands ]]; then
    operand="words $subcommands"
  fi
  COMPREPLY=()
  case $operand in
    file | directory)
      mapfile -t COMPREPLY < <(compgen -A "$operand" -- "$current")
      compopt -o filenames 2>/dev/null # fails where no key was pressed
      ;;
    keys*)
      mapfile -t COMPREPLY < <(compgen -S = -W "${operand#keys}" -- "$current")
      compopt -o nospace 2>/dev/null || true
      ;;
    names*)
      mapfile -t COMPREPLY < <(qvrepos generate "${operand#names }" 2>/dev/null | while IFS= read -r word; do
        [[ $word != "$current"* ]] || printf '%q\n' "$word"
      done)
      ;;
    words*) mapfile -t COMPREPLY < <(compgen -W "${operand#words}" -- "$current" | sort -u) ;;
  esac
}
complete -F _qvrepos qvrepos
)";

std::string bashCompletion(const Command& root) {
  std::string commands, values;
  visitCommands(root, [&](const Command& command) {
    commands += bashCommand(command);
    if (&command != &root)
      values += bashValues(command, "\"" + command.words);
  });
  values += bashValues(root, "*\""); // after any command
  return "# bash completion of qvrepos\n_qvrepos_command() {\n  case $1 in\n" + commands +
         "  esac\n}\n_qvrepos_value() {\n  value=\n  case $1 in\n" + values + "  esac\n}\n" + bashWalk;
}

// Text within an argument of _arguments, where these characters would end it.
std::string zshText(std::string text) {
  for (const char* special : {"\\", ":", "[", "]"})
    text = replaceAll(std::move(text), special, std::string("\\") + special);
  return text;
}

std::string zshAction(const Parameter& parameter) {
  if (isSetting(parameter))
    return "_qvrepos_keys";
  if (!parameter.source.empty())
    return "(${(f)\"$(qvrepos generate " + parameter.source + " 2>/dev/null)\"})";
  if (!parameter.choices.empty())
    return "(" + CLI::detail::join(parameter.choices, " ") + ")";
  return isFile(parameter) ? "_files" : isFolder(parameter) ? "_files -/" : " ";
}

// One argument for each name; a name excludes the others of its option.
std::string zshOption(const Parameter& option) {
  std::string lines;
  for (const auto& name : option.names) {
    std::string spec = option.repeated ? "*" : "(" + CLI::detail::join(option.names, " ") + ")";
    spec += name + "[" + zshText(option.help) + "]";
    if (!option.value.empty())
      spec += ":" + zshText(option.value) + ":" + zshAction(option);
    lines += "    " + shellWord(spec) + " \\\n";
  }
  return lines;
}

std::string zshOperands(const Command& command) {
  if (!command.subcommands.empty())
    return "    '1: :->subcommand' \\\n    '*:: :->rest'\n";
  std::string lines;
  for (const auto& operand : command.operands)
    lines += "    " +
             shellWord((operand.repeated   ? "*:"
                        : operand.required ? ":"
                                           : "::") +
                       zshText(operand.value) + ":" + zshAction(operand)) +
             " \\\n";
  return lines + "    && return 0\n";
}

std::string zshFunction(const std::string& words) { return "_" + replaceAll(words, " ", "_"); }

// Offers the subcommands, or hands the words from the subcommand on over to its function; those behind "help" to that of
// the tool itself.
std::string zshSubcommands(const Command& command, bool isTool) {
  std::string names, calls;
  const auto add = [&](const std::string& name, const std::string& help, const std::string& words) {
    names += "        " + shellWord(zshText(name) + ":" + help) + "\n";
    calls += fmt::format("        {}) {} ;;\n", name, zshFunction(words));
  };
  for (const auto& child : command.subcommands)
    add(child.name(), child.help, child.words);
  if (isTool)
    add("help", "Show what a subcommand takes", command.words);
  return fmt::format("  case $state in\n    subcommand)\n      subcommands=(\n{}      )\n"
                     "      _describe -t commands subcommand subcommands\n      ;;\n"
                     "    rest)\n      case $words[1] in\n{}      esac\n      ;;\n  esac\n",
                     names, calls);
}

std::string zshCommand(const Command& command, const Command& root) {
  std::string script = zshFunction(command.words) +
                       "() {\n  local context state state_descr line\n  local -a subcommands\n"
                       "  typeset -A opt_args\n  _arguments -C \\\n";
  for (const auto& option : command.options)
    script += zshOption(option);
  for (const auto& option : root.options)
    if (&command != &root && option.names.back() != "--help")
      script += zshOption(option);
  script += zshOperands(command);
  return script + (command.subcommands.empty() ? "" : zshSubcommands(command, &command == &root)) + "}\n";
}

std::string zshCompletion(const Command& root) {
  std::string script =
      "#compdef qvrepos\n_qvrepos_keys() { compadd -S = -- " + CLI::detail::join(optionKeys(), " ") + " }\n";
  visitCommands(root, [&](const Command& command) { script += zshCommand(command, root); });
  return script + "_qvrepos \"$@\"\n";
}

// "types [NAME]"; of a command with subcommands their names.
std::string codeOf(const Command& command) {
  std::string code = "`" + command.name();
  for (const auto& operand : command.operands) {
    const std::string value = operand.value + (operand.repeated ? "..." : "");
    code += operand.required ? " " + value : " [" + value + "]";
  }
  for (const auto& child : command.subcommands)
    code += (&child == &command.subcommands.front() ? " " : "`, `") + child.name();
  return code + "`";
}

// The rows of README.md.
std::string commandTable(const Command& root) {
  std::string table = "| command | what it does |\n|---|---|\n";
  for (const auto& command : root.subcommands)
    table += fmt::format("| {} | {} |\n", codeOf(command), command.help);
  return table;
}

// The rows of docs/options.md.
std::string optionTable(const Command&) {
  std::string table = "| key | meaning | default |\n|---|---|---|\n";
  for (const auto* option : QvbOptions::All)
    table += fmt::format("| `{}` | {} | {} |\n", option->key, option->meaning,
                         *option->standard ? option->standard : "none");
  return table;
}

std::string typeNames(const Command&) { return CLI::detail::join(objectTypes(), "\n") + "\n"; }

std::string definitionNames(const Command&) {
  std::string names;
  qvreposres::Definitions definitions;
  for (const auto& definition : definitions.all())
    names += definition.name() + "\n";
  return names;
}

} // namespace

void addGenerateCommand(CLI::App& app, Host& host) {
  static const std::map<std::string, std::string (*)(const Command&)> forms{{"man", manualPage},
                                                                            {"bash", bashCompletion},
                                                                            {"zsh", zshCompletion},
                                                                            {"commands", commandTable},
                                                                            {"options", optionTable},
                                                                            {"types", typeNames},
                                                                            {"definitions", definitionNames}};
  auto* command = app.add_subcommand("generate", "Print the manual page, a shell's completion, a table of "
                                                 "the documents, or what completions offer")
                      ->group("");
  auto form = std::make_shared<std::string>();
  command->add_option("FORM", *form, "What to print")->required()->transform(oneOfKeys(forms));
  command->callback([&app, &host, form] { host.print(forms.at(*form)(describe(app, app.get_name()))); });
}
