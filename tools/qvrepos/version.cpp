// qvrepos version: what was built.
#include "host.h"

#include "qvreposres/qvreposres.h"

void addVersionCommand(CLI::App& app, Host& host) {
  auto* command = app.add_subcommand("version", "Print the library's version");
  addJsonFlag(*command, host, "a record: version, build, info");
  command->footer("Example: qvrepos version");
  command->callback([&host] {
    if (host.json)
      host.printJson({{"version", qvx_build_version}, {"build", qvx_build_number}, {"info", qvx_build_info}});
    else
      host.printLine(qvx_build_info);
  });
}
