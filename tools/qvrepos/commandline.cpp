#include "commandline.h"
#include "host.h"
#include "interrupt.h"
#include "settings.h"
#include "usage.h"

#include "qvreposres/qvreposres.h"

#include <csignal>
#include <cstdio>
#include <iostream>
#include <optional>
#include <sstream>

namespace {

void addGlobalOptions(CLI::App& app, Settings& settings, Host& host) {
  addSettings(app, settings, host);
  app.add_flag("-q,--quiet", host.quiet, "Show no progress and no hints");
  app.set_version_flag("--version", qvx_build_info, "Print the library's version and exit");
  app.get_formatter()->label("TEXT", ""); // operands are named in capitals
  app.footer(
      "`qvrepos help SUBCOMMAND` shows what a subcommand takes. The files of the examples are those of the "
      "project's folder, and of share/doc/libqvreposres-dev where the development files are installed.");
  app.fallthrough();
  app.require_subcommand(1);
}

// The library's process-wide holders, for as long as the tool runs.
struct LibrarySession {
  LibrarySession() {
    void* reserved = nullptr;
    qvReposResStartup(nullptr, &reserved);
  }
  ~LibrarySession() { qvReposResShutdown(); }
};

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
  Settings settings;
  CLI::App app("The services of the Repository Resource Library on the command line.", "qvrepos");
  addCommands(app, settings, host);
  std::optional<LibrarySession> session; // begins once the options are known: logging depends on them
  app.parse_complete_callback([&] {
    applySettings(settings, host);
    session.emplace();
  });

  try {
    app.parse(reversedWords(app, argc, argv));
  } catch (const CLI::ParseError& error) {
    return endParsing(app, error, host);
  } catch (const std::bad_alloc&) {
    host.reportFailure("out of memory");
  } catch (const std::exception& error) {
    host.reportFailure(error.what());
  }
  return host.finish();
}

} // namespace

void addCommands(CLI::App& app, Settings& settings, Host& host) {
  app.failure_message(usageMessage);
  addGlobalOptions(app, settings, host);
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
  refuseFlagValues(app);
}

int runCommandLine(int argc, char** argv) {
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
