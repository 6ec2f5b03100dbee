// qvrepos cache get: local copies of remote files.
#include "host.h"
#include "interrupt.h"
#include "progress.h"

#include "qvreposres/qvfilecache.h"
#include "qvsfio/npfio.h"
#include "qvxbase/qvuri.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <optional>
#include <set>

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

namespace {

constexpr std::int64_t largestCopy = std::int64_t{1} << 30;
constexpr std::size_t copiesWithABar = 2; // each file may take its time
constexpr const char* standardOutput = "-";
constexpr const char* passwordVariable = "QVREPOS_PASSWORD";

struct CacheOptions {
  std::vector<std::string> uris;
  std::string user;
  std::string output;
  bool keep = false;
};

// The terminal without echo, as long as this lives. An interrupt ends that, too.
class SilentTerminal {
public:
  SilentTerminal() : m_terminal(open("/dev/tty", O_RDWR | O_CLOEXEC)) {
    termios before{};
    if (m_terminal < 0 || tcgetattr(m_terminal, &before) != 0)
      return;
    const Interrupts::Hold hold;
    m_undo.emplace([this, before] {
      tcsetattr(m_terminal, TCSAFLUSH, &before);
      say("\n");
    });
    termios silent = before;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    silent.c_cc[VSUSP] = _POSIX_VDISABLE; // nobody else should find a terminal without echo
    tcsetattr(m_terminal, TCSAFLUSH, &silent);
  }
  ~SilentTerminal() {
    m_undo.reset();
    if (m_terminal >= 0)
      close(m_terminal);
  }
  SilentTerminal(const SilentTerminal&) = delete;
  SilentTerminal& operator=(const SilentTerminal&) = delete;

