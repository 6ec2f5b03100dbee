#include "host.h"
#include "interrupt.h"

#include "qvsfio/npfio.h"
#include "qvxbase/qvbconfig.h"
#include "qvxbase/qvbformat.h"
#include "qvxbase/qvuri.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <stdexcept>

void Host::setDefaultLogLevel(QvLoggingLevel level) const {
  if (logLevel == 0 && qvbGetConfigOption(QvbOptions::LogLevel).isEmpty())
    qvlogSetLevel(level);
}

void Host::print(std::string_view bytes) {
  if (m_outputError == 0 && std::fwrite(bytes.data(), 1, bytes.size(), stdout) != bytes.size())
    m_outputError = errno;
}

std::string jsonText(const nlohmann::ordered_json& value) {
  return value.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

void Host::printTable(const std::vector<std::string>& heading,
                      const std::vector<std::vector<std::string>>& rows) {
  std::string table;
  qvlineagegraph::writeColumns(heading, rows, table);
  print(table);
}

void Host::write(std::string_view result, const std::string& output) {
  if (output.empty() || output == "-")
    return print(result);
  if (const auto reason = writeFile(absolutePath(nativePath(output)), result); !reason.empty())
    reportFailure("cannot write " + output + ": " + reason);
}

void Host::flush() {
  if (std::fflush(stdout) != 0 && m_outputError == 0)
    m_outputError = errno;
}

void Host::warn(std::string_view message) {
  flush();
  std::fprintf(stderr, "qvrepos: %s\n", visible(message).c_str());
}

void Host::note(std::string_view message) {
  if (!quiet)
    warn(message);
}

void Host::reportFailure(std::string_view message) {
  warn(message);
  m_status = m_failure;
}

void Host::reportFinding(std::string_view message) {
  warn(message);
  endFailed();
}

int Host::finish() {
  flush();
  if (m_outputError != 0)
    reportFailure(std::string("cannot write the result to standard output: ") + std::strerror(m_outputError));
  return m_status;
}

void addJsonFlag(CLI::App& command, Host& host, const std::string& shape) {
  command.add_flag("--json", host.json, "Print JSON: " + shape);
}

void addOutputOption(CLI::App& command, std::string& output) {
  command
      .add_option("-o,--output", output, "Write to this file instead of standard output, which - stands for")
      ->type_name("FILE")
      ->check(notEmpty());
}

std::string visible(std::string_view bytes) { return toString(qvbEscapeControls(bytes)); }

std::string counted(std::size_t number, const std::string& one, const std::string& several) {
  return std::to_string(number) + " " + (number == 1 ? one : several.empty() ? one + "s" : several);
}

bool isXmlText(const std::string& bytes) {
  const bool hasControl = std::ranges::any_of(bytes, [](char byte) {
    return static_cast<unsigned char>(byte) < 0x20 && byte != '\t' && byte != '\n' && byte != '\r';
  });
  const bool hasNoncharacter =
      bytes.find("\xEF\xBF\xBE") != std::string::npos || bytes.find("\xEF\xBF\xBF") != std::string::npos;
  if (hasControl || hasNoncharacter)
    return false;
  try {
    return !nlohmann::json(bytes).dump().empty(); // throws for what is not UTF-8
  } catch (const nlohmann::json::type_error&) {
    return false;
  }
}

CLI::Validator xmlText() {
  return {[](const std::string& value) {
            return isXmlText(value) ? "" : "holds what XML cannot carry: " + visible(value);
          },
          ""};
}

CLI::Validator notEmpty() {
  return {[](const std::string& value) { return value.empty() ? "must not be empty" : ""; }, ""};
}

namespace {

// Empty when nothing speaks against a file of this name.
std::string whyNotWritable(const std::string& path) {
  namespace fs = std::filesystem;
  std::error_code ignored;
  const auto status = fs::status(path, ignored);
  if (fs::is_directory(status))
    return "it is a folder; name a file in it";
  if (fs::exists(status) && !fs::is_regular_file(status))
    return "it is not a regular file; redirect standard output to it instead";
  const auto folder = fs::path(path).parent_path();
  if (!fs::is_directory(folder, ignored))
    return "there is no folder " + folder.string() + "; make it first";
  return "";
}

} // namespace

std::string writeFile(const std::string& path, std::string_view content) {
  if (auto reason = whyNotWritable(path); !reason.empty())
    return reason;
  const Interrupts::Hold hold;
  const int failed = np_fio_writeAll(QvbString(path), QvbString(content));
  return failed == NP_FIO_OK ? "" : np_fio_errdesc(failed);
}

std::string nativePath(const std::string& given) {
  QvbString path = QvbString(given);
  const Released<QvURI> uri(getURIFromURIString(path));
  getNativePath(uri.get(), &path);
  return toString(path);
}

std::string absolutePath(const std::string& path) {
  if (path.empty())
    throw std::runtime_error("a file name must not be empty");
  if (isURIReference(QvbString(path)))
    return path;
  return std::filesystem::absolute(path).lexically_normal().string();
}
