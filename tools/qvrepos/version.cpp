// qvrepos version: what was built.
#include "host.h"

#include "qvreposres/qvreposres.h"

void addVersionCommand(CLI::App& app, Host& host) {
  auto* command = app.add_subcommand("version", "Print the library's version");
  auto json = std::make_shared<bool>(false);
  command->add_flag("--json", *json, "Print a record: version, build, info");
  command->footer("Example: qvrepos version");
  command->callback([&host, json] {
    if (*json)
      host.printJson({{"version", qvx_build_version}, {"build", qvx_build_number}, {"info", qvx_build_info}});
    else
      host.printLine(qvx_build_info);
  });
}