  bool isThere() const { return m_terminal >= 0; }
  void say(std::string_view text) const {
    if (write(m_terminal, text.data(), text.size()) < 0)
      return; // a prompt that cannot be shown does not keep the user from answering
  }
  // What is typed up to the end of the line; nothing when the input ends before.
  std::optional<std::string> readLine() const {
    std::string line;
    for (char byte = 0; read(m_terminal, &byte, 1) == 1; line += byte)
      if (byte == '\n')
        return line;
    return std::nullopt;
  }

private:
  int m_terminal;
  std::optional<Interrupts::Undo> m_undo;
};

// The password comes from the environment or the terminal: a command line is everybody's to read.
std::string askPassword(const std::string& user) {
  if (const char* given = std::getenv(passwordVariable))
    return given;
  const SilentTerminal terminal;
  if (!terminal.isThere())
    throw std::runtime_error(std::string("no terminal to ask for the password of ") + user + "; set " +
                             passwordVariable);
  terminal.say("Password of " + visible(user) + ": ");
  if (auto password = terminal.readLine())
    return *password;
  throw std::runtime_error("no password was given for " + user + "; type one, or set " + passwordVariable);
}

ReleasedSubject makeSubject(const std::string& user) {
  return ReleasedSubject(user.empty() ? qvbSubjectAccess()
                                      : qvbSubjectCreate(QvbString(user), QvbString(askPassword(user))));
}

// The last segment of a URI's or file's path: the name of its copy in a folder.
std::string copyName(const std::string& uri) {
  const Released<QvURI> parsed(getURIFromURIString(QvbString(uri)));
  return std::filesystem::path(parsed ? toString(parsed->getPath()) : uri).filename().string();
}

// Where the copies go: to the file itself, or standard output, for one URI, below the folder otherwise. Throws when two
// would have one name.
std::vector<std::string> targetsOf(const CacheOptions& options) {
  const bool isPrinted = options.output == standardOutput;
  const std::string output = nativePath(options.output);
  const bool intoFolder = !isPrinted && std::filesystem::is_directory(output);
  if (!intoFolder && options.uris.size() > 1)
    throw std::runtime_error("several files need a folder that exists as --output: " + options.output);
  std::vector<std::string> targets;
  std::set<std::string> taken;
  for (const auto& uri : options.uris) {
    const auto target = intoFolder ? (std::filesystem::path(output) / copyName(uri)).string() : output;
    if (!taken.insert(target).second)
      throw std::runtime_error("two of the files would be written to " + target +
                               "; fetch them one by one, each to an --output of its own");
    targets.push_back(isPrinted ? target : absolutePath(target));
  }
  return targets;
}

// Empty on success, else the reason.
std::string copyFile(Host& host, const QvbString& from, const std::string& to) {
  QvbString content;
  if (const int failed = np_fio_readAll(from, largestCopy, &content); failed != NP_FIO_OK)
    return "cannot read the copy " + toString(from) + ": " + np_fio_errdesc(failed);
  if (to == standardOutput) {
    host.print(content.view());
    return {};
  }
  const std::string reason = writeFile(to, content.view());
  return reason.empty() ? "" : "cannot write " + to + ": " + reason;
}

// The local copy's path; empty, with the reason in `reason`, when there is none.
QvbString fetch(FileAccessCache& cache, ASSubject* subject, const std::string& uri, std::string& reason) {
  QvbString local, error;
  const int failed = cache.getCacheFilename(subject, QvbString(uri), &local, &error);
  if (failed == 0 && np_fio_stat(local, nullptr) == NP_FIO_OK)
    return local;
  if (error.isEmpty())
    getMissingCopyReason(QvbString(uri), failed, &error);
  reason = uri + ": " + toString(error);
  return {};
}

struct FetchedFile {
  std::string uri;
  std::string copy; // its path
};

void printFetched(Host& host, const std::vector<FetchedFile>& files) {
  auto records = nlohmann::ordered_json::array();
  for (const auto& file : files)
    if (host.json)
      records.push_back({{"uri", file.uri}, {"file", file.copy}});
    else
      host.printLine(file.copy);
  if (host.json)
    host.printJson(records);
}

// Whether anything was fetched.
bool runGet(Host& host, const CacheOptions& options) {
  if (host.json && options.output == standardOutput)
    throw CLI::ValidationError("--output - prints the file itself: it takes no --json");
  const auto targets = options.output.empty() ? std::vector<std::string>() : targetsOf(options);
  const ReleasedSubject subject = makeSubject(options.user);
  FileAccessCache* cache = getFileCache();
  if (!cache)
    throw std::bad_alloc();
  std::vector<FetchedFile> results;
  std::vector<std::string> failures;
  {
    ProgressBar bar(host, options.uris.size(), copiesWithABar);
    for (std::size_t i = 0; i < options.uris.size(); ++i, bar.step()) {
      std::string reason;
      const QvbString local = fetch(*cache, subject.get(), options.uris[i], reason);
      if (reason.empty() && !targets.empty())
        reason = copyFile(host, local, targets[i]);
      if (!reason.empty())
        failures.push_back(reason);
      else
        results.push_back({options.uris[i], targets.empty() ? toString(local) : targets[i]});
    }
  }
  if (options.output != standardOutput)
    printFetched(host, results);
  for (const auto& reason : failures)
    host.reportFailure(reason);
  return !results.empty();
}

// The copies live in the tool's own temporary folder, which an interrupt removes too.
void getInScratch(Host& host, const CacheOptions& options) {
  host.setDefaultLogLevel(QvLoggingLevel::Critical); // what the library logs as an error is reported here
  Interrupts::Scratch scratch;
  const bool fetched = runGet(host, options);
  if (fetched && options.keep)
    return scratch.keep();
  if (fetched && options.output.empty())
    host.note("the copies are gone when this command ends: --keep leaves them, --output puts them elsewhere");
  qvFileCacheShutdown();
}

} // namespace

void addCacheCommand(CLI::App& app, Host& host) {
  auto* cache = app.add_subcommand("cache", "Fetch local copies of remote files");
  cache->require_subcommand(1);
  auto options = std::make_shared<CacheOptions>();
  auto* get = cache->add_subcommand("get", "Fetch files and print the paths of their copies");
  get->add_option("URI", options->uris, "http, https or file URIs, or paths")
      ->required()

      ->check(notEmpty());
  get->add_option("--user", options->user,
                  "Fetch on behalf of this user; the password comes from QVREPOS_PASSWORD or a prompt")
      ->type_name("NAME");
  auto* output =
      get->add_option("-o,--output", options->output,
                      "Copy to this file, or, for several URIs, into this folder; - is standard output")
          ->type_name("PATH")
          ->check(notEmpty());
  get->add_flag("--keep", options->keep,
                "Leave the printed copies where they are; otherwise they end with the command")
      ->excludes(output);
  addJsonFlag(*get, host, "an array of records: uri, file");
  get->footer("The option AUTH/SERVER names the ticket server of http and https.\n"
              "Example: qvrepos cache get file:///etc/hostname -o copy.txt");
  get->callback([&host, options] { getInScratch(host, *options); });
}
