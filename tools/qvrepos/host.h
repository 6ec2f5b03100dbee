// What the subcommands of the host tool share: options, output, messages and the exit status.
#pragma once

#include "qvlineagegraph/columns.h"
#include "qvreposres/cpptext.h"
#include "qvxbase/qvbreleased.h"
#include "qvxlog/qvxlog.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

using qvreposres::toString;

// Exit statuses of the tool.
inline constexpr int exitSuccess = 0;
inline constexpr int exitFailed = 1; // for some input
inline constexpr int exitUsage = 2;
inline constexpr int exitTrouble = 2; // failed, where 1 answers a question

// JSON as it is printed: two blanks a level, a line feed at the end, and U+FFFD for bytes that are not UTF-8.
std::string jsonText(const nlohmann::ordered_json& value);

// One run of the tool. A subcommand prints results, reports failures and goes on with its other inputs; the exit status
// is 1 as soon as anything was reported.
class Host {
public:
  bool quiet = false;
  bool json = false; // print results as JSON
  int logLevel = 0;  // the user's choice, 0 for none
  // The level from which the library's log records are shown, when the user chose none. Failures reach the user as
  // results, and a warning that every lookup repeats is noise; commands about what is warned of lower it.
  void setDefaultLogLevel(QvLoggingLevel level) const;

  // Results, to standard output.
  void print(std::string_view bytes);
  void printLine(std::string_view line) {
    print(line);
    print("\n");
  }
  void printJson(const nlohmann::ordered_json& value) { print(jsonText(value)); }
  // The result as a file, or printed where no file is named.
  void write(std::string_view result, const std::string& output);
  // Columns as qvlineagegraph::writeColumns() has them.
  void printTable(const std::vector<std::string>& heading, const std::vector<std::vector<std::string>>& rows);

  // A failure, to standard error: "qvrepos: <message>". The run ends with status 1, or as tellFailuresApart() says.
  void reportFailure(std::string_view message);
  // Status 1 for a result that says itself what is amiss, or says so to standard error.
  void endFailed() { m_status = std::max(m_status, exitFailed); }
  void reportFinding(std::string_view message);
  // From now on failures end with another status than that, so that a script can tell them apart.
  void tellFailuresApart() { m_failure = exitTrouble; }
  // A hint about a result that may surprise, to standard error; the status stays. Silent with --quiet.
  void note(std::string_view message);
  // A hint that shows with --quiet, too.
  void warn(std::string_view message);
  // Flushes the results; what could not be written is a failure.
  int finish();

private:
  // Results come before what is said of them.
  void flush();

  int m_status = exitSuccess;
  int m_failure = exitFailed;
  int m_outputError = 0;
};

// The flag --json of a command; the shape reads like "an array of records: type, extension".
void addJsonFlag(CLI::App& command, Host& host, const std::string& shape);
void addOutputOption(CLI::App& command, std::string& output);

// Text with control characters as escapes ("\n", "\x1b"), as qvbEscapeControls() has it.
std::string visible(std::string_view bytes);

// "1 job", "2 jobs".
std::string counted(std::size_t number, const std::string& one, const std::string& several = "");

// Whether the bytes are UTF-8 without control characters other than tab, line feed and carriage return, U+FFFE and
// U+FFFF, so that XML can carry them.
bool isXmlText(const std::string& bytes);
// For options whose value goes into XML, and for those that name a file: refuse what would be lost.
CLI::Validator xmlText();
CLI::Validator notEmpty();

// Puts a file in place, whole or not at all. Why that failed; empty when it did not.
std::string writeFile(const std::string& path, std::string_view content);

// A file URI as the path that it stands for; anything else as it is.
std::string nativePath(const std::string& given);

// The path as an absolute one without "." and "..", so that what names it does not depend on where the tool runs. A
// URI stays as it is. Throws for an empty path.
std::string absolutePath(const std::string& path);

// The object types that there are, each once, in the order of their names.
std::vector<std::string> objectTypes();

void addLineageCommand(CLI::App& app, Host& host);
void addResourcesCommand(CLI::App& app, Host& host);
void addDefinitionsCommand(CLI::App& app, Host& host);
void addIdentityCommand(CLI::App& app, Host& host);
void addUriCommands(CLI::App& app, Host& host);
void addTypesCommand(CLI::App& app, Host& host);
void addCacheCommand(CLI::App& app, Host& host);
void addVersionCommand(CLI::App& app, Host& host);
void addGraphCommands(CLI::App& app, Host& host);
void addDiffCommand(CLI::App& app, Host& host);
void addAuditCommand(CLI::App& app, Host& host);
void addGenerateCommand(CLI::App& app, Host& host);
